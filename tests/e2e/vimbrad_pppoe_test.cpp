// PPPoE: what pppd is asked to do, and what applications are told of what it does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/net_pppoe.h>
#include <vimbra/pppoe.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <thread>

#include "e2e.hpp"
#include "messages.hpp"
#include "pppd.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

namespace {

constexpr u32 kStart = 0x601;
constexpr u32 kStop = 0x602;
constexpr char kSocket[] = "ipc_pppoe";
constexpr char kSocket6[] = "ipc_pppoe6";

constexpr u32 kConnected = 1;
constexpr u32 kLost = 2;
constexpr u32 kNoLink = 3;
constexpr u32 kRefused = 4;
constexpr u32 kOver = 5;

// As it goes over the wire.
struct Config {
    std::string user = "me@isp";
    std::string password = "secret";
    u32 autoDial = 0;
    u32 defaultRoute = 0;
    u32 debug = 0;
    u32 retrySeconds = 0;
    u32 echoInterval = 20;
    u32 echoFailure = 3;
    u32 maxfail = 0;
    std::string device = "eth0";

    Bytes Body(u16 family) const {
        return Pack()
            .U16(family)
            .Text(user, 255)
            .Text(password, 255)
            .Zeros(255)
            .U32(autoDial)
            .U32(defaultRoute)
            .U32(debug)
            .U32(retrySeconds)
            .U32(echoInterval)
            .U32(echoFailure)
            .U32(maxfail)
            .Text(device, 16);
    }
};

s32 Start(u16 family, const Config& config = {}) {
    return Ask(kStart, config.Body(family));
}

s32 Stop(u16 family) {
    return Ask(kStop, Pack().U16(family));
}

std::vector<u32> Types(const std::vector<Told>& messages) {
    std::vector<u32> types;
    for (const Told& each : messages) {
        types.push_back(each.type);
    }
    return types;
}

Bytes Addresses(u16 family, const char* our, const char* peer, const char* dns1, const char* dns2) {
    return Pack()
        .Address(family, our)
        .Address(family, peer)
        .Address(family, dns1)
        .Address(family, dns2);
}

// The private directories of the daemon.
std::string Directories() {
    return Shell("ls -d /run/vimbrad/files.?????? 2>/dev/null || true");
}

size_t Descriptors(pid_t pid) {
    const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

constexpr char kUp[] = "ip_up 198.51.100.7 198.51.100.1 192.0.2.53 192.0.2.54\n";
const Bytes kUpAddresses = Addresses(2, "198.51.100.7", "198.51.100.1", "192.0.2.53", "192.0.2.54");
constexpr char kUp6[] = "ipv6_up fe80::7 fe80::1\n";
const Bytes kUp6Addresses = Addresses(10, "fe80::7", "fe80::1", "::", "::");

class VimbradPppoe : public testing::Test {
 protected:
    void SetUp() override {
        Shell("ip link add eth0 type veth peer name peer && ip link set peer up");
    }

    Pppd pppd_{"hold"};
    Daemon daemon_{{"--log-level=5"}};
};

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
    ASSERT_EQ(0, Start(2, {.autoDial = 1, .retrySeconds = 1, .maxfail = 2}));
    EXPECT_THAT(Types(listener.Wait(3)), ElementsAre(kNoLink, kNoLink, kOver));
    EXPECT_EQ(2, Pppd::Dials());
    EXPECT_EQ(0, Stop(2));
}

TEST_F(VimbradPppoe, LinkThatWasUpIsNoFailure) {
    const Listener listener(kSocket);
    Pppd::Plan("[ $run = 3 ] && exit 8\n" + std::string(kUp) + "wait_for_test; exit 16");
    ASSERT_EQ(0, Start(2, {.autoDial = 1, .maxfail = 1}));
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
    ASSERT_EQ(0, Start(2, {.autoDial = 1, .retrySeconds = 2, .maxfail = 2}));
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
    ASSERT_EQ(0, Start(2, {.autoDial = 1, .maxfail = 2}));
    EXPECT_THAT(Types(listener.Wait(3)), ElementsAre(kNoLink, kNoLink, kOver));
    EXPECT_TRUE(daemon_.WaitLog("not dialled: pppd is missing\n"));
}

// ---- What pppd is asked

std::string OptionsWithoutScripts(int dial) {
    std::string text = Pppd::Options(dial);
    // The directory has another name each time.
    for (size_t at; (at = text.find("/run/vimbrad/files.")) != std::string::npos;) {
        text.replace(at, sizeof("/run/vimbrad/files.XXXXXX") - 1, "DIR");
    }
    return text;
}

TEST_F(VimbradPppoe, OptionsAreThoseOfTheRequest) {
    ASSERT_EQ(0, Start(2));
    ASSERT_TRUE(Pppd::WaitDial(1));
    EXPECT_EQ(
        "plugin pppoe.so\n"
        "\"nic-eth0\"\n"
        "user \"me@isp\"\n"
        "password \"secret\"\n"
        "hide-password\n"
        "noauth\n"
        "nodetach\n"
        "nopersist\n"
        "logfd 1\n"
        "ip-up-script \"/run/vimbrad/pppd-hook\"\n"
        "ip-down-script \"DIR/ip-down\"\n"
        "lcp-echo-interval 20\n"
        "lcp-echo-failure 3\n"
        "noipdefault\n"
        "usepeerdns\n"
        "nodefaultroute\n"
        "noipv6\n",
        OptionsWithoutScripts(1));
    ASSERT_EQ(0, Start(10, {.defaultRoute = 1, .echoInterval = 255, .echoFailure = 0}));
    ASSERT_TRUE(Pppd::WaitDial(2));
    EXPECT_THAT(OptionsWithoutScripts(2), testing::EndsWith("lcp-echo-interval 255\n"
                                                            "lcp-echo-failure 0\n"
                                                            "noip\n"
                                                            "+ipv6\n"
                                                            "defaultroute6\n"));
    ASSERT_EQ(0, Start(11, {.defaultRoute = 2, .debug = 7}));
    ASSERT_TRUE(Pppd::WaitDial(3));
    EXPECT_THAT(OptionsWithoutScripts(3), testing::EndsWith("noipdefault\n"
                                                            "usepeerdns\n"
                                                            "defaultroute\n"
                                                            "+ipv6\n"
                                                            "defaultroute6\n"
                                                            "debug\n"));
}

TEST_F(VimbradPppoe, SecretsAreForNobodyElse) {
    ASSERT_EQ(0, Start(2));
    ASSERT_TRUE(Pppd::WaitDial(1));
    const std::string directory = Directories().substr(0, sizeof("/run/vimbrad/files.XXXXXX") - 1);
    EXPECT_EQ("file " + directory + "/options\n", Pppd::Arguments(1));
    EXPECT_EQ("700 600\n", Shell("echo $(stat -c %a " + directory + " " + directory + "/options)"));
    EXPECT_THAT(daemon_.Log(), Not(HasSubstr("secret")));
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ("", Directories());
}

TEST_F(VimbradPppoe, InterfaceIsBroughtUp) {
    ASSERT_EQ(0, Start(2));
    EXPECT_THAT(Ip("link show dev eth0").at(0).at("flags"), testing::Contains("UP"));
}

// The options that Start has been called with there.
void ExpectUnderstood(const std::string& seen, u16 family, bool flag) {
    const bool with4 = family != 10;
    const bool with6 = family != 2;
    // It prints quotation marks and backslashes behind a backslash.
    EXPECT_THAT(seen, HasSubstr("\nuser a \\\"b\\\" 'c' \\\\d #e %s $HOME `f` ü\t"));
    EXPECT_THAT(seen, HasSubstr("\npassword ??????\t"));
    EXPECT_THAT(seen, HasSubstr("\neth0\t"));
    EXPECT_THAT(seen, HasSubstr("\nnodetach\t"));
    EXPECT_THAT(seen, HasSubstr("\nnopersist\t"));
    EXPECT_THAT(seen, HasSubstr("\nnoauth\t"));
    EXPECT_THAT(seen, HasSubstr("\nlogfd 1\t"));
    EXPECT_THAT(seen, HasSubstr("\nip-up-script /run/vimbrad/pppd-hook"));
    EXPECT_THAT(seen, HasSubstr("\nlcp-echo-interval 20\t"));
    EXPECT_THAT(seen, HasSubstr("\nlcp-echo-failure 3\t"));
    const auto has = [&seen](const char* option) {
        return seen.find(std::string("\n") + option + "\t") != std::string::npos;
    };
    EXPECT_EQ(with4, has("usepeerdns")) << seen;
    EXPECT_EQ(with4, has("noipdefault")) << seen;
    EXPECT_EQ(!with4, has("noip")) << seen;
    EXPECT_EQ(with6, has("+ipv6")) << seen;
    EXPECT_EQ(!with6, has("noipv6")) << seen;
    EXPECT_EQ(with4 && flag, has("defaultroute")) << seen;
    EXPECT_EQ(with6 && flag, has("defaultroute6")) << seen;
    EXPECT_EQ(flag, has("debug")) << seen;
}

// pppd itself reads the options, and prints what it has understood.
TEST_F(VimbradPppoe, TheRealProgramUnderstandsEveryOption) {
    Pppd::Plan("/usr/sbin/pppd dryrun \"$@\" >/tmp/pppd/$run/output 2>&1; exit $?");
    const Listener listener(kSocket);
    const Listener listener6(kSocket6);
    const std::string odd = R"(a "b" 'c' \d #e %s $HOME `f` ü)";
    int dial = 0;
    for (const u16 family : {2, 10, 11}) {
        for (const u32 flag : {0, 1}) {
            ASSERT_EQ(0, Start(family, {.user = odd,
                                        .password = odd,
                                        .defaultRoute = flag,
                                        .debug = flag,
                                        .device = "eth0"}));
            ++dial;
            ASSERT_TRUE(WaitFor([&] {
                const std::string log = daemon_.Log();
                size_t count = 0;
                for (size_t at = 0;
                     (at = log.find("pppd ended with exit status 0", at)) != std::string::npos;
                     ++at) {
                    ++count;
                }
                return count == static_cast<size_t>(dial);
            })) << Pppd::Output(dial);
            const std::string seen = Pppd::Output(dial);
            ExpectUnderstood(seen, family, flag != 0);
        }
    }
    // What a run without a peer does not show.
    const std::string program = ReadFile("/usr/sbin/pppd");
    for (const char* word : {"local  LL address %s", "remote LL address %s", "PPPD_PID", "IPLOCAL",
                             "IPREMOTE", "DNS1", "DNS2"}) {
        EXPECT_NE(std::string::npos, program.find(word)) << word;
    }
}

// ---- Several links

TEST_F(VimbradPppoe, EachFamilyHasAPppdOfItsOwn) {
    ASSERT_EQ(0, Start(2));
    ASSERT_TRUE(Pppd::WaitDial(1));
    ASSERT_EQ(0, Start(10));
    ASSERT_TRUE(Pppd::WaitDial(2));
    EXPECT_EQ(0, Stop(2));
    EXPECT_FALSE(Pppd::Runs(1));
    EXPECT_TRUE(Pppd::Runs(2));
    EXPECT_EQ(0, Stop(10));
    EXPECT_FALSE(Pppd::Runs(2));
}

TEST_F(VimbradPppoe, AStartOfWhatRunsReplacesIt) {
    ASSERT_EQ(0, Start(2));
    ASSERT_TRUE(Pppd::WaitDial(1));
    ASSERT_EQ(0, Start(2, {.user = "another"}));
    EXPECT_FALSE(Pppd::Runs(1));
    ASSERT_TRUE(Pppd::WaitDial(2));
    EXPECT_THAT(Pppd::Options(2), HasSubstr("user \"another\"\n"));
    EXPECT_TRUE(Pppd::Runs(2));
}

TEST_F(VimbradPppoe, CommonLinkReplacesBoth) {
    ASSERT_EQ(0, Start(2));
    ASSERT_EQ(0, Start(10));
    ASSERT_TRUE(Pppd::WaitDial(1));
    ASSERT_TRUE(Pppd::WaitDial(2));
    ASSERT_EQ(0, Start(11));
    EXPECT_FALSE(Pppd::Runs(1));
    EXPECT_FALSE(Pppd::Runs(2));
    ASSERT_TRUE(Pppd::WaitDial(3));
    EXPECT_EQ(0, Stop(11));
    EXPECT_FALSE(Pppd::Runs(3));
    EXPECT_EQ(3, Pppd::Dials());
}

// The library stops a common link so when the application stops one family after the other.
TEST_F(VimbradPppoe, StopOfOneHalfLeavesTheOther) {
    for (const auto& [first, second, option] :
         {std::tuple{2, 10, "noip\n"}, std::tuple{10, 2, "noipv6\n"}}) {
        const int dials = Pppd::Dials();
        ASSERT_EQ(0, Start(11, {.user = "both"}));
        ASSERT_TRUE(Pppd::WaitDial(dials + 1));
        ASSERT_EQ(0, Stop(static_cast<u16>(first)));
        EXPECT_FALSE(Pppd::Runs(dials + 1));
        ASSERT_TRUE(Pppd::WaitDial(dials + 2));
        EXPECT_THAT(Pppd::Options(dials + 2),
                    AllOf(HasSubstr("user \"both\"\n"), HasSubstr(option)));
        ASSERT_EQ(0, Stop(static_cast<u16>(first)));
        EXPECT_TRUE(Pppd::Runs(dials + 2));
        ASSERT_EQ(0, Stop(static_cast<u16>(second)));
        EXPECT_FALSE(Pppd::Runs(dials + 2));
        EXPECT_EQ(dials + 2, Pppd::Dials());
    }
}

TEST_F(VimbradPppoe, StartOfOneHalfLeavesTheOther) {
    ASSERT_EQ(0, Start(11, {.user = "both"}));
    ASSERT_TRUE(Pppd::WaitDial(1));
    ASSERT_EQ(0, Start(2, {.user = "half"}));
    ASSERT_TRUE(Pppd::WaitDial(2));
    ASSERT_TRUE(Pppd::WaitDial(3));
    EXPECT_FALSE(Pppd::Runs(1));
    // They are run at the same time: which of them comes first is not known.
    const std::string options[] = {Pppd::Options(2), Pppd::Options(3)};
    EXPECT_THAT(options, testing::UnorderedElementsAre(
                             AllOf(HasSubstr("user \"both\"\n"), HasSubstr("\nnoip\n")),
                             AllOf(HasSubstr("user \"half\"\n"), HasSubstr("\nnoipv6\n"))));
}

// Nothing is left of a link that was given up.
TEST_F(VimbradPppoe, NoHalfIsMadeOfALinkThatIsOver) {
    const Listener listener(kSocket6);
    Pppd::Plan("exit 8");
    ASSERT_EQ(0, Start(11));
    listener.Wait(2);
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(1, Pppd::Dials());
    EXPECT_EQ("", Directories());
}

// ---- The end

TEST_F(VimbradPppoe, StopOfWhatIsNotOnSucceeds) {
    for (const u16 family : {2, 10, 11}) {
        EXPECT_EQ(0, Stop(family));
    }
    ASSERT_EQ(0, Start(2));
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Stop(2));
}

