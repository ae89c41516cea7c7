// Every allocation and every system call fails in turn, once and for good, while each operation
// runs. Afterwards nothing is lost and the next call works.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/un.h>
#include <vimbra/common.h>
#include <vimbra/failure.h>
#include <vimbra/iface.h>
#include <vimbra/iface_check.h>
#include <vimbra/ipc.h>
#include <vimbra/log.h>
#include <vimbra/net_common.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/injector.hpp"
#include "expect_log.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

using Calls = std::vector<std::string>;

// One request: six system calls and two allocations, of which the first is made before the
// connection by the services and after it by the transport.
const Calls kServiceCalls = {"calloc", "socket", "connect", "send",
                             "calloc", "select", "read",    "close"};
const Calls kTransportCalls = {"socket", "connect", "calloc", "send",
                               "calloc", "select",  "read",   "close"};

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

char g_eth[16] = "eth0";
char g_lo[16] = "lo";

constexpr u32 kMtuGet = 274;
constexpr u32 kMacGet = 263;
constexpr u32 kIpGet = 277;

void AnswerAll(ScriptedDaemon& daemon) {
    daemon.On(kMtuGet, Answer::Body(Bytes(8, 0)));
    daemon.On(kMacGet, Answer::Body(Bytes(12, 0)));
    daemon.On(kIpGet, Answer::Body(Bytes(456, 0)));
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

// ---- What is said ----------------------------------------------------------------------------

struct Exchange {
    const char* function;
    s32 (*call)(u32, const void*, s32, void*, s32);
    const char* socketStep;
    const char* connectText;
    const char* writeText;
};

void PrintTo(const Exchange& exchange, std::ostream* out) {
    *out << exchange.function;
}

s32 ToCallback(u32 type, const void* body, s32 size, void* reply, s32 replySize) {
    return IpcCallbackSendAndRecv("api_daemon", type, body, size, reply, replySize);
}

class FaultOfExchange : public testing::TestWithParam<Exchange> {
 protected:
    s32 Call() {
        reply_ = 0xA5A5A5A5;
        return GetParam().call(1, "body", 4, &reply_, sizeof(reply_));
    }
    bool IsUntouched() const { return reply_ == 0xA5A5A5A5; }

    u32 reply_ = 0;
};

INSTANTIATE_TEST_SUITE_P(
    Both, FaultOfExchange,
    testing::Values(Exchange{"IpcApiSendAndRecv", IpcApiSendAndRecv, "socket error",
                             "MakeAddrClient error!", "write message failed"},
                    Exchange{"IpcCallbackSendAndRecv", ToCallback,
                             "socket error:", "make_addr_client error!", "fail to send message!"}),
    [](const auto& param) { return std::string(param.param.function); });

TEST_P(FaultOfExchange, TellsEachFailure) {
    const std::string function = GetParam().function;
    struct {
        s32 result;
        std::vector<Said> said;
    } const cases[] = {
        {-1, {Perr(function, GetParam().socketStep, EMFILE)}},
        {-1,
         {Perr("MakeAddrClient", "connect error", ECONNREFUSED),
          Err(function, GetParam().connectText)}},
        {-1, {Perr(function, "XMALLOC error", ENOMEM)}},
        {1101, {Err(function, GetParam().writeText)}},
        {-1, {Perr(function, "XMALLOC error", ENOMEM)}},
        {-1, {Perr(function, "select error", EINTR)}},
        {-1, {Err(function, "fail to receive message!")}},
        {0, {}},
    };
    ScriptedDaemon daemon;
    size_t number = 0;
    for (const auto& one : cases) {
        Capture log;
        Injector injector;
        injector.FailAt(++number);
        EXPECT_EQ(one.result, Call());
        injector.Stop();
        SCOPED_TRACE(injector.Failed());
        EXPECT_TRUE(Wrote(log, one.said));
        EXPECT_EQ(one.result != 0, IsUntouched());
    }
}

// The failed call is the last but the closing one: nothing is tried again.
TEST_P(FaultOfExchange, InterruptedCallsAreNotRepeated) {
    ScriptedDaemon daemon;
    Capture log;
    {
        Injector injector;
        injector.FailAt(6);
        EXPECT_EQ(-1, Call());
        injector.Stop();
        EXPECT_EQ((Calls{"socket", "connect", "calloc", "send", "calloc", "select", "close"}),
                  injector.Calls());
    }
    {
        Injector injector;
        injector.onSend = [](int, const void*, size_t) {
            errno = EINTR;
            return -1;
        };
        EXPECT_EQ(1101, Call());
        injector.Stop();
        EXPECT_EQ((Calls{"socket", "connect", "calloc", "send", "close"}), injector.Calls());
    }
    Injector injector;
    injector.onRead = [](int, void*, size_t) {
        errno = EINTR;
        return -1;
    };
    EXPECT_EQ(-1, Call());
    injector.Stop();
    EXPECT_EQ(kTransportCalls, injector.Calls());
}

TEST_P(FaultOfExchange, ShortWriteIsAFailure) {
    ScriptedDaemon daemon;
    Capture log;
    for (const ssize_t written : {ssize_t{0}, ssize_t{12}, ssize_t{15}}) {
        log.Clear();
        Injector injector;
        injector.onSend = [=](int, const void*, size_t size) {
            EXPECT_EQ(16u, size);
            return written;
        };
        EXPECT_EQ(1101, Call());
        injector.Stop();
        EXPECT_TRUE(Wrote(log, {Err(GetParam().function, GetParam().writeText)}));
        EXPECT_TRUE(IsUntouched());
    }
}

TEST_P(FaultOfExchange, ReadsOnceAndAllOfIt) {
    ScriptedDaemon daemon;
    Injector injector;
    injector.onRead = [](int, void*, size_t size) {
        EXPECT_EQ(16u, size);
        return Injector::kReal;
    };
    EXPECT_EQ(0, Call());
}

// A socket above the size of an fd_set needs memory for its set.
TEST_P(FaultOfExchange, MissingMemoryForALargeSetIsTold) {
    rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    limit.rlim_cur = 4096;
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    ScriptedDaemon daemon;
    Capture log;
    std::vector<int> held = {0};
    while (held.back() < 1100) {
        held.push_back(dup(STDERR_FILENO));
        ASSERT_GT(held.back(), 0);
    }
    Injector injector;
    injector.FailAt(3);
    EXPECT_EQ(-1, Call());
    injector.Stop();
    EXPECT_EQ((Calls{"socket", "connect", "calloc", "close"}), injector.Calls());
    EXPECT_TRUE(Wrote(log, {Perr(GetParam().function, "XMALLOC error", ENOMEM)}));
    EXPECT_TRUE(injector.Descriptors().empty());
    for (size_t i = 1; i < held.size(); i++) {
        close(held[i]);
    }
}

// ---- Connecting ------------------------------------------------------------------------------

// A peer whose backlog is full: connect(2) takes these steps in turn, and the real one after them.
struct Backlog {
    explicit Backlog(Injector& injector, std::vector<int> errors) : errors_(std::move(errors)) {
        injector.onConnect = [this](int) {
            if (at_ == errors_.size()) {
                return Injector::kReal;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));  // What the step takes.
            errno = errors_[at_++];
            return -1;
        };
        injector.onSetsockopt = [this](int, int level, int name, const void* value,
                                       socklen_t size) {
            EXPECT_EQ(SOL_SOCKET, level);
            EXPECT_EQ(SO_SNDTIMEO, name);
            EXPECT_EQ(sizeof(timeval), size);
            timeouts.push_back(*static_cast<const timeval*>(value));
            return Injector::kReal;
        };
    }

    std::vector<timeval> timeouts;

 private:
    std::vector<int> errors_;
    size_t at_ = 0;
};

