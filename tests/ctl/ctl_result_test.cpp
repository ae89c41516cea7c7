// What becomes of a command: status, words, JSON, colours, the log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "ctl_daemon.hpp"
#include "ctl_run.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

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

}  // namespace
}  // namespace vimbra::tests
