// PPPoE: what applications are told, when the daemon dials again, and what it refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/net_pppoe.h>
#include <vimbra/pppoe.h>

#include <cerrno>
#include <chrono>
#include <mutex>

#include "e2e.hpp"
#include "messages.hpp"
#include "pppd.hpp"
#include "pppoe_link.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// ---- The application

std::mutex g_mutex;
std::vector<std::pair<u32, Bytes>>& g_events = *new std::vector<std::pair<u32, Bytes>>;

void Take(u32 event, void* data, u32 length) {
    const std::lock_guard lock(g_mutex);
    g_events.emplace_back(event, Bytes(std::span(static_cast<const u8*>(data), length)));
}

std::vector<std::pair<u32, Bytes>> Events() {
    const std::lock_guard lock(g_mutex);
    return g_events;
}

TEST_F(VimbradPppoe, ApplicationIsToldFromStartToStop) {
    VimbraInit();
    Pppd::Plan(std::string(kUp) + "hold");
    TVimbraPppoeParam param{};
    strcpy(param.achUserName, "me");
    strcpy(param.achPassword, "secret");
    strcpy(param.achDevName, "eth0");
    ASSERT_EQ(0, VimbraPppoeStart(&param, 2, Take)) << daemon_.Log();
    ASSERT_TRUE(WaitFor([] { return !Events().empty(); })) << daemon_.Log();
    ASSERT_TRUE(Pppd::Runs(1));
    EXPECT_EQ(0, VimbraPppoeStop("", 2));
    EXPECT_FALSE(Pppd::Runs(1));
    EXPECT_THAT(Events(),
                ElementsAre(std::pair(kConnected, kUpAddresses), std::pair(kOver, Bytes())));
}

std::vector<u32> g_legacy;

TEST_F(VimbradPppoe, LegacyApplicationIsTold) {
    VimbraInit();
    Pppd::Plan(std::string(kUp) + "wait_for_test; exit 16");
    TPppoeInitParam param{};
    strcpy(param.abyUserName, "me");
    strcpy(param.abyPassword, "secret");
    ASSERT_EQ(0, NetPppoeStart(&param, [](u32 event, void* data, u32 length) {
                  const std::lock_guard lock(g_mutex);
                  g_legacy.push_back(event);
                  if (event == NET_PPPOE_EVENT_CONNECTED) {
                      ASSERT_EQ(sizeof(TConnNotify), length);
                      const Bytes words = Pack()
                                              .In4("198.51.100.7")
                                              .In4("198.51.100.1")
                                              .In4("192.0.2.53")
                                              .In4("192.0.2.54");
                      EXPECT_EQ(words, AsBytes(*static_cast<TConnNotify*>(data)));
                  }
              }));
    Pppd::LetGoOn();
    EXPECT_TRUE(WaitFor([] {
        const std::lock_guard lock(g_mutex);
        return g_legacy.size() == 3;
    })) << daemon_.Log();
    EXPECT_EQ(0, NetPppoeStop());
    const std::lock_guard lock(g_mutex);
    EXPECT_THAT(g_legacy,
                ElementsAre(NET_PPPOE_EVENT_CONNECTED, NET_PPPOE_EVENT_2, NET_PPPOE_EVENT_STOPPED));
}

// ---- What is told

TEST_F(VimbradPppoe, Ipv6HasASocketOfItsOwn) {
    Pppd::Plan(std::string(kUp6) + "hold");
    const Listener wrong(kSocket);
    const Listener listener(kSocket6);
    ASSERT_EQ(0, Start(10));
    const Told told = listener.Wait(1)[0];
    EXPECT_EQ(kConnected, told.type);
    EXPECT_EQ(80u, told.size);
    EXPECT_EQ(kUp6Addresses, told.body);
    EXPECT_THAT(wrong.Messages(), IsEmpty());
}

TEST_F(VimbradPppoe, CommonLinkTellsOfEachFamily) {
    Pppd::Plan(std::string(kUp6) + kUp + "hold");
    const Listener listener(kSocket6);
    ASSERT_EQ(0, Start(11));
    const auto told = listener.Wait(2);
    EXPECT_EQ(kUp6Addresses, told[0].body);
    EXPECT_EQ(kUpAddresses, told[1].body);
}

TEST_F(VimbradPppoe, ServersThatThePeerDoesNotHaveAreZero) {
    Pppd::Plan("ip_up 198.51.100.7 198.51.100.1 192.0.2.53\nhold");
    const Listener listener(kSocket);
    ASSERT_EQ(0, Start(2));
    EXPECT_EQ(Addresses(2, "198.51.100.7", "198.51.100.1", "192.0.2.53", "0.0.0.0"),
              listener.Wait(1)[0].body);
    Pppd::Plan("ip_up 198.51.100.7 198.51.100.1\nhold");
    ASSERT_EQ(0, Start(2));
    EXPECT_EQ(Addresses(2, "198.51.100.7", "198.51.100.1", "0.0.0.0", "0.0.0.0"),
              listener.Wait(2)[1].body);
}

