// What the tests of the listener engine share: a service whose hooks tell what they saw, and what the
// system is to say.
#ifndef VIMBRA_TESTS_NOTIFY_ENGINE_HPP
#define VIMBRA_TESTS_NOTIFY_ENGINE_HPP

#include <gtest/gtest.h>
#include <vimbra/thread.h>

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "lib/ipc/listener.hpp"

namespace vimbra::tests {

// What the system is to say to the engine; 0: what it says by itself.
inline std::atomic<int> g_acceptError = 0;
inline std::atomic<int> g_socketError = 0;
inline std::atomic<int> g_accepts = 0;
// Where threads that this one makes wait before they run; null: nowhere.
inline thread_local const bed::Gate* t_heldThreads = nullptr;

inline constexpr char kSocket[] = "ipc_test";
inline constexpr char kFunction[] = "TestCBThread";

// What the hooks saw and what they are to do.
struct Probe {
    std::mutex mutex;
    std::vector<bed::Bytes> bodies;
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
        return bed::WaitFor([=, this] {
            const std::lock_guard lock(mutex);
            return ends.size() == times;
        });
    }
};

inline Probe& ProbeOf(Listener& listener) {
    return *static_cast<Probe*>(listener.Argument());
}

inline Next Begin(Listener& listener) {
    if (ProbeOf(listener).inBegin) {
        ProbeOf(listener).inBegin();
    }
    return ProbeOf(listener).onBegin;
}

inline void SayBound(Listener& listener, Bound bound) {
    Probe& probe = ProbeOf(listener);
    const std::lock_guard lock(probe.mutex);
    probe.bounds.push_back(bound);
}

inline Next Take(Listener& listener, vimbra::Message& message) {
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

inline Next Tick(Listener& listener) {
    ProbeOf(listener).ticks++;
    return ProbeOf(listener).onTick;
}

inline void SayEnded(Listener& listener, Ended why) {
    Probe& probe = ProbeOf(listener);
    probe.released = listener.Release();
    const std::lock_guard lock(probe.mutex);
    probe.ends.push_back(why);
}

inline char g_threadName[] = "VimbraTestCBThread";

inline ListenerService Service() {
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
        threads_ = bed::Threads();
        descriptors_ = bed::OpenDescriptors();
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
        EXPECT_TRUE(bed::WaitFor([this] { return bed::Threads() == threads_; }));
        EXPECT_EQ(descriptors_, bed::OpenDescriptors());
    }

    bed::Capture log_;
    size_t threads_;
    std::map<int, std::string> descriptors_;
    Probe probe_;
    ListenerService service_ = Service();
    ListenerSlot slot_ = {};
    pthread_t handle_ = 0;
    size_t starts_ = 0;
};

inline const bed::Bytes kBody = {1, 2, 3, 4, 5, 6, 7, 8};

}  // namespace vimbra::tests

#endif
