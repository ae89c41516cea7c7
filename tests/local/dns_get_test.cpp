// Resolver configuration: reading it, its sections, the legacy calls.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <vimbra/dns.h>
#include <vimbra/net_dns.h>

#include <memory>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "dns.hpp"
#include "files.hpp"

namespace vimbra::tests {

using namespace std::string_literals;
using namespace bed;

namespace {

TEST(DnsGet, ServersOfAllSectionsTogether) {
    Capture log;
    WriteFile(kConf,
              "search lan\n####eth0\nnameserver 1.1.1.1\n# comment\noptions rotate\n"
              "nameserver 2.2.2.2\n####eth1v6\nnameserver fe80::1\n####eth2\n");
    EXPECT_EQ((Texts{"1.1.1.1", "2.2.2.2", "fe80::1"}), Get());
    EXPECT_TRUE(log.HasNoTrouble());
}

TEST(DnsGet, EntriesCarryFamilyAndZeros) {
    WriteFile(kConf, "####eth0\nnameserver 1.2.3.4\n####eth0v6\nnameserver ::5\n");
    auto info = std::make_unique<TVimbraDnsAddrInfo>();
    ASSERT_EQ(0, VimbraDNSGet(info.get()));
    EXPECT_EQ(2u, info->dwDnsNum);
    EXPECT_EQ(Pack().Address(2, "1.2.3.4").Get(), AsBytes(info->atDnsServer[0]));
    EXPECT_EQ(Pack().Address(10, "::5").Get(), AsBytes(info->atDnsServer[1]));
}

TEST(DnsGet, ServersBeforeAnyMarkerAreNeitherReportedNorKept) {
    WriteFile(kConf, "nameserver 9.9.9.9\n####eth1\nnameserver 1.1.1.1\n");
    EXPECT_EQ((Texts{"1.1.1.1"}), Get());
    EXPECT_EQ(0, Set("eth0", 2, {"2.2.2.2"}));
    EXPECT_EQ("####eth0\nnameserver 2.2.2.2\n####eth1\nnameserver 1.1.1.1\n", ReadFile(kConf));
}

TEST(DnsGet, OtherLinesDoNotSurviveARewrite) {
    WriteFile(kConf, "# top\n####eth1\ndomain lan\nnameserver 1.1.1.1\noptions rotate\n\n");
    EXPECT_EQ(0, Set("eth0", 2, {"2.2.2.2"}));
    EXPECT_EQ("####eth0\nnameserver 2.2.2.2\n####eth1\nnameserver 1.1.1.1\n", ReadFile(kConf));
}

TEST(DnsGet, WhatDoesNotParseIsAnEntryOfZeros) {
    WriteFile(kConf,
              "####eth0\nnameserver\nnameserver \nnameserver nonsense\nnameserver ::1\n"
              "nameserver  1.1.1.1 more\n#nameserver 2.2.2.2\n####av6b\nnameserver 1.1.1.1\n");
    EXPECT_EQ((Texts{"0.0.0.0", "0.0.0.0", "0.0.0.0", "0.0.0.0", "1.1.1.1", "2.2.2.2", "::"}),
              Get());
}

// Kept: the last character of each line goes, whether it is the newline or not.
TEST(DnsGet, LastLineWithoutNewlineLosesACharacter) {
    WriteFile(kConf, "####eth0\nnameserver 1.1.1.12");
    EXPECT_EQ((Texts{"1.1.1.1"}), Get());
    WriteFile(kConf, "####eth0");
    EXPECT_EQ(0, Set("eth1", 2, {}));
    EXPECT_EQ("####eth1\n####eth\n", ReadFile(kConf));
}

TEST(DnsGet, NothingButLinesOfNothing) {
    for (const std::string& content :
         {std::string(), std::string("\n"), std::string("\n\n\n"), std::string("x"),
          std::string(5000, '\0'), std::string(5000, ' '), "\0\n\0####\n"s}) {
        WriteFile(kConf, content);
        EXPECT_EQ(Texts{}, Get());
    }
}

TEST(DnsGet, ZeroBytesEndALineWhereTheyStand) {
    WriteFile(kConf, "####eth0\n\0####eth1\nnameserver 1.1.1.1x\0garbage\n"s);
    EXPECT_EQ((Texts{"1.1.1.1"}), Get());
}

TEST(DnsGet, LongLinesComeInPiecesOf99) {
    // 10,000 characters: 101 pieces and a rest, none of which is longer than the buffer was.
    WriteFile(kConf, "####eth0\n#" + std::string(9999, 'x') + "\nnameserver 1.1.1.1\n");
    EXPECT_EQ((Texts{"1.1.1.1"}), Get());
    WriteFile(kConf, "####" + std::string(9996, 'e') + "\nnameserver 1.1.1.1\n");
    EXPECT_EQ((Texts{"1.1.1.1"}), Get());
    EXPECT_EQ(0, Set("eth0", 2, {}));
    EXPECT_EQ("####eth0\n####" + std::string(94, 'e') + "\nnameserver 1.1.1.1\n", ReadFile(kConf));
    WriteFile(kConf, "####eth0\n" + std::string(99, 'x') + "nameserver 1.1.1.1\n");
    EXPECT_EQ((Texts{"1.1.1.1"}), Get());
    WriteFile(kConf, "####eth0\nnameserver " + std::string(10000, '1') + "\n");
    EXPECT_EQ((Texts{"0.0.0.0"}), Get());
}

TEST(DnsGet, SectionsOfMoreThan64StopThere) {
    WriteFile(kConf, "####eth0\n" + ServerLines(0, 70) + "####eth1\nnameserver 9.9.9.9\n");
    EXPECT_EQ(64u, Get().size());
    EXPECT_EQ("10.0.0.63", Get().back());
    EXPECT_EQ(0, Set("eth2", 2, {}));
    EXPECT_EQ("####eth2\n####eth0\n" + ServerLines(0, 64) + "####eth1\nnameserver 9.9.9.9\n",
              ReadFile(kConf));
}

TEST(DnsGet, AtMost64AreReported) {
    WriteFile(kConf, "####eth0\n" + ServerLines(0, 40) + "####eth1\n" + ServerLines(40, 80));
    const Texts servers = Get();
    ASSERT_EQ(64u, servers.size());
    EXPECT_EQ("10.0.0.63", servers.back());
}

TEST(DnsGet, NullRecord) {
    Capture log;
    WriteFile(kConf, "####eth0\n");
    EXPECT_EQ(-1, VimbraDNSGet(nullptr));
    EXPECT_EQ(1, log.Count(Kind::kError, "VimbraDNSGet"));
}

TEST(DnsSections, ListBeginsWithAnEmptyHead) {
    WriteFile(kConf, "nameserver 5.5.5.5\n####eth0\nnameserver 1.1.1.1\nx\n####eth1v6\n");
    TNetDnsParam* list = ReadFromReslovconf();
    ASSERT_NE(nullptr, list);
    EXPECT_EQ(nullptr, list->pchIfaceName);
    EXPECT_EQ(0, list->nDnsNum);
    ASSERT_NE(nullptr, list->next);
    EXPECT_STREQ("####eth0", list->next->pchIfaceName);
    EXPECT_EQ(1, list->next->nDnsNum);
    ASSERT_NE(nullptr, list->next->next);
    EXPECT_STREQ("####eth1v6", list->next->next->pchIfaceName);
    EXPECT_EQ(nullptr, list->next->next->next);
    FreeSections(list);
}

TEST(DnsSections, SetAndWriteOnTheirOwn) {
    Capture log;
    Remove(kConf);
    TNetDnsParam head = {};
    char name[] = "eth0";
    std::vector<TVimbraAddr> servers = Addresses({"::1"});
    EXPECT_EQ(0, SetDnsToList(&head, name, servers.data(), 1));
    ASSERT_NE(nullptr, head.next);
    EXPECT_STREQ("####eth0v6", head.next->pchIfaceName);
    EXPECT_EQ(0, WriteToReslovconf(&head)) << "makes the file";
    EXPECT_EQ("####eth0v6\nnameserver ::1\n", ReadFile(kConf));
    head.next->nDnsNum = 1000;
    EXPECT_EQ(0, WriteToReslovconf(&head));
    head.next->nDnsNum = -5;
    EXPECT_EQ(0, WriteToReslovconf(&head));
    EXPECT_EQ("####eth0v6\n", ReadFile(kConf));
    free(head.next->pchIfaceName);
    head.next->pchIfaceName = nullptr;
    EXPECT_EQ(0, SetDnsToList(&head, name, servers.data(), 1));
    EXPECT_EQ(0, WriteToReslovconf(&head));
    EXPECT_EQ("####eth0v6\nnameserver ::1\n", ReadFile(kConf));
    FreeSections(head.next);
    EXPECT_TRUE(log.HasNoTrouble());
}

TEST(DnsSections, NullsAreMinusOne) {
    Capture log;
    WriteFile(kConf, "####eth1\n");
    TNetDnsParam head = {};
    char name[] = "eth0";
    EXPECT_EQ(-1, SetDnsToList(nullptr, name, nullptr, 0));
    EXPECT_EQ(-1, SetDnsToList(&head, nullptr, nullptr, 0));
    EXPECT_EQ(-1, SetDnsToList(&head, name, nullptr, 1));
    EXPECT_EQ(3, log.Count(Kind::kError, "SetDnsToList"));
    EXPECT_EQ(-1, WriteToReslovconf(nullptr));
    EXPECT_TRUE(log.Has(Kind::kError, "WriteToReslovconf", "ptDnsList is NULL!"));
    EXPECT_EQ(-1, WriteToDnsConf(nullptr, nullptr, 0));
    EXPECT_TRUE(log.Has(Kind::kError, "WriteToDnsConf", "SetDnsToList error!"));
    EXPECT_EQ("####eth1\n", ReadFile(kConf));
}

TEST(DnsLegacy, WordsBecomeAddresses) {
    WriteFile(kConf, "");
    u32 servers[] = {inet_addr("1.2.3.4"), 0};
    EXPECT_EQ(0, NetDNSSetEx(1, servers, 2));
    EXPECT_EQ("####eth1\nnameserver 1.2.3.4\nnameserver 0.0.0.0\n", ReadFile(kConf));
    EXPECT_EQ(0, NetDNSSetEx(1, nullptr, 0));
    EXPECT_EQ("####eth1\n", ReadFile(kConf));
}

TEST(DnsLegacy, MoreThan128AreCutWithAWarning) {
    WriteFile(kConf, "");
    for (const s32 count : {128, 129, 200}) {
        Capture log;
        std::vector<u32> servers;
        for (s32 i = 0; i < count; i++) {
            servers.push_back(htonl(0x0a000000 + static_cast<u32>(i)));
        }
        EXPECT_EQ(0, NetDNSSetEx(0, servers.data(), count));
        EXPECT_EQ(count > 128 ? 1 : 0,
                  log.Count(Kind::kWarn, "NetDNSSetEx", "DNS number too large"));
        EXPECT_EQ("####eth0\n" + ServerLines(0, 64), ReadFile(kConf));
    }
}

TEST(DnsLegacy, Refusals) {
    Capture log;
    WriteFile(kConf, "####eth1\n");
    u32 server = 1;
    EXPECT_EQ(1201, NetDNSSetEx(3, &server, 1));
    EXPECT_TRUE(log.Has(Kind::kError, "NetDNSSetEx", "interface_name failed"));
    EXPECT_EQ(1201, NetDNSSetEx(0xffffffff, &server, 1));
    EXPECT_EQ(-1, NetDNSSetEx(0, nullptr, 1));
    EXPECT_EQ(-1, NetDNSSetEx(0, &server, -1));
    EXPECT_EQ(-1, NetDNSSetEx(0, &server, INT32_MIN));
    EXPECT_EQ("####eth1\n", ReadFile(kConf));
}

TEST(DnsLeaks, NothingStaysOpen) {
    WriteFile(kConf, "####eth0\nnameserver 1.1.1.1\n");
    const auto before = OpenDescriptors();
    EXPECT_EQ(0, Set("eth0", 2, {"1.1.1.1"}));
    Get();
    AsDirectory(kConf);
    EXPECT_EQ(-1, Set("eth0", 2, {"1.1.1.1"}));
    EXPECT_EQ(before, OpenDescriptors());
}

}  // namespace
}  // namespace vimbra::tests
