// Legacy interface calls: the report, and what is read from it.
#include "net_ip.hpp"

#include <gtest/gtest.h>
#include <vimbra/net_ip.h>

#include <cstring>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "said.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// ---- The report --------------------------------------------------------------------------------

TEST_F(NetIp, ReportIsReceivedAsItIs) {
    const Bytes report = Report({{"10.0.0.1", 8, 0}, {"10.0.0.2", 8, 1}});
    Tell(report);
    char name[16];
    memset(name, 'x', sizeof(name));  // All 16 bytes are sent.
    strcpy(name, "eth0");
    api_ipaddr_show_info out = {};
    EXPECT_EQ(0, apic_ipaddr_show_filter(name, &out));
    ExpectSent(283, AsBytes(name));
    EXPECT_EQ(report, AsBytes(out));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(NetIp, ReportFailures) {
    const char name[16] = "eth0";
    api_ipaddr_show_info out = {};
    Tell(Report({}, kMacText, 5));
    EXPECT_EQ(-1, apic_ipaddr_show_filter(name, &out));
    EXPECT_TRUE(log_.Has(Kind::kError, "apic_ipaddr_show_filter", "send and recv msg error:5!"));
    EXPECT_EQ(Report({}, kMacText, 5), AsBytes(out));
    log_.Clear();
    daemon_.Default(Answer::Body(Bytes(928, 0)).Size(927));
    EXPECT_EQ(940, apic_ipaddr_show_filter(name, &out));
    EXPECT_TRUE(log_.Has(Kind::kError, "apic_ipaddr_show_filter", "send and recv msg error:940!"));
    log_.Clear();
    EXPECT_EQ(1105, apic_ipaddr_show_filter(nullptr, &out));
    EXPECT_EQ(1105, apic_ipaddr_show_filter(name, nullptr));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(NetIp, UnansweredReportIsTheCallersOwn) {
    const char name[16] = "eth0";
    api_ipaddr_show_info out = {};
    daemon_.Default(Answer::Close());
    EXPECT_EQ(0, apic_ipaddr_show_filter(name, &out));
    out.errid = 3;
    EXPECT_EQ(-1, apic_ipaddr_show_filter(name, &out));
}

// ---- NetGetEthParam ----------------------------------------------------------------------------

TEST_F(NetIp, FirstShownAddress) {
    Tell(Report({{"10.9.9.9", 8, 1}, {"192.168.1.7", 24, 2}, {"10.0.0.1", 8, 0}}));
    EXPECT_EQ(0, NetGetEthParam(1, &one_));
    ExpectSent(283, Pack().Text("eth1", 16));
    EXPECT_EQ(Param("192.168.1.7", "255.255.255.0"), AsBytes(one_));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(NetIp, NoAddressIsZero) {
    for (const auto& entries : std::vector<std::vector<Entry>>{
             {}, {{"10.9.9.9", 8, 1}, {"10.9.9.8", 8, 0xffffffff}}, {{"", 24, 0}}}) {
        Tell(Report(entries));
        memset(&one_, 0xa5, sizeof(one_));
        EXPECT_EQ(0, NetGetEthParam(0, &one_));
        EXPECT_EQ(Param("0.0.0.0", "0.0.0.0"), AsBytes(one_));
    }
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(NetIp, MasksAtTheBounds) {
    Tell(Report({{"10.0.0.1", 32, 0}}));
    EXPECT_EQ(0, NetGetEthParam(0, &one_));
    EXPECT_EQ(Param("10.0.0.1", "255.255.255.255"), AsBytes(one_));
    Tell(Report({{"10.0.0.1", 0, 0}}));
    EXPECT_EQ(0, NetGetEthParam(0, &one_));
    EXPECT_EQ(Param("10.0.0.1", "0.0.0.0"), AsBytes(one_));
    Tell(Report({{"10.0.0.1", 33, 0}}));
    EXPECT_EQ(-1, NetGetEthParam(0, &one_));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "MaskConvertIpv4", "the network mask(33) must be less than 32"));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetGetEthParam", "mask_convert_ipv4 error"));
}

TEST_F(NetIp, AnAddressThatIsNoIpv4TextIsSuccess) {
    for (const char* text : {"fe80::1", "nonsense", "10.0.0.256"}) {
        Tell(Report({{text, 24, 0}}));
        memset(&one_, 0xa5, sizeof(one_));
        EXPECT_EQ(0, NetGetEthParam(0, &one_));
        EXPECT_EQ(Bytes(16, 0), AsBytes(one_));
        EXPECT_TRUE(log_.Has(Kind::kError, "NetGetEthParam", std::string("ipaddr=[") + text + "]"));
        EXPECT_TRUE(log_.Has(Kind::kPerror, "NetGetEthParam", kNoAddressText));
        log_.Clear();
    }
}

TEST_F(NetIp, AMacThatCannotBeReadIsSuccess) {
    for (const char* text : {"00:11:zz:33:44:55", "00:11:22:33:44:55:66", "100:11:22:33:44:55"}) {
        Tell(Report({{"10.0.0.1", 24, 0}}, text));
        memset(&one_, 0xa5, sizeof(one_));
        EXPECT_EQ(0, NetGetEthParam(0, &one_));
        EXPECT_EQ(Param("10.0.0.1", "0.0.0.0", Bytes(6, 0)), AsBytes(one_));
        EXPECT_TRUE(log_.Has(Kind::kError, "NetGetEthParam", "delete sepeated char error"));
        log_.Clear();
    }
}

TEST_F(NetIp, AShortMacIsFilledWithZeros) {
    Tell(Report({{"10.0.0.1", 24, 0}}, "0a:0b"));
    EXPECT_EQ(0, NetGetEthParam(0, &one_));
    EXPECT_EQ(Param("10.0.0.1", "255.255.255.0", {0x0a, 0x0b, 0, 0, 0, 0}), AsBytes(one_));
    Tell(Report({{"10.0.0.1", 24, 0}}, ""));
    EXPECT_EQ(0, NetGetEthParam(0, &one_));
    EXPECT_EQ(Param("10.0.0.1", "255.255.255.0", Bytes(6, 0)), AsBytes(one_));
}

TEST_F(NetIp, TextsWithoutEnd) {
    // Address and MAC fill their fields; what follows them is no part of them.
    Tell(Report({{std::string(48, '1'), 24, 0}}));
    EXPECT_EQ(0, NetGetEthParam(0, &one_));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetGetEthParam", "ipaddr=[" + std::string(48, '1') + "]"));
    Tell(Report({{"10.0.0.1", 24, 0}}, std::string(20, 'f')));
    EXPECT_EQ(0, NetGetEthParam(0, &one_));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetGetEthParam", "delete sepeated char error"));
    EXPECT_EQ(Param("10.0.0.1", "0.0.0.0", Bytes(6, 0)), AsBytes(one_));
    daemon_.Default(Answer::Body(Pack().S32(0).Add(Bytes(924, 0xff))));
    EXPECT_EQ(0, NetGetEthParam(0, &one_));  // Every entry has its flag set.
    EXPECT_EQ(0, NetGetEthParamAll(0, &all_));
    EXPECT_EQ(0u, all_.dwIpNum);
    daemon_.Default(Answer::Body(Pack().S32(0).Add(Bytes(924, 0xfe))));
    EXPECT_EQ(0, NetGetEthParam(0, &one_));
    EXPECT_EQ(0, NetGetEthParamAll(0, &all_));
}

TEST_F(NetIp, SixteenEntriesAreTheMost) {
    std::vector<Entry> entries(16, Entry{"10.0.0.1", 8, 1});
    Bytes report = Report(entries);
    memset(report.data() + 28, 0xff, 4);
    Tell(report);
    EXPECT_EQ(0, NetGetEthParam(0, &one_));
    EXPECT_EQ(Param("0.0.0.0", "0.0.0.0"), AsBytes(one_));
    for (Entry& entry : entries) {
        entry.flag = 0;
    }
    report = Report(entries);
    memset(report.data() + 28, 0xff, 4);
    Tell(report);
    EXPECT_EQ(0, NetGetEthParamAll(0, &all_));
    EXPECT_EQ(16u, all_.dwIpNum);
    EXPECT_EQ(Param("10.0.0.1", "255.0.0.0"), AsBytes(all_.atNetEthParam[15]));
}

TEST_F(NetIp, ReadersThatFailLeaveZeros) {
    Tell(Report({{"10.0.0.1", 24, 0}}, kMacText, 9));
    EXPECT_EQ(-1, NetGetEthParam(0, &one_));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetGetEthParam", "ipaddr_show_filter error"));
    EXPECT_EQ(Bytes(16, 0), AsBytes(one_));
    EXPECT_EQ(-1, NetGetEthParamAll(0, &all_));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetGetEthParamAll", "ipaddr_show_filter error"));
    EXPECT_EQ(Bytes(260, 0), AsBytes(all_));
    daemon_.Default(Answer::Body(Bytes(928, 0)).Size(1));
    EXPECT_EQ(940, NetGetEthParam(0, &one_));
    EXPECT_EQ(940, NetGetEthParamAll(0, &all_));
}

TEST_F(NetIp, ReadersOfNoInterface) {
    EXPECT_EQ(1201, NetGetEthParam(3, &one_));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "interface_name", "Eth:3 does not exist and max interface NO:2"));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetGetEthParam", "interface check error!"));
    EXPECT_EQ(Bytes(16, 0), AsBytes(one_));
    EXPECT_EQ(1201, NetGetEthParamAll(3, &all_));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetGetEthParamAll", "interface check error!"));
    EXPECT_EQ(Bytes(260, 0), AsBytes(all_));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(NetIp, NullRecords) {
    EXPECT_EQ(1105, NetGetEthParam(0, nullptr));
    EXPECT_EQ(1105, NetGetEthParamAll(0, nullptr));
    EXPECT_EQ(1105, NetSetEthParam(0, 1, nullptr));
    EXPECT_EQ(1105, NetAddEthParamIPAndMask(0, nullptr));
    EXPECT_EQ(1105, NetDelEthParamIPAndMask(0, nullptr));
    EXPECT_TRUE(log_.IsSilent());
    EXPECT_EQ(0u, daemon_.Connections());
}

// ---- NetGetEthParamAll -------------------------------------------------------------------------

TEST_F(NetIp, AllShownAddresses) {
    Tell(Report(
        {{"10.9.9.9", 8, 1}, {"192.168.1.7", 24, 0}, {"10.8.8.8", 8, 3}, {"10.0.0.1", 8, 4}}));
    EXPECT_EQ(0, NetGetEthParamAll(2, &all_));
    ExpectSent(283, Pack().Text("eth2", 16));
    EXPECT_EQ(Pack()
                  .U32(2)
                  .Add(Param("192.168.1.7", "255.255.255.0"))
                  .Add(Param("10.0.0.1", "255.0.0.0"))
                  .FillTo(260),
              AsBytes(all_));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(NetIp, NoShownAddressIsAnEmptySet) {
    Tell(Report({{"10.9.9.9", 8, 1}}, "nonsense"));
    EXPECT_EQ(0, NetGetEthParamAll(0, &all_));
    EXPECT_EQ(Bytes(260, 0), AsBytes(all_));
    EXPECT_TRUE(log_.IsSilent());  // Nobody asked for the MAC address.
}

TEST_F(NetIp, ABadEntryEndsTheSet) {
    for (const char* text : {"fe80::1", ""}) {
        Tell(Report({{"192.168.1.7", 24, 0}, {text, 8, 0}, {"10.0.0.1", 8, 0}}));
        memset(&all_, 0xa5, sizeof(all_));
        EXPECT_EQ(0, NetGetEthParamAll(0, &all_));
        EXPECT_EQ(Pack().U32(0).Add(Param("192.168.1.7", "255.255.255.0")).FillTo(260),
                  AsBytes(all_));
        EXPECT_TRUE(
            log_.Has(Kind::kError, "NetGetEthParamAll", std::string("ipaddr=[") + text + "]"));
        EXPECT_TRUE(log_.Has(Kind::kPerror, "NetGetEthParamAll", kNoAddressText));
    }
}

TEST_F(NetIp, ABadMacEndsTheSet) {
    Tell(Report({{"192.168.1.7", 24, 0}}, "g0:1"));
    EXPECT_EQ(0, NetGetEthParamAll(0, &all_));
    EXPECT_EQ(0u, all_.dwIpNum);
    EXPECT_TRUE(log_.Has(Kind::kError, "NetGetEthParamAll", "delete sepeated char error"));
}

TEST_F(NetIp, ABadPrefixFailsTheSet) {
    Tell(Report({{"192.168.1.7", 24, 0}, {"10.0.0.1", 33, 0}}));
    EXPECT_EQ(-1, NetGetEthParamAll(0, &all_));
    EXPECT_EQ(0u, all_.dwIpNum);
    EXPECT_TRUE(log_.Has(Kind::kError, "NetGetEthParamAll", "convert network mask error"));
}

}  // namespace
}  // namespace vimbra::tests
