// The first generation's view of interfaces and routes equals the current one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/iface.h>
#include <vimbra/net_ip.h>
#include <vimbra/net_route.h>
#include <vimbra/route.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "e2e.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

char g_eth0[] = "eth0";

TNetIpRouteParam Route(const char* destination, u32 prefix, const char* gateway, u32 metric) {
    return {0, Word(destination), prefix, Word(gateway), metric};
}

class VimbradLegacy : public testing::Test {
 protected:
    void SetUp() override {
        MakeIface("eth0");
        Shell("ip link set eth0 address 02:11:22:33:44:55");
    }

    Daemon daemon_;
};

TEST_F(VimbradLegacy, FirstAddressMaskAndMac) {
    Shell(
        "ip address add 10.1.2.3/20 dev eth0 && ip address add 172.16.0.1/12 dev eth0 && "
        "ip address add fd00::1/64 dev eth0");
    TNetEthParam param{};
    EXPECT_EQ(0, NetGetEthParam(0, &param));
    EXPECT_EQ(Word("10.1.2.3"), param.dwIpAdrs);
    EXPECT_EQ(Word("255.255.240.0"), param.dwIpMask);
    const u8 mac[] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
    EXPECT_EQ(0, std::memcmp(mac, param.byMacAdrs, sizeof(mac)));
}

TEST_F(VimbradLegacy, InterfaceWithoutIpv4Address) {
    Shell("ip address add fd00::1/64 dev eth0");
    TNetEthParam param{};
    EXPECT_EQ(0, NetGetEthParam(0, &param));
    EXPECT_EQ(Word("0.0.0.0"), param.dwIpAdrs);
    EXPECT_EQ(Word("0.0.0.0"), param.dwIpMask);
    EXPECT_EQ(0x55, param.byMacAdrs[5]);
    TNetEthParamAll all{};
    EXPECT_EQ(0, NetGetEthParamAll(0, &all));
    EXPECT_EQ(0u, all.dwIpNum);
}

TEST_F(VimbradLegacy, AllAddressesEqualTheCurrentView) {
    for (int i = 0; i < 15; ++i) {
        Shell("ip address add 10.1." + std::to_string(i) + ".1/" + std::to_string(16 + i) +
              " dev eth0");
    }
    Shell("ip address add fd00::1/64 dev eth0");
    TVimbraIfaceAllIp current{};
    EXPECT_EQ(0, VimbraIfaceGetIp(g_eth0, VIMBRA_FAMILY_IPV4, &current));
    TNetEthParamAll all{};
    EXPECT_EQ(0, NetGetEthParamAll(0, &all));
    ASSERT_EQ(15u, all.dwIpNum);
    ASSERT_EQ(all.dwIpNum, current.dwIpNum);
    for (u32 i = 0; i < all.dwIpNum; ++i) {
        EXPECT_EQ(current.atNetIfaceIp[i].tIpAddr.tV4Addr.s_addr, all.atNetEthParam[i].dwIpAdrs);
        EXPECT_EQ(current.atNetIfaceIp[i].dwPrefix,
                  static_cast<u32>(__builtin_popcount(all.atNetEthParam[i].dwIpMask)));
        EXPECT_EQ(0x55, all.atNetEthParam[i].byMacAdrs[5]);
    }
}

TEST_F(VimbradLegacy, ReportOfAnInterfaceThatIsNotThere) {
    TNetEthParam param{};
    EXPECT_EQ(-1, NetGetEthParam(2, &param));
}

TEST_F(VimbradLegacy, ReportMarksWhatIsNotForLegacyReaders) {
    Shell("ip -6 address flush dev eth0");
    Shell("ip address add fd00::1/64 dev eth0 && ip address add 10.1.2.3/20 dev eth0");
    api_ipaddr_show_info report{};
    EXPECT_EQ(0, apic_ipaddr_show_filter("eth0\0\0\0\0\0\0\0\0\0\0\0", &report));
    EXPECT_EQ(1500u, report.ipaddr_show_info.mtu);
    EXPECT_STREQ("02:11:22:33:44:55", report.ipaddr_show_info.mac);
    const ir_ipaddr_param_all& all = report.ipaddr_show_info.ipaddr_param_all;
    ASSERT_EQ(2u, all.ipnum);
    EXPECT_STREQ("10.1.2.3", all.ipaddr_param[0].ipaddr);
    EXPECT_EQ(20u, all.ipaddr_param[0].ipmask);
    EXPECT_EQ(0u, all.ipaddr_param[0].ipflag);
    EXPECT_STREQ("fd00::1", all.ipaddr_param[1].ipaddr);
    EXPECT_EQ(64u, all.ipaddr_param[1].ipmask);
    EXPECT_EQ(1u, all.ipaddr_param[1].ipflag);
}