TEST_F(VimbradPppoe, NothingIsToldAfterTheStop) {
    const Listener listener(kSocket);
    Pppd::Plan(std::string("trap '") + kUp + "exit 5' TERM\n" + kUp +
               "while :; do sleep 0.01; done");
    ASSERT_EQ(0, Start(2));
    listener.Wait(1);
    EXPECT_EQ(0, Stop(2));
    ASSERT_EQ(0, Start(2));
    EXPECT_THAT(Types(listener.Wait(2)), ElementsAre(kConnected, kConnected));
    EXPECT_TRUE(daemon_.WaitLog("stopped"));
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(2u, listener.Messages().size());
}

TEST_F(VimbradPppoe, OneThatDoesNotHangUpIsKilled) {
    Pppd::Plan("trap '' TERM; echo ready; hold");
    ASSERT_EQ(0, Start(2));
    ASSERT_TRUE(daemon_.WaitLog("pppd: ready"));
    std::thread stop([] {
        EXPECT_EQ(0, Stop(2));
        EXPECT_FALSE(Pppd::Runs(1));
    });
    EXPECT_TRUE(daemon_.WaitLog("PPPoE stop"));
    // Requests that come meanwhile wait for their turn.
    std::thread other([] { EXPECT_EQ(0, Start(10)); });
    EXPECT_EQ(0, Start(2));
    EXPECT_FALSE(Pppd::Runs(1));
    stop.join();
    other.join();
    EXPECT_TRUE(Pppd::WaitDial(3));
}

