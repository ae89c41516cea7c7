// Entry point, version, log switch, interface up and down, DSCP, same-subnet check.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/iface_check.h>
#include <vimbra/log.h>
#include <vimbra/net_common.h>

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

// ---- Interface up, down, state -------------------------------------------------------------

TEST(IfaceState, TellsUpAndDown) {
    MakeLink("eth0", "far0");
    char lo[] = "lo";
    char eth[] = "eth0";
    u32 state = 0;
    Capture log;
    EXPECT_EQ(0, VimbraGetIfaceState(lo, &state));
    EXPECT_EQ(1u, state);
    EXPECT_EQ(0, VimbraGetIfaceState(eth, &state));
    EXPECT_EQ(2u, state);
    EXPECT_TRUE(Wrote(log, {Prt("VimbraGetIfaceState", "pchIfaceName : lo"),
                            Prt("VimbraGetIfaceState", "pchIfaceName : eth0")}));
}

TEST(IfaceState, ShutdownAndNoShutdownChangeIt) {
    MakeLink("eth0", "far0");
    char name[] = "eth0";
    u32 before = 0;
    u32 flags = 0;
    ASSERT_EQ(0, IfethGetFlags(name, &before));
    Capture log;
    EXPECT_EQ(0, VimbraIfaceNoShutdown(name));
    ASSERT_EQ(0, IfethGetFlags(name, &flags));
    EXPECT_EQ(before | IFF_UP, flags & ~static_cast<u32>(IFF_RUNNING));
    EXPECT_EQ(0, VimbraIfaceShutdown(name));
    ASSERT_EQ(0, IfethGetFlags(name, &flags));
    EXPECT_EQ(before, flags);
    EXPECT_TRUE(Wrote(log, {Prt("VimbraIfaceNoShutdown", "pchIfaceName : eth0"),
                            Prt("VimbraIfaceShutdown", "pchIfaceName : eth0")}));
}

TEST(IfaceState, ShutdownOfLoTakesItDown) {
    char name[] = "lo";
    u32 state = 0;
    for (int round = 0; round < 3; round++) {
        EXPECT_EQ(0, VimbraIfaceShutdown(name));
        EXPECT_EQ(0, VimbraGetIfaceState(name, &state));
        EXPECT_EQ(2u, state);
        EXPECT_EQ(0, VimbraIfaceNoShutdown(name));
        EXPECT_EQ(0, VimbraGetIfaceState(name, &state));
        EXPECT_EQ(1u, state);
    }
}

TEST(IfaceState, RefusesNullArguments) {
    char name[] = "lo";
    u32 state = 0;
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceShutdown(nullptr));
    EXPECT_EQ(1105, VimbraIfaceNoShutdown(nullptr));
    EXPECT_EQ(1105, VimbraGetIfaceState(nullptr, &state));
    EXPECT_EQ(1105, VimbraGetIfaceState(name, nullptr));
    EXPECT_EQ(1105, VimbraGetIfaceState(nullptr, nullptr));
    const std::string text = "the pchIfaceName or pdwFlag is NULL!";
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceShutdown", "the pchIfaceName is NULL!"),
                            Err("VimbraIfaceNoShutdown", "the pchIfaceName is NULL!"),
                            Err("VimbraGetIfaceState", text), Err("VimbraGetIfaceState", text),
                            Err("VimbraGetIfaceState", text)}));
}

TEST(IfaceState, FailsForAMissingInterface) {
    char name[] = "nosuch0";
    u32 state = 77;
    Capture log;
    EXPECT_EQ(-1, VimbraIfaceShutdown(name));
    EXPECT_EQ(-1, VimbraIfaceNoShutdown(name));
    EXPECT_EQ(-1, VimbraGetIfaceState(name, &state));
    EXPECT_EQ(77u, state);
    std::vector<Said> expected;
    for (const char* function :
         {"VimbraIfaceShutdown", "VimbraIfaceNoShutdown", "VimbraGetIfaceState"}) {
        expected.push_back(Prt(function, "pchIfaceName : nosuch0"));
        expected.push_back(Perr("SocketIoctl", "ioctl error", ENODEV));
        expected.push_back(Perr("IfethGetFlags", "ioctl error", ENODEV));
        expected.push_back(Err(function, "get flag error!"));
    }
    EXPECT_TRUE(Wrote(log, expected));
}

