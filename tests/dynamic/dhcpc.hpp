// What the tests of the DHCP client share: its requests and reports, and what its callbacks take.
#ifndef VIMBRA_TESTS_DYNAMIC_DHCPC_HPP
#define VIMBRA_TESTS_DYNAMIC_DHCPC_HPP

#include <gtest/gtest.h>
#include <spawn.h>
#include <vimbra/dhcpc.h>
#include <vimbra/net_dhcpc.h>

#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/processes.hpp"
#include "../ground/recorder.hpp"

namespace vimbra::tests {

inline constexpr u32 kStart = 0x501;
inline constexpr u32 kStop = 0x502;
inline constexpr u32 kLease = 0x505;
inline constexpr u32 kFail = 0x506;
inline constexpr u32 kRenew = 0x507;

inline constexpr char kName16[] = "a-name-of-16-cha";
inline constexpr char kName17[] = "a-name-of-17-char";

inline constexpr char kThreadV4[] = "DhcpcCBThreadV4";
inline constexpr char kThreadV6[] = "DhcpcCBThreadV6";

struct Event {
    u32 event;
    bed::Bytes record;
    std::string thread;
};

// Never destroyed: listeners may outlive main().
inline Recorder<Event>& g_events = *new Recorder<Event>;

inline int Take(u32 event, VimbraDhcpcAddrInfo* info) {
    g_events.Add({event, bed::AsBytes(*info), ThisThread()});
    return 7;
}

inline int TakeLegacy(u32 event, TNetDhcpcNotify* notify) {
    g_events.Add({event, bed::AsBytes(*notify), ThisThread()});
    return 7;
}

inline int Never(u32, VimbraDhcpcAddrInfo*) {
    ADD_FAILURE() << "the wrong callback";
    return 0;
}

inline int NeverLegacy(u32, TNetDhcpcNotify*) {
    ADD_FAILURE() << "the wrong callback";
    return 0;
}

inline bed::Bytes Body(u16 family, std::string_view name) {
    return bed::Pack().U16(family).Text(name, 16);
}

// A lease of one DNS server; `count` is what it claims to have.
inline bed::Bytes Lease(std::string_view name, u32 count = 1) {
    return bed::Pack()
        .Text(name, 16)
        .Address(2, "192.0.2.10")
        .Address(2, "192.0.2.1")
        .U32(24)
        .U32(3600)
        .U32(count)
        .Address(2, "192.0.2.53")
        .FillTo(1348);
}

// The names and families of the list, as applications see it.
inline std::vector<std::string> Listed() {
    std::vector<std::string> names;
    for (const TDhcpcInfo* info = g_ptApiDhcpCInfo; info != nullptr; info = info->ptNext) {
        names.push_back(
            std::string(info->tDhcpcAddr.achDevName, strnlen(info->tDhcpcAddr.achDevName, 16)) +
            "/" + std::to_string(info->wSinfamily));
    }
    return names;
}

inline u32 State(const char* name, u16 family) {
    TVimbraDhcpcState state = {99};
    EXPECT_EQ(0, VimbraDhcpcGetIfstate(name, family, &state));
    return state.dwDhcpcIsRun;
}

// A process whose command line is `words`, until it is signalled.
class Process : public Child {
 public:
    explicit Process(std::vector<std::string> words) {
        words.push_back("1000");
        std::vector<char*> argv;
        // sleep(1) takes all of its arguments for times: the words go into the first.
        std::string joined;
        for (size_t i = 0; i + 1 < words.size(); i++) {
            joined += (i > 0 ? " " : "") + words[i];
        }
        argv = {joined.data(), words.back().data(), nullptr};
        char* environment[] = {nullptr};
        EXPECT_EQ(0, posix_spawn(&pid_, "/bin/sleep", nullptr, nullptr, argv.data(), environment));
        const std::string path = "/proc/" + std::to_string(pid_) + "/cmdline";
        EXPECT_TRUE(bed::WaitFor([&] { return bed::ReadFile(path).starts_with(joined); }));
    }
};

using Dhcpc = Prepared;

}  // namespace vimbra::tests

#endif
