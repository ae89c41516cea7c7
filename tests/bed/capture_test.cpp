// The bed's own tests: the capture of standard output and the system log.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

// A message as the library sends it: one text, two destinations.
__attribute__((format(printf, 2, 3))) void Log(int priority, const char* format, ...) {
    va_list first;
    va_start(first, format);
    va_list second;
    va_copy(second, first);
    vsyslog(priority, format, first);
    vfprintf(stdout, format, second);
    va_end(second);
    va_end(first);
}

constexpr int kErrorPriority = 179;
constexpr int kPrintPriority = 182;
constexpr int kWarnPriority = 183;

TEST(Capture, ParsesEveryKindOnBothSides) {
    const Capture log;
    Log(kErrorPriority, "[VIMBRA_ERR]:PID[%d]:[%s](%d): the parameters is invalid", 12, "One", 34);
    Log(kPrintPriority, "[VIMBRA_PRT]:PID[%d]:[%s](%d): hello %d\n", 12, "Two", 35, 7);
    Log(kWarnPriority, "[VIMBRA_WARN]:PID[%d]:[%s](%d): careful", 12, "Three", 36);
    Log(kErrorPriority, "[VIMBRA_PERROR]PID[%d]:%s(%d):%s{errno(%d):%s}\n", 12, "Four", 37,
        "connect error", 111, "Connection refused");
    Log(kWarnPriority, "plain text\n");
    for (const bool toSyslog : {false, true}) {
        SCOPED_TRACE(toSyslog);
        const std::vector<LogLine> lines = toSyslog ? log.Syslog() : log.Stdout();
        ASSERT_EQ(5u, lines.size()) << log.Describe();
        EXPECT_EQ(Kind::kError, lines[0].kind);
        EXPECT_EQ(12, lines[0].pid);
        EXPECT_EQ("One", lines[0].function);
        EXPECT_EQ(34, lines[0].line);
        EXPECT_EQ("the parameters is invalid", lines[0].text);
        EXPECT_FALSE(lines[0].newline);
        EXPECT_EQ(Kind::kPrint, lines[1].kind);
        EXPECT_EQ("hello 7", lines[1].text);
        EXPECT_TRUE(lines[1].newline);
        EXPECT_EQ(Kind::kWarn, lines[2].kind);
        EXPECT_EQ("Three", lines[2].function);
        EXPECT_EQ(Kind::kPerror, lines[3].kind);
        EXPECT_EQ(12, lines[3].pid);
        EXPECT_EQ("Four", lines[3].function);
        EXPECT_EQ(37, lines[3].line);
        EXPECT_EQ("connect error", lines[3].text);
        EXPECT_EQ(111, lines[3].errnoValue);
        EXPECT_EQ("Connection refused", lines[3].errnoText);
        EXPECT_TRUE(lines[3].newline);
        EXPECT_EQ(Kind::kOther, lines[4].kind);
        EXPECT_EQ("plain text", lines[4].text);
        EXPECT_EQ(toSyslog ? 179 : -1, lines[0].priority);
        EXPECT_EQ(toSyslog ? 182 : -1, lines[1].priority);
        EXPECT_EQ(toSyslog ? 183 : -1, lines[2].priority);
        EXPECT_EQ(toSyslog ? 179 : -1, lines[3].priority);
    }
    EXPECT_TRUE(log.Has(Kind::kPerror, "Four", "connect error"));
    EXPECT_EQ(1, log.Count(Kind::kWarn));
    EXPECT_EQ(1, log.Count(Kind::kError, "One", "the parameters is invalid"));
}