TEST_F(VimbradPppoe, LinkThatEndsIsLost) {
    const Listener listener(kSocket);
    Pppd::Plan(std::string(kUp) + "wait_for_test; exit 15");
    ASSERT_EQ(0, Start(2));
    listener.Wait(1);
    Pppd::LetGoOn();
    const auto told = listener.Wait(3);
    EXPECT_THAT(Types(told), ElementsAre(kConnected, kLost, kOver)) << daemon_.Log();
    EXPECT_EQ(0u, told[1].size);
    EXPECT_EQ(0u, told[2].size);
    EXPECT_TRUE(daemon_.WaitLog("pppd ended with exit status 15")) << daemon_.Log();
    EXPECT_EQ(0, Stop(2));
}

TEST_F(VimbradPppoe, DialThatFailsSaysWhy) {
    const Listener listener(kSocket);
    Pppd::Plan("exit 8");
    ASSERT_EQ(0, Start(2));
    EXPECT_THAT(Types(listener.Wait(2)), ElementsAre(kNoLink, kOver));
    Pppd::Plan("exit 19");
    ASSERT_EQ(0, Start(2));
    EXPECT_THAT(Types(listener.Wait(4)), ElementsAre(kNoLink, kOver, kRefused, kOver));
    Pppd::Plan("kill -9 $$");
    ASSERT_EQ(0, Start(2));
    EXPECT_THAT(Types(listener.Wait(6)),
                ElementsAre(kNoLink, kOver, kRefused, kOver, kNoLink, kOver));
    EXPECT_EQ(3, Pppd::Dials());
}

// What pppd says is taken for what it says, not for what a peer makes it say.
TEST_F(VimbradPppoe, OtherLinesOfTheLogTellNothing) {
    const Listener listener(kSocket);
    Pppd::Plan(
        "echo 'Remote message: @up 1.2.3.4 1.2.3.5 0.0.0.0 0.0.0.0'\n"
        "echo 'sent [remote LL address fe80::1]'; echo; exit 8");
    ASSERT_EQ(0, Start(2));
    EXPECT_THAT(Types(listener.Wait(2)), ElementsAre(kNoLink, kOver));
}

// ---- Dialling again

TEST_F(VimbradPppoe, DialsAgainUntilTheLinkIsUp) {
    const Listener listener(kSocket);
    Pppd::Plan("case $run in 1) exit 8;; 2) exit 19;; esac\n" + std::string(kUp) + "hold");
    ASSERT_EQ(0, Start(2, {.autoDial = 1}));
    EXPECT_THAT(Types(listener.Wait(3)), ElementsAre(kNoLink, kRefused, kConnected));
    EXPECT_EQ(3, Pppd::Dials());
    EXPECT_EQ(0, Stop(2));
    EXPECT_FALSE(Pppd::Runs(3));
}

TEST_F(VimbradPppoe, GivesUpAfterSoManyFailures) {
    const Listener listener(kSocket);
    Pppd::Plan("exit 8");
    ASSERT_EQ(0, Start(2, {.autoDial = 1, .retrySeconds = 1, .maxFail = 2}));
    EXPECT_THAT(Types(listener.Wait(3)), ElementsAre(kNoLink, kNoLink, kOver));
    EXPECT_EQ(2, Pppd::Dials());
    EXPECT_EQ(0, Stop(2));
}

TEST_F(VimbradPppoe, LinkThatWasUpIsNoFailure) {
    const Listener listener(kSocket);
    Pppd::Plan("[ $run = 3 ] && exit 8\n" + std::string(kUp) + "wait_for_test; exit 16");
    ASSERT_EQ(0, Start(2, {.autoDial = 1, .maxFail = 1}));
    Pppd::LetGoOn();
    ASSERT_TRUE(Pppd::WaitDial(2));
    Pppd::LetGoOn();
    EXPECT_THAT(Types(listener.Wait(6)),
                ElementsAre(kConnected, kLost, kConnected, kLost, kNoLink, kOver));
}

TEST_F(VimbradPppoe, WaitsBeforeItDialsAgain) {
    const Listener listener(kSocket);
    Pppd::Plan("exit 8");
    const auto before = std::chrono::steady_clock::now();
    ASSERT_EQ(0, Start(2, {.autoDial = 1, .retrySeconds = 2, .maxFail = 2}));
    listener.Wait(2);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
}

