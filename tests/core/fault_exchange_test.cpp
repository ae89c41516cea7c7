// What the exchanges say and do when one of their calls fails, connecting included.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/un.h>
#include <vimbra/ipc.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/injector.hpp"
#include "expect_log.hpp"
#include "fault.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

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
        ExpectNothingLeft(injector);
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

}  // namespace
}  // namespace vimbra::tests
