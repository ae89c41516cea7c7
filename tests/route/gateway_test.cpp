// Gateways.
#include <gtest/gtest.h>
#include <vimbra/log.h>
#include <vimbra/route.h>

#include <cstring>
#include <string>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "route.hpp"
#include "said.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST_F(RouteTest, GatewaySet) {
    Name name("eth0");
    EXPECT_EQ(0, VimbraSetDefGateway(name.bytes, Address("192.168.1.1")));
    ExpectSent(271, Pack().Text("eth0", 16).Address(2, "192.168.1.1"));
    EXPECT_EQ(0, VimbraSetDefGateway(name.bytes, Address("fe80::1")));
    ExpectSent(271, Pack().Text("eth0", 16).Address(10, "fe80::1"));
    EXPECT_TRUE(Said(log_, kDebugPriority, "VimbraSetDefGateway", "the pchIfaceName is eth0"));
}

TEST_F(RouteTest, GatewaySetWithoutName) {
    EXPECT_EQ(0, VimbraSetDefGateway(nullptr, Address("192.168.1.1")));
    ExpectSent(271, Pack().Zeros(16).Address(2, "192.168.1.1"));
    EXPECT_TRUE(Said(log_, kDebugPriority, "VimbraSetDefGateway", "the pchIfaceName is NULL!"));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0, VimbraSetDefGatewayToTable(nullptr, Address("192.168.1.1"), 8));
    ExpectSent(271, Pack().Zeros(16).Address(2, "192.168.1.1").U32(8));
}

TEST_F(RouteTest, GatewaySetToTable) {
    Name name("eth0");
    for (u32 table : {1u, 254u}) {
        EXPECT_EQ(0, VimbraSetDefGatewayToTable(name.bytes, Address("192.168.1.1"), table));
        ExpectSent(271, Pack().Text("eth0", 16).Address(2, "192.168.1.1").U32(table));
    }
}

TEST_F(RouteTest, GatewaySetTakesItsNameUpToTheTerminator) {
    Name name("eth0");
    memset(name.bytes + 5, 'x', 11);
    EXPECT_EQ(0, VimbraSetDefGateway(name.bytes, Address("192.168.1.1")));
    ExpectSent(271, Pack().Text("eth0", 16).Address(2, "192.168.1.1"));
}

TEST_F(RouteTest, GatewayGet) {
    Name name("eth0");
    daemon_.Default(Answer::Body(Pack().S32(0).Address(10, "fe80::7")));
    TVimbraAddr gateway;
    memset(&gateway, 0xa5, sizeof(gateway));
    EXPECT_EQ(0, VimbraGetDefGateway(name.bytes, 10, &gateway));
    ExpectSent(272, Pack().U16(10).Text("eth0", 16));
    EXPECT_EQ(Pack().Address(10, "fe80::7"), AsBytes(gateway));
    EXPECT_TRUE(Said(log_, kDebugPriority, "VimbraGetDefGateway", "the pchIfaceName is eth0"));
    EXPECT_TRUE(Said(log_, kInfoPriority, "VimbraGetDefGateway", "wSinFamily is 10!"));
    for (u32 table : {1u, 254u}) {
        EXPECT_EQ(0, VimbraGetDefGatewayFromTable(name.bytes, 2, &gateway, table));
        ExpectSent(272, Pack().U16(2).Text("eth0", 16).U32(table));
    }
    EXPECT_EQ(0, VimbraGetDefGateway(nullptr, 2, &gateway));
    ExpectSent(272, Pack().U16(2).Zeros(16));
}

TEST_F(RouteTest, GatewayGetSendsAll16BytesOfTheBuffer) {
    daemon_.Default(Answer::Body(Pack().S32(0).Zeros(20)));
    Name name("eth0");
    memset(name.bytes + 5, 'x', 11);
    TVimbraAddr gateway;
    EXPECT_EQ(0, VimbraGetDefGateway(name.bytes, 2, &gateway));
    ExpectSent(272, Pack().U16(2).Text("eth0", 5).Text("xxxxxxxxxxx", 11));
}

