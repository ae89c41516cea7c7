// The frame of the command line: help, exit statuses, messages, JSON, the library's log, and the
// commands that are not about addresses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <vimbra/types.h>

#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "ctl_run.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using Expected = nlohmann::json;

namespace {

constexpr u32 kMacSet = 262;
constexpr u32 kMacGet = 263;
constexpr u32 kMtuSet = 273;
constexpr u32 kMtuGet = 274;
constexpr u32 kLogSwitch = 0x0702;

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

TEST(CtlResults, WhatTheLibraryRefusesIsStatus2WithWhatIsAccepted) {
    ScriptedDaemon daemon;
    const Outcome small = Ctl("mtu set eth0 499");
    EXPECT_EQ(2, small.status);
    EXPECT_EQ(
        "vimbractl mtu set: 1105 (invalid argument): dwMtu 499 is invalid; accepted: a "
        "number of bytes, 500 or more, with --family ipv6 1280 or more\n",
        small.err);
    EXPECT_EQ(2, Ctl("mtu set eth0 1279 --family ipv6").status);
    EXPECT_EQ(0U, daemon.Connections());
    EXPECT_EQ(0, Ctl("mtu set eth0 500").status);
    EXPECT_EQ(0, Ctl("mtu set eth0 1280 --family ipv6").status);
}

TEST(CtlResults, NoDaemonIsStatus3) {
    const Outcome alone = Ctl("mtu show eth0");
    EXPECT_EQ(3, alone.status);
    EXPECT_EQ(
        "vimbractl mtu show: the network daemon cannot be reached at /tmp/api_daemon: "
        "No such file or directory\n",
        alone.err);
    EXPECT_THAT(alone.out, IsEmpty());
}

TEST(CtlResults, NoDaemonIsSeenWhenTheLogIsSwitchedOff) {
    EXPECT_EQ(3, Ctl("log-level 0").status);
    EXPECT_EQ(3, Ctl("log-level 1").status);
}

TEST(CtlResults, ARefusalIsStatus4WithTheDaemonsCode) {
    ScriptedDaemon daemon;
    daemon.On(kMacSet, Answer::Code(19));
    const Outcome refused = Ctl("mac set lo 02:00:00:00:00:01");
    EXPECT_EQ(4, refused.status);
    EXPECT_EQ("vimbractl mac set: the network daemon refused: 19 (No such device)\n", refused.err);
    // A daemon with numbers of its own.
    daemon.On(kMacSet, Answer::Code(-77));
    EXPECT_THAT(Ctl("mac set lo 02:00:00:00:00:01").err, EndsWith("refused: -77\n"));
    daemon.On(kMacSet, Answer::Code(70000));
    EXPECT_THAT(Ctl("mac set lo 02:00:00:00:00:01").err, EndsWith("refused: 70000\n"));
}

TEST(CtlResults, ADaemonThatClosesWithoutAnAnswerIsStatus3) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Close());
    const Outcome closed = Ctl("mtu show eth0");
    EXPECT_EQ(3, closed.status);
    EXPECT_EQ("vimbractl mtu show: the network daemon gave no answer\n", closed.err);
    EXPECT_THAT(closed.out, IsEmpty());
    EXPECT_EQ(3, Ctl("mtu set eth0 1500").status);
}

TEST(CtlResults, AnAnswerOfTheWrongSizeIsStatus3) {
    ScriptedDaemon daemon;
    daemon.On(kMtuGet, Answer::Code(0));
    const Outcome shorter = Ctl("mtu show eth0");
    EXPECT_EQ(3, shorter.status);
    EXPECT_THAT(shorter.err, HasSubstr("the network daemon gave no whole answer"));
    daemon.On(kMtuGet, Answer::Body(Pack().S32(0).U32(1500)).Size(9));
    const Outcome header = Ctl("mtu show eth0");
    EXPECT_EQ(3, header.status);
    EXPECT_THAT(header.err, HasSubstr("the network daemon gave no whole answer"));
}

TEST(CtlResults, AnInterfaceThatDoesNotExistIsStatus5AndNamed) {
    for (const char* words : {"link show nope0", "link up nope0", "link down nope0"}) {
        const Outcome missing = Ctl(words);
        EXPECT_EQ(5, missing.status) << words;
        EXPECT_THAT(missing.err, EndsWith("interface: \"nope0\" does not exist: "
                                          "-1 (general failure): No such device\n"))
            << words;
    }
}

