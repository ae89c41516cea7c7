#include "value.hpp"

#include <arpa/inet.h>
#include <vimbra/addr.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <limits>
#include <string>

namespace protocol {
namespace {

using View = std::span<const std::byte>;

// The bytes of an element, zero past the end of what came.
std::vector<std::byte> Cut(View bytes, size_t offset, size_t size) {
    std::vector<std::byte> cut(size);
    if (offset < bytes.size()) {
        std::memcpy(cut.data(), bytes.data() + offset, std::min(size, bytes.size() - offset));
    }
    return cut;
}

u64 NumberOf(View bytes) {
    u64 value = 0;
    if (bytes.size() == 2) {
        u16 half = 0;
        std::memcpy(&half, bytes.data(), sizeof(half));
        return half;
    }
    if (bytes.size() == 4) {
        u32 word = 0;
        std::memcpy(&word, bytes.data(), sizeof(word));
        return word;
    }
    std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof(value)));
    return value;
}

// Up to the first zero. What is not ASCII is told by its number, for JSON takes no broken UTF-8.
std::string TextOf(View bytes) {
    std::string text;
    for (std::byte each : bytes) {
        const auto c = std::to_integer<unsigned char>(each);
        if (c == 0) {
            break;
        }
        if (c < 0x20 || c > 0x7e || c == '\\') {
            constexpr char kDigits[] = "0123456789abcdef";
            text += {'\\', 'x', kDigits[c >> 4], kDigits[c & 15]};
        } else {
            text += static_cast<char>(c);
        }
    }
    return text;
}

// null where the address is none; one of another family as its bytes.
Json AddressOf(View bytes) {
    TVimbraAddr address;
    std::memcpy(&address, bytes.data(), sizeof(address));
    const bool isV4 = address.wSinFamily == VIMBRA_FAMILY_IPV4;
    if (isV4 || address.wSinFamily == VIMBRA_FAMILY_IPV6) {
        std::array<char, INET6_ADDRSTRLEN> text{};
        inet_ntop(isV4 ? AF_INET : AF_INET6, &address.tV4Addr, text.data(), text.size());
        return text.data();
    }
    const bool isZero =
        std::ranges::all_of(bytes, [](std::byte each) { return each == std::byte{}; });
    return isZero ? Json(nullptr) : Json{{"bytes", Hex(bytes)}};
}

Json ElementOf(const Field& field, View bytes) {
    switch (field.kind) {
        case Kind::kUnsigned:
            return NumberOf(bytes);
        case Kind::kSigned:
            return field.size == 8 ? Json(static_cast<s64>(NumberOf(bytes)))
                                   : Json(static_cast<s32>(NumberOf(bytes)));
        case Kind::kText:
            return TextOf(bytes);
        case Kind::kSecret:
            return TextOf(bytes).empty() ? "" : "***";
        case Kind::kAddress:
            return AddressOf(bytes);
        case Kind::kRecord:
            return Decode(field.record(), bytes);
        default: {
            std::string text = Hex(bytes);
            if (field.kind == Kind::kMac) {
                std::ranges::replace(text, ' ', ':');
            }
            return text;
        }
    }
}

std::byte Nibble(char c) {
    const char low = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return static_cast<std::byte>(low <= '9' ? low - '0' : low - 'a' + 10);
}

// Two digits a byte, with or without something between the bytes.
Bytes FromHex(const std::string& text) {
    Bytes bytes;
    for (size_t i = 0; i < text.size();) {
        if (text[i] == ' ' || text[i] == ':') {
            i++;
            continue;
        }
        if (i + 1 >= text.size() || !std::isxdigit(static_cast<unsigned char>(text[i])) ||
            !std::isxdigit(static_cast<unsigned char>(text[i + 1]))) {
            throw BadValue("\"" + text + "\" is not made of bytes");
        }
        bytes.push_back(Nibble(text[i]) << 4 | Nibble(text[i + 1]));
        i += 2;
    }
    return bytes;
}

