// What an application learns of a call that failed, from outside.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <vimbra/common.h>
#include <vimbra/failure.h>
#include <vimbra/iface.h>
#include <vimbra/iface_check.h>
#include <vimbra/ip_conflict.h>
#include <vimbra/ipc.h>
#include <vimbra/log.h>
#include <vimbra/net_ip.h>
#include <vimbra/net_ping.h>
#include <vimbra/ping.h>
#include <vimbra/router_advertise.h>
#include <vimbra/stat.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

char g_eth[16] = "eth0";

s32 SetMtu() {
    return VimbraIfaceSetMtu(g_eth, VIMBRA_FAMILY_IPV4, 1400);
}

// The step, the daemon's number, errno and the call of the newest failure, in one line.
std::string Failure() {
    TVimbraFailure failure;
    memset(static_cast<void*>(&failure), 0xA5, sizeof(failure));
    const s32 result = VimbraLastFailure(&failure);
    EXPECT_EQ(failure.eStep == VIMBRA_FAILURE_NONE ? -1 : 0, result);
    return std::to_string(failure.eStep) + " " + std::to_string(failure.nDaemonCode) + " " +
           std::to_string(failure.nErrno) + " " + failure.pchCall;
}

std::string Said(EVimbraFailureStep step, int code, int error, const std::string& call) {
    return std::to_string(step) + " " + std::to_string(code) + " " + std::to_string(error) + " " +
           call;
}

const std::string kNone = Said(VIMBRA_FAILURE_NONE, 0, 0, "");

class LastFailure : public testing::Test {
 protected:
    Capture log_;
};

TEST_F(LastFailure, IsNoneBeforeACallHasFailed) {
    EXPECT_EQ(kNone, Failure());
    EXPECT_EQ(-1, VimbraLastFailure(nullptr));
}

TEST_F(LastFailure, IsForgottenWhenItWasRead) {
    EXPECT_EQ(-1, SetMtu());
    EXPECT_EQ(-1, VimbraLastFailure(nullptr));
    EXPECT_NE(kNone, Failure());
    EXPECT_EQ(kNone, Failure());
}

TEST_F(LastFailure, IsLeftAloneByASuccess) {
    EXPECT_EQ(-1, SetMtu());
    const ScriptedDaemon daemon;
    EXPECT_EQ(0, SetMtu());
    EXPECT_EQ(Said(VIMBRA_FAILURE_NO_DAEMON, 0, ENOENT, "ApicMtuSet"), Failure());
    EXPECT_EQ(0, SetMtu());
    EXPECT_EQ(kNone, Failure());
}

TEST_F(LastFailure, IsEachThreadsOwn) {
    EXPECT_EQ(-1, SetMtu());
    std::thread([] {
        EXPECT_EQ(kNone, Failure());
        EXPECT_EQ(1105, VimbraIfaceSetMtu(nullptr, VIMBRA_FAMILY_IPV4, 1400));
        EXPECT_EQ(Said(VIMBRA_FAILURE_ARGUMENT, 0, 0, "VimbraIfaceSetMtu"), Failure());
    }).join();
    EXPECT_EQ(Said(VIMBRA_FAILURE_NO_DAEMON, 0, ENOENT, "ApicMtuSet"), Failure());
}

TEST_F(LastFailure, DoesNotDependOnTheLog) {
    g_nVimbraLogSwitch = VIMBRA_LEVEL_NONE;
    EXPECT_EQ(-1, SetMtu());
    EXPECT_EQ(Said(VIMBRA_FAILURE_NO_DAEMON, 0, ENOENT, "ApicMtuSet"), Failure());
    EXPECT_TRUE(log_.IsSilent());
}

// ---- The steps ---------------------------------------------------------------------------------

TEST_F(LastFailure, TellsARefusedArgument) {
    TVimbraPingOpt option = {};
    EXPECT_EQ(1105, VimbraPingStart({}, &option, 1, nullptr));
    EXPECT_EQ(Said(VIMBRA_FAILURE_ARGUMENT, 0, 0, "VimbraPingStart"), Failure());
    EXPECT_EQ(1106, NetPingStart(0, nullptr, 1, nullptr));
    EXPECT_EQ(Said(VIMBRA_FAILURE_ARGUMENT, 0, 0, "NetPingStart"), Failure());
    EXPECT_EQ(-1, IpcApiSendAndRecv(1, nullptr, 1, nullptr, 0));
    EXPECT_EQ(Said(VIMBRA_FAILURE_ARGUMENT, 0, 0, "IpcApiSendAndRecv"), Failure());
    const char body[3073] = {};
    EXPECT_EQ(-1, IpcApiSendAndRecv(1, body, sizeof(body), nullptr, 0));
    EXPECT_EQ(Said(VIMBRA_FAILURE_ARGUMENT, 0, 0, "IpcApiSendAndRecv"), Failure());
    EXPECT_EQ(-1, IpcCallbackSendAndRecv(std::string(97, 'n').c_str(), 1, nullptr, 0, nullptr, 0));
    EXPECT_EQ(Said(VIMBRA_FAILURE_ARGUMENT, 0, 0, "IpcCallbackSendAndRecv"), Failure());
}