TEST(CtlResults, AnInterfaceThatDoesNotExistIsStatus5WhoeverFindsItOut) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Code(22));
    for (const char* words :
         {"mac set nope0 02:00:00:00:00:01", "mtu set nope0 1400", "addr add nope0 192.0.2.1/24",
          "addr flush nope0", "gateway set nope0 192.0.2.1", "gateway del nope0",
          "route add 192.0.2.0/24 --interface nope0", "bond start 1 lo nope0", "dhcp start nope0",
          "dhcp stop nope0", "dhcp renew nope0", "dhcp lease nope0 --renew", "dhcp state nope0",
          "ra watch nope0"}) {
        const Outcome missing = Ctl(words);
        EXPECT_EQ(5, missing.status) << words << "\n" << missing;
        EXPECT_THAT(missing.err, HasSubstr("interface: \"nope0\" does not exist: ")) << words;
    }
    // Another failure about one that exists, or about none.
    EXPECT_EQ(4, Ctl("mtu set lo 1400").status);
    EXPECT_EQ(4, Ctl("gateway del -").status);
    // What the command line says wrong is still that.
    EXPECT_EQ(2, Ctl("mtu set nope0 499").status);
}

TEST(CtlResults, OutputThatCannotBeWrittenIsStatus1) {
    const Outcome full = Ctl("version", "/dev/full");
    EXPECT_EQ(1, full.status);
    EXPECT_THAT(full.err, HasSubstr("the output cannot be written: No space left on device"));
    EXPECT_EQ(1, Ctl("--help", "/dev/full").status);
}

TEST(CtlJson, ErrorsAreJsonToo) {
    ScriptedDaemon daemon;
    daemon.On(kMtuSet, Answer::Code(22));
    const Outcome refused = Ctl("mtu set lo 1500 --json");
    EXPECT_EQ(4, refused.status);
    EXPECT_THAT(refused.out, IsEmpty());
    EXPECT_EQ((Expected{{"command", "mtu set"},
                        {"status", 4},
                        {"message", "the network daemon refused: 22 (Invalid argument)"},
                        {"result", -1},
                        {"daemon", 22}}),
              refused.Error());
    const Outcome usage = Ctl("--json mtu set eth0 x");
    EXPECT_EQ(2, usage.status);
    EXPECT_EQ(2, usage.Error().value("status", 0));
    EXPECT_EQ("mtu set", usage.Error().value("command", ""));
}

TEST(CtlJson, IsTakenBeforeAndBehindTheCommand) {
    ScriptedDaemon daemon;
    daemon.On(kMtuGet, Answer::Body(Pack().S32(0).U32(1400)));
    const Expected expected = {{"interface", "eth0"}, {"mtu", 1400}};
    EXPECT_EQ(expected, Ctl("--json mtu show eth0").Json());
    EXPECT_EQ(expected, Ctl("mtu show eth0 --json").Json());
    EXPECT_EQ(expected, Ctl("mtu show --json eth0").Json());
    EXPECT_EQ(expected, Ctl("-j mtu show eth0").Json());
}

// What a command shows on a terminal, with these words before it.
std::string OnTerminal(const std::string& environment, const std::string& words) {
    return OutputOf(environment + " script -qec '" VIMBRACTL " " + words +
                    "' /dev/null 2>&1; true");
}

TEST(CtlColour, IsForTerminals) {
    EXPECT_EQ("\033[36mlo\033[0m", OnTerminal("TERM=xterm", "link show lo").substr(0, 11));
    EXPECT_THAT(OnTerminal("TERM=xterm", "link show nope0"),
                StartsWith("\033[31mvimbractl link show\033[0m: "));
    EXPECT_THAT(Ctl("link show lo").out, StartsWith("lo: "));
    EXPECT_THAT(OnTerminal("TERM=xterm", "link show lo --json"), Not(HasSubstr("\033")));
}

TEST(CtlColour, IsLeftAwayWhereItIsNotWantedOrNotShown) {
    for (const char* environment : {"TERM=xterm NO_COLOR=1", "TERM=dumb", "TERM="}) {
        EXPECT_THAT(OnTerminal(environment, "link show lo"), StartsWith("lo: ")) << environment;
    }
    EXPECT_THAT(OnTerminal("TERM=xterm NO_COLOR=", "link show lo"), StartsWith("\033[36mlo"));
}

