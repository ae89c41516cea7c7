// What the companion daemon is asked on its second socket, and how its answers are shown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <thread>
#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "ctl_run.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

constexpr char kRunDir[] = " --run-dir /tmp/run";

// Answers one question on the socket, in two pieces.
class Answers {
 public:
    explicit Answers(std::string answer)
        : answer_(std::move(answer)), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        mkdir("/tmp/run", 0700);
        unlink("/tmp/run/status");
        sockaddr_un address = {AF_UNIX, "/tmp/run/status"};
        EXPECT_EQ(0, bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
        EXPECT_EQ(0, listen(socket_, 1));
        thread_ = std::thread([this] { Serve(); });
    }
    ~Answers() {
        thread_.join();
        close(socket_);
    }
    Answers(const Answers&) = delete;
    Answers& operator=(const Answers&) = delete;

    // To be asked when the command has ended.
    std::string Question() {
        thread_.join();
        thread_ = std::thread([] {});
        return question_;
    }

 private:
    void Serve() {
        const int client = accept(socket_, nullptr, nullptr);
        char piece[256];
        ssize_t count;
        while (!question_.ends_with('\n') && (count = read(client, piece, sizeof(piece))) > 0) {
            question_.append(piece, static_cast<size_t>(count));
        }
        const size_t half = answer_.size() / 2;
        EXPECT_EQ(static_cast<ssize_t>(half), send(client, answer_.data(), half, MSG_NOSIGNAL));
        EXPECT_EQ(static_cast<ssize_t>(answer_.size() - half),
                  send(client, answer_.data() + half, answer_.size() - half, MSG_NOSIGNAL));
        close(client);
    }

    std::string answer_;
    std::string question_;
    int socket_;
    std::thread thread_;
};

constexpr char kGateways[] =
    R"({"gateways": [{"interface": "eth0", "family": "ipv4", "table": 254, "gateway": "192.0.2.1",
    "metric": 0, "protocol": "static"}, {"interface": "eth1", "family": "ipv6", "table": 100,
    "metric": 7, "protocol": "ra"}]})";

// As one line.
std::string Line(const std::string& json) {
    return nlohmann::ordered_json::parse(json).dump() + "\n";
}

TEST(CtlStatus, GatewaysOfAllInterfacesAreShown) {
    Answers daemon(Line(kGateways));
    EXPECT_EQ(
        "ipv4  192.0.2.1  eth0  metric 0  table 254\n"
        "ipv6  -  eth1  metric 7  table 100\n",
        Ctl(std::string("gateway show") + kRunDir).out);
    EXPECT_EQ("{\"ask\":\"gateways\"}\n", daemon.Question());
}

TEST(CtlStatus, GatewaysOfAFamilyOrATableAreShown) {
    for (const char* option : {" -6", " --table 100"}) {
        const Answers daemon(Line(kGateways));
        const nlohmann::json shown =
            Ctl(std::string("gateway show --json") + option + kRunDir).Json();
        ASSERT_EQ(1U, shown.at("gateways").size()) << option;
        EXPECT_EQ("eth1", shown["gateways"][0]["interface"]);
    }
    const Answers daemon(Line(kGateways));
    EXPECT_EQ("no gateways\n", Ctl(std::string("gateway show --table 7") + kRunDir).out);
}

TEST(CtlStatus, TablesAreShown) {
    const std::string tables = Line(R"({"tables": [
        {"table": 254, "created": false, "routes": [{"family": "ipv4",
         "destination": "192.0.2.0/24", "interface": "eth0", "metric": 0, "protocol": "kernel"}]},
        {"table": 100, "created": true, "routes": [{"family": "ipv4",
         "destination": "0.0.0.0/0", "gateway": "192.0.2.1", "interface": "eth0", "metric": 5,
         "protocol": "static"}]}]})");
    {
        Answers daemon(tables);
        EXPECT_EQ(
            "table 254\n  ipv4  192.0.2.0/24  eth0  metric 0  kernel\n"
            "table 100, created\n  ipv4  0.0.0.0/0  via 192.0.2.1  eth0  metric 5  static\n",
            Ctl(std::string("table show") + kRunDir).out);
        EXPECT_EQ("{\"ask\":\"tables\"}\n", daemon.Question());
    }
    {
        const Answers daemon(tables);
        EXPECT_THAT(Ctl(std::string("table show 100") + kRunDir).out,
                    testing::StartsWith("table 100, created\n"));
    }
    const Answers daemon(tables);
    const Outcome none = Ctl(std::string("table show 7") + kRunDir);
    EXPECT_EQ(5, none.status);
    EXPECT_THAT(none.err, EndsWith("no table 7 was created or holds a route\n"));
}

TEST(CtlStatus, RulesAreShown) {
    Answers daemon(Line(R"({"rules": [
        {"family": "ipv4", "priority": 0, "table": 255},
        {"family": "ipv4", "priority": 1000, "source": "192.0.2.11/32", "mark": 7, "table": 100}]})"));
    EXPECT_EQ(
        "0:  ipv4  from all  table 255\n"
        "1000:  ipv4  from 192.0.2.11/32  fwmark 7  table 100\n",
        Ctl(std::string("rule show") + kRunDir).out);
    EXPECT_EQ("{\"ask\":\"rules\"}\n", daemon.Question());
}

