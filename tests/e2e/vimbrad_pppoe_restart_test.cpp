// PPPoE links over the ends of their daemon: a daemon that keeps the network lets them live for the
// next one, and no other end leaves anything of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "../ground/pppoe_config.hpp"
#include "e2e.hpp"
#include "lives.hpp"
#include "messages.hpp"
#include "pppd.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr u32 kStart = 0x601;
constexpr u32 kStop = 0x602;

constexpr u32 kConnected = 1;
constexpr u32 kLost = 2;
constexpr u32 kOver = 5;

constexpr char kSocket[] = "ipc_pppoe";
constexpr char kUp[] = "ip_up 198.51.100.7 198.51.100.1 192.0.2.53\n";

s32 Start(u16 family = 2) {
    const PppoeConfig config = {.autoDial = 1, .echoInterval = 0, .echoFailure = 0};
    return Ask(kStart, config.Body(family));
}

s32 Stop(u16 family = 2) {
    return Ask(kStop, Pack().U16(family));
}

// Directories of links, each with its password.
std::string LinkDirectories() {
    return Shell("ls -d /run/vimbrad/files.* 2>/dev/null || true");
}

std::string Keepers() {
    return Shell("cat /proc/[0-9]*/comm 2>/dev/null | grep link-keeper || true");
}

// A zombie that nobody has waited for yet is as good as gone.
bool IsGone(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(file, text);
    const size_t state = text.rfind(") ");
    return state == std::string::npos || text[state + 2] == 'Z';
}

class VimbradPppoeRestart : public testing::Test {
 protected:
    void SetUp() override { MakeIface("eth0"); }

    // A link that is up, of a daemon that keeps the network.
    void StartAndWait(const Listener& listener) {
        ASSERT_EQ(0, Start());
        ASSERT_EQ(kConnected, listener.Wait(1).at(0).type);
    }

    void ExpectNothingLeft(int dial) {
        const pid_t pid = Pppd::Pid(dial);
        EXPECT_TRUE(WaitFor([pid] { return IsGone(pid); }));
        EXPECT_TRUE(WaitFor([] { return Keepers().empty(); }));
    }

    Pppd pppd_{std::string(kUp) + "hold"};
};

TEST_F(VimbradPppoeRestart, KeptLinkIsTakenUpAndToldAnew) {
    Lives daemon({"--keep"});
    const Listener listener(kSocket);
    StartAndWait(listener);
    const Json before = Shown("pppoe_links").at(0);
    daemon.End();
    EXPECT_TRUE(Pppd::Runs(1));
    daemon.Begin();
    const std::vector<Told> told = listener.Wait(2);
    EXPECT_THAT(Types(told), ElementsAre(kConnected, kConnected));
    EXPECT_EQ(told.at(0).body, told.at(1).body);
    EXPECT_EQ(before, Shown("pppoe_links").at(0));
    EXPECT_EQ(Pppd::Pid(1), before.at("pid"));
    EXPECT_EQ(1, Pppd::Dials());
    // It is ours again.
    EXPECT_EQ(0, Stop());
    ExpectNothingLeft(1);
    EXPECT_EQ("", LinkDirectories());
}

TEST_F(VimbradPppoeRestart, KeptLinkOutlivesManyDaemons) {
    Lives daemon({"--keep"});
    const Listener listener(kSocket);
    StartAndWait(listener);
    for (size_t life = 2; life < 7; ++life) {
        daemon.EndAndBegin();
        EXPECT_EQ(life, listener.Wait(life).size());
        EXPECT_EQ("up", Shown("pppoe_links").at(0).at("state"));
    }
    EXPECT_EQ(1, Pppd::Dials());
}

TEST_F(VimbradPppoeRestart, LinkThatWasTakenUpDiesWithADaemonThatIsKilled) {
    Lives daemon({"--keep"});
    const Listener listener(kSocket);
    StartAndWait(listener);
    daemon.EndAndBegin();
    ASSERT_EQ(2u, listener.Wait(2).size());
    daemon.Kill();
    ExpectNothingLeft(1);
    daemon.Begin();
    EXPECT_THAT(Types(listener.Wait(4)), ElementsAre(kConnected, kConnected, kLost, kConnected));
    EXPECT_EQ(2, Pppd::Dials());
}

TEST_F(VimbradPppoeRestart, WhatALinkSaysBetweenTwoDaemonsIsHeard) {
    Pppd::Plan(std::string(kUp) + "wait_for_test; ip_up 198.51.100.8 198.51.100.1; hold");
    Lives daemon({"--keep"});
    const Listener listener(kSocket);
    StartAndWait(listener);
    daemon.End();
    Pppd::LetGoOn();
    daemon.Begin();
    const std::vector<Told> told = listener.Wait(3);
    EXPECT_EQ(told.at(0).body, told.at(1).body);
    EXPECT_EQ(Pack()
                  .Address(2, "198.51.100.8")
                  .Address(2, "198.51.100.1")
                  .Address(2, "0.0.0.0")
                  .Address(2, "0.0.0.0")
                  .Get(),
              told.at(2).body);
}

