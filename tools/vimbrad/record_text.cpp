#include "record_text.hpp"

#include <charconv>

namespace vimbrad {

std::string HexOf(std::span<const std::byte> bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const std::byte each : bytes) {
        text += kDigits[std::to_integer<unsigned>(each) >> 4];
        text += kDigits[std::to_integer<unsigned>(each) & 15];
    }
    return text;
}

void FromHex(std::string_view text, std::span<std::byte> bytes) {
    if (text.size() != bytes.size() * 2) {
        throw Refusal(EINVAL, "a record of another size");
    }
    for (size_t i = 0; i < bytes.size(); ++i) {
        unsigned value = 0;
        const char* const digits = text.data() + i * 2;
        if (std::from_chars(digits, digits + 2, value, 16).ptr != digits + 2) {
            throw Refusal(EINVAL, "no record");
        }
        bytes[i] = static_cast<std::byte>(value);
    }
}

}  // namespace vimbrad
