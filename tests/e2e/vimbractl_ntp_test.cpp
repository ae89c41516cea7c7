// The command line's NTP client, with a real server on the other side of the link.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "ctl.hpp"
#include "e2e.hpp"
#include "messages.hpp"
#include "ntp_server.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

constexpr u32 kStart = 0x901;
constexpr u32 kStop = 0x902;
constexpr u32 kCheck = 0x903;

class CtlNtp : public BesideAnNtpServer {};

TEST_F(CtlNtp, WatchShowsTheReportsUntilCtrlC) {
    for (const int number : {SIGINT, SIGTERM}) {
        Ctl ctl("ntp start 192.0.2.2 --watch");
        ASSERT_TRUE(ctl.WaitOut("\n")) << ctl.Err() << daemon_.Log();
        EXPECT_THAT(ctl.Out(), MatchesRegex("192.0.2.2: the clock is 0.[0-9]+ s (behind|ahead)\n"));
        ctl.Interrupt(number);
        EXPECT_EQ(0, ctl.Wait());
        EXPECT_EQ("", ctl.Err());
        EXPECT_TRUE(daemon_.WaitLog("NTP client stop"));
    }
}

TEST_F(CtlNtp, WatchInJson) {
    Ctl ctl("ntp start fd00::2 --watch --json");
    ASSERT_TRUE(ctl.WaitOut("\n")) << ctl.Err();
    ctl.Interrupt();
    EXPECT_EQ(0, ctl.Wait());
    ASSERT_EQ(1u, ctl.Lines().size()) << ctl.Out();
    const Json line = ctl.Lines()[0];
    EXPECT_EQ("fd00::2", line.at("server"));
    EXPECT_EQ("synchronised", line.at("event"));
    EXPECT_LT(std::abs(line.at("offset_us").get<s64>()), 1'000'000);
    EXPECT_EQ(false, line.at("clock_set"));
}

TEST_F(CtlNtp, WatchTellsBehindFromAhead) {
    for (const double skew : {3.5, -3.5}) {
        const SkewedNtpServer server(skew);
        Ctl ctl("ntp start 192.0.2.1 --watch");
        ASSERT_TRUE(ctl.WaitOut("\n")) << ctl.Err();
        // An exchange tells the offset to half of the time that it takes.
        EXPECT_THAT(ctl.Out(), MatchesRegex("192.0.2.1: the clock is [34].[0-9]+ s " +
                                            std::string(skew > 0 ? "behind" : "ahead") + "\n"));
        ctl.Interrupt();
        EXPECT_EQ(0, ctl.Wait());
    }
}

TEST_F(CtlNtp, WatchShowsAFailure) {
    Ctl ctl("ntp start 198.51.100.1 --watch");
    EXPECT_TRUE(ctl.WaitOut("198.51.100.1: Network is unreachable\n")) << ctl.Err();
    ctl.Interrupt();
    EXPECT_EQ(0, ctl.Wait());
    Ctl json("ntp start 198.51.100.1 --watch --json");
    ASSERT_TRUE(json.WaitOut("\n")) << json.Err();
    json.Interrupt();
    EXPECT_EQ(0, json.Wait());
    EXPECT_EQ((Json{{"server", "198.51.100.1"},
                    {"event", "failure"},
                    {"error", 101},
                    {"message", "Network is unreachable"}}),
              json.Lines().at(0));
}

TEST_F(CtlNtp, WatchWhoseOutputIsFullStopsTheClient) {
    Program ctl({"sh", "-c", "exec " VIMBRACTL_PATH " ntp start 192.0.2.2 --watch >/dev/full"},
                "/tmp/full.err");
    EXPECT_EQ(1, ctl.Wait());
    EXPECT_THAT(ctl.Output(), HasSubstr("the output cannot be written"));
    EXPECT_TRUE(daemon_.WaitLog("NTP client stop"));
}

// The client is the daemon's, and no listener stays behind.
TEST_F(CtlNtp, StartAndStopFromDifferentProcesses) {
    EXPECT_EQ("", RunCtl("ntp start 192.0.2.2 --interval 3600").out);
    EXPECT_FALSE(HasListener("ipc_ntp"));
    const Listener listener("ipc_ntp");
    EXPECT_EQ(1u, listener.Wait(1)[0].type);
    EXPECT_EQ(Json({{"result", 0}}), Json::parse(RunCtl("ntp stop --json").out));
    EXPECT_TRUE(daemon_.WaitLog("NTP client stop"));
    EXPECT_EQ(0, RunCtl("ntp stop").status);
    EXPECT_EQ(0, RunCtl("ntp stop --family ipv6").status);
}