[[noreturn]] void Refuse(const Field& field, const std::string& wanted) {
    throw BadValue(std::string(field.name) + " is " + wanted);
}

void PutNumber(const Field& field, const Json& value, std::span<std::byte> place) {
    if (!value.is_number_integer()) {
        Refuse(field, "a number");
    }
    const int bits = static_cast<int>(field.size) * 8;
    const s64 number = value.get<s64>();
    const bool isBig =
        value.is_number_unsigned() && value.get<u64>() > std::numeric_limits<s64>::max();
    const bool fits =
        bits == 64 || (!isBig && number >= -(s64{1} << (bits - 1)) && number < s64{1} << bits);
    if (!fits) {
        Refuse(field, "a number of " + std::to_string(bits) + " bits");
    }
    const u64 whole = isBig ? value.get<u64>() : static_cast<u64>(number);
    const auto half = static_cast<u16>(whole);
    const auto word = static_cast<u32>(whole);
    std::memcpy(place.data(),
                field.size == 2   ? static_cast<const void*>(&half)
                : field.size == 4 ? static_cast<const void*>(&word)
                                  : &whole,
                field.size);
}

void PutAddress(const Field& field, const Json& value, std::span<std::byte> place) {
    TVimbraAddr address{};
    if (value.is_string()) {
        const std::string text = value;
        const bool isV6 = text.find(':') != std::string::npos;
        address.wSinFamily = isV6 ? VIMBRA_FAMILY_IPV6 : VIMBRA_FAMILY_IPV4;
        if (inet_pton(isV6 ? AF_INET6 : AF_INET, text.c_str(), &address.tV4Addr) != 1) {
            Refuse(field, "an address such as 192.0.2.1 or 2001:db8::1");
        }
    } else if (!value.is_null()) {
        Refuse(field, "an address as a text, or null");
    }
    std::memcpy(place.data(), &address, sizeof(address));
}

void PutElement(const Field& field, const Json& value, std::span<std::byte> place) {
    if (field.kind == Kind::kUnsigned || field.kind == Kind::kSigned) {
        PutNumber(field, value, place);
    } else if (field.kind == Kind::kAddress) {
        PutAddress(field, value, place);
    } else if (field.kind == Kind::kRecord) {
        const Bytes bytes = Encode(field.record(), value);
        std::memcpy(place.data(), bytes.data(), bytes.size());
    } else if (!value.is_string()) {
        Refuse(field, "a text");
    } else {
        const std::string text = value;
        const bool isText = field.kind == Kind::kText || field.kind == Kind::kSecret;
        const Bytes bytes = isText ? Bytes{} : FromHex(text);
        const size_t length = isText ? text.size() : bytes.size();
        if (length > field.size || (field.kind == Kind::kMac && length != field.size)) {
            Refuse(field, "of " + std::to_string(field.size) + " bytes");
        }
        std::memcpy(place.data(), isText ? static_cast<const void*>(text.data()) : bytes.data(),
                    length);
    }
}

void PutField(const Field& field, const Json& value, std::span<std::byte> whole) {
    if (field.count == 1) {
        PutElement(field, value, whole.subspan(field.offset, field.size));
        return;
    }
    if (!value.is_array() || value.size() > field.count) {
        Refuse(field, "a list of at most " + std::to_string(field.count));
    }
    for (size_t i = 0; i < value.size(); i++) {
        PutElement(field, value[i], whole.subspan(field.offset + i * field.size, field.size));
    }
}

// Words and texts of a bond's body.
class BondReader {
 public:
    explicit BondReader(View bytes) : bytes_(bytes) {}

    u32 Word() {
        const u32 word = static_cast<u32>(NumberOf(Cut(bytes_, used_, 4)));
        used_ += 4;
        return word;
    }
    std::string Text() {
        const size_t length = std::min<size_t>(Word(), bytes_.size());
        std::string text = TextOf(Cut(bytes_, used_, length));
        used_ += length;
        return text;
    }
    bool IsOver() const { return used_ >= bytes_.size(); }

 private:
    View bytes_;
    size_t used_ = 0;
};

