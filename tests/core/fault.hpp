// What the tests of failing calls share: the calls of a request, and the two exchanges.
#ifndef VIMBRA_TESTS_CORE_FAULT_HPP
#define VIMBRA_TESTS_CORE_FAULT_HPP

#include <gtest/gtest.h>
#include <vimbra/ipc.h>

#include <cerrno>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/injector.hpp"

namespace vimbra::tests {

using Calls = std::vector<std::string>;

// One request: six system calls and two allocations, of which the first is made before the
// connection by the services and after it by the transport.
inline const Calls kServiceCalls = {"calloc", "socket", "connect", "send",
                                    "calloc", "select", "read",    "close"};
inline const Calls kTransportCalls = {"socket", "connect", "calloc", "send",
                                      "calloc", "select",  "read",   "close"};

inline char g_eth[16] = "eth0";
inline char g_lo[16] = "lo";

inline constexpr u32 kMtuGet = 274;
inline constexpr u32 kMacGet = 263;
inline constexpr u32 kIpGet = 277;

inline void AnswerAll(bed::ScriptedDaemon& daemon) {
    daemon.On(kMtuGet, bed::Answer::Body(bed::Bytes(8, 0)));
    daemon.On(kMacGet, bed::Answer::Body(bed::Bytes(12, 0)));
    daemon.On(kIpGet, bed::Answer::Body(bed::Bytes(456, 0)));
}

struct Exchange {
    const char* function;
    s32 (*call)(u32, const void*, s32, void*, s32);
    const char* socketStep;
    const char* connectText;
    const char* writeText;
};

inline void PrintTo(const Exchange& exchange, std::ostream* out) {
    *out << exchange.function;
}

inline s32 ToCallback(u32 type, const void* body, s32 size, void* reply, s32 replySize) {
    return IpcCallbackSendAndRecv("api_daemon", type, body, size, reply, replySize);
}

class FaultOfExchange : public testing::TestWithParam<Exchange> {
 protected:
    s32 Call() {
        reply_ = 0xA5A5A5A5;
        return GetParam().call(1, "body", 4, &reply_, sizeof(reply_));
    }
    bool IsUntouched() const { return reply_ == 0xA5A5A5A5; }
    void ExpectNothingLeft(const Injector& injector) const {
        EXPECT_TRUE(IsUntouched());
        EXPECT_TRUE(injector.Descriptors().empty());
        EXPECT_EQ(0u, injector.Blocks());
    }

    u32 reply_ = 0;
};

// How many descriptors of the set are asked for, when it is only this one's that may be.
inline bool IsOnly(const fd_set* set, int fd, int count) {
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
inline void HaveNoRoomAtFirst(Injector& injector) {
    injector.onSend = [first = true](int, const void*, size_t) mutable {
        if (!first) {
            return static_cast<ssize_t>(Injector::kReal);
        }
        first = false;
        errno = EAGAIN;
        return ssize_t{-1};
    };
}

}  // namespace vimbra::tests

#endif
