// fork(2) while everything runs: locks of all kinds are held at any moment, by requests, starts,
// stops, reports, callbacks and log lines.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/log.h>

#include <csignal>
#include <thread>
#include <vector>

#include "../ground/prepared.hpp"
#include "answerer.hpp"
#include "reporting.hpp"

namespace vimbra::tests {
namespace {

constexpr int kForks = 400;

Reporting Named(const std::string& name) {
    for (const Reporting& reporting : AllReporting()) {
        if (name == reporting.name) {
            return reporting;
        }
    }
    ADD_FAILURE() << name;
    return {};
}

std::vector<Reporting> Named(const std::vector<std::string>& names) {
    std::vector<Reporting> found;
    for (const std::string& name : names) {
        found.push_back(Named(name));
    }
    return found;
}

// What the parent's threads do, and a child's services: processes that start the same one take its
// socket from each other.
const std::vector<std::string> kParents = {"Statistics", "Conflict", "RouterAdvertisement", "Pppoe",
                                           "Ntp",        "Ping",     "Traceroute"};
const std::vector<std::string> kChilds = {"ConflictIpv6", "PppoeIpv6", "NtpIpv6", "DhcpClientIpv6"};

// 0, or the step that failed.
int InTheChild(const Reporting& reporting) {
    if (VimbraInit() != 0 || VimbraLogSwitch(5) != 0) {
        return 1;
    }
    const unsigned long calls = g_callbacks;
    if (reporting.start() != 0) {
        return 2;
    }
    if (!Report(reporting) || !bed::WaitFor([&] { return g_callbacks > calls; })) {
        return 3;
    }
    return reporting.stop() == 0 ? 0 : 4;
}

int ResultOf(pid_t child) {
    int status = -1;
    pid_t waited = 0;
    // A child that hangs shows as one that does not end.
    if (!bed::WaitFor([&] {
            waited = waitpid(child, &status, WNOHANG);
            return waited == child;
        })) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Standard output goes nowhere meanwhile: all levels are logged.
class Quiet {
 public:
    Quiet() {
        fflush(stdout);
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, STDOUT_FILENO);
        close(null);
        VimbraDebugLevelSet(5);
    }
    ~Quiet() {
        VimbraDebugLevelSet(0);
        fflush(stdout);
        dup2(own_, STDOUT_FILENO);
        close(own_);
    }
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;

 private:
    const int own_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
};

TEST(ForkUnderLoad, ChildrenBeginAnewAndTheParentGoesOn) {
    const bench::Answerer daemon;
    PrepareSilently();
    const Level before;
    const std::vector<Reporting> parents = Named(kParents);
    const std::vector<Reporting> children = Named(kChilds);
    std::atomic<bool> over = false;
    std::atomic<int> failures = 0;
    int bad = 0;
    {
        const Quiet quiet;
        std::vector<std::thread> busy;
        for (const Reporting& reporting : parents) {
            busy.emplace_back([&] {
                while (!over) {
                    failures += reporting.start() != 0;
                    Report(reporting);
                    failures += VimbraLogSwitch(5) != 0;
                    failures += reporting.stop() != 0;
                }
            });
        }
        for (int i = 0; i < kForks && bad == 0; i++) {
            const Reporting& reporting = children[static_cast<size_t>(i) % children.size()];
            const pid_t child = fork();
            if (child == 0) {
                _exit(InTheChild(reporting));
            }
            bad = ResultOf(child);
        }
        over = true;
        for (std::thread& thread : busy) {
            thread.join();
        }
    }
    EXPECT_EQ(0, bad);
    EXPECT_EQ(0, failures);
    EndAll(parents);
    before.ExpectNoMore();
}

}  // namespace
}  // namespace vimbra::tests
