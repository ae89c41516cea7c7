#include <arpa/inet.h>
#include <vimbra/common.h>
#include <vimbra/iface_check.h>

#include "commands.hpp"

namespace ctl {

namespace {

struct Arguments {
    Prefixed address;
    TVimbraAddr ipv4 = {};
    TVimbraAddr gateway = {};
};

constexpr const char* kAccepted = "an address and a gateway of one family, a prefix of 1 or more";

// Says yes, or fails with the library's result in words: a script asks by the exit status.
void Answer(Tool& tool, const std::function<s32()>& call, const char* yes, const char* no,
            s32 noResult) {
    if (auto failure = tool.Try(call, kAccepted)) {
        if (failure->result == noResult) {
            failure->status = ExitStatus::kNotSo;
            failure->message = Describe(noResult) + ": " + no;
        }
        throw CommandFailed(*failure);
    }
    tool.Show(yes, Json{{"result", s32{VIMBRA_OK}}, {"meaning", yes}});
}

void SameNet(Tool& tool, Arguments& arguments) {
    Answer(
        tool,
        [&] {
            return VimbraCheckIsSameNet(arguments.address.address, arguments.address.prefix,
                                        arguments.gateway);
        },
        "the same subnet", "not the same subnet", VIMBRA_ERR_NOT_SAME_NET);
}

void Mask(Tool& tool, Arguments& arguments) {
    Answer(
        tool, [&] { return check_mask(arguments.ipv4.tV4Addr.s_addr); }, "a netmask",
        "not ones followed by zeros", VIMBRA_ERR_GENERAL);
}

void Host(Tool& tool, Arguments& arguments) {
    const u32 prefix = arguments.address.prefix;
    const u32 mask = prefix == 0 ? 0 : htonl(~0U << (32 - prefix));
    Answer(
        tool, [&] { return check_intranet_ip(arguments.address.address.tV4Addr.s_addr, mask); },
        "an address for a host", "the subnet's own or its broadcast address", VIMBRA_ERR_GENERAL);
}

void Class(Tool& tool, Arguments& arguments) {
    const s32 code = check_ip(arguments.ipv4.tV4Addr.s_addr);
    const char* name = code == VIMBRA_IP_CLASS_A   ? "A"
                       : code == VIMBRA_IP_CLASS_B ? "B"
                       : code == VIMBRA_IP_CLASS_C ? "C"
                       : code == VIMBRA_IP_CLASS_D ? "D"
                                                   : "none";
    tool.Show(std::string(name) + " (" + std::to_string(code) + ")",
              Json{{"class", name}, {"code", code}});
}

}  // namespace

void AddCheckCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "check", "Checks of addresses, without the daemon."), tool);

    CLI::App& sameNet = commands.Add({"same-net", "Are an address and a gateway in one subnet?",
                                      "check same-net 192.0.2.10/24 192.0.2.1"},
                                     SameNet);
    AddArgument(sameNet, "address", commands->address, kPrefixed, "The address").Required();
    AddArgument(sameNet, "gateway", commands->gateway, kAddress, "The gateway").Required();

    CLI::App& host = commands.Add(
        {"host", "Can a host of its subnet have this address?", "check host 192.0.2.10/24"}, Host);
    AddArgument(host, "address", commands->address, kIpv4Network, "The address").Required();

    CLI::App& mask = commands.Add({"mask", "Is this a netmask?", "check mask 255.255.255.0"}, Mask);
    AddArgument(mask, "mask", commands->ipv4, kIpv4Address, "The mask").Required();

    CLI::App& classOf =
        commands.Add({"class", "Show the class of an address.", "check class 192.0.2.1"}, Class);
    AddArgument(classOf, "address", commands->ipv4, kIpv4Address, "The address").Required();
}

}  // namespace ctl
