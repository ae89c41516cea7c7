// What the tests of the transport share: the two exchanges, and a request that waits.
#ifndef VIMBRA_TESTS_CORE_TRANSPORT_HPP
#define VIMBRA_TESTS_CORE_TRANSPORT_HPP

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vimbra/ipc.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

inline constexpr u32 kType = 0x0107;
inline constexpr char kCallbackName[] = "ipc_ping";

inline bed::Bytes Pattern(size_t size) {
    bed::Bytes bytes(size);
    for (size_t i = 0; i < size; i++) {
        bytes[i] = static_cast<u8>(i * 7 + 1);
    }
    return bytes;
}

inline std::vector<u8> Untouched(size_t size) {
    return std::vector<u8>(size, 0xA5);
}

// The two exchanges differ in their socket and in some words.
struct Exchange {
    const char* function;
    const char* socketName;
    s32 (*call)(u32, const void*, s32, void*, s32);
    const char* connectText;
};

inline s32 ToCallback(u32 type, const void* body, s32 size, void* reply, s32 replySize) {
    return IpcCallbackSendAndRecv(kCallbackName, type, body, size, reply, replySize);
}

inline constexpr Exchange kExchanges[] = {
    {"IpcApiSendAndRecv", "api_daemon", IpcApiSendAndRecv, "MakeAddrClient error!"},
    {"IpcCallbackSendAndRecv", kCallbackName, ToCallback, "make_addr_client error!"},
};

inline void PrintTo(const Exchange& exchange, std::ostream* out) {
    *out << exchange.function;
}

class Transport : public testing::TestWithParam<Exchange> {
 protected:
    s32 Call(const bed::Bytes& body, std::vector<u8>& reply) const {
        return GetParam().call(kType, body.data(), static_cast<s32>(body.size()), reply.data(),
                               static_cast<s32>(reply.size()));
    }
    std::string Function() const { return GetParam().function; }
    std::string SocketName() const { return GetParam().socketName; }
};

// A request in a thread of its own. Nothing can tell from outside that it has come to its wait but
// that it sleeps.
class Asking {
 public:
    explicit Asking(std::function<s32()> ask)
        : thread_([this, ask = std::move(ask)] {
              id_ = gettid();
              result_ = ask();
              done_ = true;
          }) {}
    ~Asking() { thread_.join(); }

    bool WaitAsleep() const {
        return bed::WaitFor([this] {
            const std::string stat =
                bed::ReadFile("/proc/self/task/" + std::to_string(id_) + "/stat");
            return id_ != 0 && stat.find(") S ") != std::string::npos;
        });
    }
    bool IsDone() const { return done_; }
    bool WaitDone() const {
        return bed::WaitFor([this] { return done_.load(); });
    }
    s32 Result() const { return result_; }
    void Interrupt() { pthread_kill(thread_.native_handle(), SIGUSR1); }

 private:
    std::atomic<pid_t> id_{0};
    std::atomic<bool> done_{false};
    std::atomic<s32> result_{12345};
    std::thread thread_;
};

inline void OnSignal(int) {}

inline void TakeSignals(int flags) {
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    action.sa_flags = flags;
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));
}

}  // namespace vimbra::tests

#endif