TEST(IfaceState, LongNameActsOnItsFirst15Characters) {
    MakeLink("abcdefghijklmno", "far0");
    char name[] = "abcdefghijklmnopqrst";
    u32 state = 0;
    Capture log;
    EXPECT_EQ(0, VimbraIfaceNoShutdown(name));
    EXPECT_EQ(0, VimbraGetIfaceState(name, &state));
    EXPECT_EQ(1u, state);
    EXPECT_TRUE(Wrote(log, {Prt("VimbraIfaceNoShutdown", "pchIfaceName : abcdefghijklmnopqrst"),
                            Prt("VimbraGetIfaceState", "pchIfaceName : abcdefghijklmnopqrst")}));
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

// ---- The same subnet -----------------------------------------------------------------------

TVimbraAddr OfFamily(u16 family) {
    TVimbraAddr address = {};
    address.wSinFamily = family;
    return address;
}

constexpr char kSame4[] = "the two ipv4 address is the same net!";
constexpr char kOther4[] = "the two ipv4 address is not the same net!";
constexpr char kSame6[] = "the two ipv6 address is the same net!";
constexpr char kOther6[] = "the two ipv6 address is not the same net!";

TEST(SameNet, Ipv4) {
    const TVimbraAddr ip = Address("192.168.1.10");
    const TVimbraAddr gateway = Address("192.168.2.1");
    Capture log;
    EXPECT_EQ(1111, VimbraCheckIsSameNet(ip, 24, gateway));
    EXPECT_EQ(0, VimbraCheckIsSameNet(ip, 16, gateway));
    EXPECT_EQ(-1, VimbraCheckIsSameNet(ip, 33, gateway));
    EXPECT_TRUE(
        Wrote(log, {Err("VimbraCheckIsSameNet", kOther4), Prt("VimbraCheckIsSameNet", kSame4),
                    Err("VimbraCheckIsSameNet", "the dwPrefix is 33 more than 128!")}));
}

TEST(SameNet, Ipv4ComparesThePrefixAndNoMore) {
    VimbraDebugLevelSet(0);
    const TVimbraAddr ip = Address("170.85.204.51");
    for (u32 bit = 0; bit < 32; bit++) {
        TVimbraAddr gateway = ip;
        gateway.tV4Addr.s_addr ^= htonl(0x80000000u >> bit);
        for (u32 prefix = 1; prefix <= 32; prefix++) {
            EXPECT_EQ(prefix > bit ? 1111 : 0, VimbraCheckIsSameNet(ip, prefix, gateway))
                << "bit " << bit << " prefix " << prefix;
        }
    }
}

TEST(SameNet, Ipv4WithoutGatewayIsTheSame) {
    Capture log;
    EXPECT_EQ(0, VimbraCheckIsSameNet(Address("192.168.1.10"), 24, Address("0.0.0.0")));
    EXPECT_EQ(0, VimbraCheckIsSameNet(Address("192.168.1.10"), 32, Address("0.0.0.0")));
    EXPECT_TRUE(log.IsSilent());
}

TEST(SameNet, Ipv4LooksAtThePrefixBeforeTheGateway) {
    Capture log;
    EXPECT_EQ(-1, VimbraCheckIsSameNet(Address("192.168.1.10"), 33, Address("0.0.0.0")));
    EXPECT_TRUE(Wrote(log, {Err("VimbraCheckIsSameNet", "the dwPrefix is 33 more than 128!")}));
}

TEST(SameNet, Ipv6ComparesThePrefixAndNoMore) {
    VimbraDebugLevelSet(0);
    const TVimbraAddr ip = Address("2001:db8:a5a5:5a5a:1234:5678:9abc:def0");
    for (u32 bit = 0; bit < 128; bit++) {
        TVimbraAddr gateway = ip;
        gateway.tV6Addr.s6_addr[bit / 8] ^= static_cast<u8>(0x80 >> (bit % 8));
        for (u32 prefix = 1; prefix <= 128; prefix++) {
            EXPECT_EQ(prefix > bit ? 1111 : 0, VimbraCheckIsSameNet(ip, prefix, gateway))
                << "bit " << bit << " prefix " << prefix;
        }
    }
}

TEST(SameNet, Ipv6Messages) {
    const TVimbraAddr ip = Address("2001:db8::1");
    Capture log;
    EXPECT_EQ(0, VimbraCheckIsSameNet(ip, 128, ip));
    EXPECT_EQ(0, VimbraCheckIsSameNet(ip, 64, Address("2001:db8::ffff")));
    EXPECT_EQ(1111, VimbraCheckIsSameNet(ip, 128, Address("2001:db8::2")));
    EXPECT_EQ(1111, VimbraCheckIsSameNet(ip, 20, Address("fe80::1")));
    EXPECT_EQ(-1, VimbraCheckIsSameNet(ip, 129, ip));
    EXPECT_TRUE(
        Wrote(log, {Prt("VimbraCheckIsSameNet", kSame6), Prt("VimbraCheckIsSameNet", kSame6),
                    Err("VimbraCheckIsSameNet", kOther6), Err("VimbraCheckIsSameNet", kOther6),
                    Err("VimbraCheckIsSameNet", "the dwPrefix is 129 more than 128!")}));
}

TEST(SameNet, Ipv6GatewayOfZerosIsAnAddressLikeOthers) {
    EXPECT_EQ(1111, VimbraCheckIsSameNet(Address("2001:db8::1"), 64, Address("::")));
    EXPECT_EQ(0, VimbraCheckIsSameNet(Address("::1"), 64, Address("::")));
}

TEST(SameNet, RefusesTwoFamilies) {
    Capture log;
    EXPECT_EQ(1105, VimbraCheckIsSameNet(Address("10.0.0.1"), 24, Address("::1")));
    EXPECT_EQ(1105, VimbraCheckIsSameNet(OfFamily(2), 24, OfFamily(0)));
    const std::string text = "the tIpAddr and the tGateway's wSinFamily is different!";
    EXPECT_TRUE(Wrote(log, {Err("VimbraCheckIsSameNet", text), Err("VimbraCheckIsSameNet", text)}));
}

TEST(SameNet, RefusesPrefixZero) {
    Capture log;
    EXPECT_EQ(1105, VimbraCheckIsSameNet(Address("10.0.0.1"), 0, Address("0.0.0.0")));
    EXPECT_EQ(1105, VimbraCheckIsSameNet(Address("::1"), 0, Address("::1")));
    const std::string text = "the param dwPrefix is Zero!";
    EXPECT_TRUE(Wrote(log, {Err("VimbraCheckIsSameNet", text), Err("VimbraCheckIsSameNet", text)}));
}

TEST(SameNet, RefusesOtherFamilies) {
    for (const u16 family : {u16{0}, u16{1}, u16{11}, u16{65535}}) {
        Capture log;
        EXPECT_EQ(1105, VimbraCheckIsSameNet(OfFamily(family), 24, OfFamily(family)));
        EXPECT_TRUE(Wrote(log, {Err("VimbraCheckIsSameNet",
                                    "the wSinFamily " + std::to_string(family) + " is invalid!")}));
    }
}

TEST(SameNet, PrefixIsUnsigned) {
    Capture log;
    EXPECT_EQ(-1, VimbraCheckIsSameNet(Address("10.0.0.1"), 0xffffffff, Address("10.0.0.1")));
    EXPECT_EQ(-1, VimbraCheckIsSameNet(Address("::1"), 0x80000000, Address("::1")));
    EXPECT_TRUE(
        Wrote(log, {Err("VimbraCheckIsSameNet", "the dwPrefix is -1 more than 128!"),
                    Err("VimbraCheckIsSameNet", "the dwPrefix is -2147483648 more than 128!")}));
}

// Families that differ, then prefix zero, then the family, then the prefix's range.
TEST(SameNet, OrderOfChecks) {
    Capture log;
    EXPECT_EQ(1105, VimbraCheckIsSameNet(OfFamily(2), 0, OfFamily(11)));
    EXPECT_EQ(1105, VimbraCheckIsSameNet(OfFamily(11), 0, OfFamily(11)));
    EXPECT_EQ(1105, VimbraCheckIsSameNet(OfFamily(11), 500, OfFamily(11)));
    EXPECT_TRUE(Wrote(log, {Err("VimbraCheckIsSameNet",
                                "the tIpAddr and the tGateway's wSinFamily is different!"),
                            Err("VimbraCheckIsSameNet", "the param dwPrefix is Zero!"),
                            Err("VimbraCheckIsSameNet", "the wSinFamily 11 is invalid!")}));
}

}  // namespace
}  // namespace vimbra::tests
