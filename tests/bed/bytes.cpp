#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <stdexcept>

#include "vimbra/bed.hpp"

namespace vimbra::bed {
namespace {

template <typename Number>
Number NumberAt(const Bytes& bytes, size_t offset) {
    Number value = 0;
    if (offset <= bytes.size() && bytes.size() - offset >= sizeof value) {
        std::memcpy(&value, bytes.data() + offset, sizeof value);
    }
    return value;
}

template <typename Number>
void Append(Bytes& bytes, Number value) {
    const auto* first = reinterpret_cast<const uint8_t*>(&value);
    bytes.insert(bytes.end(), first, first + sizeof value);
}

void AppendAddress(Bytes& bytes, int family, const char* text, size_t size) {
    uint8_t address[16];
    if (inet_pton(family, text, address) != 1) {
        throw std::invalid_argument(std::string("not an address: ") + text);
    }
    bytes.insert(bytes.end(), address, address + size);
}

}  // namespace

uint16_t Bytes::U16(size_t offset) const {
    return NumberAt<uint16_t>(*this, offset);
}
uint32_t Bytes::U32(size_t offset) const {
    return NumberAt<uint32_t>(*this, offset);
}

std::string Bytes::Text(size_t offset, size_t width) const {
    const Bytes field = Slice(offset, width);
    return {field.begin(), std::find(field.begin(), field.end(), 0)};
}

Bytes Bytes::Slice(size_t offset, size_t count) const {
    offset = std::min(offset, size());
    return Bytes(std::span(data() + offset, std::min(count, size() - offset)));
}

std::string Hex(const Bytes& bytes) {
    std::string text;
    char piece[32];
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i % 16 == 0) {
            snprintf(piece, sizeof piece, "%s%04zx:", i == 0 ? "" : "\n", i);
            text += piece;
        }
        snprintf(piece, sizeof piece, " %02x", bytes[i]);
        text += piece;
    }
    return text;
}

void PrintTo(const Bytes& bytes, std::ostream* out) {
    *out << bytes.size() << " bytes\n" << Hex(bytes);
}

void PrintTo(const Pack& pack, std::ostream* out) {
    PrintTo(pack.Get(), out);
}

Pack& Pack::U8(uint8_t value) {
    bytes_.push_back(value);
    return *this;
}

Pack& Pack::U16(uint16_t value) {
    Append(bytes_, value);
    return *this;
}

Pack& Pack::U32(uint32_t value) {
    Append(bytes_, value);
    return *this;
}

Pack& Pack::U64(uint64_t value) {
    Append(bytes_, value);
    return *this;
}

Pack& Pack::Text(std::string_view text, size_t width) {
    text = text.substr(0, width);
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return Zeros(width - text.size());
}

Pack& Pack::Zeros(size_t count) {
    bytes_.resize(bytes_.size() + count);
    return *this;
}

Pack& Pack::Add(const Bytes& bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
}

Pack& Pack::In4(const char* text) {
    AppendAddress(bytes_, AF_INET, text, 4);
    return *this;
}

Pack& Pack::In6(const char* text) {
    AppendAddress(bytes_, AF_INET6, text, 16);
    return *this;
}

Pack& Pack::Address(uint16_t family, const char* text) {
    U16(family).U16(0);
    return family == AF_INET ? In4(text).Zeros(12) : In6(text);
}

Pack& Pack::FillTo(size_t size) {
    if (bytes_.size() > size) {
        throw std::length_error("already longer than that");
    }
    bytes_.resize(size);
    return *this;
}

Bytes Message(uint32_t type, const Bytes& body, int32_t flag) {
    return Pack().U32(type).U32(static_cast<uint32_t>(body.size())).S32(flag).Add(body);
}

}  // namespace vimbra::bed