TEST_F(RouteTest, AFailedGatewayGetLeavesTheRecord) {
    Name name("eth0");
    TVimbraAddr gateway;
    memset(&gateway, 0xa5, sizeof(gateway));
    daemon_.Default(Answer::Body(Pack().S32(7).Address(2, "1.2.3.4")));
    EXPECT_EQ(-1, VimbraGetDefGateway(name.bytes, 2, &gateway));
    EXPECT_EQ(-1, VimbraGetDefGatewayFromTable(name.bytes, 2, &gateway, 1));
    EXPECT_EQ(Bytes(20, 0xa5), AsBytes(gateway));
    daemon_.Default(Answer::Close());
    EXPECT_EQ(0, VimbraGetDefGateway(name.bytes, 2, &gateway));
    EXPECT_EQ(Bytes(20, 0), AsBytes(gateway));
}

TEST_F(RouteTest, GatewayDel) {
    Name name("eth0");
    EXPECT_EQ(0, VimbraDelDefGateway(name.bytes, 2));
    ExpectSent(278, Pack().U16(2).Text("eth0", 16));
    EXPECT_TRUE(Said(log_, kDebugPriority, "VimbraDelDefGateway", "the pchIfaceName is eth0"));
    EXPECT_TRUE(Said(log_, kInfoPriority, "VimbraDelDefGateway", "wSinFamily is 2!"));
    for (u32 table : {1u, 254u}) {
        EXPECT_EQ(0, VimbraDelDefGatewayFromTable(name.bytes, 10, table));
        ExpectSent(278, Pack().U16(10).Text("eth0", 16).U32(table));
    }
    EXPECT_EQ(0, VimbraDelDefGateway(nullptr, 10));
    ExpectSent(278, Pack().U16(10).Zeros(16));
    memset(name.bytes + 5, 'x', 11);
    EXPECT_EQ(0, VimbraDelDefGateway(name.bytes, 2));
    ExpectSent(278, Pack().U16(2).Text("eth0", 16));
}

struct GatewayCall {
    const char* name;
    enum { kSet, kGet, kDel } act;
    bool inTable;
    // A null gateway is the record where there is one.
    s32 (*run)(char* iface, u16 family, TVimbraAddr* gateway, u32 table);
};

void PrintTo(const GatewayCall& call, std::ostream* out) {
    *out << call.name;
}

TVimbraAddr WithFamily(u16 family) {
    TVimbraAddr addr = Address("10.0.0.1");
    addr.wSinFamily = family;
    return addr;
}

const GatewayCall kGatewayCalls[] = {
    {"VimbraSetDefGateway", GatewayCall::kSet, false,
     [](char* iface, u16 family, TVimbraAddr*, u32) {
         return VimbraSetDefGateway(iface, WithFamily(family));
     }},
    {"VimbraSetDefGatewayToTable", GatewayCall::kSet, true,
     [](char* iface, u16 family, TVimbraAddr*, u32 table) {
         return VimbraSetDefGatewayToTable(iface, WithFamily(family), table);
     }},
    {"VimbraGetDefGateway", GatewayCall::kGet, false,
     [](char* iface, u16 family, TVimbraAddr* gateway, u32) {
         return VimbraGetDefGateway(iface, family, gateway);
     }},
    {"VimbraGetDefGatewayFromTable", GatewayCall::kGet, true,
     [](char* iface, u16 family, TVimbraAddr* gateway, u32 table) {
         return VimbraGetDefGatewayFromTable(iface, family, gateway, table);
     }},
    {"VimbraDelDefGateway", GatewayCall::kDel, false,
     [](char* iface, u16 family, TVimbraAddr*, u32) { return VimbraDelDefGateway(iface, family); }},
    {"VimbraDelDefGatewayFromTable", GatewayCall::kDel, true,
     [](char* iface, u16 family, TVimbraAddr*, u32 table) {
         return VimbraDelDefGatewayFromTable(iface, family, table);
     }},
};

