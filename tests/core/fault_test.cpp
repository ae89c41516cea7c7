// Every allocation and every system call fails in turn, once and for good, while each operation
// runs. Afterwards nothing is lost and the next call works.
#include "fault.hpp"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <vimbra/common.h>
#include <vimbra/failure.h>
#include <vimbra/iface.h>
#include <vimbra/iface_check.h>
#include <vimbra/ipc.h>
#include <vimbra/log.h>

#include <functional>
#include <map>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/injector.hpp"
#include "expect_log.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

struct Operation {
    const char* name;
    std::function<s32()> call;
    Calls calls;
    // What the call returns when the named call fails first; -1 where it is not listed.
    std::map<std::string, s32> results;
    std::vector<size_t> sizes;
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

TVimbraIfaceIp g_ip = [] {
    TVimbraIfaceIp ip = {};
    ip.tIpAddr.wSinFamily = AF_INET;
    ip.tIpAddr.tV4Addr.s_addr = htonl(0xc0000207);
    ip.dwPrefix = 24;
    return ip;
}();

const std::map<std::string, s32> kMinusOne = {{"close", 0}};
const std::map<std::string, s32> kPassedOn = {{"close", 0}, {"send", 1101}};
const std::map<std::string, s32> kLocal = {{"close", 0}};

const Operation kOperations[] = {
    {"IpcApiSendAndRecv",
     [] {
         u32 reply = 0;
         return IpcApiSendAndRecv(1, "body", 4, &reply, sizeof(reply));
     },
     kTransportCalls,
     kPassedOn,
     {16, 16}},
    {"IpcApiSendAndRecvLargestBody",
     [] {
         static const u8 body[3072] = {};
         u32 reply = 0;
         return IpcApiSendAndRecv(1, body, sizeof(body), &reply, sizeof(reply));
     },
     kTransportCalls,
     kPassedOn,
     {3084, 16}},
    {"IpcApiSendAndRecvNoReply",
     [] { return IpcApiSendAndRecv(1, nullptr, 0, nullptr, 0); },
     {"socket", "connect", "calloc", "send", "close"},
     kPassedOn,
     {12}},
    {"IpcCallbackSendAndRecv",
     [] {
         u32 reply = 0;
         return IpcCallbackSendAndRecv("api_daemon", 1, nullptr, 0, &reply, sizeof(reply));
     },
     kTransportCalls,
     kPassedOn,
     {12, 16}},
    {"VimbraLogSwitch", [] { return VimbraLogSwitch(5); }, kServiceCalls, kPassedOn, {16, 16}},
    {"VimbraIfaceAddIp",
     [] { return VimbraIfaceAddIp(g_eth, &g_ip); },
     kServiceCalls,
     kMinusOne,
     {56, 16}},
    {"VimbraIfaceDelIp",
     [] { return VimbraIfaceDelIp(g_eth, &g_ip); },
     kServiceCalls,
     kMinusOne,
     {56, 16}},
    {"VimbraIfaceFlushIp",
     [] { return VimbraIfaceFlushIp(g_eth, 11); },
     kServiceCalls,
     kMinusOne,
     {30, 16}},
    {"VimbraIfaceSetIp",
     [] {
         TVimbraIfaceAllIp all = {};
         all.dwIpNum = 1;
         all.atNetIfaceIp[0] = g_ip;
         return VimbraIfaceSetIp(g_eth, 2, &all);
     },
     kServiceCalls,
     kMinusOne,
     {482, 16}},
    {"VimbraIfaceGetIp",
     [] {
         TVimbraIfaceAllIp all;
         return VimbraIfaceGetIp(g_eth, 2, &all);
     },
     kServiceCalls,
     kMinusOne,
     {30, 468}},
    {"VimbraIfaceSetMac",
     [] {
         TVimbraIfaceMac mac = {};
         return VimbraIfaceSetMac(g_eth, &mac);
     },
     kServiceCalls,
     kMinusOne,
     {34, 16}},
    {"VimbraIfaceGetMac",
     [] {
         TVimbraIfaceMac mac;
         return VimbraIfaceGetMac(g_eth, &mac);
     },
     kServiceCalls,
     kMinusOne,
     {28, 24}},
    {"VimbraIfaceSetMtu",
     [] { return VimbraIfaceSetMtu(g_eth, 2, 1500); },
     kServiceCalls,
     kMinusOne,
     {32, 16}},
    {"VimbraIfaceGetMtu",
     [] {
         u32 mtu;
         return VimbraIfaceGetMtu(g_eth, &mtu);
     },
     kServiceCalls,
     kMinusOne,
     {28, 20}},
    {"VimbraIfaceShutdown",
     [] { return VimbraIfaceShutdown(g_lo); },
     {"socket", "ioctl", "close", "socket", "ioctl", "close"},
     kLocal,
     {}},
    {"VimbraIfaceNoShutdown",
     [] { return VimbraIfaceNoShutdown(g_lo); },
     {"socket", "ioctl", "close", "socket", "ioctl", "close"},
     kLocal,
     {}},
    {"VimbraGetIfaceState",
     [] {
         u32 state;
         return VimbraGetIfaceState(g_lo, &state);
     },
     {"socket", "ioctl", "close"},
     kLocal,
     {}},
    {"IfethGetHwAddr",
     [] {
         u8 mac[6];
         return IfethGetHwAddr(g_lo, mac, nullptr);
     },
     {"socket", "ioctl", "close"},
     kLocal,
     {}},
    {"IfethGetIpAddr",
     [] {
         in_addr address;
         return IfethGetIpAddr(g_lo, &address);
     },
     {"socket", "ioctl", "close"},
     kLocal,
     {}},
};

class Fault : public testing::TestWithParam<Operation> {};

INSTANTIATE_TEST_SUITE_P(All, Fault, testing::ValuesIn(kOperations),
                         [](const auto& param) { return std::string(param.param.name); });

TEST_P(Fault, MakesTheseCallsAndNoOthers) {
    ScriptedDaemon daemon;
    AnswerAll(daemon);
    Capture log;
    Injector injector;
    EXPECT_EQ(0, GetParam().call());
    injector.Stop();
    EXPECT_EQ(GetParam().calls, injector.Calls());
    EXPECT_EQ(GetParam().sizes, injector.Sizes());
    EXPECT_EQ(0u, injector.Blocks());
    EXPECT_TRUE(injector.Descriptors().empty());
}

TEST_P(Fault, EveryCallFailsInTurn) {
    ScriptedDaemon daemon;
    AnswerAll(daemon);
    Capture log;
    for (const bool forGood : {false, true}) {
        size_t number = 1;
        for (;; number++) {
            const auto before = OpenDescriptors();
            Injector injector;
            injector.FailAt(number, forGood);
            const s32 result = GetParam().call();
            injector.Stop();
            if (injector.Failed().empty()) {
                EXPECT_EQ(0, result);
                break;
            }
            SCOPED_TRACE(injector.Failed() + ", call " + std::to_string(number) +
                         (forGood ? " and all later ones" : ""));
            const auto found = GetParam().results.find(injector.Failed());
            const bool closed =
                injector.Failed() == "close" && forGood && injector.Calls().size() > number;
            if (!closed) {
                EXPECT_EQ(found != GetParam().results.end() ? found->second : -1, result);
            }
            EXPECT_EQ(0u, injector.Blocks()) << "memory is lost";
            EXPECT_TRUE(injector.Descriptors().empty()) << "a descriptor is lost";
            // The daemon may not yet have closed a connection whose message needs no answer.
            EXPECT_TRUE(WaitFor([&] { return OpenDescriptors() == before; }));
            EXPECT_EQ(before, OpenDescriptors());
            EXPECT_EQ(0, GetParam().call()) << "the next call does not work";
        }
        EXPECT_EQ(GetParam().calls.size() + 1, number) << "a call was not reached";
    }
    EXPECT_TRUE(daemon.WaitIdle());
}

// A silent library returns and notes what a talking one does.
TEST_P(Fault, TheLevelOfTheLogChangesNothingElse) {
    ScriptedDaemon daemon;
    AnswerAll(daemon);
    std::map<u32, std::vector<std::vector<s64>>> seen;
    for (const u32 level : {u32{VIMBRA_LEVEL_DEBUG}, u32{VIMBRA_LEVEL_NONE}}) {
        Capture log;
        for (size_t number = 1; number <= GetParam().calls.size() + 1; number++) {
            VimbraDebugLevelSet(level);
            Injector injector;
            injector.FailAt(number);
            const s32 result = GetParam().call();
            injector.Stop();
            TVimbraFailure failure = {};
            VimbraLastFailure(&failure);
            seen[level].push_back({result, static_cast<s64>(failure.eStep), failure.nErrno});
        }
        // One of them sets a level of its own.
        if (std::string(GetParam().name) != "VimbraLogSwitch") {
            EXPECT_EQ(level == VIMBRA_LEVEL_NONE, static_cast<bool>(log.IsSilent()));
        }
    }
    EXPECT_EQ(seen[VIMBRA_LEVEL_DEBUG], seen[VIMBRA_LEVEL_NONE]);
}

}  // namespace
}  // namespace vimbra::tests