TEST(Capture, TellsWhatItDidNotFind) {
    const Capture log;
    Log(kErrorPriority, "[VIMBRA_ERR]:PID[1]:[Doer](7): bad thing %d\n", 5);
    EXPECT_TRUE(log.Has(Kind::kError, "Doer", "bad thing 5"));
    EXPECT_TRUE(log.Has(Kind::kError, kAny, kAny));
    EXPECT_FALSE(log.Has(Kind::kError, "Doer", "bad thing"));
    EXPECT_FALSE(log.Has(Kind::kError, "Do", "bad thing 5"));
    EXPECT_FALSE(log.Has(Kind::kPrint, "Doer", "bad thing 5"));
    const Finding missing = log.Has(Kind::kError, "Doer", "good thing");
    EXPECT_NE(std::string::npos, missing.Seen().find("bad thing 5")) << missing.Seen();
    const testing::AssertionResult result = missing;
    EXPECT_STREQ(missing.Seen().c_str(), result.message());
}

TEST(Capture, WantsTheMessageOnBothSidesAtItsPriority) {
    const Capture log;
    printf("[VIMBRA_ERR]:PID[1]:[Out](7): text\n");
    syslog(kErrorPriority, "[VIMBRA_ERR]:PID[1]:[In](7): text\n");
    Log(LOG_LOCAL6 | LOG_WARNING, "[VIMBRA_WARN]:PID[1]:[Both](7): text\n");
    EXPECT_FALSE(log.Has(Kind::kError, "Out", "text"));
    EXPECT_TRUE(log.Has(Kind::kError, "Out", "text", Where::kStdout));
    EXPECT_FALSE(log.Has(Kind::kError, "Out", "text", Where::kSyslog));
    EXPECT_FALSE(log.Has(Kind::kError, "In", "text"));
    EXPECT_TRUE(log.Has(Kind::kError, "In", "text", Where::kSyslog));
    EXPECT_FALSE(log.Has(Kind::kWarn, "Both", "text"));
    EXPECT_EQ(1, log.Count(Kind::kError));
    EXPECT_EQ(-1, log.Count(Kind::kError, "Out"));
    EXPECT_EQ(1, log.Count(Kind::kError, "Out", kAny, Where::kStdout));
    EXPECT_EQ(0, log.Count(Kind::kError, "Out", kAny, Where::kSyslog));
}

TEST(Capture, KnowsSilenceAndPeace) {
    Capture log;
    EXPECT_TRUE(log.IsSilent());
    EXPECT_TRUE(log.HasNoTrouble());
    Log(kPrintPriority, "[VIMBRA_PRT]:PID[1]:[f](1): fine\n");
    EXPECT_FALSE(log.IsSilent());
    EXPECT_TRUE(log.HasNoTrouble());
    syslog(kWarnPriority, "[VIMBRA_WARN]:PID[1]:[f](1): hm\n");
    EXPECT_FALSE(log.HasNoTrouble());
    log.Clear();
    EXPECT_TRUE(log.IsSilent());
    fputs("x", stdout);
    EXPECT_FALSE(log.IsSilent());
}

TEST(Capture, PartsMessagesThatRunTogether) {
    const auto lines = ParseLog(
        "before[VIMBRA_ERR]:PID[1]:[a](2): one[VIMBRA_ERR]:PID[1]:[b](3): two [VIMBRA_X\n"
        "[VIMBRA_PERROR]PID[1]:c(4):step (5):{errno(2):No such {file}}\nafter\n\nend");
    ASSERT_EQ(7u, lines.size());
    EXPECT_EQ("before", lines[0].text);
    EXPECT_EQ("one", lines[1].text);
    EXPECT_EQ("two [VIMBRA_X", lines[2].text);
    EXPECT_EQ("step (5):", lines[3].text);
    EXPECT_EQ("No such {file}", lines[3].errnoText);
    EXPECT_EQ("after", lines[4].text);
    EXPECT_EQ("", lines[5].text);
    EXPECT_EQ("end", lines[6].text);
    EXPECT_FALSE(lines[6].newline);
    EXPECT_EQ(Kind::kOther, lines[6].kind);
    // A tag that is not whole is text.
    EXPECT_EQ(Kind::kOther, ParseLog("[VIMBRA_ERR]:PID[1:[f](3): x")[0].kind);
    EXPECT_EQ(Kind::kOther, ParseLog("[VIMBRA_PERROR]PID[1]:f(3):x\n")[0].kind);
    EXPECT_TRUE(ParseLog("").empty());
}

