// fork(2): a child has a library in which nothing runs, the parent notices nothing.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/dhcpc.h>
#include <vimbra/log.h>
#include <vimbra/net_dhcps.h>
#include <vimbra/ntpc.h>
#include <vimbra/ping.h>
#include <vimbra/pppoe.h>
#include <vimbra/traceroute.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "../ground/address.hpp"
#include "../ground/lease_watches.hpp"
#include "../ground/prepared.hpp"
#include "services.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// An emulator has a thread of its own in each process.
#ifdef __arm__
constexpr size_t kTasksOfAChild = 2;
#else
constexpr size_t kTasksOfAChild = 1;
#endif

// What a child does, 0 for success; it has no more than this, since no test runs in it.
using Child = std::function<int()>;

int ResultOf(pid_t child) {
    int status = -1;
    int waited = 0;
    // A child that hangs shows as one that does not end.
    EXPECT_TRUE(WaitFor([&] {
        waited = waitpid(child, &status, WNOHANG);
        return waited == child;
    }));
    if (waited != child) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int InAChild(const Child& body) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    return ResultOf(child);
}

TVimbraAddr Host() {
    return Address("192.0.2.1");
}

TVimbraPppoeParam Account() {
    TVimbraPppoeParam param = {};
    strcpy(param.achUserName, "user");
    strcpy(param.achPassword, "password");
    strcpy(param.achDevName, "eth0");
    return param;
}

struct Operation {
    const char* name;
    std::vector<std::string> sockets;
    std::function<int()> start;
    std::function<int()> stop;
};

// Every service that reports back.
std::vector<Operation> Operations() {
    static TVimbraPppoeParam account = Account();
    static TVimbraPingOpt ping = {};
    static TVimbraTracerouteOpt trace = {};
    std::vector<Operation> all;
    for (const NotifyService& service : kServices) {
        all.push_back({service.name, {service.socket}, service.start, service.stop});
    }
    all.push_back({"Dhcpc",
                   {"ipc_dhcpc_eth0"},
                   [] {
                       return VimbraDhcpcStart(
                           "eth0", 2, [](u32, TVimbraDhcpcAddrInfo*) { return int(++g_calls); });
                   },
                   [] { return VimbraDhcpcStop("eth0", 2); }});
    all.push_back(
        {"Ntpc",
         {"ipc_ntp"},
         [] { return VimbraNtpcStart(Host(), 60, [](u32, void*) { return int(++g_calls); }); },
         [] { return VimbraNtpcStop(2); }});
    all.push_back({"Pppoe",
                   {"ipc_pppoe"},
                   [] { return VimbraPppoeStart(&account, 2, [](u32, void*, u32) { g_calls++; }); },
                   [] { return VimbraPppoeStop("eth0", 2); }});
    all.push_back({"Ping",
                   {"ipc_ping"},
                   [] {
                       return VimbraPingStart(Host(), &ping, 7, [](s32, TVimbraPingCBInfo*) {
                           return int(++g_calls);
                       });
                   },
                   [] { return VimbraPingStop(7); }});
    all.push_back({"Traceroute",
                   {"ipc_traceroute"},
                   [] {
                       return VimbraTracerouteStart(
                           Host(), &trace, 7,
                           [](s32, TVimbraTracerouteCBInfo*) { return int(++g_calls); });
                   },
                   [] { return VimbraTracerouteStop(7); }});
    return all;
}

class Fork : public testing::Test {
 protected:
    Fork() { PrepareSilently(); }
    ScriptedDaemon daemon_;
};

// Counted without the bed, whose locks a child may find taken.
size_t Count(const char* directory, std::string_view target) {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        std::error_code gone;
        const std::string what =
            target.empty() ? "" : std::filesystem::read_symlink(entry.path(), gone).string();
        count += !gone && what.starts_with(target);
    }
    return count;
}

size_t Sockets() {
    return Count("/proc/self/fd", "socket:");
}

size_t Watches() {
    return Count("/proc/self/fd", "anon_inode:inotify");
}

size_t Tasks() {
    return Count("/proc/self/task", "");
}

TEST_F(Fork, ChildBeginsWithNothingStartedAndTheParentGoesOn) {
    for (const Operation& operation : Operations()) {
        SCOPED_TRACE(operation.name);
        ASSERT_TRUE(daemon_.WaitIdle());
        const size_t before = Sockets();
        ASSERT_EQ(0, operation.start());
        const std::string& name = operation.sockets[0];
        ASSERT_TRUE(daemon_.WaitIdle());
        // One more is a connection whose message is not there yet.
        Connection pending(name);
        ASSERT_TRUE(WaitFor([&] { return Sockets() == before + 3; }));
        EXPECT_EQ(0, InAChild([&] {
                      // The test's own end of the pending connection is left.
                      return Sockets() == before + 1 && Tasks() <= kTasksOfAChild ? 0 : 1;
                  }));
        // Nobody has shut anything down.
        EXPECT_FALSE(pending.WaitPeerClosed(std::chrono::milliseconds(50)));
        EXPECT_TRUE(HasListener(name));
        EXPECT_EQ(0, operation.stop());
        EXPECT_TRUE(pending.WaitPeerClosed());
        ASSERT_TRUE(WaitForNoListener(name));
    }
}

