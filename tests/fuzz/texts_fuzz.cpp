// Commands and other texts that are cut up: what comes out is the text's own, and nothing is
// written beyond the room that there is. No program is run.
#include <sys/types.h>
#include <vimbra/process.h>

#include <vector>

#include "files.hpp"
#include "input.hpp"

// There is no room for a child.
extern "C" pid_t __wrap_vfork() {
    return -1;
}

namespace vimbra::tests {
namespace {

// The words of a text, by the description of the call.
std::vector<std::string> WordsOf(const std::string& text, char separator) {
    std::vector<std::string> words;
    for (size_t at = 0; at < text.size();) {
        const size_t end =
            std::min(separator == '\0' ? text.npos : text.find(separator, at), text.size());
        words.push_back(text.substr(at, end - at));
        at = std::min(separator == '\0' ? text.npos : text.find_first_not_of(separator, end),
                      text.size());
    }
    return words;
}

void Split(Input& input) {
    const u8 most = input.Byte() % (VIMBRA_EXEC_ARG_MAX + 1);
    const auto separator = static_cast<char>(input.Byte());
    const s32 slack = input.Byte() % 3 - 1;
    const std::string text = input.Text();
    const ExactText cut(text);
    const std::unique_ptr<char*[]> words(new char*[most + size_t{1}]);
    const s32 length = static_cast<s32>(text.size()) + 1 + slack;
    const auto expected = WordsOf(text, separator);
    const s32 result = VimbraBufToArgv(cut.Get(), words.get(), most, length, separator);
    if (static_cast<s32>(text.size()) >= length) {
        Require(result == VIMBRA_ERR_GENERAL);
        return;
    }
    const size_t count = std::min<size_t>(expected.size(), most);
    Require(result == VIMBRA_OK || slack == 0 || expected.size() >= most);
    Require(expected.size() < most || result == VIMBRA_ERR_GENERAL);
    for (size_t i = 0; i < count; i++) {
        const bool last = i + 1 == count && expected.size() > count;
        Require(last || expected[i] == words[i]);
    }
    Require(words[count] == nullptr);
}

void FindValue(Input& input) {
    const auto separator = static_cast<char>(input.Byte());
    const u8 room = input.Byte();
    const ExactText head(input.Text());
    const ExactText text(input.Text());
    for (char* const key : {head.Get(), static_cast<char*>(nullptr)}) {
        const std::unique_ptr<char[]> value(new char[room + size_t{1}]);
        if (VimbraFindStrMatchHead(text.Get(), key, separator, value.get(), room) == VIMBRA_OK) {
            Require(strlen(value.get()) <= room && strstr(text.Get(), value.get()) != nullptr);
        }
    }
}

void ReadBytes(Input& input) {
    const auto separator = static_cast<char>(input.Byte());
    const u8 room = input.Byte() % 16;
    const std::string text = input.Text();
    const ExactText cut(text);
    const std::unique_ptr<char[]> bytes(new char[room]);
    if (StrToU8WitchoutSepchar(cut.Get(), separator, bytes.get(), room) == VIMBRA_OK &&
        separator != '\0') {
        Require(std::count(text.begin(), text.end(), separator) < room);
    }
}

void Run(Input& input) {
    const s32 slack = input.Byte() % 3 - 1;
    const u8 room = input.Byte();
    const std::string text = input.Text();
    const ExactText command(text);
    const ExactText other(text);
    const s32 length = static_cast<s32>(text.size()) + 1 + slack;
    Require(ExecCmd(command.Get(), length, 0) == VIMBRA_ERR_GENERAL);
    const std::unique_ptr<char[]> output(new char[room]);
    Require(VimbraExecCmdAndGetOutput(other.Get(), length, output.get(), room) ==
            VIMBRA_ERR_GENERAL);
}

void ConvertMask(Input& input) {
    u32 mask = input.Word() | u32{input.Word()} << 16;
    const u32 before = mask;
    u32 bits = input.Word();
    const u32 wanted = bits;
    const s32 result = MaskConvertIpv4(&mask, &bits, input.Byte());
    if (result == VIMBRA_OK && mask != before) {
        Require(wanted <= 32 && bits == wanted);
        Require(MaskConvertIpv4(&mask, &bits, 0) == VIMBRA_OK && bits == wanted);
    }
}

constexpr void (*kCuts[])(Input&) = {Split, FindValue, ReadBytes, Run, ConvertMask};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    Prepare();
    Input input(data, size);
    kCuts[input.Byte() % std::size(kCuts)](input);
    return 0;
}

}  // namespace vimbra::tests
