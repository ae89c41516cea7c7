// Preparing the library, its version, the level of its log, and the marks of packets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/log.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "expect_log.hpp"
#include "links.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

std::string Version() {
    char text[256];
    EXPECT_EQ(0, VimbraQueryVersion(text, sizeof(text)));
    return text;
}

// ---- VimbraInit ----------------------------------------------------------------------------

// The lines of the first VimbraInit: one of the library's own and one for the system log alone.
void ExpectInitLines(const Capture& log, const std::string& version) {
    const std::vector<LogLine> out = log.Stdout();
    const std::vector<LogLine> sys = log.Syslog();
    ASSERT_EQ(1u, out.size()) << log.Describe();
    ASSERT_EQ(2u, sys.size()) << log.Describe();
    EXPECT_EQ(Kind::kPrint, out[0].kind);
    EXPECT_EQ("VimbraInit", out[0].function);
    EXPECT_TRUE(out[0].newline);
    // Build date and time stand in front of the text and at its end.
    const size_t build = version.find(" Build ");
    ASSERT_NE(std::string::npos, build);
    EXPECT_EQ(version.substr(build + 7) + " " + version, out[0].text);
    EXPECT_EQ(Kind::kPrint, sys[0].kind);
    EXPECT_EQ(182, sys[0].priority);
    EXPECT_EQ(out[0].text, sys[0].text);
    EXPECT_EQ(Kind::kOther, sys[1].kind);
    EXPECT_EQ(182, sys[1].priority);
    EXPECT_EQ(version, sys[1].text);
}

TEST(VimbraInit, WritesTheVersion) {
    const std::string version = Version();
    Capture log;
    EXPECT_EQ(0, VimbraInit());
    ExpectInitLines(log, version);
}

TEST(VimbraInit, WritesTheVersionToTheSystemLogAtEveryLevel) {
    const std::string version = Version();
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    Capture log;
    EXPECT_EQ(0, VimbraInit());
    EXPECT_EQ("", log.StdoutText());
    ASSERT_EQ(1u, log.Syslog().size()) << log.Describe();
    EXPECT_EQ(182, log.Syslog()[0].priority);
    EXPECT_EQ(version, log.Syslog()[0].text);
    log.Clear();
    EXPECT_EQ(0, VimbraInit());
    EXPECT_TRUE(log.IsSilent());
}

TEST(VimbraInit, SecondCallDoesNothing) {
    ASSERT_EQ(0, VimbraInit());
    Capture log;
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    EXPECT_EQ(0, VimbraInit());
    EXPECT_TRUE(Wrote(log, {Prt("VimbraInit", "the vimbra modules has been inited!")}));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
}

TEST(VimbraInit, SendsNothingAndStartsNothing) {
    ScriptedDaemon daemon;
    Capture log;
    const auto descriptors = OpenDescriptors();
    const size_t threads = Threads();
    EXPECT_EQ(0, VimbraInit());
    EXPECT_EQ(0u, daemon.Connections());
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_TRUE(log.HasNoTrouble());
}

TEST(VimbraInit, OneOfManyThreadsInitialises) {
    const std::string version = Version();
    Capture log;
    std::vector<std::thread> threads;
    std::atomic<int> failed{0};
    for (int i = 0; i < 8; i++) {
        threads.emplace_back([&] { failed += VimbraInit() != 0 ? 1 : 0; });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failed);
    EXPECT_EQ(1, log.Count(Kind::kOther, kAny, version, Where::kSyslog));
    EXPECT_EQ(7, log.Count(Kind::kPrint, "VimbraInit", "the vimbra modules has been inited!"));
    EXPECT_TRUE(log.HasNoTrouble());
}

// ---- The version ---------------------------------------------------------------------------

TEST(QueryVersion, TellsVersionBuildAndBuilder) {
    Capture log;
    EXPECT_THAT(Version(), testing::MatchesRegex("Vimbras Module Version: V2[.]0[.]3[.][0-9a-f]{8} "
                                                 "[(][^ @]+@[^ @]+[)] Build [^ ].* [^ ]+"));
    EXPECT_TRUE(log.IsSilent());
}

TEST(QueryVersion, ClearsTheWholeBuffer) {
    const std::string version = Version();
    char buffer[300];
    memset(buffer, 0xA5, sizeof(buffer));
    EXPECT_EQ(0, VimbraQueryVersion(buffer, 280));
    EXPECT_EQ(Pack().Text(version, 280), Bytes(AsBytes(buffer)).Slice(0, 280));
    EXPECT_EQ(Bytes(20, 0xA5), Bytes(AsBytes(buffer)).Slice(280, 20));
}