TEST_P(FaultOfExchange, FullBacklogLeadsToASecondConnectThatWaits) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    Backlog backlog(injector, {EAGAIN});
    std::vector<long> flags;
    injector.onFcntl = [&](int, int command, long argument) {
        EXPECT_EQ(F_SETFL, command);
        flags.push_back(argument);
        return Injector::kReal;
    };
    EXPECT_EQ(0, Call());
    injector.Stop();
    EXPECT_EQ((Calls{"socket", "connect", "fcntl", "setsockopt", "connect", "fcntl", "calloc",
                     "send", "calloc", "select", "read", "close"}),
              injector.Calls());
    EXPECT_EQ((std::vector<long>{0, O_NONBLOCK}), flags);
    ASSERT_EQ(1u, backlog.timeouts.size());
    EXPECT_EQ(60, backlog.timeouts[0].tv_sec);
    EXPECT_EQ(0, backlog.timeouts[0].tv_usec);
    EXPECT_TRUE(log.IsSilent());
}

TEST_P(FaultOfExchange, InterruptedConnectGoesOnWithTheTimeThatIsLeft) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    Backlog backlog(injector, {EAGAIN, EINTR, EINTR});
    EXPECT_EQ(0, Call());
    injector.Stop();
    ASSERT_EQ(3u, backlog.timeouts.size());
    EXPECT_TRUE(timercmp(&backlog.timeouts[1], &backlog.timeouts[0], <));
    EXPECT_TRUE(timercmp(&backlog.timeouts[2], &backlog.timeouts[1], <));
    EXPECT_TRUE(log.IsSilent());
}

TEST_P(FaultOfExchange, EveryStepOfTheSecondConnectMayFail) {
    struct {
        const char* call;
        int error;
    } const cases[] = {{"fcntl", EBADF},
                       {"setsockopt", ENOPROTOOPT},
                       {"connect", ECONNREFUSED},
                       {"fcntl", EBADF},
                       {"calloc", 0}};
    ScriptedDaemon daemon;
    size_t number = 2;
    for (const auto& one : cases) {
        Capture log;
        Injector injector;
        Backlog backlog(injector, {EAGAIN});
        injector.FailAt(++number);
        EXPECT_EQ(-1, Call());
        injector.Stop();
        SCOPED_TRACE(number);
        EXPECT_EQ(one.call, injector.Failed());
        if (one.error != 0) {
            EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", one.error),
                                    Err(GetParam().function, GetParam().connectText)}));
        }
        EXPECT_TRUE(IsUntouched());
        EXPECT_TRUE(injector.Descriptors().empty());
        EXPECT_EQ(0u, injector.Blocks());
    }
}

TEST_P(FaultOfExchange, TimeThatIsGoneIsAFailedConnect) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    Backlog backlog(injector, {EAGAIN, EAGAIN});
    EXPECT_EQ(-1, Call());
    injector.Stop();
    EXPECT_EQ((Calls{"socket", "connect", "fcntl", "setsockopt", "connect", "close"}),
              injector.Calls());
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", EAGAIN),
                            Err(GetParam().function, GetParam().connectText)}));
    EXPECT_TRUE(IsUntouched());
}

