// Legacy interface calls: setting, adding, deleting.
#include <gtest/gtest.h>
#include <vimbra/net_ip.h>

#include <string>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "net_ip.hpp"
#include "said.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TNetEthParam Wanted(const char* address, u32 mask) {
    TNetEthParam param = {};
    param.dwIpAdrs = Word(address);
    param.dwIpMask = mask;
    return param;
}

Bytes SetBody(const char* address, u32 prefix) {
    return Pack().U16(2).Text("eth0", 16).U32(1).U32(0).Address(2, address).U32(prefix).FillTo(470);
}

TEST_F(NetIp, SetReplacesAllAddressesByOne) {
    for (u32 command : {1u, 4u}) {
        TNetEthParam param = Wanted("192.168.1.7", Word("255.255.255.0"));
        EXPECT_EQ(0, NetSetEthParam(0, command, &param));
        ExpectSent(261, SetBody("192.168.1.7", 24));
        EXPECT_TRUE(Said(log_, kDebugPriority, "NetSetEthParam", "mask is string, so convert!"));
        EXPECT_TRUE(Said(log_, kInfoPriority, "NetSetEthParam", "MaskConvertIpv4 success"));
        EXPECT_TRUE(log_.HasNoTrouble());
        EXPECT_EQ(Word("255.255.255.0"), param.dwIpMask);
        log_.Clear();
    }
}

TEST_F(NetIp, SetMasks) {
    TNetEthParam param = Wanted("10.0.0.1", Word("128.0.0.0"));
    EXPECT_EQ(0, NetSetEthParam(0, 1, &param));
    ExpectSent(261, SetBody("10.0.0.1", 1));
    param.dwIpMask = Word("255.255.255.255");
    EXPECT_EQ(0, NetSetEthParam(0, 1, &param));
    ExpectSent(261, SetBody("10.0.0.1", 32));
    log_.Clear();
    param.dwIpMask = 0;
    EXPECT_EQ(0, NetSetEthParam(0, 1, &param));
    ExpectSent(261, SetBody("10.0.0.1", 0));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(NetIp, SetRefusesWhatIsNoMask) {
    for (u32 mask : {Word("255.0.255.0"), 1u, 24u, 32u, Word("0.0.0.1"), Word("255.255.255.253")}) {
        TNetEthParam param = Wanted("10.0.0.1", mask);
        EXPECT_EQ(-1, NetSetEthParam(0, 1, &param));
        EXPECT_TRUE(log_.Has(Kind::kError, "NetSetEthParam", "invalid mask!"));
        log_.Clear();
    }
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(NetIp, SetRefusesCommandsFirst) {
    for (u32 command : {0u, 2u, 3u, 5u, 0xffffffffu}) {
        EXPECT_EQ(-1, NetSetEthParam(9, command, nullptr));
        EXPECT_TRUE(log_.Has(Kind::kError, "NetSetEthParam",
                             "don't support command:" + std::to_string(static_cast<int>(command))));
        EXPECT_EQ(1, log_.Count(Kind::kError));
        log_.Clear();
    }
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(NetIp, SetChecksTheNumberBeforeTheMask) {
    TNetEthParam param = Wanted("10.0.0.1", 24);
    EXPECT_EQ(1201, NetSetEthParam(3, 1, &param));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetSetEthParam", "NetSetEthParam interface_name failed"));
    EXPECT_EQ(0, log_.Count(Kind::kError, "NetSetEthParam", "invalid mask!"));
}

TEST_F(NetIp, AddAndDeletePassTheMaskOnAsPrefix) {
    TNetEthParam param = Wanted("10.1.2.3", 24);
    EXPECT_EQ(0, NetAddEthParamIPAndMask(1, &param));
    ExpectSent(257, Pack().Text("eth1", 16).U32(0).Address(2, "10.1.2.3").U32(24));
    param.dwIpMask = Word("255.255.255.0");
    EXPECT_EQ(0, NetAddEthParamIPAndMask(1, &param));
    ExpectSent(257, Pack().Text("eth1", 16).U32(0).Address(2, "10.1.2.3").In4("255.255.255.0"));
    EXPECT_EQ(0, NetDelEthParamIPAndMask(2, &param));
    ExpectSent(259, Pack().Text("eth2", 16).U32(0).Address(2, "10.1.2.3").In4("255.255.255.0"));
    EXPECT_TRUE(log_.IsSilent());
    param = Wanted("127.0.0.1", 8);
    EXPECT_EQ(-1, NetAddEthParamIPAndMask(1, &param));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraIfaceAddIp", "Ip addr is invalid!"));
    EXPECT_EQ(0, NetDelEthParamIPAndMask(1, &param));
}

TEST_F(NetIp, FlushDeletesIpv4) {
    EXPECT_EQ(0, NetDelEthParam(0));
    ExpectSent(260, Pack().U16(2).Text("eth0", 16));
}

TEST_F(NetIp, MtuWarns) {
    EXPECT_EQ(0, NetSetMtu(1, 500));
    ExpectSent(273, Pack().Text("eth1", 16).U32(500));
    EXPECT_TRUE(log_.Has(Kind::kWarn, "NetSetMtu", "please use vimbra new API"));
    EXPECT_EQ(1105, NetSetMtu(1, 499));
    daemon_.Default(Answer::Body(Pack().S32(0).U32(1400)));
    u32 mtu = 0;
    EXPECT_EQ(0, NetGetMtu(2, &mtu));
    ExpectSent(274, Pack().Text("eth2", 16));
    EXPECT_EQ(1400u, mtu);
    EXPECT_TRUE(log_.Has(Kind::kWarn, "NetGetMtu", "please use vimbra new API"));
    EXPECT_EQ(-1, NetGetMtu(2, nullptr));
    EXPECT_EQ(4, log_.Count(Kind::kWarn));
}

TEST_F(NetIp, OnlyMtuWarns) {
    TNetEthParam param = Wanted("10.1.2.3", 24);
    NetAddEthParamIPAndMask(0, &param);
    NetDelEthParam(0);
    EXPECT_EQ(0, log_.Count(Kind::kWarn));
}

TEST_F(NetIp, NumbersThatAreNoInterface) {
    constexpr char kText[] = "NetSetEthParam interface_name failed";
    TNetEthParam param = Wanted("10.1.2.3", 24);
    u32 mtu = 4711;
    EXPECT_EQ(1201, NetAddEthParamIPAndMask(3, &param));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetAddEthParamIPAndMask", kText));
    EXPECT_EQ(1201, NetDelEthParamIPAndMask(3, &param));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetDelEthParamIPAndMask", kText));
    EXPECT_EQ(1201, NetDelEthParam(3));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetDelEthParam", kText));
    EXPECT_EQ(1201, NetSetMtu(3, 1500));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetSetMtu", kText));
    EXPECT_EQ(1201, NetGetMtu(0xffffffff, &mtu));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetGetMtu", kText));
    EXPECT_EQ(2, log_.Count(Kind::kWarn));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(NetIp, DaemonNumbersAreFlattened) {
    TNetEthParam param = Wanted("10.1.2.3", Word("255.0.0.0"));
    daemon_.Default(Answer::Code(5));
    EXPECT_EQ(-1, NetSetEthParam(0, 4, &param));
    EXPECT_EQ(-1, NetAddEthParamIPAndMask(0, &param));
    EXPECT_EQ(-1, NetDelEthParamIPAndMask(0, &param));
    EXPECT_EQ(-1, NetDelEthParam(0));
    EXPECT_EQ(-1, NetSetMtu(0, 1500));
}

}  // namespace
}  // namespace vimbra::tests
