// The listener engine itself, where its services do not show it: starts, ends, names, locks.
#include "lib/ipc/listener.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vimbra/thread.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "engine.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// A standard output that nobody reads, for as long as it lives.
class BlockedStdout {
 public:
    BlockedStdout() : own_(dup(STDOUT_FILENO)) {
        EXPECT_EQ(0, pipe2(pipe_, O_CLOEXEC));
        EXPECT_NE(-1, fcntl(pipe_[1], F_SETFL, O_NONBLOCK));
        const std::vector<char> filling(4096, '.');
        while (write(pipe_[1], filling.data(), filling.size()) > 0) {
        }
        EXPECT_NE(-1, fcntl(pipe_[1], F_SETFL, 0));
        fflush(stdout);
        setvbuf(stdout, nullptr, _IONBF, 0);
        EXPECT_NE(-1, dup2(pipe_[1], STDOUT_FILENO));
    }
    // Who is blocked goes on, into nothing.
    ~BlockedStdout() {
        close(pipe_[1]);
        std::thread reader([this] {
            char buffer[4096];
            while (read(pipe_[0], buffer, sizeof(buffer)) > 0) {
            }
        });
        fflush(stdout);
        EXPECT_NE(-1, dup2(own_, STDOUT_FILENO));
        reader.join();
        close(pipe_[0]);
        close(own_);
    }
    BlockedStdout(const BlockedStdout&) = delete;
    BlockedStdout& operator=(const BlockedStdout&) = delete;

 private:
    int own_;
    int pipe_[2];
};

TEST_F(Engine, StartReturnsWhenTheSocketIsServed) {
    for (int i = 0; i < 100; i++) {
        EXPECT_TRUE(Start());
        EXPECT_TRUE(HasListener(kSocket));
        EXPECT_NE(0u, handle_);
        EXPECT_EQ(0, KillListener(slot_).result);
        EXPECT_EQ(ECONNREFUSED, Connection(kSocket).Error());
        EXPECT_EQ(0u, handle_);
    }
    EXPECT_TRUE(probe_.HasEnded(100));
}

TEST_F(Engine, KillOfAnEmptySlotTouchesNothing) {
    EXPECT_EQ(-1, KillListener(slot_).result);
    WaitListener({0, 0});
    Start();
    EXPECT_EQ(0, KillListener(slot_).result);
    EXPECT_EQ(-1, KillListener(slot_).result);
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_EQ(Ended::kKilled, probe_.ends[0]);
    EXPECT_FALSE(probe_.released);
}