// Each signal starts the wait again with what is left, so in the end nothing is.
TEST(FaultOfMakeAddrClient, SignalsDoNotStretchTheTime) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval timeout = {0, 20000};
    ASSERT_EQ(0, setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout)));
    sockaddr_un address = {};
    socklen_t length = 0;
    Capture log;
    Injector injector;
    injector.onConnect = [](int) {
        errno = EINTR;
        return -1;
    };
    EXPECT_EQ(-1, MakeAddrClient(fd, "ipc_stat", &address, &length));
    injector.Stop();
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", EAGAIN)}));
    timeval left = {};
    socklen_t size = sizeof(left);
    EXPECT_EQ(0, getsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &left, &size));
    EXPECT_EQ(20000, left.tv_usec);
    close(fd);
}

TEST_P(FaultOfExchange, MessageWithoutReplyConnectsOnce) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    Backlog backlog(injector, {EAGAIN});
    EXPECT_EQ(-1, GetParam().call(1, nullptr, 0, nullptr, 0));
    injector.Stop();
    EXPECT_EQ((Calls{"socket", "connect", "close"}), injector.Calls());
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", EAGAIN),
                            Err(GetParam().function, GetParam().connectText)}));
}

// ---- The waits -------------------------------------------------------------------------------

// How many descriptors of the set are asked for, when it is only this one's that may be.
bool IsOnly(const fd_set* set, int fd, int count) {
    const auto* words = reinterpret_cast<const unsigned long*>(set);
    constexpr int kBits = 8 * sizeof(unsigned long);
    for (int i = 0; i < count; i++) {
        if ((((words[i / kBits] >> (i % kBits)) & 1) != 0) != (i == fd)) {
            return false;
        }
    }
    return count == fd + 1;
}

// Makes a new socket's room look taken once.
void HaveNoRoomAtFirst(Injector& injector) {
    injector.onSend = [first = true](int, const void*, size_t) mutable {
        if (!first) {
            return static_cast<ssize_t>(Injector::kReal);
        }
        first = false;
        errno = EAGAIN;
        return ssize_t{-1};
    };
}

TEST_P(FaultOfExchange, BothWaitsShareSixtySeconds) {
    ScriptedDaemon daemon;
    int waits = 0;
    Injector injector;
    HaveNoRoomAtFirst(injector);
    injector.onSelect = [&](int count, fd_set* read, fd_set* write, fd_set* except, timeval* time) {
        waits++;
        EXPECT_EQ(nullptr, except);
        if (waits == 1) {
            EXPECT_EQ(nullptr, read);
            EXPECT_TRUE(IsOnly(write, count - 1, count));
            EXPECT_EQ(60, time->tv_sec);
            EXPECT_EQ(0, time->tv_usec);
            *time = {17, 250000};
            return 1;
        }
        EXPECT_EQ(nullptr, write);
        EXPECT_TRUE(IsOnly(read, count - 1, count));
        EXPECT_EQ(17, time->tv_sec);
        EXPECT_EQ(250000, time->tv_usec);
        return Injector::kReal;
    };
    EXPECT_EQ(0, Call());
    injector.Stop();
    EXPECT_EQ(2, waits);
    EXPECT_EQ((Calls{"socket", "connect", "calloc", "send", "select", "send", "calloc", "select",
                     "read", "close"}),
              injector.Calls());
}

TEST_P(FaultOfExchange, FailedWaitForRoomIsTold) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    HaveNoRoomAtFirst(injector);
    injector.FailAt(5);
    EXPECT_EQ(-1, Call());
    injector.Stop();
    EXPECT_EQ((Calls{"socket", "connect", "calloc", "send", "select", "close"}), injector.Calls());
    EXPECT_TRUE(Wrote(log, {Perr(GetParam().function, "select error", EINTR)}));
    EXPECT_TRUE(IsUntouched());
}

// The one second try is not followed by a third.
TEST_P(FaultOfExchange, RoomThatIsGoneAgainIsAShortWrite) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    injector.onSend = [](int, const void*, size_t) {
        errno = EAGAIN;
        return -1;
    };
    EXPECT_EQ(1101, Call());
    injector.Stop();
    EXPECT_EQ((Calls{"socket", "connect", "calloc", "send", "select", "send", "close"}),
              injector.Calls());
    EXPECT_TRUE(Wrote(log, {Err(GetParam().function, GetParam().writeText)}));
}

// Established, if odd: the caller then finds its reply as it was.
TEST_P(FaultOfExchange, TimeOutForWritingIsZero) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    HaveNoRoomAtFirst(injector);
    injector.onSelect = [](int, fd_set*, fd_set*, fd_set*, timeval*) { return 0; };
    EXPECT_EQ(0, Call());
    injector.Stop();
    EXPECT_EQ((Calls{"socket", "connect", "calloc", "send", "select", "close"}), injector.Calls());
    EXPECT_TRUE(Wrote(log, {Err(GetParam().function, "wait time out for writing!")}));
    EXPECT_TRUE(IsUntouched());
    EXPECT_TRUE(injector.Descriptors().empty());
    EXPECT_EQ(0u, injector.Blocks());
}

