#include <cctype>
#include <string>
#include <vector>

#include "messages.hpp"
#include "writers.hpp"

namespace protocol {
namespace {

const char* const kRules = R"(# The protocol between library and daemon

<!-- Made by vimbra-protocol --markdown from the headers that library and vimbrad are compiled with: not to be
edited. `tests/abi/protocol.sh` fails when it is old. -->

For those who bring a daemon of their own, and for those who look at what passes. `vimbra-protocol --lua` writes
a dissector with the same content, `--json` a description for programs.

## Rules

- Sockets are Unix stream sockets. The daemon listens on `/tmp/api_daemon`; a listener of an application on a name
  of its own below `/tmp`, given with each notification.
- A message is a header and a body. **Numbers are in the byte order of the machine**, addresses in network
  byte order, texts zero-filled without a terminator when they fill their field. Nothing is padded but what
  is named.
- **One request a connection.** The application connects, sends header and body in one piece, and waits for one
  reply: a header with the request's type and the size that is told here, and the record. Then it closes. 60
  seconds are the limit of connecting, sending and waiting together.
- **A reply in pieces is a failure**: the library reads once. So is a reply of another size, or one whose header
  tells another.
- **A connection that is closed without a reply is a success** to the application, with a record of zeros:
  a daemon that does not serve a message answers it all the same, with a number that is not 0.
- A reply's record begins with a result: 0, or why not; `vimbrad` uses the numbers of `errno`. The two replies that have
  none cannot be refused: they are told with their requests.
- **Notifications go the other way**: the daemon connects to the listener's socket, sends header and body in one
  piece, and closes. Nothing comes back. A message has five seconds once it is accepted. Of the ping, traceroute
  and statistics sockets one listener at a time has the name: the newest.
- Where no size is told the body is of any length up to the limit. Requests carry at most 3072 bytes.
- A receiver looks at every size and every count, ends texts itself, and takes what it does not know as refused.

## Header

| offset | size | field | meaning |
|---|---|---|---|
| 0 | 4 | `type` | what the message is |
| 4 | 4 | `size` | length of the body |
| 8 | 4 | `flag` | 0; not looked at |

)";

const char* const kBond = R"(## Bond bodies

Words (4 bytes) and texts, one after the other without padding. A text is a word with its length, terminator
included, and the characters with their terminator:

    word  length of the whole body
    word  bonding mode, 0 to 6
    text  control path
    word  number of members
    text  name, once for each member
    text  name of the active member

)";

// Where a heading of this name is found.
std::string Anchor(std::string name) {
    for (char& c : name) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return "](#" + name + ")";
}

std::string TypeOf(const Field& field) {
    const std::string bits = std::to_string(field.size * 8);
    std::string type;
    switch (field.kind) {
        case Kind::kUnsigned:
            type = "u" + bits;
            break;
        case Kind::kSigned:
            type = "s" + bits;
            break;
        case Kind::kText:
        case Kind::kSecret:
            type = "text";
            break;
        case Kind::kBytes:
            type = "bytes";
            break;
        case Kind::kAddress:
            type = "address";
            break;
        case Kind::kMac:
            type = "MAC";
            break;
        case Kind::kRecord:
            type = std::string("[`") + field.record().name + "`" + Anchor(field.record().name);
            break;
    }
    return field.count == 1 ? type : std::to_string(field.count) + " × " + type;
}

// A text that may stand in a cell.
std::string Cell(std::string text) {
    for (size_t at = text.find('|'); at != std::string::npos; at = text.find('|', at + 2)) {
        text.insert(at, "\\");
    }
    return text;
}

class Writer {
 public:
    explicit Writer(std::ostream& out) : out_(out) {}

    void Write() {
        out_ << kRules;
        WriteRequests();
        WriteNotifications();
        out_ << kBond;
        WriteRecords();
    }

 private:
    std::string Told(const Body& body) {
        switch (body.form) {
            case Body::Form::kNone:
                return "nothing";
            case Body::Form::kBond:
                return "[words and texts](#bond-bodies), up to " + std::to_string(body.size);
            case Body::Form::kOpaque:
                Need(*body.record);
                return "up to " + std::to_string(body.size) + "; vimbrad: " + Link(*body.record);
            case Body::Form::kRecord:
                break;
        }
        Need(*body.record);
        return std::to_string(body.size) + ": " + Link(*body.record);
    }

    static std::string Link(const Record& record) {
        return std::string("[`") + record.name + "`" + Anchor(record.name) +
               (std::string_view(record.meaning).starts_with("The same") ? " and a `u32`" : "");
    }

    void Need(const Record& record) {
        for (const Record* known : records_) {
            if (std::string_view(known->name) == record.name && known->size >= record.size) {
                return;
            }
        }
        std::erase_if(records_, [&](const Record* known) {
            return std::string_view(known->name) == record.name;
        });
        records_.push_back(&record);
        for (const Field& field : record.fields) {
            if (field.kind == Kind::kRecord) {
                Need(field.record());
            }
        }
    }

    void WriteRequests() {
        out_ << "## Requests\n";
        std::string service;
        for (const Request& request : Requests()) {
            if (service != request.service) {
                service = request.service;
                std::string title = service;
                title[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(title[0])));
                out_ << "\n### " << title
                     << "\n\n| type | name | meaning | body | reply |\n|---|---|---|---|---|\n";
            }
            out_ << "| " << request.type << " | " << request.name << " | " << Cell(request.meaning)
                 << (*request.note != '\0' ? "; " : "") << Cell(request.note) << " | "
                 << Told(request.body) << " | " << Told(request.reply) << " |\n";
        }
    }

    void WriteNotifications() {
        out_ << "\n## Notifications\n\n| socket | type | name | meaning | body | after |\n"
                "|---|---|---|---|---|---|\n";
        for (const Notification& each : Notifications()) {
            out_ << "| `/tmp/" << each.socket << "` | ";
            if (each.lastType == 0xFFFFFFFF) {
                out_ << "any";
            } else if (each.firstType == each.lastType) {
                out_ << each.firstType;
            } else {
                out_ << each.firstType << " to " << each.lastType;
            }
            out_ << " | " << each.name << " | " << Cell(each.meaning) << " | " << Told(each.body)
                 << " | " << each.request << " |\n";
        }
        out_ << "\nA watch of router advertisements ends itself with a message of type 1 and no "
                "meaning, "
                "from the application's\nown process.\n\n";
    }

    void WriteRecords() {
        out_ << "## Records\n\nAn address has 20 bytes: `u16` family (2 or 10), 2 bytes of zero, "
                "and 16 bytes, of which IPv4 uses the\nfirst four. A MAC address has 6.\n";
        for (size_t i = 0; i < records_.size(); i++) {
            const Record& record = *records_[i];
            const bool isInTable = std::string_view(record.meaning).starts_with("The same");
            out_ << "\n### " << record.name << "\n\n"
                 << record.size - (isInTable ? sizeof(u32) : 0) << " bytes"
                 << (isInTable ? "; with the number of a table four more" : "")
                 << ".\n\n| offset | size | field | type | meaning |\n|---|---|---|---|---|\n";
            for (const Field& field : record.fields) {
                out_ << "| " << field.offset << " | " << field.size * field.count << " | `"
                     << field.name << "` | " << TypeOf(field) << " | " << Cell(field.meaning)
                     << " |\n";
            }
        }
    }

    std::ostream& out_;
    // In the order in which they are first needed.
    std::vector<const Record*> records_;
};

}  // namespace

void WriteMarkdown(std::ostream& out) {
    Writer(out).Write();
}

}  // namespace protocol