TEST_F(VimbradLegacy, AddressesAreSetAddedAndDeleted) {
    TNetEthParam param{Word("10.1.2.3"), Word("255.255.255.0"), {}};
    EXPECT_EQ(0, NetSetEthParam(0, 1, &param));
    EXPECT_THAT(KernelAddresses("eth0", 2), ElementsAre("10.1.2.3/24 global"));
    param = {Word("10.1.2.4"), 16, {}};
    EXPECT_EQ(0, NetAddEthParamIPAndMask(0, &param));
    EXPECT_THAT(KernelAddresses("eth0", 2),
                ElementsAre("10.1.2.3/24 global", "10.1.2.4/16 global"));
    EXPECT_EQ(0, NetDelEthParamIPAndMask(0, &param));
    EXPECT_THAT(KernelAddresses("eth0", 2), ElementsAre("10.1.2.3/24 global"));
    EXPECT_EQ(0, NetDelEthParam(0));
    EXPECT_THAT(KernelAddresses("eth0", 2), IsEmpty());
    // A mask where a bit count belongs.
    param = {Word("10.1.2.4"), Word("255.255.0.0"), {}};
    EXPECT_EQ(-1, NetAddEthParamIPAndMask(0, &param));
    EXPECT_THAT(KernelAddresses("eth0", 2), IsEmpty());
}

TEST_F(VimbradLegacy, Mtu) {
    EXPECT_EQ(0, NetSetMtu(0, 1400));
    u32 mtu = 0;
    EXPECT_EQ(0, NetGetMtu(0, &mtu));
    EXPECT_EQ(1400u, mtu);
    EXPECT_EQ(1400, Ip("link show dev eth0").at(0).at("mtu"));
}

TEST_F(VimbradLegacy, RoutesAndGateway) {
    Shell("ip address add 10.0.0.1/24 dev eth0");
    EXPECT_EQ(0, NetSetDefGateway(0, Word("10.0.0.2")));
    u32 gateway = 0;
    EXPECT_EQ(0, NetGetDefGateway(0, &gateway));
    EXPECT_EQ(Word("10.0.0.2"), gateway);
    TNetIpRouteParam route = Route("172.16.0.0", 12, "10.0.0.2", 5);
    EXPECT_EQ(0, NetAddOneIpRoute(0, &route));
    route.dwRoutePri = 6;
    EXPECT_EQ(0, NetModifyIpRouteMetric(&route));
    TNetAllIpRouteInfo all{};
    TVimbraAllIpRouteInfo current{};
    EXPECT_EQ(0, NetGetAllIpRoute(&all));
    EXPECT_EQ(0, VimbraGetAllIpRoute(VIMBRA_FAMILY_IPV4, &current));
    ASSERT_EQ(3u, all.dwIpRouteNum);
    ASSERT_EQ(all.dwIpRouteNum, current.dwIpRouteNum);
    for (u32 i = 0; i < all.dwIpRouteNum; ++i) {
        const TNetIpRouteParam& old = all.tNetIpRouteParam[i];
        const TVimbraIpRouteParam& entry = current.tNetIpRouteParam[i];
        EXPECT_EQ(entry.tDestIpNet.tV4Addr.s_addr, old.dwDesIpNet);
        EXPECT_EQ(entry.dwPrefix, old.dwDesIpMask);
        EXPECT_EQ(entry.tDestGateWay.tV4Addr.s_addr, old.dwGwIpAdrs);
        EXPECT_EQ(entry.dwRoutePri, old.dwRoutePri);
    }
    EXPECT_EQ("172.16.0.0/12 via 10.0.0.2 dev eth0 proto static metric 6 \n",
              Shell("ip route show 172.16.0.0/12"));
    EXPECT_EQ(0, NetDelOneIpRoute(0, &route));
    EXPECT_EQ(0, NetDelDefGateway(0));
    EXPECT_EQ("", Shell("ip route show proto static"));
}

TEST_F(VimbradLegacy, InterfacesAreCounted) {
    MakeIface("eth7");
    s32 count = 0;
    EXPECT_EQ(0, NetGetEthNum(&count));
    // Not the other ends of their links: the kernel's list puts no blank before a name that long.
    EXPECT_EQ(2, count);
}

}  // namespace
}  // namespace vimbra::tests