// Nobody answers it, so nobody waits for it: the select is only a look.
TEST_P(FaultOfExchange, MessageWithoutReplyDoesNotWaitForRoom) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    HaveNoRoomAtFirst(injector);
    injector.onSelect = [](int, fd_set*, fd_set*, fd_set*, timeval* time) {
        EXPECT_EQ(0, time->tv_sec);
        EXPECT_EQ(0, time->tv_usec);
        return 0;
    };
    EXPECT_EQ(0, GetParam().call(1, "body", 4, nullptr, 0));
    injector.Stop();
    EXPECT_EQ((Calls{"socket", "connect", "calloc", "send", "select", "close"}), injector.Calls());
    EXPECT_TRUE(Wrote(log, {Err(GetParam().function, "wait time out for writing!")}));
}

TEST_P(FaultOfExchange, TimeOutForReadingIs1102) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    injector.onSelect = [](int, fd_set* read, fd_set*, fd_set*, timeval*) {
        return read != nullptr ? 0 : Injector::kReal;
    };
    EXPECT_EQ(1102, Call());
    injector.Stop();
    EXPECT_TRUE(Wrote(log, {Err(GetParam().function, "wait time out for reading!")}));
    EXPECT_TRUE(IsUntouched());
    EXPECT_TRUE(injector.Descriptors().empty());
    EXPECT_EQ(0u, injector.Blocks());
}

TEST(FaultOfServices, TimeOutForWritingCountsAsDone) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    injector.onSend = [](int, const void*, size_t) {
        errno = EAGAIN;
        return -1;
    };
    injector.onSelect = [](int, fd_set*, fd_set*, fd_set*, timeval*) { return 0; };
    EXPECT_EQ(0, VimbraLogSwitch(5));
    EXPECT_EQ(0, VimbraIfaceFlushIp(g_eth, 2));
    injector.Stop();
    const Said said = Err("IpcApiSendAndRecv", "wait time out for writing!");
    EXPECT_TRUE(Wrote(log, {said, said}));
}

TEST(FaultOfServices, TimeOutForReadingIsTold) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    injector.onSelect = [](int, fd_set* read, fd_set*, fd_set*, timeval*) {
        return read != nullptr ? 0 : Injector::kReal;
    };
    EXPECT_EQ(1102, VimbraLogSwitch(4));
    EXPECT_EQ(-1, VimbraIfaceFlushIp(g_eth, 2));
    injector.Stop();
    EXPECT_EQ(4u, g_nVimbraLogSwitch);
    const Said said = Err("IpcApiSendAndRecv", "wait time out for reading!");
    EXPECT_TRUE(Wrote(log, {said, Err("VimbraLogSwitch", "send and recv msg error, nRet = 1102!"),
                            said, Err("ApicIpaddrFlush", "send and recv msg return num : 1102!"),
                            Err("VimbraIfaceFlushIp", "ApicIpaddrFlush error : -1!")}));
}

TEST(FaultOfServices, ShortWriteIsTold) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    injector.onSend = [](int, const void*, size_t) { return 1; };
    EXPECT_EQ(1101, VimbraLogSwitch(5));
    EXPECT_EQ(-1, VimbraIfaceFlushIp(g_eth, 2));
    injector.Stop();
    const Said said = Err("IpcApiSendAndRecv", "write message failed");
    EXPECT_TRUE(Wrote(log, {said, Err("VimbraLogSwitch", "send and recv msg error, nRet = 1101!"),
                            said, Err("ApicIpaddrFlush", "send and recv msg return num : 1101!"),
                            Err("VimbraIfaceFlushIp", "ApicIpaddrFlush error : -1!")}));
}

TEST(FaultOfServices, MissingMemoryForTheRequestIsTold) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    injector.FailAt(1);
    EXPECT_EQ(-1, VimbraIfaceSetMtu(g_eth, 2, 1500));
    injector.Stop();
    EXPECT_TRUE(Wrote(
        log,
        {Dbg("VimbraIfaceSetMtu", "VimbraIfaceSetMtu interface : eth0, mtu : 1500"),
         Err("ApicMtuSet", "XMALLOC error"), Err("VimbraIfaceSetMtu", "ApicMtuSet error : -1!")}));
    EXPECT_EQ(0u, daemon.Connections());
}

TEST(FaultOfServices, MissingMemoryForTheLogSwitchIsTheTransports) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    injector.FailAt(1);
    EXPECT_EQ(-1, VimbraLogSwitch(4));
    injector.Stop();
    EXPECT_EQ(4u, g_nVimbraLogSwitch);
    EXPECT_TRUE(Wrote(log, {Perr("IpcApiSendAndRecv", "XMALLOC error", ENOMEM),
                            Err("VimbraLogSwitch", "send and recv msg error, nRet = -1!")}));
    EXPECT_EQ(0u, daemon.Connections());
}

TEST(FaultOfServices, MissingMemoryForTheReplyIsTold) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    injector.FailAt(5);
    EXPECT_EQ(-1, VimbraIfaceFlushIp(g_eth, 2));
    injector.Stop();
    EXPECT_TRUE(Wrote(log, {Perr("IpcApiSendAndRecv", "XMALLOC error", ENOMEM),
                            Err("ApicIpaddrFlush", "send and recv msg return num : -1!"),
                            Err("VimbraIfaceFlushIp", "ApicIpaddrFlush error : -1!")}));
}