TEST(QueryVersion, NeedsRoomForTheTerminator) {
    const std::string version = Version();
    const u32 length = static_cast<u32>(version.size());
    const std::string size = std::to_string(length);
    std::vector<char> buffer(length + 1, 0x5A);
    Capture log;
    EXPECT_EQ(-1, VimbraQueryVersion(buffer.data(), length));
    EXPECT_TRUE(Wrote(log, {Err("NetQueryVersion", "the dwBufLen is invalid: dwBuflen = " + size +
                                                       ",the length of buf is " + size)}));
    EXPECT_EQ(std::vector<char>(length, 0),
              std::vector<char>(buffer.begin(), buffer.begin() + length));
    EXPECT_EQ(0x5A, buffer[length]);

    log.Clear();
    EXPECT_EQ(0, VimbraQueryVersion(buffer.data(), length + 1));
    EXPECT_STREQ(version.c_str(), buffer.data());
    EXPECT_TRUE(log.IsSilent());
}

TEST(QueryVersion, RefusesTooSmallBuffers) {
    const std::string size = std::to_string(Version().size());
    for (const u32 length : {0u, 1u, 10u}) {
        char buffer[12];
        memset(buffer, 0xA5, sizeof(buffer));
        Capture log;
        EXPECT_EQ(-1, VimbraQueryVersion(buffer, length));
        EXPECT_TRUE(Wrote(log, {Err("NetQueryVersion", "the dwBufLen is invalid: dwBuflen = " +
                                                           std::to_string(length) +
                                                           ",the length of buf is " + size)}));
        EXPECT_EQ(Pack().Zeros(length).Add(Bytes(12 - length, 0xA5)), Bytes(AsBytes(buffer)));
    }
}

TEST(QueryVersion, RefusesNoBuffer) {
    Capture log;
    EXPECT_EQ(-1, VimbraQueryVersion(nullptr, 256));
    EXPECT_TRUE(Wrote(log, {Err("NetQueryVersion", "the point is NULL")}));
}

// ---- VimbraLogSwitch -----------------------------------------------------------------------

TEST(LogSwitch, SetsTheLevelHereAndAtTheDaemon) {
    for (u32 level = 0; level <= 5; level++) {
        ScriptedDaemon daemon;
        Capture log;
        EXPECT_EQ(0, VimbraLogSwitch(level));
        EXPECT_EQ(level, g_nVimbraLogSwitch);
        ASSERT_EQ(1u, daemon.Requests().size());
        EXPECT_EQ(Pack().U32(0x0702).U32(4).S32(0).U32(level), daemon.Requests()[0].raw);
        EXPECT_TRUE(log.IsSilent());
    }
}

TEST(LogSwitch, RefusesLevelsAboveDebug) {
    ScriptedDaemon daemon;
    VimbraDebugLevelSet(4);
    for (const u32 level : {6u, 9u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        Capture log;
        EXPECT_EQ(-1, VimbraLogSwitch(level));
        EXPECT_EQ(4u, g_nVimbraLogSwitch);
        EXPECT_TRUE(
            Wrote(log, {Err("VimbraLogSwitch", "dwSwitch is more than VIMBRA_LEVEL_DEBUG")}));
    }
    EXPECT_EQ(0u, daemon.Connections());
}

TEST(LogSwitch, RefusalOfTheDaemonLeavesTheLevelChanged) {
    ScriptedDaemon daemon;
    for (const s32 code : {1, 22, -7}) {
        VimbraDebugLevelSet(5);
        daemon.On(0x0702, Answer::Code(code));
        Capture log;
        EXPECT_EQ(-1, VimbraLogSwitch(3));
        EXPECT_EQ(3u, g_nVimbraLogSwitch);
        EXPECT_TRUE(Wrote(log, {Err("VimbraLogSwitch", "send and recv msg error, nErrId = " +
                                                           std::to_string(code) + "!")}));
    }
}

TEST(LogSwitch, HandsTheTransportResultOn) {
    ScriptedDaemon daemon;
    daemon.On(0x0702, Answer::Body(Bytes(8, 0)));
    Capture log;
    EXPECT_EQ(16, VimbraLogSwitch(4));
    EXPECT_EQ(4u, g_nVimbraLogSwitch);
    EXPECT_TRUE(Wrote(log, {Err("IpcApiSendAndRecv", "received message's head is error!"),
                            Err("VimbraLogSwitch", "send and recv msg error, nRet = 16!")}));

    daemon.On(0x0702, Answer::Code(0).InPieces({12}));
    log.Clear();
    EXPECT_EQ(12, VimbraLogSwitch(4));
    EXPECT_TRUE(Wrote(log, {Err("IpcApiSendAndRecv", "fail to receive message!"),
                            Err("VimbraLogSwitch", "send and recv msg error, nRet = 12!")}));
}

TEST(LogSwitch, WithoutDaemonTheLevelChangesHereAlone) {
    Capture log;
    EXPECT_EQ(-1, VimbraLogSwitch(2));
    EXPECT_EQ(2u, g_nVimbraLogSwitch);
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", ENOENT),
                            Err("IpcApiSendAndRecv", "MakeAddrClient error!"),
                            Err("VimbraLogSwitch", "send and recv msg error, nRet = -1!")}));
}

