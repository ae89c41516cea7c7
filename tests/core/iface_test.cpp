// Addresses, MAC address and MTU of an interface.
#include <gtest/gtest.h>
#include <vimbra/iface.h>
#include <vimbra/log.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "expect_log.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr char kSixteen[] = "abcdefghijklmnop";
constexpr char kSeventeen[] = "abcdefghijklmnopq";

TVimbraIfaceIp IfaceIp(const char* text, u32 prefix,
                       EVimbraScopeType scope = VIMBRA_SCOPE_TYPE_GLOBAL) {
    TVimbraIfaceIp ip = {};
    ip.eScopeType = scope;
    ip.dwPrefix = prefix;
    ip.tIpAddr = Address(text);
    return ip;
}

TVimbraIfaceAllIp AllIp(const std::vector<TVimbraIfaceIp>& list) {
    TVimbraIfaceAllIp all = {};
    all.dwIpNum = static_cast<u32>(list.size());
    std::copy(list.begin(), list.end(), all.atNetIfaceIp);
    return all;
}

// ---- What all nine calls share ---------------------------------------------------------------

constexpr TVimbraIfaceMac kMac = {{0x02, 0x11, 0x22, 0x33, 0x44, 0x5f}};

// A caller's output, to see whether it was written.
template <typename Record>
Record Filled() {
    Record record;
    memset(static_cast<void*>(&record), 0xA5, sizeof(record));
    return record;
}

template <typename Record>
bool IsUntouched(const Record& record) {
    const Record filled = Filled<Record>();
    return memcmp(&record, &filled, sizeof(record)) == 0;
}

struct Operation {
    const char* function;
    const char* request;  // the function that packs it
    const char* failed;   // begins the line of a failed call
    u32 type;
    std::function<Bytes(std::string_view name)> body;
    size_t replySize;
    std::vector<const char*> before;  // debug lines of a call for eth0
    // Calls it, checks that outputs are written on success and only then.
    std::function<s32(char* name)> call;
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.function;
}

template <typename Record>
s32 WithOutput(const std::function<s32(Record*)>& call) {
    auto record = Filled<Record>();
    const s32 result = call(&record);
    EXPECT_EQ(result != 0, IsUntouched(record));
    return result;
}

Bytes NameOnly(std::string_view name) {
    return Pack().Text(name, 16);
}

Bytes FamilyAndName(std::string_view name) {
    return Pack().U16(10).Text(name, 16);
}

Bytes NameAndIp(std::string_view name) {
    return Pack().Text(name, 16).U32(4).Address(2, "192.0.2.7").U32(24);
}

const Operation kOperations[] = {
    {"VimbraIfaceAddIp",
     "ApicIpaddrAdd",
     "ApicIpaddrAdd error : ",
     257,
     NameAndIp,
     4,
     {},
     [](char* name) {
         TVimbraIfaceIp ip = IfaceIp("192.0.2.7", 24);
         return VimbraIfaceAddIp(name, &ip);
     }},
    {"VimbraIfaceDelIp",
     "ApicIpaddrDel",
     "ApicIpaddrDel error : ",
     259,
     NameAndIp,
     4,
     {},
     [](char* name) {
         TVimbraIfaceIp ip = IfaceIp("192.0.2.7", 24);
         return VimbraIfaceDelIp(name, &ip);
     }},
    {"VimbraIfaceFlushIp",
     "ApicIpaddrFlush",
     "ApicIpaddrFlush error : ",
     260,
     FamilyAndName,
     4,
     {},
     [](char* name) { return VimbraIfaceFlushIp(name, 10); }},
    {"VimbraIfaceSetIp",
     "ApicIpaddrSet",
     "ApicIpaddrSet error : ",
     261,
     [](std::string_view name) {
         return Bytes(Pack()
                          .U16(11)
                          .Text(name, 16)
                          .U32(2)
                          .U32(4)
                          .Address(2, "192.0.2.7")
                          .U32(24)
                          .U32(2)
                          .Address(10, "fe80::1:2")
                          .U32(64)
                          .FillTo(470));
     },
     4,
     {},
     [](char* name) {
         TVimbraIfaceAllIp all =
             AllIp({IfaceIp("192.0.2.7", 24), IfaceIp("fe80::1:2", 64, VIMBRA_SCOPE_TYPE_LINK)});
         return VimbraIfaceSetIp(name, 11, &all);
     }},
    {"VimbraIfaceGetIp",
     "ApicIpaddrGet",
     "ApicIpaddrSet error : ",
     277,
     FamilyAndName,
     456,
     {},
     [](char* name) {
         return WithOutput<TVimbraIfaceAllIp>(
             [=](TVimbraIfaceAllIp* all) { return VimbraIfaceGetIp(name, 10, all); });
     }},
    {"VimbraIfaceSetMac",
     "ApicMacSet",
     "ApicMacSet error : ",
     262,
     [](std::string_view name) { return Bytes(Pack().Text(name, 16).Add(AsBytes(kMac))); },
     4,
     {"pchIfaceName : eth0", "mac to set : 2:11:22:33:44:5f"},
     [](char* name) {
         TVimbraIfaceMac mac = kMac;
         return VimbraIfaceSetMac(name, &mac);
     }},
    {"VimbraIfaceGetMac",
     "ApicMacGet",
     "ApicMacGet error : ",
     263,
     NameOnly,
     12,
     {},
     [](char* name) {
         return WithOutput<TVimbraIfaceMac>(
             [=](TVimbraIfaceMac* mac) { return VimbraIfaceGetMac(name, mac); });
     }},
    {"VimbraIfaceSetMtu",
     "ApicMtuSet",
     "ApicMtuSet error : ",
     273,
     [](std::string_view name) { return Bytes(Pack().Text(name, 16).U32(1400)); },
     4,
     {"VimbraIfaceSetMtu interface : eth0, mtu : 1400"},
     [](char* name) { return VimbraIfaceSetMtu(name, 2, 1400); }},
    {"VimbraIfaceGetMtu",
     "ApicMtuGet",
     "ApicMtuGet error : ",
     274,
     NameOnly,
     8,
     {},
     [](char* name) {
         return WithOutput<u32>([=](u32* mtu) { return VimbraIfaceGetMtu(name, mtu); });
     }},
};