TEST_F(Engine, AStopBeforeTheSocketIsThereLeavesNone) {
    const Gate gate;
    probe_.inBegin = [&] { gate.Pass(); };
    std::thread starter([this] { EXPECT_TRUE(Start()); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, KillListener(slot_).result);
    gate.Open();
    starter.join();
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_EQ(std::vector<Bound>{Bound::kStopped}, probe_.bounds);
    EXPECT_EQ(std::vector<Ended>{Ended::kNotBound}, probe_.ends);
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_TRUE(log_.IsSilent());
}

// Nobody has its handle, so nobody waits for it.
TEST_F(Engine, AThreadThatIsStoppedBeforeItRunsGoesByItself) {
    service_.detached = false;
    const Gate gate;
    std::thread starter([&] {
        t_heldThreads = &gate;
        EXPECT_TRUE(Start());
    });
    ASSERT_TRUE(gate.WaitArrived());
    const ListenerStop stop = KillListener(slot_);
    EXPECT_EQ(0, stop.result);
    EXPECT_EQ(0u, stop.join);
    gate.Open();
    starter.join();
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_EQ(0u, handle_);
    EXPECT_FALSE(HasListener(kSocket));
}

TEST_F(Engine, KilledThreadCanBeWaitedFor) {
    service_.detached = false;
    for (int i = 0; i < 50; i++) {
        Start();
        const ListenerStop stop = KillListener(slot_);
        EXPECT_EQ(0, stop.result);
        WaitListener(stop);
        // It has been through all its hooks.
        const std::lock_guard lock(probe_.mutex);
        EXPECT_EQ(static_cast<size_t>(i) + 1, probe_.ends.size());
    }
}

TEST_F(Engine, StartOverARunningListenerEndsTheOlder) {
    for (const bool detached : {true, false}) {
        service_.detached = detached;
        Start();
        Start();
        EXPECT_TRUE(WaitFor([this] { return Threads() == threads_ + 1; }));
        EXPECT_TRUE(Notify(kSocket, 1, kBody));
        WaitListener(KillListener(slot_));
        ExpectLevel();
    }
    EXPECT_EQ(2u, probe_.Messages());
}

TEST_F(Engine, ListenersOfOneNameTakeItOverInTheOrderOfTheirStarts) {
    constexpr int kListeners = 8;
    static ListenerSlot slots[kListeners];
    static Probe probes[kListeners];
    for (int i = 0; i < kListeners; i++) {
        StartListener(Lasting(), slots[i], {.argument = &probes[i]});
    }
    EXPECT_TRUE(Notify(kSocket, 1, kBody));
    EXPECT_EQ(1u, probes[kListeners - 1].Messages());
    for (int i = 0; i < kListeners; i++) {
        EXPECT_EQ(0, KillListener(slots[i]).result);
        EXPECT_TRUE(probes[i].HasEnded());
    }
}

TEST_F(Engine, BeginMayRefuse) {
    probe_.onBegin = Next::kEnd;
    EXPECT_TRUE(Start());
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_EQ(Ended::kByService, probe_.ends[0]);
    EXPECT_TRUE(probe_.bounds.empty());
    EXPECT_TRUE(probe_.released);
    EXPECT_EQ(0u, handle_);
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(Engine, NameThatIsTooLongIsRefused) {
    service_.socketName = nullptr;
    const std::string fits(96, 'a');
    starts_ = 3;
    StartListener(Lasting(), slot_, {.argument = &probe_, .socketName = fits.c_str()});
    EXPECT_TRUE(HasListener(fits));
    KillListener(slot_);
    EXPECT_TRUE(probe_.HasEnded());
    for (const size_t length : {97u, 500u}) {
        log_.Clear();
        const std::string name(length, 'a');
        StartListener(Lasting(), slot_, {.argument = &probe_, .socketName = name.c_str()});
        EXPECT_TRUE(log_.WaitFor(Kind::kError, kFunction, "MakeAddrServer ERROR!"));
        EXPECT_TRUE(log_.Has(Kind::kError, "MakeAddrServer", "the name is too long!"));
    }
    EXPECT_TRUE(probe_.HasEnded(3));
    EXPECT_EQ((std::vector{Bound::kListening, Bound::kNameRefused, Bound::kNameRefused}),
              probe_.bounds);
    EXPECT_EQ(Ended::kNotBound, probe_.ends.back());
}

// A descriptor that comes to the number of one that failed to bind belongs to somebody else.
TEST_F(Engine, FailedBindLeavesTheNumberAlone) {
    ASSERT_EQ(0, mkdir("/tmp/ipc_test", 0777));
    service_.waitText = "select error";
    Start();
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_EQ(Bound::kBindFailed, probe_.bounds[0]);
    EXPECT_EQ(Ended::kAcceptFailed, probe_.ends[0]);
    EXPECT_TRUE(log_.Has(Kind::kPerror, "MakeAddrServer", "bind error"));
    EXPECT_TRUE(log_.Has(Kind::kPerror, kFunction, "select error"));
    EXPECT_EQ(1, log_.Count(Kind::kPerror, kFunction));
    EXPECT_EQ(0u, handle_);
}

TEST_F(Engine, TickComesWhenNothingElseDoes) {
    service_.tickSeconds = 1;
    probe_.onTick = Next::kEnd;
    Start();
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_EQ(1, probe_.ticks);
    EXPECT_EQ(Ended::kByService, probe_.ends[0]);
}

TEST_F(Engine, SignalsNeitherEndNorTickAListener) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(0, sigaction(SIGWINCH, &action, nullptr));
    service_.tickSeconds = 30;
    Start();
    for (int i = 0; i < 100; i++) {
        pthread_kill(handle_, SIGWINCH);
    }
    EXPECT_TRUE(Notify(kSocket, 1, kBody));
    EXPECT_EQ(1u, probe_.Messages());
    EXPECT_EQ(0, probe_.ticks);
}

TEST_F(Engine, JoinableListenerThatEndsByItselfLeavesNoThread) {
    service_.detached = false;
    probe_.onMessage = Next::kEnd;
    Start();
    EXPECT_TRUE(Notify(kSocket, 1, kBody));
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_TRUE(probe_.released);
    EXPECT_EQ(-1, KillListener(slot_).result);
}

TEST_F(Engine, OwnershipIsKnownToTheHooks) {
    std::atomic<bool> before = false;
    std::atomic<bool> after = true;
    probe_.inMessage = [&](Listener& listener) {
        before = listener.IsCurrent();
        KillListener(slot_);
        after = listener.IsCurrent() || listener.Release();
    };
    Start();
    EXPECT_TRUE(Notify(kSocket, 1, kBody));
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_TRUE(before);
    EXPECT_FALSE(after);
    EXPECT_EQ(Ended::kKilled, probe_.ends[0]);
}

TEST_F(Engine, ThreadThatEndsInACallbackIsCleanedUp) {
    probe_.inMessage = [](Listener&) { ThreadExit(); };
    for (int i = 1; i <= 20; i++) {
        Start();
        EXPECT_TRUE(Notify(kSocket, 1, kBody));
        EXPECT_TRUE(probe_.HasEnded(static_cast<size_t>(i)));
        EXPECT_TRUE(probe_.released);
        EXPECT_EQ(-1, KillListener(slot_).result);
    }
}

TEST_F(Engine, CallbackThatTurnsCancellationOnLosesNothing) {
    probe_.inMessage = [](Listener&) { pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr); };
    Start();
    EXPECT_TRUE(Notify(kSocket, 1, kBody));
    EXPECT_TRUE(Notify(kSocket, 1, kBody));
    EXPECT_EQ(2u, probe_.Messages());
}

