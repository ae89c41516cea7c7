// The five logging functions and their level.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <vimbra/common.h>
#include <vimbra/iface_check.h>
#include <vimbra/log.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

struct Function {
    const char* name;
    void (*log)(const char* format, ...);
    u32 least;
    int priority;
};

constexpr Function kFunctions[] = {
    {"error", VimbraLogError, 2, 179}, {"perror", VimbraLogPerror, 2, 179},
    {"warn", VimbraLogWarn, 3, 183},   {"print", VimbraLogPrint, 4, 182},
    {"debug", VimbraLogDebug, 5, 183},
};

std::vector<std::pair<int, std::string>> InSyslog(const Capture& log) {
    std::vector<std::pair<int, std::string>> messages;
    for (const LogLine& line : log.Syslog()) {
        messages.emplace_back(line.priority, line.text);
    }
    return messages;
}

TEST(Log, FreshLibraryLogsEverything) {
    EXPECT_EQ(5u, g_nVimbraLogSwitch);
}

class LogLevel : public testing::TestWithParam<u32> {};

TEST_P(LogLevel, IsStoredAndGatesEachFunction) {
    Capture log;
    EXPECT_EQ(0, VimbraDebugLevelSet(GetParam()));
    EXPECT_EQ(GetParam(), g_nVimbraLogSwitch);

    std::string out;
    std::vector<std::pair<int, std::string>> sys;
    for (const Function& function : kFunctions) {
        function.log("<%s %d>", function.name, 7);
        if (GetParam() >= function.least) {
            const std::string text = std::string("<") + function.name + " 7>";
            out += text;
            sys.emplace_back(function.priority, text);
        }
    }
    EXPECT_EQ(out, log.StdoutText());
    EXPECT_EQ(sys, InSyslog(log));
}

INSTANTIATE_TEST_SUITE_P(All, LogLevel,
                         testing::Values(0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 0x7fffffffu,
                                         0x80000000u, 0xffffffffu));

TEST(Log, LevelThreeShowsErrorsAndWarningsOnly) {
    Capture log;
    VimbraDebugLevelSet(VIMBRA_LEVEL_WARNING);
    VimbraLogError("error.");
    VimbraLogWarn("warning.");
    VimbraLogPrint("information.");
    EXPECT_EQ("error.warning.", log.StdoutText());
}

TEST(Log, LevelNineLogsEverything) {
    Capture log;
    EXPECT_EQ(0, VimbraDebugLevelSet(9));
    EXPECT_EQ(9u, g_nVimbraLogSwitch);
    VimbraLogDebug("debug.");
    EXPECT_EQ("debug.", log.StdoutText());
}

TEST(Log, LevelsBelowErrorAreSilent) {
    for (const u32 level : {0u, 1u}) {
        Capture log;
        VimbraDebugLevelSet(level);
        for (const Function& function : kFunctions) {
            function.log("%s", function.name);
        }
        EXPECT_TRUE(log.IsSilent());
    }
}

TEST(Log, AddsNothingToTheText) {
    Capture log;
    VimbraLogError("no tag, no newline");
    VimbraLogPrint("\n%s\n", "a line");
    EXPECT_EQ("no tag, no newline\na line\n", log.StdoutText());
}

TEST(Log, WalksTheArgumentsOncePerDestination) {
    Capture log;
    for (const Function& function : kFunctions) {
        log.Clear();
        function.log("%s|%d|%lld|%.2f|%c|%u|%s|%x|%s", "one", -2, 3000000000000LL, 4.25, '5', 6u,
                     "seven", 8, "nine");
        const std::string text = "one|-2|3000000000000|4.25|5|6|seven|8|nine";
        EXPECT_EQ(text, log.StdoutText());
        ASSERT_EQ(1u, log.Syslog().size());
        EXPECT_EQ(text, log.Syslog()[0].text);
    }
}

TEST(Log, CutsNoLine) {
    Capture log;
    std::string text(20000, 'x');
    text += "end";
    for (const Function& function : kFunctions) {
        log.Clear();
        function.log("%s", text.c_str());
        EXPECT_EQ(text, log.StdoutText());
        ASSERT_EQ(1u, log.Syslog().size());
        EXPECT_EQ(text, log.Syslog()[0].text);
    }
}

TEST(Log, KeepsErrno) {
    Capture log;
    for (const Function& function : kFunctions) {
        errno = EXDEV;
        function.log("%s", "anything");
        EXPECT_EQ(EXDEV, errno);
    }
}