TEST(CtlLog, TheLibrarysLinesAreNotShownUnlessAskedFor) {
    Capture log;
    const Outcome quiet = Ctl("mtu show eth0");
    EXPECT_THAT(quiet.out + quiet.err, Not(HasSubstr("[VIMBRA_")));
}

TEST(CtlLog, VerboseShowsTheLibrarysLinesOnStandardError) {
    ScriptedDaemon daemon;
    const Outcome verbose = Ctl("mac set eth0 02:00:00:00:00:01 --verbose");
    EXPECT_EQ(0, verbose.status);
    EXPECT_THAT(verbose.out, IsEmpty());
    // One line each, although the library ends none of them.
    EXPECT_THAT(verbose.err, HasSubstr("pchIfaceName : eth0\n[VIMBRA_"));
    EXPECT_THAT(verbose.err, EndsWith("mac to set : 2:0:0:0:0:1\n"));
}

TEST(CtlLog, ASuccessfulCommandLeavesNothingInTheSystemLog) {
    ScriptedDaemon daemon;
    Capture log;
    EXPECT_EQ(0, Ctl("mtu set eth0 1400").status);
    EXPECT_EQ(0, Ctl("version").status);
    EXPECT_TRUE(log.Syslog().empty());
}

TEST(CtlVersion, ShowsTheLibrarysText) {
    const Outcome version = Ctl("version");
    EXPECT_EQ(0, version.status);
    EXPECT_THAT(version.out, StartsWith("Vimbras Module Version: V2.0.3."));
    const nlohmann::json json = Ctl("version --json").Json();
    EXPECT_EQ("2.0.3", json.value("version", ""));
    EXPECT_TRUE(json.at("build").is_number_unsigned());
    EXPECT_EQ(version.out, json.value("text", "") + "\n");
}

TEST(CtlVersion, IsAnOptionToo) {
    const std::string version = Ctl("version --json").Json().value("version", "");
    EXPECT_EQ("vimbractl " + version + "\n", Ctl("--version").out);
    EXPECT_EQ("vimbractl " + version + "\n", Ctl("-V").out);
    EXPECT_EQ(version, Ctl("--json --version").Json().value("version", ""));
    EXPECT_EQ(0, Ctl("--version").status);
}

TEST(CtlCodes, TellsEachResultInWords) {
    EXPECT_THAT(Ctl("codes").out, HasSubstr("  1105  invalid argument\n"));
    const nlohmann::json codes = Ctl("codes --json").Json().at("codes");
    EXPECT_THAT(codes, testing::Contains(
                           Expected{{"code", 1102}, {"meaning", "no reply within the time-out"}}));
}

TEST(CtlLogLevel, SendsTheLevelByNumberOrName) {
    ScriptedDaemon daemon;
    const std::pair<const char*, u32> levels[] = {
        {"0", 0},     {"5", 5},       {"none", 0}, {"alert", 1},
        {"error", 2}, {"warning", 3}, {"info", 4}, {"debug", 5},
    };
    for (const auto& [text, level] : levels) {
        daemon.Forget();
        const Outcome done = Ctl(std::string("log-level ") + text);
        EXPECT_EQ(0, done.status) << text;
        EXPECT_EQ("", done.out + done.err) << text;
        ASSERT_EQ(1U, daemon.Requests(kLogSwitch).size()) << text;
        EXPECT_EQ(Pack().U32(level), daemon.Requests(kLogSwitch)[0].body) << text;
    }
}

TEST(CtlMac, ShowsTheMacAddress) {
    ScriptedDaemon daemon;
    daemon.On(kMacGet,
              Answer::Body(Pack().S32(0).U8(2).U8(0).U8(0xab).U8(1).U8(0xff).U8(0x10).Zeros(2)));
    EXPECT_EQ("02:00:ab:01:ff:10\n", Ctl("mac show eth0").out);
    EXPECT_EQ((Expected{{"interface", "eth0"}, {"mac", "02:00:ab:01:ff:10"}}),
              Ctl("mac show eth0 --json").Json());
    EXPECT_EQ(Pack().Text("eth0", 16), daemon.Requests(kMacGet)[0].body);
}

