#include <vimbra/iface.h>

#include "commands.hpp"

namespace ctl {

namespace {

struct Arguments {
    InterfaceName interface;
    std::optional<u16> family;
    EVimbraScopeType scope = VIMBRA_SCOPE_TYPE_DEF;
    Prefixed address;
    std::vector<Prefixed> addresses;
};

// What the library takes beyond what the arguments' own form says.
constexpr const char* kAcceptedOne = "a scope of default or global";
constexpr const char* kAcceptedSet = "up to 16 addresses, a scope of default, link or global";

TVimbraIfaceIp Record(const Prefixed& address, EVimbraScopeType scope) {
    return {scope, address.address, address.prefix};
}

void Show(Tool& tool, Arguments& arguments) {
    TVimbraIfaceAllIp all = {};
    tool.Call([&] {
        return VimbraIfaceGetIp(arguments.interface.text,
                                arguments.family.value_or(VIMBRA_FAMILY_BOTH), &all);
    });
    const Painter colours = tool.Colours();
    std::string text;
    Json addresses = Json::Array();
    for (u32 i = 0; i < std::min<u32>(all.dwIpNum, VIMBRA_IFACE_IP_MAX); i++) {
        const TVimbraIfaceIp& one = all.atNetIfaceIp[i];
        const std::string family = FamilyText(one.tIpAddr.wSinFamily);
        const std::string address = AddressText(one.tIpAddr);
        const std::string scope = ScopeText(one.eScopeType);
        text += family + "  " + colours.Address(one.tIpAddr) + "/" + std::to_string(one.dwPrefix) +
                "  " + scope + "\n";
        addresses.Append(
            {{"family", family}, {"address", address}, {"prefix", one.dwPrefix}, {"scope", scope}});
    }
    if (text.empty()) {
        text = "no addresses\n";
    }
    tool.Show(text, Json{{"interface", arguments.interface.text}, {"addresses", addresses}});
}

// Without --family only the families of the addresses are replaced: whoever sets an IPv4 address
// does not mean to lose those of IPv6.
u16 FamilyToReplace(const Arguments& arguments) {
    if (arguments.family) {
        return *arguments.family;
    }
    if (arguments.addresses.empty()) {
        throw CommandFailed(ExitStatus::kUsage,
                            "addr set: without an address --family has to say "
                            "which ones are to go; accepted: " +
                                std::string(kFamilyOrBoth.accepted));
    }
    const u16 first = arguments.addresses.front().address.wSinFamily;
    for (const Prefixed& address : arguments.addresses) {
        if (address.address.wSinFamily != first) {
            return VIMBRA_FAMILY_BOTH;
        }
    }
    return first;
}

void Set(Tool& tool, Arguments& arguments) {
    TVimbraIfaceAllIp all = {};
    const u16 family = FamilyToReplace(arguments);
    for (const Prefixed& address : arguments.addresses) {
        if (family != VIMBRA_FAMILY_BOTH && address.address.wSinFamily != family) {
            throw CommandFailed(ExitStatus::kUsage, "address: " + AddressText(address.address) +
                                                        " is not " + FamilyText(family) +
                                                        ", which --family asks for");
        }
        // The count goes on, so that the library sees that there are too many.
        if (all.dwIpNum < VIMBRA_IFACE_IP_MAX) {
            all.atNetIfaceIp[all.dwIpNum] = Record(address, arguments.scope);
        }
        all.dwIpNum++;
    }
    tool.Call([&] { return VimbraIfaceSetIp(arguments.interface.text, family, &all); },
              kAcceptedSet);
    tool.Done();
}

void Add(Tool& tool, Arguments& arguments) {
    TVimbraIfaceIp record = Record(arguments.address, arguments.scope);
    auto failure =
        tool.Try([&] { return VimbraIfaceAddIp(arguments.interface.text, &record); }, kAcceptedOne);
    if (failure && failure->status == ExitStatus::kUsage && failure->result == VIMBRA_ERR_GENERAL) {
        // Refused before anything was sent: an address that no host may have.
        failure->message = "address: " + AddressText(record.tIpAddr) + ": " + failure->message +
                           "; accepted: an address that a host can have";
    }
    if (failure) {
        throw CommandFailed(*failure);
    }
    tool.Done();
}

void Delete(Tool& tool, Arguments& arguments) {
    TVimbraIfaceIp record = Record(arguments.address, arguments.scope);
    tool.Call([&] { return VimbraIfaceDelIp(arguments.interface.text, &record); }, kAcceptedOne);
    tool.Done();
}

void Flush(Tool& tool, Arguments& arguments) {
    tool.Call([&] {
        return VimbraIfaceFlushIp(arguments.interface.text,
                                  arguments.family.value_or(VIMBRA_FAMILY_BOTH));
    });
    tool.Done();
}

}  // namespace

void AddAddrCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "addr", "The IP addresses of an interface."), tool);
    const auto command = [&](const CommandText& text, void (*run)(Tool&, Arguments&)) -> CLI::App& {
        CLI::App& added = commands.Add(text, run);
        AddInterfaceArgument(added, commands->interface);
        return added;
    };

    CLI::App& show = command({"show", "Show an interface's addresses.",
                              "addr show eth0\naddr show eth0 --family ipv6 --json"},
                             Show);
    AddFamilyArgument(show, commands->family, kFamilyOrBoth, "Which ones, both by default");

    CLI::App& set =
        command({"set", "Replace an interface's addresses: those that stay are never missing.",
                 "addr set eth0 192.0.2.10/24 192.0.2.11/24\naddr set eth0 --family ipv6"},
                Set);
    AddArguments(set, "address", commands->addresses, kPrefixed,
                 "The new addresses, none to remove all");
    AddFamilyArgument(set, commands->family, kFamilyOrBoth,
                      "Which ones are replaced, by default those of the addresses' kind");
    AddArgument(set, "--scope", commands->scope, kScopeOfSet, "Scope of the addresses");

    for (const auto& [text, run] :
         {std::pair<CommandText, void (*)(Tool&, Arguments&)>{
              {"add", "Add an address to an interface.",
               "addr add eth0 192.0.2.10/24\naddr add eth0 2001:db8::10/64 --scope global"},
              Add},
          {{"del", "Delete an address from an interface.", "addr del eth0 192.0.2.10/24"},
           Delete}}) {
        CLI::App& one = command(text, run);
        AddArgument(one, "address", commands->address, kPrefixed, "The address").Required();
        AddArgument(one, "--scope", commands->scope, kScopeOfOne, "Scope of the address");
    }

    CLI::App& flush = command({"flush", "Delete all of an interface's addresses.",
                               "addr flush eth0\naddr flush eth0 --family ipv4"},
                              Flush);
    AddFamilyArgument(flush, commands->family, kFamilyOrBoth, "Which ones, both by default");
}

}  // namespace ctl