class Iface : public testing::TestWithParam<Operation> {
 protected:
    s32 Call(std::string name = "eth0") const { return GetParam().call(name.data()); }
    std::string Function() const { return GetParam().function; }

    // A reply with this result code, the record behind it zero.
    Answer Result(s32 code) const {
        return Answer::Body(Bytes(Pack().S32(code).FillTo(GetParam().replySize)));
    }

    // All lines of a call for eth0, these among them.
    std::vector<Said> Lines(const std::vector<Said>& failures) const {
        std::vector<Said> lines;
        for (const char* text : GetParam().before) {
            lines.push_back(Dbg(Function(), text));
        }
        lines.insert(lines.end(), failures.begin(), failures.end());
        return lines;
    }
    // The lines that end a call which could not be carried out.
    std::vector<Said> Failures(std::vector<Said> first, const std::string& reason) const {
        first.push_back(Err(GetParam().request, reason));
        first.push_back(Err(Function(), GetParam().failed + std::string("-1!")));
        return first;
    }
};

INSTANTIATE_TEST_SUITE_P(All, Iface, testing::ValuesIn(kOperations),
                         [](const auto& param) { return std::string(param.param.function); });

TEST_P(Iface, SendsTheRequest) {
    ScriptedDaemon daemon;
    daemon.On(GetParam().type, Result(0));
    Capture log;
    EXPECT_EQ(0, Call());
    ASSERT_EQ(1u, daemon.Requests().size());
    const Bytes body = GetParam().body("eth0");
    const Request request = daemon.Requests()[0];
    EXPECT_EQ(Pack().U32(GetParam().type).U32(static_cast<u32>(body.size())).S32(0).Add(body),
              request.raw);
    EXPECT_EQ(1u, request.reads);
    EXPECT_TRUE(Wrote(log, Lines({})));
    EXPECT_TRUE(log.HasNoTrouble());
}

TEST_P(Iface, SixteenCharactersArriveWithoutTerminator) {
    ScriptedDaemon daemon;
    daemon.On(GetParam().type, Result(0));
    EXPECT_EQ(0, Call(kSixteen));
    EXPECT_EQ(0, Call(std::string(kSixteen, 15)));
    ASSERT_EQ(2u, daemon.Requests().size());
    EXPECT_EQ(GetParam().body(kSixteen), daemon.Requests()[0].body);
    EXPECT_EQ(GetParam().body("abcdefghijklmno"), daemon.Requests()[1].body);
}

TEST_P(Iface, EmptyNameIsAName) {
    ScriptedDaemon daemon;
    daemon.On(GetParam().type, Result(0));
    EXPECT_EQ(0, Call(""));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(GetParam().body(""), daemon.Requests()[0].body);
}