TEST(LogSwitch, ZeroSilencesTheLibraryEvenWithoutDaemon) {
    Capture log;
    EXPECT_EQ(-1, VimbraLogSwitch(0));
    EXPECT_EQ(0u, g_nVimbraLogSwitch);
    EXPECT_EQ(-1, VimbraLogSwitch(1));
    EXPECT_EQ(1u, g_nVimbraLogSwitch);
    EXPECT_TRUE(log.IsSilent());
}

TEST(LogSwitch, DaemonThatClosesWithoutAnswerHasAgreed) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Close());
    Capture log;
    EXPECT_EQ(0, VimbraLogSwitch(5));
    EXPECT_TRUE(Wrote(log, {Err("IpcApiSendAndRecv", "fail to receive message!")}));
}

// ---- DSCP ----------------------------------------------------------------------------------

int Option(int fd, int level, int name) {
    int value = -1;
    socklen_t size = sizeof(value);
    EXPECT_EQ(0, getsockopt(fd, level, name, &value, &size));
    return value;
}

TEST(SetDscp, ShiftsForIpv4) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    Capture log;
    struct {
        u8 dscp;
        int tos;
    } const cases[] = {{46, 184}, {0, 0}, {1, 4}, {63, 252}, {64, 0}, {65, 4}, {255, 252}};
    for (const auto& one : cases) {
        EXPECT_EQ(0, VimbraSetDscp(AF_INET, fd, one.dscp));
        EXPECT_EQ(one.tos, Option(fd, IPPROTO_IP, IP_TOS)) << static_cast<int>(one.dscp);
    }
    EXPECT_TRUE(log.IsSilent());
    close(fd);
}

TEST(SetDscp, DoesNotShiftForIpv6) {
    const int fd = socket(AF_INET6, SOCK_DGRAM, 0);
    ASSERT_GE(fd, 0);
    Capture log;
    for (const u8 dscp : {u8{46}, u8{0}, u8{1}, u8{63}, u8{64}, u8{184}, u8{255}}) {
        EXPECT_EQ(0, VimbraSetDscp(AF_INET6, fd, dscp));
        EXPECT_EQ(dscp, Option(fd, IPPROTO_IPV6, IPV6_TCLASS));
    }
    EXPECT_TRUE(log.IsSilent());
    close(fd);
}

TEST(SetDscp, MarksStreamSockets) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(0, VimbraSetDscp(AF_INET, fd, 46));
    EXPECT_EQ(184, Option(fd, IPPROTO_IP, IP_TOS));
    close(fd);
}

TEST(SetDscp, FailsOnADescriptorThatIsNone) {
    Capture log;
    EXPECT_EQ(-1, VimbraSetDscp(AF_INET, -1, 46));
    EXPECT_EQ(-1, VimbraSetDscp(AF_INET6, -1, 46));
    EXPECT_TRUE(Wrote(log, {Perr("VimbraSetDscp", "set dscp failed", EBADF),
                            Perr("VimbraSetDscp", "set dscpv6 failed", EBADF)}));
}

TEST(SetDscp, RefusesOtherFamilies) {
    for (const u16 family : {u16{0}, u16{1}, u16{3}, u16{9}, u16{11}, u16{65535}}) {
        Capture log;
        EXPECT_EQ(1105, VimbraSetDscp(family, -1, 46));
        EXPECT_TRUE(Wrote(log, {Err("VimbraSetDscp",
                                    "the wSinFamily " + std::to_string(family) + " is invalid!")}));
    }
}

}  // namespace
}  // namespace vimbra::tests