TEST_F(CtlNtp, CheckTellsWhetherTheServerAnswers) {
    EXPECT_EQ("192.0.2.2 answers\n", RunCtl("ntp check 192.0.2.2").out);
    EXPECT_EQ((Json{{"server", "fd00::2"}, {"answers", true}}),
              Json::parse(RunCtl("ntp check fd00::2 --json").out));
    const Done none = RunCtl("ntp check 192.0.2.77");
    EXPECT_EQ(4, none.status);
    EXPECT_EQ("", none.out);
    EXPECT_EQ("vimbractl ntp check: the network daemon refused: 110 (Connection timed out)\n",
              none.err);
}

TEST_F(CtlNtp, Refusals) {
    EXPECT_EQ(
        "vimbractl ntp start: the network daemon refused: 22 (Invalid argument): not the address "
        "of a server\n",
        RunCtl("ntp start 224.0.1.1").err);
    const Done json = RunCtl("ntp start ff02::101 --json");
    EXPECT_EQ(4, json.status);
    EXPECT_EQ(22, Json::parse(json.err).at("error").at("daemon"));
    EXPECT_EQ(2, RunCtl("ntp start pool.example").status);
    EXPECT_EQ(2, RunCtl("ntp start").status);
    EXPECT_EQ(2, RunCtl("ntp start 192.0.2.2 --interval -1").status);
    EXPECT_EQ(2, RunCtl("ntp stop --family both").status);
    EXPECT_EQ(1, RunCtl("ntp start 127.0.0.1 --watch").status);
}

TEST(CtlNtpMessages, AreThoseOfTheProtocol) {
    ScriptedDaemon daemon;
    EXPECT_EQ(0, RunCtl("ntp start 192.0.2.2 --interval 3600").status);
    EXPECT_EQ(0, RunCtl("ntp start fd00::2").status);
    EXPECT_EQ(0, RunCtl("ntp stop").status);
    EXPECT_EQ(0, RunCtl("ntp stop --family ipv6").status);
    EXPECT_EQ(0, RunCtl("ntp check fd00::2").status);
    const std::vector<Request> start = daemon.Requests(kStart);
    ASSERT_EQ(2u, start.size());
    EXPECT_EQ(Pack().U16(2).Address(2, "192.0.2.2").U32(3600), start[0].body);
    EXPECT_EQ(Pack().U16(10).Address(10, "fd00::2").U32(0), start[1].body);
    const std::vector<Request> stop = daemon.Requests(kStop);
    ASSERT_EQ(2u, stop.size());
    EXPECT_EQ(Pack().U16(2), stop[0].body);
    EXPECT_EQ(Pack().U16(10), stop[1].body);
    const std::vector<Request> check = daemon.Requests(kCheck);
    ASSERT_EQ(1u, check.size());
    EXPECT_EQ(Pack().Address(10, "fd00::2"), check[0].body);
}

TEST(CtlNtpMessages, WatchEndsWhenTheDaemonRefuses) {
    ScriptedDaemon daemon;
    daemon.On(kStart, Answer::Code(1));
    const Done done = RunCtl("ntp start 192.0.2.2 --watch");
    EXPECT_EQ(4, done.status);
    EXPECT_THAT(done.err, HasSubstr("refused: 1 (Operation not permitted)"));
    EXPECT_EQ(0u, daemon.Requests(kStop).size());
}

TEST(CtlNtpMessages, WithoutAWholeAnswerItIsStatus3) {
    const auto all = {"ntp start 192.0.2.2", "ntp start 192.0.2.2 --watch", "ntp stop",
                      "ntp check 192.0.2.2"};
    for (const char* words : all) {
        const Done done = RunCtl(words);
        EXPECT_EQ(3, done.status) << words;
        EXPECT_THAT(done.err, HasSubstr("cannot be reached at /tmp/api_daemon")) << words;
    }
    ScriptedDaemon daemon;
    for (const Answer& answer : {Answer::Close(), Answer::Body(Pack().Zeros(8)),
                                 Answer::Body(Pack().Zeros(3)), Answer::Code(0).Size(8)}) {
        daemon.Default(answer);
        for (const char* words : {"ntp start 192.0.2.2", "ntp stop", "ntp check 192.0.2.2"}) {
            const Done done = RunCtl(words);
            EXPECT_EQ(3, done.status) << words << ": " << done.err;
        }
    }
}

}  // namespace
}  // namespace vimbra::tests