TEST_P(Iface, RefusesLongerNamesAndNone) {
    ScriptedDaemon daemon;
    Capture log;
    EXPECT_EQ(1105, Call(kSeventeen));
    EXPECT_EQ(1105, Call(std::string(5000, 'x')));
    EXPECT_EQ(1105, GetParam().call(nullptr));
    const Said said = Err(Function(), "pchIfaceName is invalid!");
    EXPECT_TRUE(Wrote(log, {said, said, said}));
    EXPECT_EQ(0u, daemon.Connections());
}

TEST_P(Iface, RefusalOfTheDaemonIsMinusOne) {
    ScriptedDaemon daemon;
    for (const s32 code : {5, 1, -1, -5, 1105}) {
        daemon.On(GetParam().type, Result(code));
        Capture log;
        EXPECT_EQ(-1, Call());
        EXPECT_TRUE(Wrote(
            log,
            Lines(Failures({}, "send and recv msg error num : " + std::to_string(code) + "!"))));
    }
}

TEST_P(Iface, MissingDaemonIsMinusOne) {
    Capture log;
    EXPECT_EQ(-1, Call());
    EXPECT_TRUE(Wrote(log, Lines(Failures({Perr("MakeAddrClient", "connect error", ENOENT),
                                           Err("IpcApiSendAndRecv", "MakeAddrClient error!")},
                                          "send and recv msg return num : -1!"))));
}

TEST_P(Iface, ReplyOfAnotherSizeIsMinusOne) {
    ScriptedDaemon daemon;
    daemon.On(GetParam().type, Answer::Body(Bytes(GetParam().replySize + 4, 0)));
    Capture log;
    EXPECT_EQ(-1, Call());
    const std::string size = std::to_string(GetParam().replySize + 12);
    EXPECT_TRUE(
        Wrote(log, Lines(Failures({Err("IpcApiSendAndRecv", "received message's head is error!")},
                                  "send and recv msg return num : " + size + "!"))));
}

TEST_P(Iface, ReplyInTwoPiecesIsMinusOne) {
    ScriptedDaemon daemon;
    daemon.On(GetParam().type, Result(0).InPieces({12}));
    Capture log;
    EXPECT_EQ(-1, Call());
    EXPECT_TRUE(Wrote(log, Lines(Failures({Err("IpcApiSendAndRecv", "fail to receive message!")},
                                          "send and recv msg return num : 12!"))));
}

TEST_P(Iface, DaemonThatClosesWithoutAnswerHasAgreed) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Close());
    Capture log;
    EXPECT_EQ(0, Call());
    EXPECT_TRUE(Wrote(log, Lines({Err("IpcApiSendAndRecv", "fail to receive message!")})));
}

TEST_P(Iface, IsSilentAtLevelsZeroAndOne) {
    Capture log;
    for (const u32 level : {0u, 1u}) {
        VimbraDebugLevelSet(level);
        EXPECT_EQ(-1, Call());
        EXPECT_EQ(1105, Call(kSeventeen));
    }
    EXPECT_TRUE(log.IsSilent());
}

TEST_P(Iface, LeavesNothingOpen) {
    ScriptedDaemon daemon;
    Capture log;
    const auto before = OpenDescriptors();
    for (const Answer& answer : {Result(0), Result(5), Answer::Close(), Result(0).InPieces({1})}) {
        daemon.On(GetParam().type, answer);
        Call();
        EXPECT_TRUE(daemon.WaitIdle());
        EXPECT_EQ(before, OpenDescriptors());
    }
}

