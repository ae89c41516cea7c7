// An exchange's waits that fail or end, and what becomes of it: the services' lines, what is noted.
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/failure.h>
#include <vimbra/iface.h>
#include <vimbra/log.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/injector.hpp"
#include "expect_log.hpp"
#include "fault.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

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
    ExpectNothingLeft(injector);
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
    ExpectNothingLeft(injector);
}

// ---- The services ----------------------------------------------------------------------------

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

}  // namespace
}  // namespace vimbra::tests
