#include <vimbra/common.h>
#include <vimbra/ip_conflict.h>

#include "api/api_network_common/ip_conflict_wire.hpp"
#include "commands.hpp"
#include "events.hpp"
#include "take_over.hpp"

namespace ctl {

namespace {

struct Conflict {
    EVimbraConflictType type;
    TVimbraIfaceMac mac;
    TVimbraAddr address;
};

struct Arguments {
    u16 family = VIMBRA_FAMILY_BOTH;
    u32 count = 0;
    bool takeOver = false;
};

void OnConflict(EVimbraConflictType type, TVimbraIfaceMac* mac, TVimbraAddr* address) {
    EventQueue<Conflict>::Instance().Post({type, *mac, *address});
}

const char* SocketOf(u16 family) {
    return family == VIMBRA_FAMILY_IPV4 ? vimbra::wire::kConflictSocket
                                        : vimbra::wire::kConflictSocketV6;
}

bool IsWatched(u16 family) {
    for (const TIpConflictInfo* each = g_ptIpConflictInfo; each != nullptr; each = each->ptNext) {
        if (each->wSinFamily == family) {
            return each->bIsStarted != 0;
        }
    }
    return false;
}

// The library's start succeeds even when the daemon refused.
s32 Start(u16 family) {
    const s32 result = VimbraIpConflictCheckStart(family, OnConflict);
    return result == VIMBRA_OK && !IsWatched(family) ? VIMBRA_ERR_GENERAL : result;
}

bool Show(Tool& tool, const Conflict& conflict) {
    const std::string mac = MacText(conflict.mac);
    const std::string address = AddressText(conflict.address);
    const bool isMac = conflict.type == VIMBRA_MAC_CONFLICT;
    const Painter colours = tool.Colours();
    const std::string paintedMac = colours.Mac(mac);
    const std::string paintedAddress = colours.Address(conflict.address);
    return tool.ShowLine(isMac ? "our MAC address " + paintedMac + " is used by " + paintedAddress
                               : "our address " + paintedAddress + " is used by " + paintedMac,
                         Json{{"conflict", isMac ? "mac" : "address"},
                              {"family", FamilyText(conflict.address.wSinFamily)},
                              {"address", address},
                              {"mac", mac}});
}

// Stops what it has started, also when a start fails.
class Watches {
 public:
    explicit Watches(Tool& tool) : tool_(tool) {}
    ~Watches() {
        for (const u16 family : started_) {
            tool_.Try([family] { return VimbraIpConflictCheckStop(family); });
        }
    }
    Watches(const Watches&) = delete;
    Watches& operator=(const Watches&) = delete;

    void Add(u16 family) {
        tool_.Call([family] { return Start(family); });
        started_.push_back(family);
    }

    void Stop() {
        while (!started_.empty()) {
            const u16 family = started_.back();
            started_.pop_back();
            tool_.Call([family] { return VimbraIpConflictCheckStop(family); });
        }
    }

 private:
    Tool& tool_;
    std::vector<u16> started_;
};

void Watch(Tool& tool, const Arguments& arguments) {
    std::vector<u16> families = {VIMBRA_FAMILY_IPV4, VIMBRA_FAMILY_IPV6};
    if (arguments.family != VIMBRA_FAMILY_BOTH) {
        families = {arguments.family};
    }
    for (const u16 family : families) {
        ExpectFree(SocketOf(family), arguments.takeOver);
    }
    const EndWish wish(tool.OutputDescriptor());
    tool.Call(VimbraInit);
    Watches watches(tool);
    for (const u16 family : families) {
        watches.Add(family);
    }
    ShowEach<Conflict>(wish, arguments.count,
                       [&](const Conflict& conflict) { return Show(tool, conflict); });
    watches.Stop();
}

}  // namespace

void AddConflictCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "conflict", "Other hosts with an address or MAC address of ours."),
        tool);
    CLI::App& watch =
        commands.Add({"watch", "Show conflicts until Ctrl-C; with --json a line each.",
                      "conflict watch\nconflict watch --family ipv6 --json"},
                     Watch);
    AddFamilyArgument(watch, commands->family, kFamilyOrBoth, "Which, both by default");
    AddArgument(watch, "--count", commands->count, kNumber, "End after so many; 0 never");
    AddTakeOverFlag(watch, commands->takeOver);
}

}  // namespace ctl
