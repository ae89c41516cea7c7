// What a record of the protocol is made of, for programs that show, write or check messages whose
// records they do not know by name.
#ifndef VIMBRA_TOOLS_PROTOCOL_RECORD_HPP
#define VIMBRA_TOOLS_PROTOCOL_RECORD_HPP

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace protocol {

enum class Kind {
    kUnsigned,
    kSigned,
    kText,     // zero-filled characters; no terminator when all are used
    kSecret,   // a text that is never shown
    kBytes,    // no more is known
    kAddress,  // TVimbraAddr
    kMac,      // TVimbraIfaceMac
    kRecord
};

struct Record;

struct Field {
    const char* name;
    const char* meaning;  // as its declaration says, may be empty
    Kind kind;
    size_t offset;
    size_t size;                // of one element
    size_t count;               // of elements: 1 unless it is an array
    const Record& (*record)();  // of kRecord, else null
};

struct Record {
    const char* name;
    const char* meaning;
    size_t size;
    std::span<const Field> fields;
};

// The number of the field's valid elements stands in the field before it, if that is called so.
bool IsCount(const Field& field);

}  // namespace protocol

#endif
