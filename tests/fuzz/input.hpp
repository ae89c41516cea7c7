// What the fuzzer hands over, taken apart from its front. What is not there any more is zero or
// empty.
#ifndef VIMBRA_TESTS_FUZZ_INPUT_HPP
#define VIMBRA_TESTS_FUZZ_INPUT_HPP

#include <vimbra/types.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <span>
#include <string>

namespace vimbra::tests {

class Input {
 public:
    Input(const u8* data, size_t size) : bytes_(data, size) {}

    bool AtEnd() const { return bytes_.empty(); }

    u8 Byte() { return Number<u8>(); }
    u16 Word() { return Number<u16>(); }

    // As many as there are.
    std::span<const u8> Take(size_t count) {
        const auto taken = bytes_.first(std::min(count, bytes_.size()));
        bytes_ = bytes_.subspan(taken.size());
        return taken;
    }
    std::span<const u8> Rest() { return Take(bytes_.size()); }

    // With its length before it.
    std::string Block() {
        const auto taken = Take(Word());
        return {taken.begin(), taken.end()};
    }
    // Up to this end, which goes too.
    std::string Until(u8 end) {
        const auto found = std::find(bytes_.begin(), bytes_.end(), end);
        const auto taken = Take(static_cast<size_t>(found - bytes_.begin()));
        Take(1);
        return {taken.begin(), taken.end()};
    }
    std::string Text() { return Until('\0'); }

 private:
    template <class Value>
    Value Number() {
        Value value = 0;
        const auto taken = Take(sizeof(value));
        memcpy(&value, taken.data(), taken.size());
        return value;
    }

    std::span<const u8> bytes_;
};

// A text in memory that ends with its terminator, so that a look behind it is seen.
class ExactText {
 public:
    explicit ExactText(const std::string& text) : text_(new char[text.size() + 1]) {
        memcpy(text_.get(), text.c_str(), text.size() + 1);
    }
    char* Get() const { return text_.get(); }

 private:
    std::unique_ptr<char[]> text_;
};

}  // namespace vimbra::tests

#endif
