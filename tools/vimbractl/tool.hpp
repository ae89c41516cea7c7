// What every command works with: the way to the library, and the way out for what it found.
#ifndef VIMBRA_TOOLS_VIMBRACTL_TOOL_HPP
#define VIMBRA_TOOLS_VIMBRACTL_TOOL_HPP

#include <vimbra/types.h>

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

#include "colour.hpp"
#include "failures.hpp"
#include "json.hpp"
#include "library_output.hpp"

namespace ctl {

// Thrown where a command cannot go on.
class CommandFailed : public std::exception {
 public:
    explicit CommandFailed(Failure failure) : failure_(std::move(failure)) {}
    CommandFailed(ExitStatus status, std::string message)
        : failure_{status, std::move(message), std::nullopt, std::nullopt} {}

    const char* what() const noexcept override { return failure_.message.c_str(); }
    const Failure& Why() const { return failure_; }

 private:
    Failure failure_;
};

class Tool {
 public:
    explicit Tool(LibraryOutput& library) : library_(library) {}

    bool json = false;
    bool verbose = false;

    // One call of the library; throws CommandFailed unless it did what it was asked. `accepted`
    // says what the command's arguments may be, for a call that refuses one.
    void Call(const std::function<s32()>& call, std::string_view accepted = {});
    // The same for a caller that deals with a failure itself.
    std::optional<Failure> Try(const std::function<s32()>& call, std::string_view accepted = {});

    // A request that no call of the library makes alone; it is answered with a result code.
    template <typename Body>
    void Request(u32 type, const Body& body) {
        static_assert(std::is_trivially_copyable_v<Body>);
        Request(type, &body, sizeof(body));
    }

    // The command's output, in the form that was asked for.
    void Show(const std::string& text, const Json& record);
    // One of many that follow each other, at once. False when it could not be written.
    bool ShowLine(const std::string& text, const Json& record);
    // The text alone, as it is; for what JSON has no use for.
    bool ShowText(const std::string& text);
    // Where the output goes.
    int OutputDescriptor();
    bool OnTerminal();
    // For the texts that are shown.
    Painter Colours();

    // A command that only changes something says nothing, or so in JSON.
    void Done();

    // Writes out what was shown; throws CommandFailed when it cannot be written.
    void Finish();

 private:
    void Request(u32 type, const void* body, size_t size);

    LibraryOutput& library_;
};

}  // namespace ctl

#endif
