// The listener engine itself, where its services do not show it.
#include "lib/ipc/listener.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>
#include <vimbra/thread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

// What the system is to say to the engine; 0: what it says by itself.
std::atomic<int> g_acceptError = 0;
std::atomic<int> g_socketError = 0;
std::atomic<int> g_accepts = 0;
// Where threads that this one makes wait before they run; null: nowhere.
thread_local const Gate* t_heldThreads = nullptr;

struct HeldThread {
    const Gate* gate;
    void* (*run)(void*);
    void* argument;
};

void* PassAndRun(void* argument) {
    const HeldThread held = *static_cast<HeldThread*>(argument);
    delete static_cast<HeldThread*>(argument);
    held.gate->Pass();
    return held.run(held.argument);
}

}  // namespace

// The engine is linked to these.
extern "C" int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    g_accepts++;
    if (const int error = g_acceptError; error != 0) {
        errno = error;
        return -1;
    }
    return static_cast<int>(syscall(SYS_accept4, fd, address, length, flags));
}

extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
    void* argument) noexcept {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    if (t_heldThreads == nullptr) {
        return create(thread, attributes, run, argument);
    }
    return create(thread, attributes, PassAndRun, new HeldThread{t_heldThreads, run, argument});
}

extern "C" int socket(int domain, int type, int protocol) noexcept {
    if (const int error = g_socketError; error != 0 && (type & SOCK_NONBLOCK) != 0) {
        errno = error;
        return -1;
    }
    return static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}

namespace {

constexpr char kSocket[] = "ipc_test";
constexpr char kFunction[] = "TestCBThread";

// What the hooks saw and what they are to do.
struct Probe {
    std::mutex mutex;
    std::vector<Bytes> bodies;
    std::vector<u32> types;
    std::vector<size_t> counts;
    std::vector<Bound> bounds;
    std::vector<Ended> ends;
    std::atomic<int> ticks = 0;
    std::atomic<bool> released = false;
    std::atomic<Next> onMessage = Next::kGoOn;
    std::atomic<Next> onTick = Next::kGoOn;
    std::atomic<Next> onBegin = Next::kGoOn;
    std::function<void(Listener&)> inMessage;
    std::function<void()> inBegin;

    size_t Messages() {
        const std::lock_guard lock(mutex);
        return bodies.size();
    }
    bool HasEnded(size_t times = 1) {
        return WaitFor([=, this] {
            const std::lock_guard lock(mutex);
            return ends.size() == times;
        });
    }
};

Probe& ProbeOf(Listener& listener) {
    return *static_cast<Probe*>(listener.Argument());
}

Next Begin(Listener& listener) {
    if (ProbeOf(listener).inBegin) {
        ProbeOf(listener).inBegin();
    }
    return ProbeOf(listener).onBegin;
}

void SayBound(Listener& listener, Bound bound) {
    Probe& probe = ProbeOf(listener);
    const std::lock_guard lock(probe.mutex);
    probe.bounds.push_back(bound);
}

Next Take(Listener& listener, vimbra::Message& message) {
    Probe& probe = ProbeOf(listener);
    if (probe.inMessage) {
        probe.inMessage(listener);
    }
    const std::lock_guard lock(probe.mutex);
    probe.bodies.emplace_back(std::vector<u8>(message.body, message.body + message.bodySize));
    probe.types.push_back(message.head.type);
    probe.counts.push_back(message.count);
    return probe.onMessage;
}

Next Tick(Listener& listener) {
    ProbeOf(listener).ticks++;
    return ProbeOf(listener).onTick;
}

void SayEnded(Listener& listener, Ended why) {
    Probe& probe = ProbeOf(listener);
    probe.released = listener.Release();
    const std::lock_guard lock(probe.mutex);
    probe.ends.push_back(why);
}

char g_threadName[] = "VimbraTestCBThread";

ListenerService Service() {
    return {
        .function = kFunction,
        .threadName = g_threadName,
        .socketName = kSocket,
        .bodySize = 8,
        .shortBody = {"short body", FailureRule::kPlain, Next::kEnd},
        .bodyTooLong = {"body too long", FailureRule::kPlain, Next::kGoOn},
        .begin = Begin,
        .bound = SayBound,
        .message = Take,
        .tick = Tick,
        .ended = SayEnded,
    };
}

class Engine : public testing::Test {
 protected:
    Engine() {
        threads_ = Threads();
        descriptors_ = OpenDescriptors();
    }
    ~Engine() override {
        WaitListener(KillListener(slot_));
        EXPECT_TRUE(probe_.HasEnded(starts_));
        ExpectLevel();
    }
    bool Start() {
        starts_++;
        return StartListener(Lasting(), slot_, {.argument = &probe_, .handle = &handle_});
    }
    // A thread may look at its service a moment longer than a test can see it.
    const ListenerService& Lasting() const {
        static auto& services = *new std::list<ListenerService>;
        return services.emplace_back(service_);
    }
    void ExpectLevel() const {
        EXPECT_TRUE(WaitFor([this] { return Threads() == threads_; }));
        EXPECT_EQ(descriptors_, OpenDescriptors());
    }