TEST(CtlStatus, LeasesAreShownWithoutTakingAnEvent) {
    const std::string clients = Line(R"({"dhcp_clients": [
        {"interface": "eth0", "family": "ipv4", "state": "bound", "pid": 7, "lease": {
         "address": "192.0.2.100", "prefix": 25, "gateway": "192.0.2.1", "dns": ["192.0.2.53"],
         "seconds": 600, "left": 599}},
        {"interface": "eth1", "family": "ipv6", "state": "asking", "pid": 8}]})");
    ScriptedDaemon other;
    {
        Answers daemon(clients);
        EXPECT_EQ(
            "eth0: 192.0.2.100/25, gateway 192.0.2.1, for 600 s, 599 s left, DNS 192.0.2.53\n"
            "eth1: no lease, asking\n",
            Ctl(std::string("dhcp lease") + kRunDir).out);
        EXPECT_EQ("{\"ask\":\"dhcp_clients\"}\n", daemon.Question());
    }
    {
        const Answers daemon(clients);
        const nlohmann::json one = Ctl(std::string("dhcp lease eth1 -6 --json") + kRunDir).Json();
        ASSERT_EQ(1U, one.at("dhcp_clients").size());
        EXPECT_EQ("asking", one["dhcp_clients"][0]["state"]);
    }
    {
        const Answers daemon(clients);
        EXPECT_EQ("eth0  ipv4  bound\neth1  ipv6  asking\n",
                  Ctl(std::string("dhcp state") + kRunDir).out);
    }
    const Answers daemon(clients);
    EXPECT_EQ(5, Ctl(std::string("dhcp lease lo") + kRunDir).status);
    EXPECT_TRUE(other.Requests().empty());
}

TEST(CtlStatus, AllIsShownAtAGlance) {
    const std::string status = Line(R"({"daemon": {"version": "2.0.3", "log_level": 2},
        "watches": [{"kind": "conflict", "family": "ipv4"}, {"kind": "statistics"}],
        "rules": [], "bond": {}, "tables": [{"table": 1, "routes": [{"metric": 1}, {"metric": 2}]}]})");
    {
        Answers daemon(status);
        EXPECT_EQ(
            "daemon: version 2.0.3, log level 2\n"
            "watches:\n  kind conflict, family ipv4\n  kind statistics\n"
            "rules: none\nbond: none\n"
            "tables:\n  table 1, routes (metric 1; metric 2)\n",
            Ctl(std::string("status") + kRunDir).out);
        EXPECT_EQ("{\"ask\":\"status\"}\n", daemon.Question());
    }
    const Answers daemon(status);
    EXPECT_EQ(Expected::parse(status), Ctl(std::string("status --json") + kRunDir).Json());
}

TEST(CtlStatus, WithoutADaemonThatAnswersItIsStatus3) {
    const Outcome none = Ctl(std::string("status") + kRunDir);
    EXPECT_EQ(3, none.status);
    EXPECT_THAT(none.err, EndsWith("the network daemon cannot be asked at /tmp/run/status: "
                                   "No such file or directory\n"));
    for (const char* answer : {"", "{\"gateways\"", "no json\n"}) {
        const Answers daemon(answer);
        EXPECT_EQ(3, Ctl(std::string("gateway show") + kRunDir).status) << answer;
    }
    EXPECT_EQ(3, Ctl("status --run-dir /" + std::string(200, 'x')).status);
    EXPECT_EQ(2, Ctl("status --run-dir run").status);
}

TEST(CtlStatus, ARefusedQuestionIsStatus4) {
    const Answers daemon("{\"error\":\"no such question\",\"errno\":22}\n");
    const Outcome refused = Ctl(std::string("status") + kRunDir);
    EXPECT_EQ(4, refused.status);
    EXPECT_THAT(refused.err, HasSubstr("the network daemon refused: no such question"));
}

TEST(CtlStatus, ARefusalComesWithTheDaemonsReason) {
    ScriptedDaemon refusing;
    refusing.Default(Answer::Code(22));
    const std::string start =
        "unshare -m sh -c \"mount -t tmpfs none /run && mkdir /run/vimbrad &&"
        " ln -s /tmp/run/status /run/vimbrad && exec " VIMBRACTL " mtu set lo 1400\" 2>&1; true";
    const std::string refused =
        "vimbractl mtu set: the network daemon refused: 22 (Invalid argument)";
    {
        Answers daemon(
            "{\"refusal\":{\"request\":\"MTU set\",\"errno\":22,\"why\":\"too large for lo\"}}\n");
        EXPECT_EQ(refused + ": too large for lo\n", OutputOf(start));
        EXPECT_THAT(daemon.Question(), testing::StartsWith("{\"ask\":\"refusal\",\"pid\":"));
    }
    for (const char* answer : {"{\"refusal\":{}}\n", "", "{\"error\":\"no\"}\n",
                               "{\"refusal\":{\"why\":\"Invalid argument\"}}\n"}) {
        const Answers daemon(answer);
        EXPECT_EQ(refused + "\n", OutputOf(start)) << answer;
    }
}

TEST(CtlStatus, AnswersThatAreNoneDoNotHurt) {
    for (const char* answer :
         {"[]\n", "7\n", "{\"gateways\":7}\n", "{\"gateways\":[7,null,{\"table\":{}}]}\n"}) {
        const Answers daemon(answer);
        EXPECT_EQ(0, Ctl(std::string("gateway show") + kRunDir).status) << answer;
    }
}

}  // namespace
}  // namespace vimbra::tests
