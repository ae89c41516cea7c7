// Messages as JSON and back: what people read and write instead of bytes.
#ifndef VIMBRA_TOOLS_PROTOCOL_VALUE_HPP
#define VIMBRA_TOOLS_PROTOCOL_VALUE_HPP

#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "messages.hpp"

namespace protocol {

using Json = nlohmann::ordered_json;
using Bytes = std::vector<std::byte>;

// What cannot be a message, and why.
struct BadValue : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A record by the names of its fields: addresses, MAC addresses and names as texts, secrets as
// "***", of an array behind its count the counted elements. Never throws on bytes of any kind; what
// is missing counts as zero.
Json Decode(const Record& record, std::span<const std::byte> bytes);
// A body. One that is not what the message should carry is told as {"bytes": "00 01 ..."}.
Json Decode(const Body& body, std::span<const std::byte> bytes);

// The other way round: what is not named is zero, and the count before an array is its length
// unless it is named. {"bytes": "..."} stands for any body, as it is. Throws BadValue.
Bytes Encode(const Record& record, const Json& value);
Bytes Encode(const Body& body, const Json& value);

// A message that has passed, for people who look on: name, type and fields; what is unknown by its
// bytes.
Json TellRequest(u32 type, std::span<const std::byte> body, std::span<const std::byte> reply);
// `socket` is the name below /tmp.
Json TellNotification(std::string_view socket, u32 type, std::span<const std::byte> body);

std::string Hex(std::span<const std::byte> bytes);

}  // namespace protocol

#endif
