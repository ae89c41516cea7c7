// Arguments as people write them, turned into what the library takes. Each refusal names the
// argument and says what is accepted.
#ifndef VIMBRACTL_ARGUMENTS_HPP
#define VIMBRACTL_ARGUMENTS_HPP

#include <vimbra/addr.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ctl {

// One kind of argument: how it is read, and what the help and a refusal say of it.
template <typename Value>
struct Kind {
    const char* accepted;
    bool (*parse)(const std::string& text, Value& value);
};

// The name of a network interface, in the room that the library's calls read.
struct InterfaceName {
    char text[VIMBRA_IFACE_NAME_LEN + 1] = {};
};

struct Prefixed {
    TVimbraAddr address = {};
    u32 prefix = 0;
};

extern const Kind<InterfaceName> kInterface;
extern const Kind<InterfaceName> kInterfaceOrAny;  // "-" is the empty name
extern const Kind<TVimbraIfaceMac> kMac;
extern const Kind<TVimbraAddr> kAddress;
extern const Kind<TVimbraAddr> kIpv4Address;
extern const Kind<Prefixed> kPrefixed;
extern const Kind<Prefixed> kNetwork;
extern const Kind<Prefixed> kIpv4Network;
extern const Kind<u16> kFamily;        // ipv4, ipv6
extern const Kind<u16> kFamilyOrBoth;  // ipv4, ipv6, both
// All scopes are read, and the library says which it takes: what it takes is what is told.
extern const Kind<EVimbraScopeType> kScopeOfOne;
extern const Kind<EVimbraScopeType> kScopeOfSet;
extern const Kind<u32> kNumber;

// Digits alone: no sign, no blank, within 32 bits. For numbers of which the library says itself
// which it takes.
bool ParseNumber(const std::string& text, u32& value);

[[noreturn]] void RefuseArgument(const std::string& name, const std::string& text,
                                 const std::string& accepted);

template <typename Value>
Value ParseArgument(const std::string& name, const std::string& text, const Kind<Value>& kind) {
    Value value = {};
    if (!kind.parse(text, value)) {
        RefuseArgument(name, text, kind.accepted);
    }
    return value;
}

// Adds an argument to a command. `name` is that of a position, such as "interface", or of an
// option, such as "--family". `target` outlives the command. `about` says what it is for; what is
// accepted is added to it.
template <typename Value>
CLI::Option* AddArgument(CLI::App& command, const std::string& name, Value& target,
                         const Kind<Value>& kind, const std::string& about) {
    return command.add_option_function<std::string>(
        name,
        [name, &target, &kind](const std::string& text) {
            target = ParseArgument(name, text, kind);
        },
        about + ": " + kind.accepted);
}

// The same for one whose absence means something.
template <typename Value>
CLI::Option* AddArgument(CLI::App& command, const std::string& name, std::optional<Value>& target,
                         const Kind<Value>& kind, const std::string& about) {
    return command.add_option_function<std::string>(
        name,
        [name, &target, &kind](const std::string& text) {
            target = ParseArgument(name, text, kind);
        },
        about + ": " + kind.accepted);
}

// The same for an argument that may be repeated.
template <typename Value>
CLI::Option* AddArguments(CLI::App& command, const std::string& name, std::vector<Value>& target,
                          const Kind<Value>& kind, const std::string& about) {
    return command.add_option_function<std::vector<std::string>>(
        name,
        [name, &target, &kind](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) {
                target.push_back(ParseArgument(name, text, kind));
            }
        },
        about + ": " + kind.accepted);
}

// And back, for what a command shows.
std::string FamilyText(u16 family);
std::string ScopeText(u32 scope);
std::string AddressText(const TVimbraAddr& address);
bool IsZero(const TVimbraAddr& address);
// A name field, terminated or not.
std::string FieldText(const char (&field)[VIMBRA_IFACE_NAME_LEN]);
std::string MacText(const TVimbraIfaceMac& mac);

}  // namespace ctl

#endif