TEST_P(Iface, MayBeCalledByManyThreads) {
    ScriptedDaemon daemon;
    daemon.On(GetParam().type, Result(0));
    VimbraDebugLevelSet(0);
    std::vector<std::thread> threads;
    std::atomic<int> failed{0};
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([&] {
            for (int round = 0; round < 10; round++) {
                failed += Call() != 0 ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failed);
    const Bytes body = GetParam().body("eth0");
    ASSERT_EQ(40u, daemon.Requests().size());
    for (const Request& request : daemon.Requests()) {
        EXPECT_EQ(body, request.body);
    }
}

// ---- Reading addresses -----------------------------------------------------------------------

TEST(IfaceGetIp, HandsTheRecordOver) {
    ScriptedDaemon daemon;
    Pack record;
    record.U32(16);
    for (u32 i = 0; i < 16; i++) {
        record.U32(i % 5).Address(10, ("2001:db8::" + std::to_string(i)).c_str()).U32(i * 8);
    }
    daemon.On(277, Answer::Body(Bytes(Pack().S32(0).Add(record.Get()))));
    char name[] = "eth0";
    TVimbraIfaceAllIp all = Filled<TVimbraIfaceAllIp>();
    for (const u16 family : {u16{2}, u16{10}, u16{11}}) {
        daemon.Forget();
        EXPECT_EQ(0, VimbraIfaceGetIp(name, family, &all));
        EXPECT_EQ(record, Bytes(AsBytes(all)));
        EXPECT_EQ(Pack().U16(family).Text("eth0", 16), daemon.Requests()[0].body);
    }
}

// The daemon's count is cut to the array, as in every listing.
TEST(IfaceGetIp, CountAboveTheArrayIsCutToIt) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    const std::pair<u32, u32> counts[] = {
        {0, 0}, {16, 16}, {17, 16}, {0x80000000, 16}, {0xffffffff, 16}};
    for (const auto& [told, seen] : counts) {
        daemon.On(277, Answer::Body(Bytes(Pack().S32(0).U32(told).FillTo(456))));
        struct {
            TVimbraIfaceAllIp all;
            u32 guard;
        } output = {};
        output.guard = 0xA5A5A5A5;
        EXPECT_EQ(0, VimbraIfaceGetIp(name, 2, &output.all));
        EXPECT_EQ(seen, output.all.dwIpNum);
        EXPECT_EQ(0xA5A5A5A5u, output.guard);
    }
}

TEST(IfaceGetIp, ChecksItsArgumentsInOrder) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    std::string longName = kSeventeen;
    TVimbraIfaceAllIp all = {};
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceGetIp(longName.data(), 3, nullptr));
    EXPECT_EQ(1105, VimbraIfaceGetIp(name, 3, nullptr));
    EXPECT_EQ(1105, VimbraIfaceGetIp(name, 3, &all));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceGetIp", "pchIfaceName is invalid!"),
                            Err("VimbraIfaceGetIp", "ptNetIfaceIp is NULL!"),
                            Err("VimbraIfaceGetIp", "wSinFamily 3 is invalid!")}));
    EXPECT_EQ(0u, daemon.Connections());
}

TEST(IfaceGetIp, RefusesOtherFamilies) {
    char name[] = "eth0";
    TVimbraIfaceAllIp all = {};
    for (const u16 family : {u16{0}, u16{1}, u16{3}, u16{9}, u16{12}, u16{65535}}) {
        Capture log;
        EXPECT_EQ(1105, VimbraIfaceGetIp(name, family, &all));
        EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceGetIp",
                                    "wSinFamily " + std::to_string(family) + " is invalid!")}));
    }
}

// ---- Replacing addresses ---------------------------------------------------------------------

TEST(IfaceSetIp, TakesAllThreeFamilies) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    TVimbraIfaceAllIp all = {};
    for (const u16 family : {u16{2}, u16{10}, u16{11}}) {
        EXPECT_EQ(0, VimbraIfaceSetIp(name, family, &all));
    }
    ASSERT_EQ(3u, daemon.Requests().size());
    EXPECT_EQ(2, daemon.Requests()[0].body.U16(0));
    EXPECT_EQ(10, daemon.Requests()[1].body.U16(0));
    EXPECT_EQ(11, daemon.Requests()[2].body.U16(0));
}

TEST(IfaceSetIp, EmptySetIsSent) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    TVimbraIfaceAllIp all = {};
    EXPECT_EQ(0, VimbraIfaceSetIp(name, 2, &all));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(Pack().U16(2).Text("eth0", 16).FillTo(470), daemon.Requests()[0].body);
}

TEST(IfaceSetIp, SixteenAddressesAreSent) {
    ScriptedDaemon daemon;
    Pack body;
    body.U16(11).Text("eth0", 16).U32(16);
    std::vector<TVimbraIfaceIp> list;
    for (int i = 0; i < 16; i++) {
        const std::string text = "198.51.100." + std::to_string(i + 1);
        list.push_back(
            IfaceIp(text.c_str(), 24, i % 2 == 0 ? VIMBRA_SCOPE_TYPE_DEF : VIMBRA_SCOPE_TYPE_LINK));
        body.U32(i % 2 == 0 ? 0 : 2).Address(2, text.c_str()).U32(24);
    }
    char name[] = "eth0";
    TVimbraIfaceAllIp all = AllIp(list);
    EXPECT_EQ(0, VimbraIfaceSetIp(name, 11, &all));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(body, daemon.Requests()[0].body);
}