// Some calls refuse an argument with -1, which says nothing by itself.
TEST_F(LastFailure, TellsAnArgumentThatIsRefusedWithMinusOne) {
    u32 flags;
    EXPECT_EQ(-1, IfethGetFlags(nullptr, &flags));
    EXPECT_EQ(Said(VIMBRA_FAILURE_ARGUMENT, 0, 0, "IfethGetFlags"), Failure());
    EXPECT_EQ(-1, VimbraIfaceGetMtu(g_eth, nullptr));
    EXPECT_EQ(Said(VIMBRA_FAILURE_ARGUMENT, 0, 0, "VimbraIfaceGetMtu"), Failure());
    EXPECT_EQ(-1, VimbraStatNotifyCallbackReg(0, nullptr));
    EXPECT_EQ(Said(VIMBRA_FAILURE_ARGUMENT, 0, 0, "VimbraStatNotifyCallbackReg"), Failure());
}

// An argument that is refused where its interface is looked up is told with the call's own name.
TEST_F(LastFailure, TellsALegacyCallsArgument) {
    EXPECT_EQ(1105, NetSetEthParam(0, 1, nullptr));
    EXPECT_EQ(Said(VIMBRA_FAILURE_ARGUMENT, 0, 0, "NetSetEthParam"), Failure());
}

TEST_F(LastFailure, TellsADaemonThatIsNotThere) {
    EXPECT_EQ(-1, SetMtu());
    EXPECT_EQ(Said(VIMBRA_FAILURE_NO_DAEMON, 0, ENOENT, "ApicMtuSet"), Failure());
    DeafServer("api_daemon").Close();
    EXPECT_EQ(-1, VimbraLogSwitch(5));
    EXPECT_EQ(Said(VIMBRA_FAILURE_NO_DAEMON, 0, ECONNREFUSED, "VimbraLogSwitch"), Failure());
    u32 reply;
    EXPECT_EQ(-1, IpcApiSendAndRecv(1, nullptr, 0, &reply, sizeof(reply)));
    EXPECT_EQ(Said(VIMBRA_FAILURE_NO_DAEMON, 0, ECONNREFUSED, "IpcApiSendAndRecv"), Failure());
}

TEST_F(LastFailure, TellsAFullBacklog) {
    const DeafServer server("ipc_ping");
    const FullBacklog full("ipc_ping");
    EXPECT_EQ(-1, IpcCallbackSendAndRecv("ipc_ping", 1, nullptr, 0, nullptr, 0));
    EXPECT_EQ(Said(VIMBRA_FAILURE_TIMEOUT, 0, EAGAIN, "IpcCallbackSendAndRecv"), Failure());
}

TEST_F(LastFailure, TellsTheDaemonsNumber) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Code(22));
    EXPECT_EQ(-1, SetMtu());
    EXPECT_EQ(Said(VIMBRA_FAILURE_REFUSAL, 22, 0, "ApicMtuSet"), Failure());
    EXPECT_EQ(-1, VimbraLogSwitch(5));
    EXPECT_EQ(Said(VIMBRA_FAILURE_REFUSAL, 22, 0, "VimbraLogSwitch"), Failure());
    daemon.Default(Answer::Code(-7));
    EXPECT_EQ(-1, SetMtu());
    EXPECT_EQ(Said(VIMBRA_FAILURE_REFUSAL, -7, 0, "ApicMtuSet"), Failure());
}

TEST_F(LastFailure, TellsAnAnswerThatIsNone) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Code(0).InPieces({12}));
    EXPECT_EQ(-1, SetMtu());
    EXPECT_EQ(Said(VIMBRA_FAILURE_ANSWER, 0, 0, "ApicMtuSet"), Failure());
    daemon.Default(Answer::Code(0).Size(5));
    EXPECT_EQ(-1, SetMtu());
    EXPECT_EQ(Said(VIMBRA_FAILURE_ANSWER, 0, 0, "ApicMtuSet"), Failure());
}

// A daemon that closes without an answer has done what it was asked, but where a call takes its
// silence for a refusal.
TEST_F(LastFailure, TellsSilenceOnlyWhereItIsAFailure) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Close());
    EXPECT_EQ(0, SetMtu());
    EXPECT_EQ(kNone, Failure());
    EXPECT_EQ(0, VimbraInit());
    EXPECT_EQ(-1, VimbraIpConflictCheckStop(VIMBRA_FAMILY_IPV4));
    EXPECT_EQ(Said(VIMBRA_FAILURE_ANSWER, 0, 0, "ApicConflictCheckStop"), Failure());
}

