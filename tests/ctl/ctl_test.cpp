// The command line as people meet it: help, and what is refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vimbra/bed.hpp>

#include "ctl_daemon.hpp"
#include "ctl_run.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

// All commands, groups without their own.
constexpr const char* kCommands[] = {
    "link up",
    "link down",
    "link show",
    "addr show",
    "addr set",
    "addr add",
    "addr del",
    "addr flush",
    "mac show",
    "mac set",
    "mtu show",
    "mtu set",
    "route show",
    "route add",
    "route del",
    "route metric",
    "gateway show",
    "gateway set",
    "gateway del",
    "table add",
    "table del",
    "rule add",
    "rule del",
    "priority show",
    "priority set",
    "check same-net",
    "check host",
    "check mask",
    "check class",
    "log-level",
    "version",
    "codes",
    "dns show",
    "dns set",
    "user add",
    "user passwd",
    "user delete",
    "service start",
    "service stop",
    "dhcp start",
    "dhcp stop",
    "dhcp renew",
    "dhcp lease",
    "dhcp state",
    "dhcp-server start",
    "dhcp-server stop",
    "dhcp-server state",
    "dhcp-server leases",
    "ntp start",
    "ntp stop",
    "ntp check",
    "pppoe start",
    "pppoe stop",
    "pppoe version",
    "status",
    "table show",
    "rule show",
};

TEST(CtlHelp, IsThereForEveryCommandWithAnExample) {
    for (const std::string command : kCommands) {
        const Outcome help = Ctl(command + " --help");
        EXPECT_EQ(0, help.status) << command;
        EXPECT_THAT(help.out, HasSubstr("Usage: vimbractl " + command)) << command;
        EXPECT_THAT(help.out, HasSubstr("\nExample:\n  vimbractl " + command)) << command;
        EXPECT_THAT(help.err, IsEmpty()) << command;
    }
}

TEST(CtlHelp, FitsA80ColumnConsole) {
    for (const std::string command : kCommands) {
        std::istringstream help(Ctl(command + " --help").out);
        for (std::string line; std::getline(help, line);) {
            EXPECT_LT(line.size(), 80U) << command << ": " << line;
        }
    }
}

TEST(CtlHelp, TellsTheExitStatuses) {
    const Outcome help = Ctl("--help");
    EXPECT_EQ(0, help.status);
    for (const char* status : {"\n  0  ", "\n  1  ", "\n  2  ", "\n  3  ", "\n  4  ", "\n  5  "}) {
        EXPECT_THAT(help.out, HasSubstr(status));
    }
}

TEST(CtlUsage, AMissingCommandIsRefusedAndTheCommandsAreTold) {
    const Outcome none = Ctl("");
    EXPECT_EQ(2, none.status);
    EXPECT_THAT(none.out, IsEmpty());
    EXPECT_THAT(none.err, StartsWith("vimbractl: a command is missing; accepted: link, addr, "));
    const Outcome group = Ctl("mac");
    EXPECT_EQ(2, group.status);
    EXPECT_EQ(
        "vimbractl mac: a command is missing; accepted: show, set\n"
        "Try 'vimbractl mac --help'.\n",
        group.err);
}

TEST(CtlUsage, AnUnknownCommandIsNamedAndTheCommandsAreTold) {
    const Outcome unknown = Ctl("link sideways");
    EXPECT_EQ(2, unknown.status);
    EXPECT_EQ(
        "vimbractl link: \"sideways\" is not a command; accepted: up, down, show\n"
        "Try 'vimbractl link --help'.\n",
        unknown.err);
}

TEST(CtlUsage, ACommandMayBeAbbreviatedAsLongAsOneIsMeant) {
    ScriptedDaemon daemon;
    daemon.On(kMtuGet, Answer::Body(Pack().S32(0).U32(1400)));
    EXPECT_EQ("1400\n", Ctl("mt sh eth0").out);
    EXPECT_EQ(1400, Ctl("-j mt sh eth0").Json().value("mtu", 0));
    // One that is spelt out is meant, although others begin so.
    EXPECT_THAT(Ctl("dhcp --help").out, HasSubstr("Usage: vimbractl dhcp [options]"));
    EXPECT_EQ("mtu set", Ctl("mt se eth0 x -j").Error().value("command", ""));
}