TEST(IfaceSetIp, RefusesMoreThanSixteen) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    TVimbraIfaceAllIp all = {};
    struct {
        u32 count;
        const char* text;
    } const cases[] = {{17, "the dwIpNum 17 is invalid!"},
                       {0x7fffffff, "the dwIpNum 2147483647 is invalid!"},
                       {0x80000000, "the dwIpNum -2147483648 is invalid!"},
                       {0xffffffff, "the dwIpNum -1 is invalid!"}};
    for (const auto& one : cases) {
        all.dwIpNum = one.count;
        Capture log;
        EXPECT_EQ(1105, VimbraIfaceSetIp(name, 2, &all));
        EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceSetIp", one.text)}));
    }
    EXPECT_EQ(0u, daemon.Connections());
}

TEST(IfaceSetIp, EntriesPastTheCountGoOutZeroAndUnexamined) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    TVimbraIfaceAllIp all = Filled<TVimbraIfaceAllIp>();
    all.dwIpNum = 1;
    all.atNetIfaceIp[0] = IfaceIp("192.0.2.7", 24);
    EXPECT_EQ(0, VimbraIfaceSetIp(name, 2, &all));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(
        Pack().U16(2).Text("eth0", 16).U32(1).U32(4).Address(2, "192.0.2.7").U32(24).FillTo(470),
        daemon.Requests()[0].body);
}

TEST(IfaceSetIp, TakesDefaultLinkAndGlobalScope) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    for (u32 scope = 0; scope <= 6; scope++) {
        TVimbraIfaceAllIp all =
            AllIp({IfaceIp("192.0.2.7", 24), IfaceIp("192.0.2.8", 24, EVimbraScopeType(scope))});
        const bool good = scope == 0 || scope == 2 || scope == 4;
        Capture log;
        EXPECT_EQ(good ? 0 : 1105, VimbraIfaceSetIp(name, 2, &all)) << scope;
        if (!good) {
            EXPECT_TRUE(
                Wrote(log, {Err("VimbraIfaceSetIp",
                                "the eScopeType " + std::to_string(scope) + " is invalid!")}));
        }
    }
    EXPECT_EQ(3u, daemon.Requests().size());
}

TEST(IfaceSetIp, NamesTheFirstBadScope) {
    char name[] = "eth0";
    TVimbraIfaceAllIp all =
        AllIp({IfaceIp("192.0.2.7", 24), IfaceIp("192.0.2.8", 24, EVimbraScopeType(0xffffffff)),
               IfaceIp("192.0.2.9", 24, VIMBRA_SCOPE_TYPE_SITE)});
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceSetIp(name, 2, &all));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceSetIp", "the eScopeType -1 is invalid!")}));
}

// Neither the addresses nor their families and prefixes are looked at here.
TEST(IfaceSetIp, LeavesTheAddressesToTheDaemon) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    TVimbraIfaceIp odd = IfaceIp("127.0.0.1", 0xffffffff);
    odd.tIpAddr.wSinFamily = 77;
    TVimbraIfaceAllIp all = AllIp({odd});
    EXPECT_EQ(0, VimbraIfaceSetIp(name, 2, &all));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(Bytes(AsBytes(odd)), daemon.Requests()[0].body.Slice(22, 28));
}

TEST(IfaceSetIp, ChecksItsArgumentsInOrder) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    std::string longName = kSeventeen;
    TVimbraIfaceAllIp all = Filled<TVimbraIfaceAllIp>();
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceSetIp(longName.data(), 3, nullptr));
    EXPECT_EQ(1105, VimbraIfaceSetIp(name, 3, nullptr));
    EXPECT_EQ(1105, VimbraIfaceSetIp(name, 3, &all));
    EXPECT_EQ(1105, VimbraIfaceSetIp(name, 2, &all));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceSetIp", "pchIfaceName is invalid!"),
                            Err("VimbraIfaceSetIp", "ptNetIfaceIp is NULL!"),
                            Err("VimbraIfaceSetIp", "wSinFamily 3 is invalid!"),
                            Err("VimbraIfaceSetIp", "the dwIpNum -1515870811 is invalid!")}));
    EXPECT_EQ(0u, daemon.Connections());
}

TEST(IfaceSetIp, RefusesOtherFamilies) {
    char name[] = "eth0";
    TVimbraIfaceAllIp all = {};
    for (const u16 family : {u16{0}, u16{1}, u16{3}, u16{9}, u16{12}, u16{65535}}) {
        Capture log;
        EXPECT_EQ(1105, VimbraIfaceSetIp(name, family, &all));
        EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceSetIp",
                                    "wSinFamily " + std::to_string(family) + " is invalid!")}));
    }
}