TEST(CtlMac, SetsTheMacAddress) {
    ScriptedDaemon daemon;
    const Bytes body = Pack().Text("eth0", 16).U8(2).U8(0xab).U8(0xcd).U8(0xef).U8(0).U8(1);
    for (const char* mac : {"02:ab:cd:ef:00:01", "02-AB-CD-EF-00-01"}) {
        daemon.Forget();
        const Outcome done = Ctl(std::string("mac set eth0 ") + mac);
        EXPECT_EQ(0, done.status);
        EXPECT_EQ("", done.out + done.err);
        ASSERT_EQ(1U, daemon.Requests(kMacSet).size());
        EXPECT_EQ(body, daemon.Requests(kMacSet)[0].body);
    }
    EXPECT_EQ((Expected{{"result", 0}}), Ctl("mac set eth0 02:ab:cd:ef:00:01 --json").Json());
}

TEST(CtlMtu, ShowsAndSetsTheMtu) {
    ScriptedDaemon daemon;
    daemon.On(kMtuGet, Answer::Body(Pack().S32(0).U32(9000)));
    EXPECT_EQ("9000\n", Ctl("mtu show eth0").out);
    EXPECT_EQ(0, Ctl("mtu set eth0 1400").status);
    ASSERT_EQ(1U, daemon.Requests(kMtuSet).size());
    EXPECT_EQ(Pack().Text("eth0", 16).U32(1400), daemon.Requests(kMtuSet)[0].body);
    EXPECT_EQ(0, Ctl("mtu set eth0 4294967295").status);
}

TEST(CtlLink, ShowsAndChangesTheState) {
    EXPECT_EQ(0, Ctl("link up lo").status);
    EXPECT_THAT(Ctl("link show lo").out, StartsWith("lo: up"));
    EXPECT_EQ(0, Ctl("link down lo").status);
    EXPECT_THAT(Ctl("link show lo").out, StartsWith("lo: down"));
    const nlohmann::json one = Ctl("link show lo --json").Json();
    ASSERT_EQ(1U, one.at("links").size());
    EXPECT_EQ("lo", one["links"][0]["interface"]);
    EXPECT_EQ("down", one["links"][0]["state"]);
    EXPECT_EQ("00:00:00:00:00:00", one["links"][0]["mac"]);
    EXPECT_TRUE(one["links"][0].contains("link"));
}

TEST(CtlCheck, SameNetTellsByTheExitStatus) {
    EXPECT_EQ(0, Ctl("check same-net 192.168.1.10/16 192.168.2.1").status);
    const Outcome no = Ctl("check same-net 192.168.1.10/24 192.168.2.1");
    EXPECT_EQ(5, no.status);
    EXPECT_EQ(
        "vimbractl check same-net: 1111 (address and gateway are not in the same subnet): not "
        "the same subnet\n",
        no.err);
    EXPECT_EQ(0, Ctl("check same-net 2001:db8::1/64 2001:db8::2").status);
    EXPECT_EQ(5, Ctl("check same-net 2001:db8::1/64 2001:db8:0:1::2").status);
    EXPECT_EQ(2, Ctl("check same-net 192.168.1.10/24 2001:db8::1").status);
    EXPECT_EQ(2, Ctl("check same-net 192.168.1.10/0 192.168.1.1").status);
    EXPECT_EQ((Expected{{"result", 0}, {"meaning", "the same subnet"}}),
              Ctl("check same-net 192.0.2.10/24 192.0.2.1 --json").Json());
}

TEST(CtlCheck, HostMaskAndClass) {
    EXPECT_EQ(0, Ctl("check host 192.168.1.1/24").status);
    EXPECT_EQ(5, Ctl("check host 192.168.1.255/24").status);
    EXPECT_EQ(5, Ctl("check host 192.168.1.1/32").status);
    EXPECT_EQ(0, Ctl("check mask 255.255.255.0").status);
    EXPECT_EQ(5, Ctl("check mask 255.0.255.0").status);
    EXPECT_EQ("C (1303)\n", Ctl("check class 192.0.2.1").out);
    EXPECT_EQ((Expected{{"class", "none"}, {"code", 1305}}),
              Ctl("check class 127.0.0.1 --json").Json());
    EXPECT_EQ(2, Ctl("check class 2001:db8::1").status);
}

TEST(CtlLink, ShowsAllInterfacesWithoutAName) {
    const nlohmann::json all = Ctl("link show --json").Json();
    EXPECT_THAT(all.at("links"),
                testing::Contains(testing::ResultOf(
                    [](const nlohmann::json& link) { return link.value("interface", ""); }, "lo")));
}

}  // namespace
}  // namespace vimbra::tests
