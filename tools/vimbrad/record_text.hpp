// Records as texts: what a later life takes up again is kept as the bytes of the requests that it
// came from, since their layout never changes.
#ifndef VIMBRA_TOOLS_VIMBRAD_RECORD_TEXT_HPP
#define VIMBRA_TOOLS_VIMBRAD_RECORD_TEXT_HPP

#include <cerrno>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "refusal.hpp"

namespace vimbrad {

std::string HexOf(std::span<const std::byte> bytes);
// Throws Refusal when the text is not that of so many bytes.
void FromHex(std::string_view text, std::span<std::byte> bytes);

template <class Record>
std::string TextOfRecord(const Record& record) {
    static_assert(std::is_trivially_copyable_v<Record>);
    return HexOf(std::as_bytes(std::span(&record, 1)));
}

template <class Record>
Record RecordFromText(std::string_view text) {
    static_assert(std::is_trivially_copyable_v<Record>);
    Record record{};
    FromHex(text, std::as_writable_bytes(std::span(&record, 1)));
    return record;
}

}  // namespace vimbrad

#endif