// ---- Adding and deleting one address ---------------------------------------------------------

struct OneIp {
    const char* function;
    u32 type;
    s32 (*call)(char*, TVimbraIfaceIp*);
};

void PrintTo(const OneIp& one, std::ostream* out) {
    *out << one.function;
}

class IfaceOneIp : public testing::TestWithParam<OneIp> {
 protected:
    s32 Call(TVimbraIfaceIp ip) const {
        char name[] = "eth0";
        return GetParam().call(name, &ip);
    }
    std::string Function() const { return GetParam().function; }
};

INSTANTIATE_TEST_SUITE_P(Both, IfaceOneIp,
                         testing::Values(OneIp{"VimbraIfaceAddIp", 257, VimbraIfaceAddIp},
                                         OneIp{"VimbraIfaceDelIp", 259, VimbraIfaceDelIp}),
                         [](const auto& param) { return std::string(param.param.function); });

TEST_P(IfaceOneIp, SendsIpv6) {
    ScriptedDaemon daemon;
    EXPECT_EQ(0, Call(IfaceIp("2001:db8::7", 64, VIMBRA_SCOPE_TYPE_DEF)));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(GetParam().type, daemon.Requests()[0].type);
    EXPECT_EQ(Pack().Text("eth0", 16).U32(0).Address(10, "2001:db8::7").U32(64),
              daemon.Requests()[0].body);
}

TEST_P(IfaceOneIp, DoesNotLookAtThePrefix) {
    ScriptedDaemon daemon;
    for (const u32 prefix : {0u, 32u, 33u, 129u, 0xffffffffu}) {
        EXPECT_EQ(0, Call(IfaceIp("192.0.2.7", prefix)));
        EXPECT_EQ(prefix, daemon.Requests().back().body.U32(40));
    }
}

TEST_P(IfaceOneIp, RefusesNoRecord) {
    char name[] = "eth0";
    std::string longName = kSeventeen;
    Capture log;
    EXPECT_EQ(1105, GetParam().call(longName.data(), nullptr));
    EXPECT_EQ(1105, GetParam().call(name, nullptr));
    EXPECT_TRUE(Wrote(log, {Err(Function(), "pchIfaceName is invalid!"),
                            Err(Function(), "ptNetIfaceIp is NULL!")}));
}

TEST_P(IfaceOneIp, RefusesOtherFamilies) {
    ScriptedDaemon daemon;
    for (const u16 family : {u16{0}, u16{1}, u16{3}, u16{9}, u16{11}, u16{65535}}) {
        TVimbraIfaceIp ip = IfaceIp("192.0.2.7", 24, VIMBRA_SCOPE_TYPE_LINK);
        ip.tIpAddr.wSinFamily = family;
        Capture log;
        EXPECT_EQ(1105, Call(ip));  // before the scope, which is wrong too
        EXPECT_TRUE(Wrote(log, {Err(Function(), "the ptNetIfaceIp wSinFamily " +
                                                    std::to_string(family) + " is invalid!")}));
    }
    EXPECT_EQ(0u, daemon.Connections());
}

TEST_P(IfaceOneIp, TakesDefaultAndGlobalScopeOnly) {
    ScriptedDaemon daemon;
    for (const u32 scope : {0u, 1u, 2u, 3u, 4u, 5u, 0xffffffffu}) {
        const bool good = scope == 0 || scope == 4;
        Capture log;
        EXPECT_EQ(good ? 0 : 1105, Call(IfaceIp("192.0.2.7", 24, EVimbraScopeType(scope))));
        if (!good) {
            EXPECT_TRUE(Wrote(log, {Err(Function(), "ptNetIfaceIp.eScopeType " +
                                                        std::to_string(static_cast<s32>(scope)) +
                                                        " is invalid!")}));
        }
    }
    EXPECT_EQ(2u, daemon.Requests().size());
}

TEST(IfaceAddIp, LooksAtTheScopeBeforeTheAddress) {
    char name[] = "eth0";
    TVimbraIfaceIp ip = IfaceIp("127.0.0.1", 8, VIMBRA_SCOPE_TYPE_LINK);
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceAddIp(name, &ip));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceAddIp", "ptNetIfaceIp.eScopeType 2 is invalid!")}));
}

