// What a watch does when the name of its socket is taken.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "ctl_run.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::AllOf;
using testing::HasSubstr;

namespace {

// A process that listens under a name, as one does that gets a service's events: this one.
class Listening {
 public:
    explicit Listening(const std::string& name)
        : path_("/tmp/" + name),
          socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(0, bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
        EXPECT_EQ(0, listen(socket_, 1));
    }
    ~Listening() {
        close(socket_);
        unlink(path_.c_str());
    }
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;

    // Nobody has connected, not even to see who answers.
    bool IsUntouched() const { return accept(socket_, nullptr, nullptr) < 0 && errno == EAGAIN; }

    void StopListening() { close(socket_); }

 private:
    std::string path_;
    int socket_;
};

struct Case {
    const char* words;
    const char* socket;
};

constexpr Case kWatches[] = {
    {"stat watch", "ipc_stat"},
    {"ping 192.0.2.1", "ipc_ping"},
    {"traceroute 192.0.2.1", "ipc_traceroute"},
    {"ra watch lo", "ipc_router_notify"},
    {"conflict watch", "ipc_ip_conflict"},
    {"conflict watch", "ipc_ipv6_conflict"},
    {"dhcp start lo --watch", "ipc_dhcpc_lo"},
    {"dhcp start lo --family ipv6 --watch", "ipc_dhcpcv6_lo"},
    {"ntp start 192.0.2.1 --watch", "ipc_ntp"},
    {"ntp start 2001:db8::1 --watch", "ipc_ntpv6"},
    {"pppoe start lo --user me --watch", "ipc_pppoe"},
    {"pppoe start lo --user me --family ipv6 --watch", "ipc_pppoe6"},
};

TEST(CtlTakeOver, AWatchSaysWhoseEventsItWouldTake) {
    ScriptedDaemon daemon;
    for (const auto& [words, socket] : kWatches) {
        const Listening other(socket);
        const Outcome refused = Ctl(words);
        EXPECT_EQ(1, refused.status) << words;
        EXPECT_EQ("", refused.out) << words;
        EXPECT_THAT(refused.err,
                    AllOf(HasSubstr("process " + std::to_string(getpid()) + " (ctl_test)"),
                          HasSubstr("--take-over takes them over")))
            << words;
        EXPECT_TRUE(daemon.Requests().empty()) << words;
    }
}

TEST(CtlTakeOver, TheOneThatListensIsNotDisturbed) {
    const Listening other("ipc_stat");
    EXPECT_EQ(1, Ctl("stat watch").status);
    EXPECT_TRUE(other.IsUntouched());
}

TEST(CtlTakeOver, IsDoneWhenAskedFor) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Code(1));
    const Listening other("ipc_ip_conflict");
    // Refused by the daemon, not before.
    EXPECT_EQ(4, Ctl("conflict watch --take-over").status);
    EXPECT_FALSE(daemon.Requests().empty());
}

TEST(CtlTakeOver, AStaleNameIsReplacedWithoutAWord) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Code(1));
    Listening other("ipc_ip_conflict");
    other.StopListening();
    EXPECT_EQ(4, Ctl("conflict watch").status);
    EXPECT_FALSE(daemon.Requests().empty());
}

TEST(CtlTakeOver, ANameThatMayNotBeReplacedIsSaidInsteadOfWaitedFor) {
    ScriptedDaemon daemon;
    ASSERT_EQ(0, chmod("/tmp", 01777));
    const auto asUser = [](const char* words) {
        return OutputOf(
            std::string("setpriv --reuid=1000 --clear-groups " VIMBRACTL " stat watch ") + words +
            " 2>&1; echo $?");
    };
    Listening other("ipc_stat");
    for (const char* words : {"", "--take-over"}) {
        EXPECT_THAT(asUser(words),
                    AllOf(HasSubstr("/tmp/ipc_stat belongs to root (uid 0), whose process gets"),
                          HasSubstr("only that user or root can remove it\n1\n")));
    }
    other.StopListening();
    EXPECT_THAT(asUser(""), HasSubstr("whose process has left it behind"));
    EXPECT_TRUE(daemon.Requests().empty());
}

TEST(CtlTakeOver, AFolderInTheWayIsSaid) {
    ASSERT_EQ(0, mkdir("/tmp/ipc_stat", 0700));
    const Outcome refused = Ctl("stat watch --take-over");
    EXPECT_EQ(1, refused.status);
    EXPECT_THAT(refused.err, HasSubstr("/tmp/ipc_stat is a folder"));
}

}  // namespace
}  // namespace vimbra::tests