TEST(FaultOfServices, OutputStaysUntouched) {
    ScriptedDaemon daemon;
    AnswerAll(daemon);
    Capture log;
    for (size_t number = 1; number <= 7; number++) {
        TVimbraIfaceAllIp all;
        memset(static_cast<void*>(&all), 0xA5, sizeof(all));
        TVimbraIfaceMac mac;
        memset(&mac, 0xA5, sizeof(mac));
        u32 mtu = 0xA5A5A5A5;
        for (const auto& call :
             std::vector<std::function<s32()>>{[&] { return VimbraIfaceGetIp(g_eth, 2, &all); },
                                               [&] { return VimbraIfaceGetMac(g_eth, &mac); },
                                               [&] { return VimbraIfaceGetMtu(g_eth, &mtu); }}) {
            Injector injector;
            injector.FailAt(number);
            EXPECT_EQ(-1, call());
        }
        EXPECT_EQ(Bytes(452, 0xA5), AsBytes(all));
        EXPECT_EQ(Bytes(6, 0xA5), AsBytes(mac));
        EXPECT_EQ(0xA5A5A5A5u, mtu);
    }
}

// ---- What is noted ---------------------------------------------------------------------------

struct Noted {
    const char* name;
    std::function<void(Injector&)> fail;
    s32 result;
    EVimbraFailureStep step;
    int error;
};

void PrintTo(const Noted& noted, std::ostream* out) {
    *out << noted.name;
}

void RefuseConnect(Injector& injector, int error) {
    injector.onConnect = [=](int) {
        errno = error;
        return -1;
    };
}

const Noted kNoted[] = {
    {"NoMemoryForTheRequest", [](Injector& injector) { injector.FailAt(1); }, -1,
     VIMBRA_FAILURE_LOCAL, ENOMEM},
    {"NoSocket", [](Injector& injector) { injector.FailAt(2); }, -1, VIMBRA_FAILURE_LOCAL, EMFILE},
    {"NoPermission", [](Injector& injector) { RefuseConnect(injector, EACCES); }, -1,
     VIMBRA_FAILURE_NO_PERMISSION, EACCES},
    {"NotPermitted", [](Injector& injector) { RefuseConnect(injector, EPERM); }, -1,
     VIMBRA_FAILURE_NO_PERMISSION, EPERM},
    {"NobodyListens", [](Injector& injector) { injector.FailAt(3); }, -1, VIMBRA_FAILURE_NO_DAEMON,
     ECONNREFUSED},
    {"AnotherKindOfSocket", [](Injector& injector) { RefuseConnect(injector, EPROTOTYPE); }, -1,
     VIMBRA_FAILURE_NO_DAEMON, EPROTOTYPE},
    {"NoMemoryToConnect", [](Injector& injector) { RefuseConnect(injector, ENOMEM); }, -1,
     VIMBRA_FAILURE_LOCAL, ENOMEM},
    {"NoPlaceInTheBacklog", [](Injector& injector) { RefuseConnect(injector, EAGAIN); }, -1,
     VIMBRA_FAILURE_TIMEOUT, EAGAIN},
    {"NotSent", [](Injector& injector) { injector.FailAt(4); }, 1101, VIMBRA_FAILURE_SENDING,
     EPIPE},
    {"SentInPart",
     [](Injector& injector) { injector.onSend = [](int, const void*, size_t) { return 1; }; }, 1101,
     VIMBRA_FAILURE_SENDING, 0},
    {"NoMemoryForTheReply", [](Injector& injector) { injector.FailAt(5); }, -1,
     VIMBRA_FAILURE_LOCAL, ENOMEM},
    {"Interrupted", [](Injector& injector) { injector.FailAt(6); }, -1, VIMBRA_FAILURE_ANSWER,
     EINTR},
    {"NoAnswerInTime",
     [](Injector& injector) {
         injector.onSelect = [](int, fd_set*, fd_set*, fd_set*, timeval*) { return 0; };
     },
     1102, VIMBRA_FAILURE_TIMEOUT, 0},
    {"NotRead", [](Injector& injector) { injector.FailAt(7); }, -1, VIMBRA_FAILURE_ANSWER,
     ECONNRESET},
};

class FaultNoted : public testing::TestWithParam<Noted> {};

INSTANTIATE_TEST_SUITE_P(Steps, FaultNoted, testing::ValuesIn(kNoted),
                         [](const auto& param) { return std::string(param.param.name); });

TEST_P(FaultNoted, TellsTheStepAndTheReason) {
    ScriptedDaemon daemon;
    Capture log;
    TVimbraFailure failure;
    EXPECT_EQ(-1, VimbraLastFailure(&failure));
    Injector injector;
    GetParam().fail(injector);
    EXPECT_EQ(GetParam().result, VimbraLogSwitch(5));
    injector.Stop();
    EXPECT_EQ(0, VimbraLastFailure(&failure));
    EXPECT_EQ(GetParam().step, failure.eStep);
    EXPECT_EQ(GetParam().error, failure.nErrno);
    EXPECT_EQ(0, failure.nDaemonCode);
    EXPECT_STREQ("VimbraLogSwitch", failure.pchCall);
}

// Established: the call counts as done.
TEST(FaultOfServices, TimeOutForWritingIsNotNoted) {
    ScriptedDaemon daemon;
    Capture log;
    Injector injector;
    HaveNoRoomAtFirst(injector);
    injector.onSelect = [](int, fd_set*, fd_set*, fd_set*, timeval*) { return 0; };
    EXPECT_EQ(0, VimbraLogSwitch(5));
    injector.Stop();
    TVimbraFailure failure;
    EXPECT_EQ(-1, VimbraLastFailure(&failure));
}

// ---- IpcApiSendMsg ---------------------------------------------------------------------------

