// Arguments as people write them, turned into what the library takes. Each refusal names the
// argument and says what is accepted.
#ifndef VIMBRA_TOOLS_VIMBRACTL_ARGUMENTS_HPP
#define VIMBRA_TOOLS_VIMBRACTL_ARGUMENTS_HPP

#include <vimbra/addr.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

// The argument parser takes long to compile: only two files of the tool see it.
namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace ctl {

// One kind of argument: how it is read, and what the help and a refusal say of it.
template <typename Value>
struct Kind {
    const char* accepted;
    bool (*parse)(const std::string& text, Value& value);
    // What a shell can offer: kInterfaceType, "{one,of,these}", or nothing.
    const char* type = "";
};

inline constexpr const char* kInterfaceType = "INTERFACE";

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
extern const Kind<Prefixed> kNetwork;  // "default" is the empty one, of no family yet
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

// An argument that a command has been given.
class AddedArgument {
 public:
    explicit AddedArgument(CLI::Option& option) : option_(option) {}
    void Required();

 private:
    CLI::Option& option_;
};

// Reads one argument's text, or refuses it.
using TakeText = std::function<bool(const std::string& text)>;

enum class Times { kOnce, kMany };

// The bare form of what follows.
AddedArgument AddTextArgument(CLI::App& command, const std::string& name, const std::string& about,
                              const char* accepted, const char* type, Times times, TakeText take);

// Adds an argument to a command. `name` is that of a position, such as "interface", or of an
// option, such as "--family". `target` outlives the command. `about` says what it is for; what is
// accepted is added to it.
template <typename Value>
AddedArgument AddArgument(CLI::App& command, const std::string& name, Value& target,
                          const Kind<Value>& kind, const std::string& about) {
    return AddTextArgument(
        command, name, about, kind.accepted, kind.type, Times::kOnce,
        [&target, &kind](const std::string& text) { return kind.parse(text, target); });
}

// The same for one whose absence means something.
template <typename Value>
AddedArgument AddArgument(CLI::App& command, const std::string& name, std::optional<Value>& target,
                          const Kind<Value>& kind, const std::string& about) {
    return AddTextArgument(
        command, name, about, kind.accepted, kind.type, Times::kOnce,
        [&target, &kind](const std::string& text) { return kind.parse(text, target.emplace()); });
}

// The same for an argument that may be repeated.
template <typename Value>
AddedArgument AddArguments(CLI::App& command, const std::string& name, std::vector<Value>& target,
                           const Kind<Value>& kind, const std::string& about) {
    return AddTextArgument(command, name, about, kind.accepted, kind.type, Times::kMany,
                           [&target, &kind](const std::string& text) {
                               return kind.parse(text, target.emplace_back());
                           });
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