TEST(CtlUsage, AnAbbreviationOfSeveralCommandsIsRefused) {
    const Outcome several = Ctl("ro sh");
    EXPECT_THAT(several.err, Not(HasSubstr("short for")));
    const Outcome top = Ctl("r show");
    EXPECT_EQ(2, top.status);
    EXPECT_EQ("vimbractl: \"r\" is short for several commands: route, rule, ra\n", top.err);
    const Outcome below = Ctl("--json addr s");
    EXPECT_EQ(2, below.status);
    EXPECT_EQ("\"s\" is short for several commands: show, set", below.Error().value("message", ""));
}

TEST(CtlUsage, FamiliesHaveShortOptions) {
    ScriptedDaemon daemon;
    constexpr u32 kAddrGet = 277;
    daemon.On(kAddrGet, Answer::Body(Pack().FillTo(456)));
    const std::pair<const char*, int> lines[] = {
        {"addr show eth0 -4", 2}, {"-6 addr show eth0", 10}, {"addr -6 show eth0", 10}};
    for (const auto& [words, family] : lines) {
        daemon.Forget();
        EXPECT_EQ(0, Ctl(words).status) << words;
        EXPECT_EQ(family, daemon.Requests(kAddrGet).at(0).body.U16(0)) << words;
    }
    daemon.Forget();
    for (const char* words : {"addr show eth0 -4 -6", "addr show eth0 -4 --family ipv6",
                              "-6 link show", "-4 version"}) {
        EXPECT_EQ(2, Ctl(words).status) << words;
    }
    EXPECT_TRUE(daemon.Requests().empty());
}

TEST(CtlUsage, AMissingArgumentIsNamed) {
    const Outcome missing = Ctl("mtu set eth0");
    EXPECT_EQ(2, missing.status);
    EXPECT_EQ("vimbractl mtu set: mtu is required\nTry 'vimbractl mtu set --help'.\n", missing.err);
}

TEST(CtlUsage, AnArgumentTooManyIsNamed) {
    const Outcome extra = Ctl("mtu show eth0 eth1");
    EXPECT_EQ(2, extra.status);
    EXPECT_THAT(extra.err, HasSubstr("eth1"));
}

TEST(CtlUsage, ARefusedArgumentIsNamedAndWhatIsAcceptedIsTold) {
    ScriptedDaemon daemon;
    const struct {
        const char* words;
        const char* message;
    } cases[] = {
        {"mac set eth0 1:2", "mac set: mac: \"1:2\" is refused; accepted: six hexadecimal pairs"},
        {"mac set eth0 02:00:00:00:00:0g", "mac: \"02:00:00:00:00:0g\" is refused"},
        {"mac set eth0 02:00:00-00:00:01", "mac: \"02:00:00-00:00:01\" is refused"},
        {"mac set eth0 02:00:00:00:00:01:", "is refused; accepted: six hexadecimal pairs"},
        {"mtu set eth0 15x", "mtu set: mtu: \"15x\" is refused; accepted: a number of bytes, 500"},
        {"mtu set eth0 4294967296", "mtu: \"4294967296\" is refused"},
        {"mtu set eth0 1500 --family both",
         "--family: \"both\" is refused; accepted: ipv4 or ipv6"},
        {"log-level 6", "log-level: level: \"6\" is refused; accepted: 0 to 5, or none"},
        {"log-level loud", "level: \"loud\" is refused"},
        {"mtu show a/b", "mtu show: interface: \"a/b\" is refused; accepted: a name of 1 to 15"},
        {"mtu show ..", "interface: \"..\" is refused"},
        {"mtu show eth0:1", "interface: \"eth0:1\" is refused"},
        {"mtu show sixteen-letters-", "interface: \"sixteen-letters-\" is refused"},
    };
    for (const auto& [words, message] : cases) {
        const Outcome refused = Ctl(words);
        EXPECT_EQ(2, refused.status) << words;
        EXPECT_THAT(refused.err, HasSubstr(message)) << words;
        EXPECT_THAT(refused.out, IsEmpty()) << words;
    }
    EXPECT_EQ(2, CtlWords({"mtu", "show", ""}).status);
    EXPECT_EQ(2, CtlWords({"mtu", "show", "eth 0"}).status);
    EXPECT_EQ(0U, daemon.Connections());
}

TEST(CtlUsage, AnInterfaceNameOf15CharactersIsTaken) {
    ScriptedDaemon daemon;
    daemon.On(kMtuGet, Answer::Body(Pack().S32(0).U32(1500)));
    EXPECT_EQ(0, Ctl("mtu show fifteen-letters").status);
    EXPECT_EQ("fifteen-letters", daemon.Requests().at(0).body.Text(0, 16));
}

}  // namespace
}  // namespace vimbra::tests