class FaultOfSendMsg : public testing::Test {
 protected:
    void SetUp() override { ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends_)); }
    void TearDown() override {
        close(ends_[0]);
        close(ends_[1]);
    }
    s32 Call() {
        char body[] = "body";
        return IpcApiSendMsg(ends_[0], 1, body, 4, 0);
    }

    int ends_[2] = {-1, -1};
};

TEST_F(FaultOfSendMsg, EveryCallFailsInTurn) {
    struct {
        const char* call;
        Said said;
    } const cases[] = {{"fcntl", Perr("IpcApiSendMsg", "select error", EBADF)},
                       {"calloc", Perr("IpcApiSendMsg", "XMALLOC error", ENOMEM)},
                       {"select", Perr("IpcApiSendMsg", "select error", EINTR)},
                       {"send", Err("IpcApiSendMsg", "fail to send message!")}};
    for (const bool forGood : {false, true}) {
        size_t number = 0;
        for (const auto& one : cases) {
            Capture log;
            Injector injector;
            injector.FailAt(++number, forGood);
            EXPECT_EQ(-1, Call());
            injector.Stop();
            EXPECT_EQ(one.call, injector.Failed());
            EXPECT_TRUE(Wrote(log, {one.said}));
            EXPECT_EQ(0u, injector.Blocks());
            EXPECT_GE(fcntl(ends_[0], F_GETFD), 0) << "the socket was closed";
            EXPECT_EQ(0, Call());
        }
    }
}

TEST_F(FaultOfSendMsg, MakesTheseCallsAndNoOthers) {
    Injector injector;
    EXPECT_EQ(0, Call());
    injector.Stop();
    EXPECT_EQ((Calls{"fcntl", "calloc", "select", "send"}), injector.Calls());
    EXPECT_EQ(std::vector<size_t>{16}, injector.Sizes());
}

TEST_F(FaultOfSendMsg, TimeOutIs1103) {
    Capture log;
    Injector injector;
    injector.onSelect = [](int, fd_set* read, fd_set* write, fd_set*, timeval* time) {
        EXPECT_EQ(nullptr, read);
        EXPECT_NE(nullptr, write);
        EXPECT_EQ(60, time->tv_sec);
        EXPECT_EQ(0, time->tv_usec);
        return 0;
    };
    EXPECT_EQ(1103, Call());
    injector.Stop();
    EXPECT_EQ((Calls{"fcntl", "calloc", "select"}), injector.Calls());
    EXPECT_TRUE(Wrote(log, {Err("IpcApiSendMsg", "wait time out for writing!")}));
    EXPECT_EQ(0u, injector.Blocks());
}

TEST_F(FaultOfSendMsg, ShortWriteFails) {
    Capture log;
    for (const ssize_t written : {ssize_t{0}, ssize_t{15}}) {
        log.Clear();
        Injector injector;
        injector.onSend = [=](int, const void*, size_t) { return written; };
        EXPECT_EQ(-1, Call());
        injector.Stop();
        EXPECT_TRUE(Wrote(log, {Err("IpcApiSendMsg", "fail to send message!")}));
    }
}

// The set is as large as the descriptor needs, and one bit of it is set.
TEST_F(FaultOfSendMsg, SetFitsTheDescriptor) {
    for (const int fd : {0, 31, 32, 63, 64, 1022, 1023, 1024, 1055, 1056, 3000, 70000}) {
        Injector injector;
        bool good = false;
        injector.onFcntl = [](int, int, long) { return 0; };
        injector.onSelect = [&](int count, fd_set*, fd_set* write, fd_set*, timeval*) {
            good = count == fd + 1 && IsOnly(write, fd, count);
            return 0;
        };
        EXPECT_EQ(1103, IpcApiSendMsg(fd, 1, nullptr, 0, 0));
        injector.Stop();
        EXPECT_TRUE(good) << fd;
        EXPECT_EQ(fd < 1024 ? 1u : 2u, injector.Sizes().size());
        EXPECT_EQ(0u, injector.Blocks());
    }
}

// Nothing is allocated for a number that is no descriptor's, however large.
TEST_F(FaultOfSendMsg, DescriptorThatIsNoneCostsNothing) {
    for (const int fd : {-1, 60, 70000, INT32_MAX - 1, INT32_MAX}) {
        Injector injector;
        EXPECT_EQ(-1, IpcApiSendMsg(fd, 1, nullptr, 0, 0));
        injector.Stop();
        EXPECT_EQ(Calls{"fcntl"}, injector.Calls()) << fd;
    }
}

TEST_F(FaultOfSendMsg, MissingMemoryForALargeSetIsTold) {
    for (const size_t number : {size_t{2}, size_t{3}}) {
        Capture log;
        Injector injector;
        injector.onFcntl = [](int, int, long) { return 0; };
        injector.FailAt(number);
        EXPECT_EQ(-1, IpcApiSendMsg(3000, 1, nullptr, 0, 0));
        injector.Stop();
        EXPECT_TRUE(Wrote(log, {Perr("IpcApiSendMsg", "XMALLOC error", ENOMEM)}));
        EXPECT_EQ(0u, injector.Blocks());
    }
}

// ---- MakeAddrServer --------------------------------------------------------------------------