TEST_F(VimbradPppoe, StopBetweenTwoDials) {
    const Listener listener(kSocket);
    Pppd::Plan("exit 8");
    ASSERT_EQ(0, Start(2, {.autoDial = 1, .retrySeconds = 4'000'000'000}));
    EXPECT_THAT(Types(listener.Wait(1)), ElementsAre(kNoLink));
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ("", Directories());
    EXPECT_EQ(1, Pppd::Dials());
}

TEST_F(VimbradPppoe, DialThatCannotBeMadeIsAFailure) {
    const Listener listener(kSocket);
    Pppd::Plan("rm /tmp/bin/pppd; exit 8");
    ASSERT_EQ(0, Start(2, {.autoDial = 1, .maxFail = 2}));
    EXPECT_THAT(Types(listener.Wait(3)), ElementsAre(kNoLink, kNoLink, kOver));
    EXPECT_TRUE(daemon_.WaitLog("not dialled: pppd is missing\n"));
}

// ---- Refusals

TEST_F(VimbradPppoe, Refusals) {
    ASSERT_EQ(0, Start(2));
    ASSERT_TRUE(Pppd::WaitDial(1));
    for (const u16 family : {0, 1, 3, 7, 12}) {
        EXPECT_EQ(EINVAL, Start(family)) << family;
        EXPECT_EQ(EINVAL, Stop(family)) << family;
    }
    EXPECT_EQ(ENODEV, Start(2, {.device = "nowhere0"}));
    EXPECT_EQ(ENODEV, Start(2, {.device = ""}));
    EXPECT_EQ(ENODEV, Start(2, {.device = std::string(16, 'x')}));
    EXPECT_EQ(EINVAL, Start(2, {.user = ""}));
    EXPECT_EQ(EINVAL, Start(2, {.password = ""}));
    for (const char* text : {"a\nplugin evil.so", "a\x7f", "\x01", "a\r", "\t"}) {
        EXPECT_EQ(EINVAL, Start(2, {.user = text}));
        EXPECT_EQ(EINVAL, Start(2, {.password = text}));
    }
    EXPECT_EQ(EINVAL, Start(2, {.echoInterval = 256}));
    EXPECT_EQ(EINVAL, Start(2, {.echoFailure = 0xffffffff}));
    EXPECT_EQ(EINVAL, Ask(kStart, Bytes(810)));
    EXPECT_EQ(EINVAL, Ask(kStart, Bytes(812)));
    EXPECT_EQ(EINVAL, Ask(kStop, Bytes(4)));
    // What cannot be dialled leaves the link that runs alone.
    EXPECT_TRUE(Pppd::Runs(1));
    EXPECT_EQ(1, Pppd::Dials());
}

// Whatever stands behind its end; and one without an end.
TEST_F(VimbradPppoe, TextEndsAtItsEnd) {
    ASSERT_EQ(0, Start(2, {.user = std::string("me\0\n", 4), .password = std::string(255, 'p')}));
    ASSERT_TRUE(Pppd::WaitDial(1));
    EXPECT_THAT(Pppd::Options(1),
                HasSubstr("\nuser \"me\"\npassword \"" + std::string(255, 'p') + "\"\n"));
}

TEST_F(VimbradPppoe, KernelWithoutPppIsARefusal) {
    Shell("rm /dev/ppp");
    EXPECT_EQ(EOPNOTSUPP, Start(2));
    EXPECT_TRUE(daemon_.WaitLog("PPPoE start: refused with 95: /dev/ppp is missing ("));
    EXPECT_EQ(0, Pppd::Dials());
    EXPECT_EQ("", Directories());
    EXPECT_EQ(0, Stop(2));
}

TEST_F(VimbradPppoe, MissingProgramIsARefusal) {
    Shell("rm /tmp/bin/pppd");
    EXPECT_EQ(ENOENT, Start(2));
    EXPECT_TRUE(daemon_.WaitLog("PPPoE start: refused with 2: pppd is missing ("));
    EXPECT_EQ("", Directories());
    EXPECT_EQ(0, Stop(2));
}

// The server hangs up as soon as it has said no, and pppd ends with what it saw last.
TEST_F(VimbradPppoe, WordsOfARefusalCountAsItsStatusDoes) {
    for (const char* words : {"PAP authentication failed", "CHAP authentication failed: E=691",
                              "EAP authentication failed"}) {
        Pppd::Plan(std::string("echo '") + words + "'; exit 16");
        const Listener listener(kSocket);
        ASSERT_EQ(0, Start(2));
        EXPECT_EQ((std::vector{kRefused, kOver}), Types(listener.Wait(2))) << words;
        EXPECT_EQ(0, Stop(2));
    }
}

}  // namespace
}  // namespace vimbra::tests