TEST_F(VimbradPppoe, RepeatedStartsLeaveNothing) {
    ASSERT_EQ(0, Start(11));
    ASSERT_EQ(0, Stop(11));
    const size_t before = Descriptors(daemon_.Process().Pid());
    for (int i = 0; i < 10; ++i) {
        for (const u16 family : {2, 10, 11, 11}) {
            ASSERT_EQ(0, Start(family));
        }
        ASSERT_EQ(0, Stop(11));
    }
    EXPECT_TRUE(WaitFor([&] { return Descriptors(daemon_.Process().Pid()) == before; }));
    EXPECT_EQ("", Directories());
    // The last keeper is still on its way out when its descriptors are gone.
    const std::string children =
        "ps -o pid= --ppid " + std::to_string(daemon_.Process().Pid()) + " || true";
    EXPECT_TRUE(WaitFor([&] { return Shell(children).empty(); })) << Shell("ps -ef");
}

TEST_F(VimbradPppoe, EndOfTheDaemonEndsItsLinks) {
    ASSERT_EQ(0, Start(2));
    ASSERT_EQ(0, Start(10));
    ASSERT_TRUE(Pppd::WaitDial(1));
    ASSERT_TRUE(Pppd::WaitDial(2));
    EXPECT_EQ(0, daemon_.Stop());
    EXPECT_TRUE(WaitFor([] { return !Pppd::Runs(1) && !Pppd::Runs(2); }));
    EXPECT_EQ("", Directories());
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