TEST(FaultOfMakeAddrServer, EveryCallFailsInTurn) {
    const std::vector<Said> bindFails = {Perr("MakeAddrServer", "bind error", EROFS)};
    const std::vector<Said> listenFails = {Perr("MakeAddrServer", "listen error!", EADDRINUSE)};
    struct {
        bool stale;
        size_t number;
        const char* call;
        std::vector<Said> said;
        bool listens;
    } const cases[] = {
        {true, 1, "access", {}, true},        {true, 2, "unlink", {}, true},
        {true, 3, "access", {}, true},        {true, 4, "unlink", {}, true},
        {true, 5, "bind", bindFails, false},  {true, 6, "listen", listenFails, false},
        {false, 1, "access", {}, true},       {false, 2, "unlink", {}, true},
        {false, 3, "bind", bindFails, false}, {false, 4, "listen", listenFails, false},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.call + std::string(one.stale ? " on a stale file" : ""));
        unlink("/tmp/ipc_stat");
        if (one.stale) {
            WriteFile("/tmp/ipc_stat", "stale");
        }
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address;
        socklen_t length;
        Capture log;
        Injector injector;
        injector.FailAt(one.number);
        EXPECT_EQ(0, MakeAddrServer(fd, "ipc_stat", &address, &length));
        injector.Stop();
        EXPECT_EQ(one.call, injector.Failed());
        EXPECT_TRUE(Wrote(log, one.said));
        EXPECT_EQ(one.listens, HasListener("ipc_stat"));
        EXPECT_EQ(one.listens, fcntl(fd, F_GETFD) >= 0);
        EXPECT_EQ(one.listens, access("/tmp/ipc_stat", F_OK) == 0);
        if (one.listens) {
            close(fd);
        }
    }
}

TEST(FaultOfMakeAddrServer, FileThatCannotBeRemovedDoesNotHoldItUp) {
    WriteFile("/tmp/ipc_stat", "stale");
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address;
    socklen_t length;
    Capture log;
    Injector injector;
    injector.FailAt(2, true);
    EXPECT_EQ(0, MakeAddrServer(fd, "ipc_stat", &address, &length));
    injector.Stop();
    EXPECT_EQ((Calls{"access", "unlink", "unlink", "bind", "unlink", "close"}), injector.Calls());
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrServer", "bind error", EROFS)}));
}

// ---- Interface ioctls and socket options -----------------------------------------------------

struct Ioctl {
    unsigned long request;
    Bytes name;
    s16 flags;
};

// Stands for the kernel: keeps the requests, answers with these flags.
class Kernel {
 public:
    explicit Kernel(Injector& injector, s16 flags = 0) {
        injector.onIoctl = [this, flags](int, unsigned long request, void* argument) {
            auto* record = static_cast<ifreq*>(argument);
            requests.push_back({request, Bytes(AsBytes(*record)).Slice(0, 16), record->ifr_flags});
            if (request == SIOCGIFFLAGS) {
                record->ifr_flags = flags;
            }
            return 0;
        };
    }

    std::vector<Ioctl> requests;
};

TEST(FaultOfIoctl, SixteenCharactersGoToGetFlagsWholeAndToSetFlagsCut) {
    char name[] = "abcdefghijklmnopq";
    Capture log;
    Injector injector;
    Kernel kernel(injector);
    u32 value = 0;
    u8 mac[6];
    EXPECT_EQ(0, IfethGetFlags(name, &value));
    EXPECT_EQ(0, IfethSetFlags(name, 0));
    EXPECT_EQ(0, IfethGetHwAddr(name, mac, nullptr));
    injector.Stop();
    ASSERT_EQ(3u, kernel.requests.size());
    EXPECT_EQ(0x8913ul, kernel.requests[0].request);
    EXPECT_EQ(Pack().Text("abcdefghijklmnop", 16), kernel.requests[0].name);
    EXPECT_EQ(0x8914ul, kernel.requests[1].request);
    EXPECT_EQ(Pack().Text("abcdefghijklmno", 16), kernel.requests[1].name);
    EXPECT_EQ(0x8927ul, kernel.requests[2].request);
    EXPECT_EQ(Pack().Text("abcdefghijklmnop", 16), kernel.requests[2].name);
    EXPECT_TRUE(log.IsSilent());
}

TEST(FaultOfIoctl, GetIpAddrTakesSixteenBytesWhateverTheLength) {
    char name[16] = {'l', 'o', '\0', 'x', 'y', 'z'};
    name[15] = '!';
    Injector injector;
    in_addr address = {};
    Bytes seen;
    injector.onIoctl = [&](int, unsigned long request, void* argument) {
        auto* record = static_cast<ifreq*>(argument);
        EXPECT_EQ(0x8915ul, request);
        seen = Bytes(AsBytes(*record)).Slice(0, 16);
        EXPECT_EQ(AF_INET, record->ifr_addr.sa_family);
        auto* in = reinterpret_cast<sockaddr_in*>(&record->ifr_addr);
        in->sin_addr.s_addr = htonl(0x0a0b0c0d);
        return 0;
    };
    EXPECT_EQ(0, IfethGetIpAddr(name, &address));
    injector.Stop();
    EXPECT_EQ(AsBytes(name), seen);
    EXPECT_EQ(htonl(0x0a0b0c0d), address.s_addr);
}

