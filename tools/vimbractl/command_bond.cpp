#include <vimbra/bond.h>

#include <array>

#include "commands.hpp"

namespace ctl {

namespace {

constexpr std::array kModes = {"balance-rr", "active-backup", "balance-xor", "broadcast",
                               "802.3ad",    "balance-tlb",   "balance-alb"};

bool ParseMode(const std::string& text, u32& mode) {
    for (u32 i = 0; i < kModes.size(); i++) {
        if (text == kModes[i]) {
            mode = i;
            return true;
        }
    }
    return ParseNumber(text, mode) && mode < kModes.size();
}

const Kind<u32> kMode = {
    "0 to 6, or balance-rr, active-backup, balance-xor, broadcast, 802.3ad, balance-tlb, "
    "balance-alb",
    ParseMode, "{balance-rr,active-backup,balance-xor,broadcast,802.3ad,balance-tlb,balance-alb}"};

bool ParsePath(const std::string& text, std::string& path) {
    path = text;
    return !text.empty();
}

const Kind<std::string> kPath = {"a path that exists", ParsePath};

struct Arguments {
    u32 mode = 0;
    std::vector<InterfaceName> members;
    InterfaceName active;
    std::string path = "/sys/class/net";
};

void Start(Tool& tool, Arguments& arguments) {
    TVimbraBondParam bond = {};
    // The count goes on, so that the library sees that there are too many.
    for (InterfaceName& member : arguments.members) {
        if (bond.dwIfaceNum < VIMBRA_BOND_IFACE_MAX) {
            bond.achIface[bond.dwIfaceNum] = member.text;
        }
        bond.dwIfaceNum++;
    }
    const bool isNamed = arguments.active.text[0] != '\0';
    bond.pchActiveIface = isNamed ? arguments.active.text : bond.achIface[0];
    bond.pchBondPath = arguments.path.data();
    tool.Call([&] { return VimbraBondStart(arguments.mode, &bond); }, "up to 4 members");
    tool.Done();
}

void Stop(Tool& tool, Arguments&) {
    tool.Call(VimbraBondStop);
    tool.Done();
}

}  // namespace

void AddBondCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "bond", "Several interfaces joined to one."), tool);

    CLI::App& start = commands.Add({"start", "Join interfaces.",
                                    "bond start active-backup eth0 eth1\n"
                                    "bond start 1 eth0 eth1 --active eth1"},
                                   Start);
    AddArgument(start, "mode", commands->mode, kMode, "How they work together").Required();
    AddArguments(start, "member", commands->members, kInterface, "An interface to join").Required();
    AddArgument(start, "--active", commands->active, kInterface,
                "The member that is active at first, by default the first");
    AddArgument(start, "--path", commands->path, kPath, "The bonding driver's control path");

    commands.Add({"stop", "Undo the bond.", "bond stop"}, Stop);
}

}  // namespace ctl