// The thread sanitizer knows no threads in a child of a process that had several; the address
// sanitizer's memory may be locked in such a child, and it takes the test's own for lost.
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)

// The child starts the very service that runs in its parent; its own requests go to the daemon.
TEST_F(Fork, ChildStartsAndStopsEveryServiceItself) {
    for (const Operation& operation : Operations()) {
        SCOPED_TRACE(operation.name);
        ASSERT_EQ(0, operation.start());
        ASSERT_TRUE(daemon_.WaitIdle());
        const size_t requests = daemon_.Requests().size();
        EXPECT_EQ(0, InAChild([&] {
                      for (int i = 0; i < 3; i++) {
                          if (operation.start() != 0) {
                              return 10 + i;
                          }
                          if (operation.stop() != 0) {
                              return 20 + i;
                          }
                      }
                      return 0;
                  }));
        ASSERT_TRUE(daemon_.WaitIdle());
        EXPECT_EQ(requests + 6, daemon_.Requests().size());
        EXPECT_EQ(0, operation.stop());
    }
}

TEST_F(Fork, ChildIsCalledBack) {
    const NotifyService& service = kServices[0];
    ASSERT_EQ(0, service.start());
    g_calls = 0;
    EXPECT_EQ(0, InAChild([&] {
                  if (service.start() != 0 || !Post(service.socket, GoodMessage(service))) {
                      return 1;
                  }
                  if (!WaitFor([] { return g_calls == 1; })) {
                      return 2;
                  }
                  return service.stop() == 0 ? 0 : 3;
              }));
    EXPECT_EQ(0, g_calls);
    EXPECT_EQ(0, service.stop());
}

TEST_F(Fork, CallbackMayFork) {
    static std::atomic<int> result = -1;
    const NotifyService& service = kServices[0];
    ASSERT_EQ(
        0, VimbraStatNotifyCallbackReg(1, [](TNetDevStat*, u32) {
            result = InAChild([] { return kServices[1].start() != 0 || kServices[1].stop() != 0; });
        }));
    ASSERT_TRUE(Notify(service.socket, service.type, Bytes(service.bodySize, 1)));
    EXPECT_EQ(0, result);
    EXPECT_EQ(0, service.stop());
}

// A child that goes back from the callback ends with its only thread, and leaves the parent's
// alone.
TEST_F(Fork, ChildOfACallbackMayReturnFromIt) {
    static std::atomic<pid_t> child = 0;
    for (const Operation& operation : Operations()) {
        if (operation.sockets[0] != "ipc_stat" && operation.sockets[0] != "ipc_dhcpc_eth0") {
            continue;
        }
        SCOPED_TRACE(operation.name);
        child = 0;
        const bool isStat = operation.sockets[0] == "ipc_stat";
        if (isStat) {
            ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, [](TNetDevStat*, u32) { child = fork(); }));
        } else {
            ASSERT_EQ(0, VimbraDhcpcStart("eth0", 2, [](u32, TVimbraDhcpcAddrInfo*) {
                          child = fork();
                          return 0;
                      }));
        }
        TVimbraDhcpcAddrInfo lease = {};
        strcpy(lease.achDevName, "eth0");
        ASSERT_TRUE(Notify(operation.sockets[0], isStat ? 0 : 1285,
                           isStat ? Bytes(72, 1) : AsBytes(lease),
                           {.size = {}, .flag = 0, .wait = false}));
        ASSERT_TRUE(WaitFor([] { return child != 0; }));
        EXPECT_EQ(0, ResultOf(child));
        EXPECT_TRUE(HasListener(operation.sockets[0]));
        EXPECT_EQ(0, operation.stop());
    }
}

#endif

TEST_F(Fork, WatcherOfLeasesIsTheParents) {
    WriteFile("/usr/etc/udhcpd.leases", "");
    TDhcpServerConfInfo config = {};
    NetDhcpsStart(&config, nullptr);  // The watcher comes before the checks.
    ASSERT_TRUE(WaitFor([] { return LeaseWatches() == 1; }));
    EXPECT_EQ(0, InAChild([] { return static_cast<int>(Watches()); }));
    unlink("/usr/etc/udhcpd.leases");
    EXPECT_TRUE(WaitFor([] { return Watches() == 0; }));
}

}  // namespace
}  // namespace vimbra::tests