TEST(FaultOfIoctl, LineStatusIsAskedForAndHandedOver) {
    char name[] = "abcdefghijklmnop";
    for (const u32 link : {0u, 1u, 7u}) {
        Capture log;
        Injector injector;
        u32 status = 77;
        injector.onIoctl = [=](int, unsigned long request, void* argument) {
            auto* record = static_cast<ifreq*>(argument);
            EXPECT_EQ(0x8946ul, request);
            EXPECT_EQ(Pack().Text("abcdefghijklmno", 16), Bytes(AsBytes(*record)).Slice(0, 16));
            auto* value = reinterpret_cast<ethtool_value*>(record->ifr_data);
            EXPECT_EQ(10u, value->cmd);
            EXPECT_EQ(0u, value->data);
            value->data = link;
            return 0;
        };
        EXPECT_EQ(0, IfethGetLineStatus(name, &status));
        injector.Stop();
        EXPECT_EQ((Calls{"socket", "ioctl", "close"}), injector.Calls());
        EXPECT_EQ(link, status);
        EXPECT_TRUE(log.IsSilent());
    }
}

TEST(FaultOfIoctl, LineStatusTellsEachFailure) {
    u32 status = 77;
    {
        Capture log;
        Injector injector;
        injector.FailAt(1);
        EXPECT_EQ(-1, IfethGetLineStatus(g_lo, &status));
        injector.Stop();
        EXPECT_TRUE(Wrote(log, {Perr("SocketIoctl", "socket error", EMFILE),
                                Perr("IfethGetLineStatus", "ioctl error", EMFILE)}));
    }
    Capture log;
    Injector injector;
    injector.FailAt(2);
    EXPECT_EQ(-1, IfethGetLineStatus(g_lo, &status));
    injector.Stop();
    EXPECT_TRUE(Wrote(log, {Perr("SocketIoctl", "ioctl error", EPERM),
                            Perr("IfethGetLineStatus", "ioctl error", EPERM)}));
    EXPECT_EQ(77u, status);
    EXPECT_TRUE(injector.Descriptors().empty());
}

TEST(FaultOfIoctl, ShutdownClearsOneFlagAndNoShutdownSetsTwo) {
    struct {
        s32 (*call)(char*);
        u16 before;
        u16 after;
    } const cases[] = {
        {VimbraIfaceShutdown, 0x1043, 0x1042},   {VimbraIfaceShutdown, 0x1002, 0x1002},
        {VimbraIfaceShutdown, 0xffff, 0xfffe},   {VimbraIfaceNoShutdown, 0x1002, 0x1043},
        {VimbraIfaceNoShutdown, 0x1043, 0x1043}, {VimbraIfaceNoShutdown, 0x8000, 0x8041},
    };
    Capture log;
    for (const auto& one : cases) {
        Injector injector;
        Kernel kernel(injector, static_cast<s16>(one.before));
        EXPECT_EQ(0, one.call(g_eth));
        injector.Stop();
        ASSERT_EQ(2u, kernel.requests.size());
        EXPECT_EQ(0x8914ul, kernel.requests[1].request);
        EXPECT_EQ(static_cast<s16>(one.after), kernel.requests[1].flags);
    }
}

TEST(FaultOfIoctl, FlagsAreHandedOverUnsigned) {
    Injector injector;
    Kernel kernel(injector, static_cast<s16>(0x9043));
    u32 flags = 0;
    EXPECT_EQ(0, IfethGetFlags(g_eth, &flags));
    injector.Stop();
    EXPECT_EQ(0x9043u, flags);
}

TEST(FaultOfIoctl, FlagsThatCannotBeWrittenAreTold) {
    for (s32 (*call)(char*) : {VimbraIfaceShutdown, VimbraIfaceNoShutdown}) {
        const char* function =
            call == VimbraIfaceShutdown ? "VimbraIfaceShutdown" : "VimbraIfaceNoShutdown";
        Capture log;
        Injector injector;
        injector.FailAt(5);
        EXPECT_EQ(-1, call(g_lo));
        injector.Stop();
        EXPECT_EQ("ioctl", injector.Failed());
        EXPECT_TRUE(Wrote(
            log, {Prt(function, "pchIfaceName : lo"), Perr("SocketIoctl", "ioctl error", EPERM),
                  Err(function, "set flag error!")}));
    }
}

TEST(FaultOfSetDscp, PassesOneByteForIpv4AndFourForIpv6) {
    Injector injector;
    int calls = 0;
    injector.onSetsockopt = [&](int fd, int level, int name, const void* value, socklen_t size) {
        EXPECT_EQ(7, fd);
        if (calls++ == 0) {
            EXPECT_EQ(IPPROTO_IP, level);
            EXPECT_EQ(IP_TOS, name);
            EXPECT_EQ(1u, size);
            EXPECT_EQ(184, *static_cast<const u8*>(value));
        } else {
            EXPECT_EQ(IPPROTO_IPV6, level);
            EXPECT_EQ(IPV6_TCLASS, name);
            EXPECT_EQ(4u, size);
            EXPECT_EQ(46, *static_cast<const int*>(value));
        }
        return 0;
    };
    EXPECT_EQ(0, VimbraSetDscp(AF_INET, 7, 46));
    EXPECT_EQ(0, VimbraSetDscp(AF_INET6, 7, 46));
    EXPECT_EQ(2, calls);
}

TEST(FaultOfSetDscp, FailureIsTold) {
    for (const u16 family : {u16{AF_INET}, u16{AF_INET6}}) {
        Capture log;
        Injector injector;
        injector.FailAt(1);
        EXPECT_EQ(-1, VimbraSetDscp(family, 7, 46));
        injector.Stop();
        EXPECT_TRUE(Wrote(
            log, {Perr("VimbraSetDscp", family == AF_INET ? "set dscp failed" : "set dscpv6 failed",
                       ENOPROTOOPT)}));
    }
}

}  // namespace
}  // namespace vimbra::tests
