// PPPoE: what pppd is asked to do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "e2e.hpp"
#include "messages.hpp"
#include "pppd.hpp"
#include "pppoe_link.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::HasSubstr;
using testing::Not;

namespace {

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

}  // namespace
}  // namespace vimbra::tests
