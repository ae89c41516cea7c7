// Addresses of an interface.
#include <gtest/gtest.h>
#include <vimbra/iface.h>

#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "expect_log.hpp"
#include "iface.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

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

}  // namespace
}  // namespace vimbra::tests