class GatewayCheck : public RouteTest, public testing::WithParamInterface<GatewayCall> {
 protected:
    void SetUp() override {
        if (GetParam().act == GatewayCall::kGet) {
            daemon_.Default(Answer::Body(Pack().S32(0).Zeros(20)));
        }
    }

    s32 Run(const char* iface, u16 family, u32 table) {
        Name name(iface);
        return GetParam().run(name.bytes, family, &gateway_, table);
    }

    void ExpectRefused(const std::string& text) {
        ExpectNothingSent();
        ExpectErrors({{GetParam().name, text}});
    }

    TVimbraAddr gateway_ = {};
};
INSTANTIATE_TEST_SUITE_P(Calls, GatewayCheck, testing::ValuesIn(kGatewayCalls),
                         [](const auto& call) { return call.param.name; });

TEST_P(GatewayCheck, TheNameComesFirst) {
    Name name(kName17);
    EXPECT_EQ(1105, GetParam().run(name.bytes, 99, nullptr, 0));
    ExpectRefused("pchIfaceName is more than VIMBRA_IFACE_NAME_LEN!");
    EXPECT_EQ(0, Run(kName16, 2, 1));
    const size_t at = GetParam().act == GatewayCall::kSet ? 0 : 2;
    EXPECT_EQ(Pack().Text(kName16, 16), Only().body.Slice(at, 16));
    EXPECT_TRUE(
        Said(log_, kDebugPriority, GetParam().name, std::string("the pchIfaceName is ") + kName16));
}

TEST_P(GatewayCheck, AnEmptyNameIsAName) {
    EXPECT_EQ(0, Run("", 2, 1));
    EXPECT_TRUE(Said(log_, kDebugPriority, GetParam().name, "the pchIfaceName is "));
}

TEST_P(GatewayCheck, ThenTheRecord) {
    if (GetParam().act != GatewayCall::kGet) {
        return;  // The others have none.
    }
    EXPECT_EQ(1105, GetParam().run(nullptr, 99, nullptr, 0));
    ExpectRefused("ptGateWay is NULL!");
}

TEST_P(GatewayCheck, ThenTheFamily) {
    for (u16 family : {0, 3, 11, 65535}) {
        EXPECT_EQ(1105, Run("eth0", family, 0));
        const std::string text = "wSinFamily " + std::to_string(family) + " is invalid!";
        ExpectRefused(GetParam().act == GatewayCall::kSet ? "tGateWay." + text : text);
    }
}

TEST_P(GatewayCheck, ThenTheTable) {
    if (!GetParam().inTable) {
        EXPECT_EQ(0, Run("eth0", 2, 0));
        return;
    }
    EXPECT_EQ(1105, Run("eth0", 2, 0));
    ExpectRefused("table id 0 is invalid");
    EXPECT_EQ(1105, Run("eth0", 2, 255));
    ExpectRefused("table id 255 is invalid");
    EXPECT_EQ(1105, Run("eth0", 2, 0xffffffff));
    if (GetParam().act != GatewayCall::kSet) {
        EXPECT_TRUE(Said(log_, kInfoPriority, GetParam().name, "wSinFamily is 2!"));
    }
    ExpectRefused("table id -1 is invalid");
    EXPECT_EQ(0, Run("eth0", 2, 1));
    EXPECT_EQ(0, Run("eth0", 2, 254));
}

// Print lines of the information level stay, debugging goes.
TEST_F(RouteTest, LevelsOfTheGatewaysLines) {
    VimbraDebugLevelSet(VIMBRA_LEVEL_INFO);
    EXPECT_EQ(0, VimbraDelDefGateway(nullptr, 2));
    EXPECT_EQ(1, log_.Count(Kind::kPrint));
    EXPECT_TRUE(Said(log_, kInfoPriority, "VimbraDelDefGateway", "wSinFamily is 2!"));
}

}  // namespace
}  // namespace vimbra::tests