// How many threads of a name are waiting for something. The capture cannot be asked: it looks at
// standard output.
int SleepingThreads(const std::string& name) {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        const std::string status = ReadFile(task.path() / "status");
        count += status.starts_with("Name:\t" + name + "\n") &&
                 status.find("\nState:\tS") != std::string::npos;
    }
    return count;
}

// Who writes a log line may have to wait for whoever reads it; the other services must not.
TEST_F(Engine, NoLogLineIsWrittenWithTheLockHeld) {
    ASSERT_EQ(0, mkdir("/tmp/ipc_blocked", 0777));
    ListenerSlot otherSlot = {};
    Probe other;
    std::thread starter;
    {
        const BlockedStdout blocked;
        starter = std::thread([&] {
            // Its thread stops at the line that says why it could not bind.
            ListenerService service = service_;
            service.socketName = nullptr;
            static const ListenerService lasting = service;
            StartListener(lasting, otherSlot, {.argument = &other, .socketName = "ipc_blocked"});
        });
        ASSERT_TRUE(WaitFor([] { return SleepingThreads("VimbraTestCBThr") == 1; }));
        Start();
        EXPECT_TRUE(Notify(kSocket, 1, kBody));
        EXPECT_EQ(0, KillListener(slot_).result);
        EXPECT_TRUE(probe_.HasEnded());
        const std::lock_guard lock(other.mutex);
        EXPECT_TRUE(other.bounds.empty());
    }
    starter.join();
    EXPECT_TRUE(other.HasEnded());
}

TEST_F(Engine, KillCutsEveryWait) {
    // In the body.
    service_.reading = Reading::kHeadThenBody;
    Start();
    Connection half(kSocket);
    ASSERT_TRUE(half.Send(bed::Message(1, kBody).Slice(0, 12)));
    ASSERT_TRUE(half.WaitRead());
    EXPECT_EQ(0, KillListener(slot_).result);
    EXPECT_TRUE(half.WaitPeerClosed());
    EXPECT_TRUE(probe_.HasEnded(1));
    // In the header.
    Start();
    Connection silent(kSocket);
    EXPECT_EQ(0, KillListener(slot_).result);
    EXPECT_TRUE(silent.WaitPeerClosed());
    EXPECT_TRUE(probe_.HasEnded(2));
    EXPECT_EQ((std::vector{Ended::kKilled, Ended::kKilled}), probe_.ends);
}

}  // namespace
}  // namespace vimbra::tests