    Capture log_;
    size_t threads_;
    std::map<int, std::string> descriptors_;
    Probe probe_;
    ListenerService service_ = Service();
    ListenerSlot slot_ = {};
    pthread_t handle_ = 0;
    size_t starts_ = 0;
};

const Bytes kBody = {1, 2, 3, 4, 5, 6, 7, 8};

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

TEST_F(Engine, SocketThatCannotBeMadeEndsIt) {
    g_socketError = EMFILE;
    Start();
    g_socketError = 0;
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_TRUE(log_.Has(Kind::kPerror, kFunction, "socket error"));
    EXPECT_EQ(Bound::kSocketFailed, probe_.bounds[0]);
    EXPECT_EQ(Ended::kNotBound, probe_.ends[0]);
    EXPECT_EQ(0u, handle_);
}

TEST_F(Engine, FailedAcceptEnds) {
    size_t times = 0;
    for (const int error : {EMFILE, ECONNABORTED, ENOMEM, EBADF, EINVAL}) {
        log_.Clear();
        Start();
        g_acceptError = error;
        Connection connection(kSocket);
        EXPECT_TRUE(probe_.HasEnded(++times));
        g_acceptError = 0;
        EXPECT_TRUE(log_.Has(Kind::kPerror, kFunction, "accept error"));
        EXPECT_EQ(Ended::kAcceptFailed, probe_.ends.back());
        EXPECT_TRUE(connection.WaitPeerClosed());
    }
}

TEST_F(Engine, FailureOfAcceptThatPassesIsWaitedOut) {
    service_.acceptFailure = AcceptFailure::kMayBePassing;
    Start();
    size_t messages = 0;
    for (const int error : {EMFILE, ENFILE, ECONNABORTED, ENOMEM, ENOBUFS, EPROTO, EPERM}) {
        log_.Clear();
        const int before = g_accepts;
        g_acceptError = error;
        Connection connection(kSocket);
        ASSERT_TRUE(connection.Send(bed::Message(1, kBody)));
        // It tries again, but not all the time.
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_TRUE(WaitFor([=] { return g_accepts >= before + 3; }));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
        g_acceptError = 0;
        EXPECT_TRUE(connection.WaitPeerClosed());
        EXPECT_EQ(++messages, probe_.Messages());
        EXPECT_GE(log_.Count(Kind::kPerror, kFunction, "accept error"), 3);
    }
}

TEST_F(Engine, DeadSocketEndsAlsoWhoWouldWaitOut) {
    service_.acceptFailure = AcceptFailure::kMayBePassing;
    size_t times = 0;
    for (const int error : {EBADF, EINVAL, ENOTSOCK}) {
        Start();
        g_acceptError = error;
        Connection connection(kSocket);
        EXPECT_TRUE(probe_.HasEnded(++times));
        g_acceptError = 0;
        EXPECT_EQ(Ended::kAcceptFailed, probe_.ends.back());
    }
}

TEST_F(Engine, KillCutsThePause) {
    service_.acceptFailure = AcceptFailure::kMayBePassing;
    Start();
    const int before = g_accepts;
    g_acceptError = EMFILE;
    Connection connection(kSocket);
    EXPECT_TRUE(WaitFor([=] { return g_accepts > before; }));
    EXPECT_EQ(0, KillListener(slot_).result);
    EXPECT_TRUE(probe_.HasEnded());
    g_acceptError = 0;
    EXPECT_EQ(Ended::kKilled, probe_.ends[0]);
}

TEST_F(Engine, ConnectionThatIsGoneAgainIsNoFailure) {
    Start();
    g_acceptError = EAGAIN;
    const int before = g_accepts;
    Connection connection(kSocket);
    ASSERT_TRUE(connection.Send(bed::Message(1, kBody)));
    EXPECT_TRUE(WaitFor([=] { return g_accepts > before; }));
    g_acceptError = EINTR;
    EXPECT_TRUE(WaitFor([=] { return g_accepts > before + 10; }));
    g_acceptError = 0;
    EXPECT_TRUE(connection.WaitPeerClosed());
    EXPECT_EQ(1u, probe_.Messages());
    EXPECT_TRUE(log_.IsSilent());
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

TEST_F(Engine, UpToTakesWhatComes) {
    service_.reading = Reading::kUpTo;
    Start();
    const Bytes whole = bed::Message(7, kBody, 0);
    for (const size_t length : {0, 4, 12, 15, 20}) {
        Connection connection(kSocket);
        ASSERT_TRUE(connection.Send(whole.Slice(0, length)));
        connection.EndSending();
        EXPECT_TRUE(connection.WaitPeerClosed());
    }
    ASSERT_EQ(5u, probe_.Messages());
    EXPECT_EQ((std::vector<size_t>{0, 4, 12, 15, 20}), probe_.counts);
    EXPECT_EQ((std::vector<u32>{0, 7, 7, 7, 7}), probe_.types);
    EXPECT_EQ(Bytes(), probe_.bodies[2]);
    EXPECT_EQ(kBody.Slice(0, 3), probe_.bodies[3]);
    EXPECT_EQ(kBody, probe_.bodies[4]);
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(Engine, HeadThenBodyTakesWhatTheHeadSays) {
    service_.reading = Reading::kHeadThenBody;
    service_.bodySize = 4096;
    Start();
    EXPECT_TRUE(Notify(kSocket, 1, {}));
    EXPECT_TRUE(Notify(kSocket, 2, kBody));
    EXPECT_TRUE(Notify(kSocket, 3, Pack().Zeros(4096)));
    // The two may come apart.
    Connection connection(kSocket);
    ASSERT_TRUE(connection.SendInPieces(bed::Message(4, kBody), {12}));
    EXPECT_TRUE(connection.WaitPeerClosed());
    ASSERT_EQ(4u, probe_.Messages());
    EXPECT_EQ((std::vector<u32>{1, 2, 3, 4}), probe_.types);
    EXPECT_EQ(Bytes(), probe_.bodies[0]);
    EXPECT_EQ(kBody, probe_.bodies[1]);
    EXPECT_EQ(4096u, probe_.bodies[2].size());
    EXPECT_EQ(kBody, probe_.bodies[3]);
}

TEST_F(Engine, HeadThenBodyBoundsTheBody) {
    service_.reading = Reading::kHeadThenBody;
    service_.bodySize = 4096;
    Start();
    int refused = 0;
    for (const u32 size : {4097u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        EXPECT_TRUE(Notify(kSocket, 1, kBody, {.size = size}));
        EXPECT_EQ(++refused, log_.Count(Kind::kError, kFunction, "body too long"));
    }
    EXPECT_EQ(0u, probe_.Messages());
    EXPECT_TRUE(Notify(kSocket, 1, kBody));
    EXPECT_EQ(1u, probe_.Messages());
}

TEST_F(Engine, HeadThenBodyEndsOnAShortBody) {
    service_.reading = Reading::kHeadThenBody;
    Start();
    Connection connection(kSocket);
    ASSERT_TRUE(connection.Send(bed::Message(1, kBody).Slice(0, 19)));
    connection.EndSending();
    EXPECT_TRUE(connection.WaitPeerClosed());
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_EQ(Ended::kBadMessage, probe_.ends[0]);
    EXPECT_TRUE(log_.Has(Kind::kError, kFunction, "short body"));
}

TEST_F(Engine, PeerThatSaysNothingKeepsNobodyWaitingForGood) {
    Start();
    Connection silent(kSocket);
    ASSERT_TRUE(silent.Connected());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(Notify(kSocket, 1, kBody));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(4500));
    EXPECT_TRUE(silent.WaitPeerClosed());
    EXPECT_EQ(1u, probe_.Messages());
    EXPECT_TRUE(log_.Has(Kind::kPerror, kFunction, "read message error"));
}

// The time is the whole message's, not each piece's.
TEST_F(Engine, PeerThatStopsInTheMiddleIsAShortReadInTime) {
    service_.reading = Reading::kHeadThenBody;
    Start();
    Connection half(kSocket);
    ASSERT_TRUE(half.Send(bed::Message(1, kBody).Slice(0, 12)));
    EXPECT_TRUE(half.WaitPeerClosed());
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_EQ(Ended::kBadMessage, probe_.ends[0]);
    EXPECT_TRUE(log_.Has(Kind::kError, kFunction, "short body"));
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
