// Legacy addresses and MTU.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <vimbra/net_ip.h>

#include <cstring>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "said.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr char kMacText[] = "00:11:22:aa:BB:ff";
const Bytes kMac = {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xff};
constexpr char kNoAddressText[] =
    "converts  the  character string src into a network address error";

struct Entry {
    std::string address;
    u32 prefix = 0;
    u32 flag = 0;
};

Bytes Report(const std::vector<Entry>& entries, const std::string& mac = kMacText, s32 code = 0) {
    Pack pack;
    pack.S32(code).U32(1500).Text(mac, 20).U32(static_cast<u32>(entries.size()));
    for (const Entry& entry : entries) {
        pack.Text(entry.address, 48).U32(entry.prefix).U32(entry.flag);
    }
    return pack.FillTo(928);
}

Bytes Param(const char* address, const char* mask, const Bytes& mac = kMac) {
    return Pack().In4(address).In4(mask).Add(mac).FillTo(16);
}

class NetIp : public AtDaemon {
 protected:
    NetIp() {
        memset(&one_, 0xa5, sizeof(one_));
        memset(&all_, 0xa5, sizeof(all_));
    }

    void Tell(const Bytes& report) { daemon_.Default(Answer::Body(report)); }

    TNetEthParam one_;
    TNetEthParamAll all_;
};

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

// ---- Setting, adding, deleting -----------------------------------------------------------------

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

// ---- NetGetEthNum ------------------------------------------------------------------------------

// A /proc of the test's own for as long as it is asked; sanitizers want the real one at the end.
class OtherProc {
 public:
    OtherProc() { EXPECT_EQ(0, mount("none", "/proc", "tmpfs", 0, nullptr)) << strerror(errno); }
    ~OtherProc() { EXPECT_EQ(0, umount("/proc")) << strerror(errno); }
};

// The count for a /proc/net/dev with this text.
s32 CountEthernet(const std::string& text) {
    const OtherProc proc;
    WriteFile("/proc/net/dev", text);
    s32 count = -5;
    EXPECT_EQ(0, NetGetEthNum(&count));
    return count;
}

constexpr char kHeader[] =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes\n";

TEST(EthNum, CountsEthernetNames) {
    Capture log;
    EXPECT_EQ(2, CountEthernet(std::string(kHeader) + "    lo:       0       0    0\n"
                                                      "  eth0:    2776      11    0\n"
                                                      "  eth1: 1215645    2751    0\n"));
    EXPECT_TRUE(log.IsSilent());
}

TEST(EthNum, ANameWithEthAnywhereCounts) {
    EXPECT_EQ(4, CountEthernet(std::string(kHeader) + " veth3: 1\n"
                                                      "  xeth: 1\n"
                                                      "   eth: 1\n"
                                                      "  ETH0: 1\n"  // capitals are other letters
                                                      " wlan0: 1\n"
                                                      " eth-x: 1\n"  // cut at the dash, counted
                                                      "veth12: 1\n"  // not indented
                                                      "\n"));
}

TEST(EthNum, LongLinesAndNames) {
    // The name field holds 31 characters; a line is read in pieces of 1023.
    EXPECT_EQ(3, CountEthernet(" " + std::string(31, 'a') + "eth0: 1\n" +  //
                               " " + std::string(28, 'a') + "eth0: 1\n" +  //
                               std::string(5000, 'b') + "\n" +             //
                               std::string(1023, 'b') + "  eth0: 1\n" +    //
                               "  eth0"));                                 // no newline at the end
}

TEST(EthNum, AnEmptyFileCountsNothing) {
    EXPECT_EQ(0, CountEthernet(""));
}

TEST(EthNum, TheLoopbackIsNone) {
    s32 count = 9;
    EXPECT_EQ(0, NetGetEthNum(&count));  // The test's own network has nothing else.
    EXPECT_EQ(0, count);
}

TEST(EthNum, Failures) {
    Capture log;
    EXPECT_EQ(-1, NetGetEthNum(nullptr));
    EXPECT_TRUE(log.Has(Kind::kError, "NetGetEthNum", "param error"));
    const OtherProc proc;
    s32 count = 9;
    EXPECT_EQ(-1, NetGetEthNum(&count));
    EXPECT_EQ(9, count);
    EXPECT_TRUE(log.Has(Kind::kError, "NetGetEthNum", "fopen error"));
}

TEST(Netdev, IsARecordForTheApplication) {
    EXPECT_EQ(480u, sizeof(NetdevParam));
    EXPECT_EQ(Bytes(480, 0), AsBytes(TNetdevParam));
    strcpy(TNetdevParam.achIfaceName, "eth0");
    TNetdevParam.tNetIfaceAllIp.dwIpNum = 1;
    EXPECT_STREQ("eth0", TNetdevParam.achIfaceName);
}

}  // namespace
}  // namespace vimbra::tests
