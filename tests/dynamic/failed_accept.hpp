// What a listener of the dynamic configuration does when it cannot bind, or accept(2) fails.
#ifndef VIMBRA_TESTS_DYNAMIC_FAILED_ACCEPT_HPP
#define VIMBRA_TESTS_DYNAMIC_FAILED_ACCEPT_HPP

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <string>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

// Want of descriptors passes, and is waited out: the listener on this socket, which holds its
// callback back at the gate, finds none for the next connection until they may be had again.
inline void ExpectFailedAcceptGoesOn(const bed::Capture& log, const char* thread,
                                     const char* socket, const bed::Gate& gate) {
    bed::Connection waiting(socket);
    ASSERT_TRUE(waiting.Connected());
    waiting.Send(bed::Message(2, {}));
    rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    const auto begin = std::chrono::steady_clock::now();
    gate.Open();
    EXPECT_TRUE(
        bed::WaitFor([&] { return log.Count(bed::Kind::kPerror, thread, "accept error") >= 3; }));
    EXPECT_LE(std::chrono::milliseconds(300), std::chrono::steady_clock::now() - begin);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    EXPECT_TRUE(waiting.WaitPeerClosed());
}

// A directory has the name of its socket below /tmp: the start succeeds, and the listener ends.
template <class Start>
void ExpectUnboundEnds(const bed::Capture& log, const char* thread, const char* socket,
                       Start start) {
    ASSERT_EQ(0, mkdir((std::string("/tmp/") + socket).c_str(), 0700));
    const size_t threads = bed::Threads();
    EXPECT_EQ(0, start());
    EXPECT_TRUE(log.Has(bed::Kind::kPerror, "MakeAddrServer", "bind error"));
    EXPECT_TRUE(log.WaitFor(bed::Kind::kPerror, thread, "accept error"));
    EXPECT_TRUE(bed::WaitFor([&] { return bed::Threads() == threads; }));
    EXPECT_EQ(1, log.Count(bed::Kind::kPerror, thread, "accept error"));
}

}  // namespace vimbra::tests

#endif