TEST(Log, GoesToStandardOutputWhereThereIsNoSystemLog) {
    testing::internal::CaptureStdout();
    VimbraLogError("%s", "alone");
    EXPECT_EQ("alone", testing::internal::GetCapturedStdout());
}

TEST(Log, ChangeByOneThreadIsSeenByOthers) {
    Capture log;
    std::thread([] { VimbraDebugLevelSet(0); }).join();
    VimbraLogError("silenced");
    EXPECT_TRUE(log.IsSilent());
}

TEST(Log, ThreadsMayLogWhileTheLevelChanges) {
    Capture log;
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([&] {
            while (!stop) {
                VimbraLogError("whole message\n");
            }
        });
    }
    for (u32 i = 0; i < 200; i++) {
        VimbraDebugLevelSet(i % 6);
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const LogLine& line : log.Stdout()) {
        EXPECT_EQ("whole message", line.text);
    }
}

void* LogForEver(void* started) {
    for (;;) {
        VimbraLogError("whole message\n");
        static_cast<std::atomic<bool>*>(started)->store(true);
        pthread_testcancel();
    }
}

// A thread that is cancelled within a log line would leave both destinations locked for ever.
TEST(Log, CancelledThreadFinishesItsLine) {
    Capture log;
    for (int round = 0; round < 20; round++) {
        std::atomic<bool> started{false};
        pthread_t thread;
        ASSERT_EQ(0, pthread_create(&thread, nullptr, LogForEver, &started));
        ASSERT_TRUE(WaitFor([&] { return started.load(); }));
        pthread_cancel(thread);
        void* result = nullptr;
        pthread_join(thread, &result);
        EXPECT_EQ(PTHREAD_CANCELED, result);
    }
    const size_t before = log.Stdout().size();
    VimbraLogError("whole message\n");
    EXPECT_EQ(before + 1, log.Stdout().size());
    EXPECT_EQ(before + 1, log.Syslog().size());
}

// The tags, character for character.

// The source line's number, the first in parentheses, is written as LINE.
std::string Numbered(std::string text) {
    const size_t start = text.find_first_of('(') + 1;
    size_t end = start;
    while (end < text.size() && isdigit(text[end])) {
        end++;
    }
    EXPECT_GT(end, start);
    return text.replace(start, end - start, "LINE");
}

std::string Pid() {
    return "PID[" + std::to_string(getpid()) + "]";
}

TEST(LogTag, Error) {
    Capture log;
    EXPECT_EQ(-1, VimbraLogSwitch(6));
    EXPECT_EQ("[VIMBRA_ERR]:" + Pid() +
                  ":[VimbraLogSwitch](LINE): dwSwitch is more than VIMBRA_LEVEL_DEBUG",
              Numbered(log.StdoutText()));
}

TEST(LogTag, Information) {
    char name[] = "lo";
    u32 state = 0;
    Capture log;
    EXPECT_EQ(0, VimbraGetIfaceState(name, &state));
    EXPECT_EQ("[VIMBRA_PRT]:" + Pid() + ":[VimbraGetIfaceState](LINE): pchIfaceName : lo",
              Numbered(log.StdoutText()));
}

TEST(LogTag, ErrorWithErrno) {
    Capture log;
    EXPECT_EQ(-1, VimbraSetDscp(VIMBRA_FAMILY_IPV4, -1, 0));
    EXPECT_EQ("[VIMBRA_PERROR]" + Pid() +
                  ":VimbraSetDscp(LINE):set dscp failed{errno(9):Bad file descriptor}\n",
              Numbered(log.StdoutText()));
}

// A level gates the library's own lines as it does everybody's.
TEST(LogTag, LibraryLinesKeepToTheLevel) {
    char name[] = "nosuch0";
    u32 state = 0;
    Capture log;
    for (const u32 level : {0u, 1u}) {
        VimbraDebugLevelSet(level);
        EXPECT_EQ(-1, VimbraGetIfaceState(name, &state));
        EXPECT_EQ(1105, VimbraGetIfaceState(nullptr, &state));
    }
    EXPECT_TRUE(log.IsSilent());
    VimbraDebugLevelSet(3);
    EXPECT_EQ(-1, VimbraGetIfaceState(name, &state));
    EXPECT_EQ(0, log.Count(Kind::kPrint));
    EXPECT_EQ(2, log.Count(Kind::kPerror));
    EXPECT_EQ(1, log.Count(Kind::kError));
}

}  // namespace
}  // namespace vimbra::tests