// The order to the listener to end is posted in vain; the stop itself is not.
TEST_F(LastFailure, IsNotThatOfAStepWithinACallThatSucceeds) {
    const ScriptedDaemon daemon;
    EXPECT_EQ(0, VimbraInit());
    TVimbraAddr destination = {};
    destination.wSinFamily = VIMBRA_FAMILY_IPV4;
    TVimbraPingOpt option = {};
    const auto onPing = [](s32, TVimbraPingCBInfo*) { return 0; };
    EXPECT_EQ(0, VimbraPingStart(destination, &option, 1, onPing));
    EXPECT_EQ(0, VimbraRouterAdvertiseStart(g_eth, [](TVimbraRouterAdCb*) {}));
    ASSERT_EQ(0, unlink("/tmp/ipc_ping"));
    ASSERT_EQ(0, unlink("/tmp/ipc_router_notify"));
    EXPECT_EQ(0, VimbraPingStop(1));
    EXPECT_EQ(0, VimbraRouterAdvertiseStop(g_eth));
    EXPECT_EQ(2, log_.Count(Kind::kPerror, "MakeAddrClient", "connect error"));
    EXPECT_EQ(kNone, Failure());
}

void OnSignal(int) {}

TEST_F(LastFailure, TellsAWaitThatWasInterrupted) {
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));
    ScriptedDaemon daemon;
    daemon.Default(Answer::Nothing());
    std::atomic<bool> done{false};
    std::thread asking([&] {
        EXPECT_EQ(-1, SetMtu());
        EXPECT_EQ(Said(VIMBRA_FAILURE_ANSWER, 0, EINTR, "ApicMtuSet"), Failure());
        done = true;
    });
    EXPECT_TRUE(daemon.WaitRequests(1));
    EXPECT_TRUE(WaitFor([&] {
        if (!done) {
            pthread_kill(asking.native_handle(), SIGUSR1);
        }
        return done.load();
    }));
    daemon.Release();
    asking.join();
}

TEST_F(LastFailure, TellsWhatTheSystemSaid) {
    char none[16] = "none0";
    u32 flags;
    EXPECT_EQ(-1, IfethGetFlags(none, &flags));
    EXPECT_EQ(Said(VIMBRA_FAILURE_LOCAL, 0, ENODEV, "IfethGetFlags"), Failure());
    EXPECT_EQ(-1, IpcApiSendMsg(-1, 1, nullptr, 0, 0));
    EXPECT_EQ(Said(VIMBRA_FAILURE_LOCAL, 0, EBADF, "IpcApiSendMsg"), Failure());
}

TEST_F(LastFailure, TellsAMessageThatCouldNotBeWritten) {
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    shutdown(ends[1], SHUT_RDWR);
    EXPECT_EQ(-1, IpcApiSendMsg(ends[0], 1, nullptr, 0, 0));
    EXPECT_EQ(Said(VIMBRA_FAILURE_SENDING, 0, EPIPE, "IpcApiSendMsg"), Failure());
    close(ends[0]);
    close(ends[1]);
}

TEST_F(LastFailure, TellsWhyASocketDidNotConnect) {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address;
    socklen_t length;
    EXPECT_EQ(-1, MakeAddrClient(fd, "nobody", &address, &length));
    EXPECT_EQ(Said(VIMBRA_FAILURE_NO_DAEMON, 0, ENOENT, "MakeAddrClient"), Failure());
    EXPECT_EQ(-1, MakeAddrClient(fd, nullptr, &address, &length));
    EXPECT_EQ(Said(VIMBRA_FAILURE_ARGUMENT, 0, 0, "MakeAddrClient"), Failure());
    EXPECT_EQ(-1, MakeAddrServer(fd, "name", nullptr, &length));
    EXPECT_EQ(Said(VIMBRA_FAILURE_ARGUMENT, 0, 0, "MakeAddrServer"), Failure());
    close(fd);
}

// ---- Results in words --------------------------------------------------------------------------

TEST(ResultText, HasWordsForEveryResult) {
    for (const s32 result : {-1, 0, 1101, 1102, 1103, 1105, 1106, 1108, 1109, 1111, 1201, 1301,
                             1302, 1303, 1304, 1305, 1403}) {
        EXPECT_STRNE("unknown result", VimbraResultText(result)) << result;
        EXPECT_STRNE("", VimbraResultText(result)) << result;
    }
    EXPECT_STREQ("success", VimbraResultText(0));
    EXPECT_STREQ("invalid argument", VimbraResultText(1105));
    EXPECT_STREQ("no reply within the time-out", VimbraResultText(1102));
}

TEST(ResultText, IsNeverNull) {
    for (const s32 result : {1, -2, 1100, 1104, 1107, 1110, 1306, INT32_MAX, INT32_MIN}) {
        EXPECT_STREQ("unknown result", VimbraResultText(result)) << result;
    }
}

}  // namespace
}  // namespace vimbra::tests
