// A dissector in Lua. Unix sockets carry no addresses, so what is dissected are captures in which a
// message is a packet of its own: those that vimbractl monitor writes.
#include <map>
#include <string>
#include <vector>

#include "messages.hpp"
#include "writers.hpp"

namespace protocol {
namespace {

const char* const kHead = R"(-- Dissector of the protocol between libvimbra and the network daemon.
-- Made by vimbra-protocol --lua from the headers: not to be edited.
--
-- Put it into the analyser's plug-in folder. It takes packets of DLT 147 (USER0): one message each, a byte
-- before it that tells its direction: 0 a request, 1 a reply (with the request's type in the header's
-- place), 2 a notification.

local vimbra = Proto("vimbra", "Vimbra network daemon")
local directions = { [0] = "request", [1] = "reply", [2] = "notification" }

local f_direction = ProtoField.uint8("vimbra.direction", "Direction", base.DEC, directions)
local f_type = ProtoField.uint32("vimbra.type", "Type", base.DEC)
local f_size = ProtoField.uint32("vimbra.size", "Size", base.DEC)
local f_flag = ProtoField.int32("vimbra.flag", "Flag", base.DEC)
local f_number = ProtoField.string("vimbra.number", "Number")
local f_text = ProtoField.string("vimbra.text", "Text")
local f_bytes = ProtoField.bytes("vimbra.bytes", "Bytes")
vimbra.fields = { f_direction, f_type, f_size, f_flag, f_number, f_text, f_bytes }

-- Each record is a list of { name, kind, offset, size, count, record }.
local records = {}
)";

const char* const kTail = R"lua(
local function number(range, signed)
    if range:len() == 8 then
        return signed and tostring(range:le_int64()) or tostring(range:le_uint64())
    end
    return tostring(signed and range:le_int() or range:le_uint())
end

local function address(range)
    local family = range(0, 2):le_uint()
    if family == 2 then
        return tostring(range(4, 4):ipv4())
    elseif family == 10 then
        return tostring(range(4, 16):ipv6())
    end
    return "none"
end

local show

local function element(tree, name, kind, range, record)
    if kind == "record" then
        show(tree:add(vimbra, range, name), range, record)
    elseif kind == "unsigned" or kind == "signed" then
        tree:add(f_number, range, number(range, kind == "signed")):set_text(
            name .. ": " .. number(range, kind == "signed"))
    elseif kind == "text" then
        tree:add(f_text, range, range:stringz()):set_text(name .. ": " .. range:stringz())
    elseif kind == "secret" then
        tree:add(f_text, range, "***"):set_text(name .. ": ***")
    elseif kind == "address" then
        tree:add(f_text, range, address(range)):set_text(name .. ": " .. address(range))
    else
        tree:add(f_bytes, range):set_text(name .. ": " .. tostring(range:bytes()))
    end
end

show = function(tree, range, record)
    for _, field in ipairs(records[record]) do
        local name, kind, offset, size, count, inner = table.unpack(field)
        for i = 0, count - 1 do
            if offset + (i + 1) * size <= range:len() then
                local title = count > 1 and name .. "[" .. i .. "]" or name
                element(tree, title, kind, range(offset + i * size, size), inner)
            end
        end
    end
end

local function find(list, type, size)
    local any
    for _, message in ipairs(list) do
        if type >= message.first and type <= message.last then
            if message.size == size then
                return message
            end
            any = any or message
        end
    end
    return any
end

function vimbra.dissector(buffer, info, root)
    if buffer:len() < 13 then
        return 0
    end
    local direction = buffer(0, 1):uint()
    local type = buffer(1, 4):le_uint()
    local size = buffer:len() - 13
    local message
    if direction == 2 then
        message = find(notifications, type, size)
    elseif direction == 1 then
        message = find(replies, type, size)
    else
        message = find(requests, type, size)
    end
    local name = message and message.name or "unknown"
    info.cols.protocol = "Vimbra"
    info.cols.info = (directions[direction] or "?") .. " " .. name
    local tree = root:add(vimbra, buffer(), "Vimbra " .. (directions[direction] or "?") .. ": " .. name)
    tree:add(f_direction, buffer(0, 1))
    tree:add_le(f_type, buffer(1, 4))
    tree:add_le(f_size, buffer(5, 4))
    tree:add_le(f_flag, buffer(9, 4))
    if size > 0 then
        local body = buffer(13)
        if message and message.record and message.size == size then
            show(tree, body, message.record)
        else
            tree:add(f_bytes, body)
        end
    end
    return buffer:len()
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, vimbra)
)lua";

class Writer {
 public:
    explicit Writer(std::ostream& out) : out_(out) {}

    void Write() {
        out_ << kHead;
        for (const Request& request : Requests()) {
            Need(request.body.record);
            Need(request.reply.record);
        }
        for (const Notification& each : Notifications()) {
            Need(each.body.record);
        }
        out_ << "\nrequests = {\n";
        for (const Request& each : Requests()) {
            Line(each.type, each.type, each.name, each.body);
        }
        out_ << "}\nreplies = {\n";
        for (const Request& each : Requests()) {
            Line(each.type, each.type, each.name, each.reply);
        }
        out_ << "}\nnotifications = {\n";
        for (const Notification& each : Notifications()) {
            Line(each.firstType, each.lastType, each.name, each.body);
        }
        out_ << "}\n" << kTail;
    }

 private:
    // Records of one name differ in size where a table's number follows.
    static std::string KeyOf(const Record& record) {
        return std::string(record.name) + "_" + std::to_string(record.size);
    }

    void Need(const Record* record) {
        if (record == nullptr || !known_.try_emplace(KeyOf(*record), true).second) {
            return;
        }
        for (const Field& field : record->fields) {
            Need(field.record != nullptr ? &field.record() : nullptr);
        }
        out_ << "records[\"" << KeyOf(*record) << "\"] = {\n";
        for (const Field& field : record->fields) {
            out_ << "    { \"" << field.name << "\", \"" << NameOf(field.kind) << "\", "
                 << field.offset << ", " << field.size << ", " << field.count;
            if (field.record != nullptr) {
                out_ << ", \"" << KeyOf(field.record()) << '"';
            }
            out_ << " },\n";
        }
        out_ << "}\n";
    }

    void Line(u32 first, u32 last, const char* name, const Body& body) {
        out_ << "    { first = " << first << ", last = " << last << ", name = \"" << name
             << "\", size = " << (body.record != nullptr ? body.record->size : 0);
        if (body.record != nullptr) {
            out_ << ", record = \"" << KeyOf(*body.record) << '"';
        }
        out_ << " },\n";
    }

    std::ostream& out_;
    std::map<std::string, bool> known_;
};

}  // namespace

void WriteDissector(std::ostream& out) {
    Writer(out).Write();
}

}  // namespace protocol
