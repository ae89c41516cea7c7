// DHCP clients come and go in a process that holds more descriptors than an fd_set has bits: each
// listener waits on whatever number it was given.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <vimbra/common.h>
#include <vimbra/dhcpc.h>
#include <vimbra/log.h>

#include <random>
#include <string>
#include <vector>

#include "../ground/prepared.hpp"
#include "answerer.hpp"
#include "reporting.hpp"

namespace vimbra::tests {
namespace {

using bed::Pack;
using testing::AnyOf;

constexpr int kRounds = 300;
constexpr size_t kDescriptors = 1024;

// Descriptors that the process holds for itself; some are given up and taken again all the time, so
// that the clients get numbers on both sides of the bound.
class Holder {
 public:
    Holder() {
        rlimit limit = {};
        EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
        limit.rlim_cur = 4096;
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
        Fill();
    }
    ~Holder() {
        for (const int fd : held_) {
            close(fd);
        }
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

    void Churn(std::mt19937& random) {
        for (int i = 0; i < 5 && random() % 2 == 0; i++) {
            const size_t which = random() % held_.size();
            close(held_[which]);
            held_.erase(held_.begin() + static_cast<std::ptrdiff_t>(which));
        }
        if (random() % 4 == 0) {
            Fill();
        }
    }

 private:
    void Fill() {
        while (held_.size() < kDescriptors) {
            held_.push_back(fcntl(0, F_DUPFD_CLOEXEC, 0));
            ASSERT_GE(held_.back(), 0);
        }
    }
    std::vector<int> held_;
};

constexpr const char* kNames[] = {"if0", "if1", "if2", "if3", "if4", "if5", "if6", "if7"};

// The client's way through the table of services, with a name of its own.
Reporting ClientOf(const char* name) {
    Reporting client = ReportingOf("DhcpClient")[0];
    client.socket = std::string("ipc_dhcpc_") + name;
    client.body = Pack().Text(name, 16).FillTo(1348);
    return client;
}

s32 Start(const char* name) {
    return VimbraDhcpcStart(name, 2, [](u32, TVimbraDhcpcAddrInfo*) {
        g_callbacks++;
        return 0;
    });
}

TEST(DhcpChurnSlow, ClientsComeAndGoBeyondThe1024thDescriptor) {
    const bench::Answerer daemon;
    PrepareSilently();
    const Level before;
    {
        std::mt19937 random(1);
        Holder holder;
        for (int i = 0; i < kRounds; i++) {
            const char* const name = kNames[random() % std::size(kNames)];
            ASSERT_EQ(0, Start(name));
            const unsigned long calls = g_callbacks;
            ASSERT_TRUE(Report(ClientOf(name)));
            EXPECT_TRUE(bed::WaitFor([&] { return g_callbacks > calls; })) << i;
            // Not found where the stop of an earlier one has taken it off the list.
            EXPECT_THAT(VimbraDhcpcStop(kNames[random() % std::size(kNames)], 2), AnyOf(0, -1));
            holder.Churn(random);
        }
        for (const char* const name : kNames) {
            VimbraDhcpcStop(name, 2);
        }
        for (const char* const name : kNames) {
            EXPECT_EQ(0, Start(name));
            EXPECT_EQ(0, VimbraDhcpcStop(name, 2));
        }
    }
    before.ExpectNoMore();
}

}  // namespace
}  // namespace vimbra::tests