TEST(IfaceAddIp, RefusesAddressesThatNoHostMayHave) {
    ScriptedDaemon daemon;
    struct {
        const char* ip;
        const char* reason;
    } const cases[] = {
        {"224.0.0.1", "special ip!"},       {"239.255.255.255", "special ip!"},
        {"127.0.0.1", "special ip!"},       {"0.0.0.0", "special ip!"},
        {"0.0.0.1", "special ip!"},         {"240.0.0.1", "special ip!"},
        {"255.255.255.255", "special ip!"}, {"10.0.0.0", "invalid ip!"},
        {"10.255.255.255", "invalid ip!"},  {"128.0.0.0", "invalid ip!"},
        {"172.16.0.0", "invalid ip!"},      {"172.16.255.255", "invalid ip!"},
        {"192.168.1.0", "invalid ip!"},     {"192.168.1.255", "invalid ip!"},
        {"::", "Unspecified address!"},     {"::1", "Loopback ip!"},
        {"ff02::1", "Multicast ip!"},       {"ff00::", "Multicast ip!"},
    };
    char name[] = "eth0";
    for (const auto& one : cases) {
        TVimbraIfaceIp ip = IfaceIp(one.ip, 30);
        Capture log;
        EXPECT_EQ(-1, VimbraIfaceAddIp(name, &ip)) << one.ip;
        EXPECT_TRUE(Wrote(
            log, {Err("ApicCheckIp", one.reason), Err("VimbraIfaceAddIp", "Ip addr is invalid!")}));
    }
    EXPECT_EQ(0u, daemon.Connections());
}

// The classful mask decides, whatever the record's prefix is.
TEST(IfaceAddIp, TakesOtherAddresses) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    size_t count = 0;
    for (const char* text : {"10.0.0.1",   "10.1.2.0",        "10.255.255.254",
                             "1.0.0.1",    "126.255.255.254", "128.0.0.1",
                             "172.16.1.0", "172.16.0.255",    "191.255.255.254",
                             "192.0.0.1",  "192.168.1.254",   "223.255.255.254",
                             "::2",        "fe80::1",         "::ffff:1.2.3.4",
                             "0:0:1::",    "::1:0:0",         "::1:0",
                             "fec0::1",    "fe00::",          "2001::"}) {
        TVimbraIfaceIp ip = IfaceIp(text, 24);
        EXPECT_EQ(0, VimbraIfaceAddIp(name, &ip)) << text;
        count++;
    }
    EXPECT_EQ(count, daemon.Requests(257).size());
}

TEST(IfaceDelIp, DoesNotLookAtTheAddress) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    for (const char* text : {"127.0.0.1", "0.0.0.0", "10.0.0.0", "::", "::1", "ff02::1"}) {
        TVimbraIfaceIp ip = IfaceIp(text, 24);
        EXPECT_EQ(0, VimbraIfaceDelIp(name, &ip)) << text;
    }
    EXPECT_EQ(6u, daemon.Requests(259).size());
}

// ---- Flushing --------------------------------------------------------------------------------

TEST(IfaceFlushIp, TakesAllThreeFamiliesAndNoOther) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    for (const u16 family : {u16{2}, u16{10}, u16{11}}) {
        EXPECT_EQ(0, VimbraIfaceFlushIp(name, family));
        EXPECT_EQ(Pack().U16(family).Text("eth0", 16), daemon.Requests().back().body);
    }
    for (const u16 family : {u16{0}, u16{1}, u16{3}, u16{9}, u16{12}, u16{65535}}) {
        Capture log;
        EXPECT_EQ(1105, VimbraIfaceFlushIp(name, family));
        EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceFlushIp",
                                    "the wSinFamily " + std::to_string(family) + " is invalid!")}));
    }
    EXPECT_EQ(3u, daemon.Connections());
}

TEST(IfaceFlushIp, LooksAtTheNameFirst) {
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceFlushIp(nullptr, 3));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceFlushIp", "pchIfaceName is invalid!")}));
}

// ---- MAC address -----------------------------------------------------------------------------

TEST(IfaceSetMac, DoesNotLookAtTheValue) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    for (const u8 byte : {u8{0}, u8{0xff}}) {
        TVimbraIfaceMac mac;
        memset(mac.abyMacAddr, byte, 6);
        EXPECT_EQ(0, VimbraIfaceSetMac(name, &mac));
        EXPECT_EQ(Pack().Text("eth0", 16).Add(Bytes(6, byte)), daemon.Requests().back().body);
    }
}

TEST(IfaceSetMac, ChecksItsArgumentsInOrder) {
    char name[] = "eth0";
    std::string longName = kSeventeen;
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceSetMac(longName.data(), nullptr));
    EXPECT_EQ(1105, VimbraIfaceSetMac(name, nullptr));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceSetMac", "pchIfaceName is invalid!"),
                            Err("VimbraIfaceSetMac", "ptNetIfaceMac is NULL!")}));
}