TEST(Capture, ParsesTheSystemLogsFrame) {
    const LogLine line = ParseSyslog("<14>Nov 21 09:00:01 program[12]: hello: you");
    EXPECT_EQ(14, line.priority);
    EXPECT_EQ("hello: you", line.text);
    EXPECT_EQ(Kind::kOther, line.kind);
    EXPECT_EQ("", ParseSyslog("").text);
    EXPECT_EQ("", ParseSyslog("<14>Nov").text);
}

TEST(Capture, CutsNothing) {
    const Capture log;
    const std::string text(20000, 'x');
    Log(kErrorPriority, "[VIMBRA_ERR]:PID[1]:[f](1): %s\n", text.c_str());
    EXPECT_TRUE(log.Has(Kind::kError, "f", text));
}

TEST(Capture, TakesAFlood) {
    const Capture log;
    for (int i = 0; i < 2000; ++i) {
        Log(kErrorPriority, "[VIMBRA_ERR]:PID[1]:[f](1): %d %0200d", i, 0);
    }
    EXPECT_EQ(2000, log.Count(Kind::kError));
}

TEST(Capture, TakesMessagesOfManyThreads) {
    const Capture log;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int round = 0; round < 50; ++round) {
                Log(kErrorPriority, "[VIMBRA_ERR]:PID[1]:[f](%d): text", i);
            }
        });
    }
    const Finding found = log.WaitFor(Kind::kError, "f", "text");
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(found);
    EXPECT_EQ(200, log.Count(Kind::kError, "f", "text"));
    EXPECT_FALSE(
        log.WaitFor(Kind::kError, "g", "text", Where::kBoth, std::chrono::milliseconds(5)));
}

TEST(Capture, HandsTheOutputOn) {
    fflush(stdout);
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const int real = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    {
        Capture log;
        printf("one\n");
        log.Clear();
        printf("two\n");
    }
    printf("three\n");
    fflush(stdout);
    dup2(real, STDOUT_FILENO);
    close(real);
    close(ends[1]);
    char text[64] = "";
    size_t size = 0;
    for (ssize_t got = 1; got > 0; size += got > 0 ? static_cast<size_t>(got) : 0) {
        got = read(ends[0], text + size, sizeof text - size - 1);
    }
    close(ends[0]);
    EXPECT_STREQ("one\ntwo\nthree\n", text);
}

TEST(Capture, CanBeRepeatedAndLeavesNothingBehind) {
    { const Capture log; }  // the C library's own descriptor is there from now on
    const auto descriptors = OpenDescriptors();
    const auto threads = ThreadNames();
    for (int i = 0; i < 3; ++i) {
        const Capture log;
        Log(kErrorPriority, "[VIMBRA_ERR]:PID[1]:[f](1): %d", i);
        EXPECT_TRUE(log.Has(Kind::kError, "f", std::to_string(i)));
        EXPECT_EQ(threads, ThreadNames());
    }
    EXPECT_EQ(threads, ThreadNames());
    EXPECT_EQ(descriptors.size(), OpenDescriptors().size());
    EXPECT_NE(0, access("/dev/log", F_OK));
}

TEST(Capture, LeavesALivingSystemLogAlone) {
    const int daemon = socket(AF_UNIX, SOCK_DGRAM, 0);
    const sockaddr_un address{AF_UNIX, "/dev/log"};
    ASSERT_EQ(0, bind(daemon, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_THROW(Capture(), std::runtime_error);
    EXPECT_EQ(0, access("/dev/log", F_OK));
    close(daemon);
    const Capture log;  // a stale one is replaced
    Log(kErrorPriority, "[VIMBRA_ERR]:PID[1]:[f](1): x");
    EXPECT_TRUE(log.Has(Kind::kError, "f", "x"));
}

}  // namespace
}  // namespace vimbra::tests
