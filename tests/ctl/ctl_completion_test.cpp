// What a shell offers while a command line is being typed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sstream>
#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "ctl_run.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

// What can stand in place of the last word.
std::vector<std::string> Offered(std::vector<std::string> words) {
    words.insert(words.begin(), "__complete");
    const Outcome done = CtlWords(words);
    EXPECT_EQ(0, done.status) << done;
    EXPECT_EQ("", done.err);
    std::vector<std::string> candidates;
    std::istringstream lines(done.out);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_NE(std::string::npos, line.find('\t')) << line;
        candidates.push_back(line.substr(0, line.find('\t')));
    }
    return candidates;
}

// Types a line into a shell, with a tab for every '\t', and says which command the shell then runs.
// `setUp` makes it complete vimbractl.
std::string Typed(const std::string& shell, const std::string& setUp, const std::string& line) {
    mkdir("/tmp/bin", 0755);
    // Completes as the real one does, and tells what else it is called with.
    WriteFile("/tmp/bin/vimbractl",
              "#!/bin/sh\n[ \"$1\" != __complete ] || exec " VIMBRACTL
              " \"$@\"\necho \"$@\" >/tmp/ran.new; mv /tmp/ran.new /tmp/ran\n");
    chmod("/tmp/bin/vimbractl", 0755);
    WriteFile("/tmp/type.py",
              "import os, pty, sys, threading, time\n"
              "shell, set_up, line = sys.argv[1:]\n"
              "pid, fd = pty.fork()\n"
              "if pid == 0: os.execvp('sh', ['sh', '-c', 'exec ' + shell])\n"
              "seen = b''\n"
              "def read():\n"
              "    global seen\n"
              "    try:\n"
              "        while True: seen += os.read(fd, 4096)\n"
              "    except OSError: pass\n"
              "threading.Thread(target=read, daemon=True).start()\n"
              "def wait(done):\n"
              "    end = time.monotonic() + 50\n"
              "    while not done():\n"
              "        if time.monotonic() > end: sys.exit('seen: ' + repr(seen))\n"
              "        time.sleep(0.01)\n"
              "os.write(fd, (set_up + '\\n').encode())\n"
              "wait(lambda: os.path.exists('/tmp/set-up'))\n"
              "os.write(fd, (line + '\\n').encode())\n"
              "wait(lambda: os.path.exists('/tmp/ran'))\n"
              "print(open('/tmp/ran').read(), end='')\n"
              "os.close(fd)\n");
    remove("/tmp/ran");
    remove("/tmp/set-up");
    setenv("PATH", ("/tmp/bin:" + std::string(getenv("PATH"))).c_str(), 1);
    setenv("TERM", "dumb", 1);
    setenv("HOME", "/tmp", 1);
    return OutputOf("python3 /tmp/type.py '" + shell + "' '" + setUp + "; touch /tmp/set-up' '" +
                    line + "' 2>&1");
}

constexpr char kTyped[] = "vimbractl add\tfl\tlo --fam\tipv6\t";
constexpr char kRan[] = "addr flush lo --family ipv6\n";

TEST(CtlCompletion, OffersTheCommands) {
    EXPECT_THAT(Offered({""}), AllOf(Contains("addr"), Contains("codes")));
    EXPECT_THAT(Offered({"dh"}), ElementsAre("dhcp", "dhcp-server"));
    EXPECT_THAT(Offered({"addr", ""}), ElementsAre("show", "set", "add", "del", "flush"));
    EXPECT_THAT(Offered({"addr", "s"}), ElementsAre("show", "set"));
    EXPECT_THAT(Offered({"--json", "table", "a"}), ElementsAre("add"));
    EXPECT_THAT(Offered({"ad", "fl"}), ElementsAre("flush"));
    EXPECT_THAT(Offered({}), Contains("addr"));
}

TEST(CtlCompletion, OffersEveryCommandThatTheHelpTells) {
    for (const std::string& group : Offered({""})) {
        for (const std::string& command : Offered({group, ""})) {
            const Outcome help = Ctl(group + " " + command + " --help");
            EXPECT_EQ(0, help.status) << group << " " << command << help;
        }
    }
}

TEST(CtlCompletion, OffersOptionsThatWereNotGivenYet) {
    EXPECT_THAT(Offered({"addr", "show", "lo", "--f"}), ElementsAre("--family"));
    EXPECT_THAT(Offered({"addr", "show", "lo", "--family", "ipv4", "--"}),
                AllOf(Contains("--json"), Not(Contains("--family"))));
    EXPECT_THAT(Offered({"addr", "show", "lo", "-"}), AllOf(Contains("-4"), Contains("-j")));
    EXPECT_THAT(Offered({"--v"}), ElementsAre("--version", "--verbose"));
}

TEST(CtlCompletion, OffersValues) {
    EXPECT_THAT(Offered({"addr", "show", ""}), Contains("lo"));
    EXPECT_THAT(Offered({"addr", "show", "lo", ""}), IsEmpty());
    EXPECT_THAT(Offered({"addr", "show", "--json", "l"}), Contains("lo"));
    EXPECT_THAT(Offered({"addr", "show", "lo", "--family", ""}),
                ElementsAre("ipv4", "ipv6", "both"));
    EXPECT_THAT(Offered({"dhcp", "start", "lo", "--family", "ipv"}), ElementsAre("ipv4", "ipv6"));
    EXPECT_THAT(Offered({"log-level", "a"}), ElementsAre("alert"));
    EXPECT_THAT(Offered({"route", "add", "d"}), ElementsAre("default"));
    // One that may be repeated.
    EXPECT_THAT(Offered({"bond", "start", "1", "eth0", "eth1", "l"}), Contains("lo"));
    EXPECT_THAT(Offered({"addr", "add", "lo", ""}), IsEmpty());
}

TEST(CtlCompletion, OffersNothingWhereTheLineLeadsNowhere) {
    EXPECT_THAT(Offered({"nothing", ""}), IsEmpty());
    EXPECT_THAT(Offered({"r", ""}), IsEmpty());
    EXPECT_THAT(Offered({"addr", "nothing", ""}), IsEmpty());
    EXPECT_THAT(Offered({"x"}), IsEmpty());
}

TEST(CtlCompletion, BashCompletes) {
    EXPECT_EQ(kRan,
              Typed("bash --norc --noprofile -i", "source " VIMBRACTL_COMPLETION ".bash", kTyped));
}

TEST(CtlCompletion, ZshCompletes) {
    mkdir("/tmp/zsh", 0755);
    WriteFile("/tmp/zsh/_vimbractl", ReadFile(VIMBRACTL_COMPLETION ".zsh"));
    EXPECT_EQ(
        kRan,
        Typed("zsh -f -i",
              "fpath=(/tmp/zsh $fpath); autoload -Uz compinit; compinit -u -d /tmp/dump", kTyped));
}

TEST(CtlCompletion, FishCompletes) {
    EXPECT_EQ(kRan, Typed("fish --no-config -i", "source " VIMBRACTL_COMPLETION ".fish", kTyped));
}

}  // namespace
}  // namespace vimbra::tests