TEST(IfaceGetMac, HandsTheAddressOver) {
    ScriptedDaemon daemon;
    daemon.On(263, Answer::Body(Bytes(Pack().S32(0).Add(AsBytes(kMac)).U8(0xEE).U8(0xEE))));
    char name[] = "eth0";
    struct {
        TVimbraIfaceMac mac;
        u8 guard[2];
    } output = {{}, {0xA5, 0xA5}};
    EXPECT_EQ(0, VimbraIfaceGetMac(name, &output.mac));
    EXPECT_EQ(Pack().Add(AsBytes(kMac)).U8(0xA5).U8(0xA5), Bytes(AsBytes(output)));
}

TEST(IfaceGetMac, ChecksItsArgumentsInOrder) {
    char name[] = "eth0";
    std::string longName = kSeventeen;
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceGetMac(longName.data(), nullptr));
    EXPECT_EQ(1105, VimbraIfaceGetMac(name, nullptr));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceGetMac", "pchIfaceName is invalid!"),
                            Err("VimbraIfaceGetMac", "ptNetIfaceIp is NULL!")}));
}

// ---- MTU -------------------------------------------------------------------------------------

TEST(IfaceSetMtu, HasALeastValuePerFamilyAndNoGreatest) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    struct {
        u16 family;
        u32 mtu;
        s32 result;
    } const cases[] = {
        {2, 500, 0},        {2, 499, 1105},     {2, 0, 1105},        {2, 0x7fffffff, 0},
        {2, 0x80000000, 0}, {2, 0xffffffff, 0}, {10, 1280, 0},       {10, 1279, 1105},
        {10, 500, 1105},    {10, 0, 1105},      {10, 0xffffffff, 0},
    };
    size_t sent = 0;
    for (const auto& one : cases) {
        Capture log;
        EXPECT_EQ(one.result, VimbraIfaceSetMtu(name, one.family, one.mtu)) << one.mtu;
        const std::string mtu = std::to_string(static_cast<s32>(one.mtu));
        if (one.result == 0) {
            sent++;
            ASSERT_EQ(sent, daemon.Requests().size());
            EXPECT_EQ(Pack().Text("eth0", 16).U32(one.mtu), daemon.Requests().back().body);
            EXPECT_TRUE(Wrote(log, {Dbg("VimbraIfaceSetMtu",
                                        "VimbraIfaceSetMtu interface : eth0, mtu : " + mtu)}));
        } else {
            EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceSetMtu", "dwMtu " + mtu + " is invalid")}));
        }
    }
    EXPECT_EQ(sent, daemon.Connections());
}

TEST(IfaceSetMtu, RefusesOtherFamiliesWhateverTheValue) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    for (const u16 family : {u16{11}, u16{0}, u16{1}, u16{3}, u16{9}, u16{12}, u16{65535}}) {
        for (const u32 mtu : {0u, 499u, 500u, 1280u, 1500u, 0xffffffffu}) {
            Capture log;
            EXPECT_EQ(1105, VimbraIfaceSetMtu(name, family, mtu));
            EXPECT_TRUE(
                Wrote(log, {Err("VimbraIfaceSetMtu",
                                "the wSinFamily " + std::to_string(family) + " is invalid!")}));
        }
    }
    EXPECT_EQ(0u, daemon.Connections());
}

TEST(IfaceSetMtu, LooksAtTheNameFirst) {
    std::string longName = kSeventeen;
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceSetMtu(longName.data(), 11, 0));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceSetMtu", "pchIfaceName is invalid!")}));
}

TEST(IfaceGetMtu, HandsTheValueOver) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    for (const u32 mtu : {0u, 1500u, 0xffffffffu}) {
        daemon.On(274, Answer::Body(Bytes(Pack().S32(0).U32(mtu))));
        u32 result = 77;
        EXPECT_EQ(0, VimbraIfaceGetMtu(name, &result));
        EXPECT_EQ(mtu, result);
    }
}

// Unlike the other calls.
TEST(IfaceGetMtu, MissingOutputIsMinusOne) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    std::string longName = kSeventeen;
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceGetMtu(longName.data(), nullptr));
    EXPECT_EQ(-1, VimbraIfaceGetMtu(name, nullptr));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceGetMtu", "pchIfaceName is invalid!"),
                            Err("VimbraIfaceGetMtu", "pdwMtu is invalid!")}));
    EXPECT_EQ(0u, daemon.Connections());
}

}  // namespace
}  // namespace vimbra::tests