Json DecodeBond(View bytes) {
    BondReader reader(bytes);
    Json value;
    reader.Word();
    value["mode"] = reader.Word();
    value["path"] = reader.Text();
    const u32 count = reader.Word();
    value["members"] = Json::array();
    for (u32 i = 0; i < count && !reader.IsOver(); i++) {
        value["members"].push_back(reader.Text());
    }
    value["active"] = reader.Text();
    return value;
}

}  // namespace

std::string Hex(View bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::byte each : bytes) {
        const auto number = std::to_integer<unsigned>(each);
        if (!text.empty()) {
            text += ' ';
        }
        text += {kDigits[number >> 4], kDigits[number & 15]};
    }
    return text;
}

Json Decode(const Record& record, View bytes) {
    Json value = Json::object();
    u64 valid = std::numeric_limits<u64>::max();
    for (const Field& field : record.fields) {
        if (field.count == 1) {
            value[field.name] = ElementOf(field, Cut(bytes, field.offset, field.size));
            valid = IsCount(field) ? value[field.name].get<u64>() : valid;
            continue;
        }
        Json list = Json::array();
        for (size_t i = 0; i < std::min<u64>(field.count, valid); i++) {
            list.push_back(ElementOf(field, Cut(bytes, field.offset + i * field.size, field.size)));
        }
        value[field.name] = std::move(list);
    }
    return value;
}

Json Decode(const Body& body, View bytes) {
    if (body.form == Body::Form::kBond) {
        return DecodeBond(bytes);
    }
    const bool isRecord = body.record != nullptr && bytes.size() == body.record->size;
    if (isRecord) {
        return Decode(*body.record, bytes);
    }
    return bytes.empty() ? Json::object() : Json{{"bytes", Hex(bytes)}};
}

Json TellRequest(u32 type, View body, View reply) {
    const Request* const request = FindRequest(type, body.size());
    if (request == nullptr) {
        return {{"name", "unknown"},
                {"type", type},
                {"body", {{"bytes", Hex(body)}}},
                {"reply", {{"bytes", Hex(reply)}}}};
    }
    // A refusal may be the number alone.
    const bool isCode = reply.size() == sizeof(s32) && request->reply.size != reply.size();
    return {{"name", request->name},
            {"type", type},
            {"body", Decode(request->body, body)},
            {"reply", isCode ? Json{{"nErrid", static_cast<s32>(NumberOf(reply))}}
                             : Decode(request->reply, reply)}};
}

Json TellNotification(std::string_view socket, u32 type, View body) {
    const Notification* const known = FindNotification(socket, type);
    return {{"name", known != nullptr ? known->name : "unknown"},
            {"type", type},
            {"socket", socket},
            {"body", known != nullptr ? Decode(known->body, body) : Json{{"bytes", Hex(body)}}}};
}

Bytes Encode(const Record& record, const Json& value) {
    if (!value.is_object()) {
        throw BadValue(std::string(record.name) + " is an object");
    }
    Bytes bytes(record.size);
    Json rest = value;
    const Field* before = nullptr;
    for (const Field& field : record.fields) {
        if (const auto found = rest.find(field.name); found != rest.end()) {
            PutField(field, *found, bytes);
            if (field.count > 1 && before != nullptr && IsCount(*before) &&
                !value.contains(before->name)) {
                PutField(*before, found->size(), bytes);
            }
            rest.erase(field.name);
        }
        before = &field;
    }
    if (!rest.empty()) {
        throw BadValue(std::string(record.name) + " has no " + rest.begin().key());
    }
    return bytes;
}

Bytes Encode(const Body& body, const Json& value) {
    if (value.is_object() && value.size() == 1 && value.contains("bytes")) {
        return FromHex(value["bytes"].get<std::string>());
    }
    if (body.record == nullptr) {
        if (!value.empty()) {
            throw BadValue("this message is told as {\"bytes\": \"00 01 ...\"}");
        }
        return {};
    }
    return Encode(*body.record, value);
}

}  // namespace protocol
