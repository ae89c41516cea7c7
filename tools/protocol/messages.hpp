// Every message of the protocol: what it is called, what it carries, what comes back.
#ifndef VIMBRA_TOOLS_PROTOCOL_MESSAGES_HPP
#define VIMBRA_TOOLS_PROTOCOL_MESSAGES_HPP

#include <vimbra/types.h>

#include <span>
#include <string_view>
#include <vector>

#include "record.hpp"

namespace protocol {

// What a message carries behind its header.
struct Body {
    enum class Form {
        kNone,
        kRecord,
        kBond,    // words and texts, see Bond bodies
        kOpaque,  // what comes is handed on
    } form;
    const Record* record;  // of kRecord
    size_t size;           // of kRecord; the most of the others

    bool operator==(const Body& other) const = default;
};

struct Request {
    u32 type;
    const char* name;     // unique, also across the two bodies of one type
    const char* service;  // what it belongs to
    const char* meaning;
    Body body;
    Body reply;
    const char* note;  // what else there is to know, may be empty
    bool changes;      // something that lasts
};

struct Notification {
    const char* socket;  // below /tmp; INTERFACE stands for a name
    u32 firstType;
    u32 lastType;
    const char* name;
    const char* meaning;
    Body body;
    const char* request;  // whose listener it is for
};

std::span<const Request> Requests();
std::span<const Notification> Notifications();

// The request of this type and size; of several types with one size the first. Null when there is
// none of the type; one of another size when none of the type has this one.
const Request* FindRequest(u32 type, size_t size);
const Request* FindRequest(std::string_view name);
const Notification* FindNotification(std::string_view socket, u32 type);
const Notification* FindNotification(std::string_view name);
// Whether notifications go to sockets of this name below /tmp.
bool IsListener(std::string_view socket);

}  // namespace protocol

#endif