TEST_F(VimbradPppoeRestart, LinkThatIsLostAfterwardsIsToldAndDialledAgain) {
    Pppd::Plan(std::string(kUp) + "[ $run = 1 ] && wait_for_test && exit 16; hold");
    Lives daemon({"--keep"});
    const Listener listener(kSocket);
    StartAndWait(listener);
    daemon.EndAndBegin();
    ASSERT_EQ(2u, listener.Wait(2).size());
    Pppd::LetGoOn();
    EXPECT_THAT(Types(listener.Wait(4)), ElementsAre(kConnected, kConnected, kLost, kConnected));
    EXPECT_TRUE(daemon.WaitLog("pppd ended with exit status 16"));
    EXPECT_EQ(2, Pppd::Dials());
}

TEST_F(VimbradPppoeRestart, LinkThatEndsBetweenTwoDaemonsIsToldLostAndDialledAgain) {
    Pppd::Plan(std::string(kUp) + "[ $run = 1 ] && wait_for_test && exit 16; hold");
    Lives daemon({"--keep"});
    const Listener listener(kSocket);
    StartAndWait(listener);
    daemon.End();
    Pppd::LetGoOn();
    ExpectNothingLeft(1);
    daemon.Begin();
    EXPECT_THAT(Types(listener.Wait(3)), ElementsAre(kConnected, kLost, kConnected));
    EXPECT_EQ(2, Pppd::Dials());
}

TEST_F(VimbradPppoeRestart, DialIsNotKept) {
    Pppd::Plan("hold");
    Lives daemon({"--keep"});
    ASSERT_EQ(0, Start());
    ASSERT_TRUE(Pppd::WaitDial(1));
    daemon.End();
    ExpectNothingLeft(1);
    daemon.Begin();
    EXPECT_TRUE(Pppd::WaitDial(2));
}

TEST_F(VimbradPppoeRestart, EndWithoutKeepEndsWhatWasTakenUp) {
    Lives daemon;
    const Listener listener(kSocket);
    daemon.End();
    daemon.Begin({"--keep"});
    StartAndWait(listener);
    daemon.EndAndBegin();
    ASSERT_EQ(2u, listener.Wait(2).size());
    daemon.End();
    ExpectNothingLeft(1);
    EXPECT_EQ(4u, listener.Wait(4).size());
    EXPECT_THAT(Types(listener.Messages()), ElementsAre(kConnected, kConnected, kLost, kOver));
    EXPECT_EQ("", LinkDirectories());
}

TEST_F(VimbradPppoeRestart, ForgettingEndsAKeptLink) {
    Lives daemon({"--keep"});
    const Listener listener(kSocket);
    StartAndWait(listener);
    daemon.End();
    daemon.Begin({"--forget"});
    ExpectNothingLeft(1);
    EXPECT_EQ("", LinkDirectories());
    EXPECT_THAT(Shown("pppoe_links"), IsEmpty());
}

TEST_F(VimbradPppoeRestart, KeptLinkOfAStateThatCannotBeReadEnds) {
    Lives daemon({"--keep"});
    const Listener listener(kSocket);
    StartAndWait(listener);
    daemon.End();
    WriteFile("/run/vimbrad/state.json", "{");
    daemon.Begin();
    ExpectNothingLeft(1);
    EXPECT_EQ("", LinkDirectories());
}

TEST_F(VimbradPppoeRestart, KeptLinkThatDoesNotHangUpIsKilled) {
    Pppd::Plan("trap '' TERM; " + std::string(kUp) + "while :; do sleep 0.1; done");
    Lives daemon({"--keep"});
    const Listener listener(kSocket);
    StartAndWait(listener);
    daemon.End();
    daemon.Begin({"--forget"});
    ExpectNothingLeft(1);
}

TEST_F(VimbradPppoeRestart, LinkWhoseKeeperIsKilledEndsAndIsDialledAgain) {
    Lives daemon;
    const Listener listener(kSocket);
    StartAndWait(listener);
    // Who started it may still be on the way out under its name.
    ASSERT_TRUE(WaitFor([] { return Keepers() == "link-keeper\n"; }));
    Shell("kill -9 $(grep -l link-keeper /proc/[0-9]*/comm | cut -d/ -f3)");
    EXPECT_THAT(Types(listener.Wait(3)), ElementsAre(kConnected, kLost, kConnected));
    EXPECT_TRUE(WaitFor([] { return IsGone(Pppd::Pid(1)); }));
    EXPECT_EQ(2, Pppd::Dials());
}

}  // namespace
}  // namespace vimbra::tests
