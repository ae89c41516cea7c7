// DNS servers in the resolver configuration.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <vimbra/dns.h>
#include <vimbra/net_dns.h>

#include <memory>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "files.hpp"

namespace vimbra::tests {

using namespace std::string_literals;
using namespace bed;

namespace {

constexpr char kConf[] = "/etc/resolv.conf";

std::vector<TVimbraAddr> Addresses(const std::vector<std::string>& texts) {
    std::vector<TVimbraAddr> addresses;
    for (const std::string& text : texts) {
        addresses.push_back(Address(text));
    }
    return addresses;
}

std::vector<TVimbraAddr> ManyAddresses(size_t count) {
    std::vector<TVimbraAddr> addresses;
    for (size_t i = 0; i < count; i++) {
        addresses.push_back(
            Address("10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256)));
    }
    return addresses;
}

std::string ServerLines(size_t from, size_t to) {
    std::string lines;
    for (size_t i = from; i < to; i++) {
        lines +=
            "nameserver 10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256) + "\n";
    }
    return lines;
}

s32 Set(std::string name, u16 family, const std::vector<std::string>& servers) {
    std::vector<TVimbraAddr> addresses = Addresses(servers);
    // Exactly as long as said: what reads past it is seen.
    return VimbraDNSSet(name.data(), family, addresses.data(), static_cast<u32>(addresses.size()));
}

std::vector<std::string> Get() {
    auto info = std::make_unique<TVimbraDnsAddrInfo>();
    EXPECT_EQ(0, VimbraDNSGet(info.get()));
    std::vector<std::string> servers;
    for (u32 i = 0; i < info->dwDnsNum && i < VIMBRA_DNS_MAX; i++) {
        const TVimbraAddr& server = info->atDnsServer[i];
        char text[INET6_ADDRSTRLEN] = {};
        inet_ntop(server.wSinFamily, &server.tV6Addr, text, sizeof(text));
        servers.push_back(text);
    }
    return servers;
}

void FreeSections(TNetDnsParam* section) {
    while (section != nullptr) {
        TNetDnsParam* next = section->next;
        free(section->pchIfaceName);
        free(section);
        section = next;
    }
}

using Texts = std::vector<std::string>;

TEST(DnsSet, NewSectionComesFirst) {
    Capture log;
    WriteFile(kConf, "####eth1\nnameserver 1.1.1.1\nnameserver 2.2.2.2\n");
    EXPECT_EQ(0, Set("eth0", 2, {"8.8.8.8", "8.8.4.4"}));
    EXPECT_EQ(
        "####eth0\nnameserver 8.8.8.8\nnameserver 8.8.4.4\n"
        "####eth1\nnameserver 1.1.1.1\nnameserver 2.2.2.2\n",
        ReadFile(kConf));
    EXPECT_TRUE(log.Has(Kind::kPrint, "VimbraDNSSet", "pchIfaceName : eth0"));
    EXPECT_TRUE(log.Has(Kind::kPrint, "VimbraDNSSet", "wSinFamily : 2"));
    EXPECT_TRUE(log.Has(Kind::kPrint, "WriteToDnsConf", "ReadFromReslovconf start...!"));
    EXPECT_TRUE(log.Has(Kind::kPrint, "WriteToDnsConf", "SetDnsToList start...!"));
    EXPECT_TRUE(log.Has(Kind::kPrint, "WriteToDnsConf", "WriteToReslovconf start...!"));
    EXPECT_TRUE(log.HasNoTrouble());
}

TEST(DnsSet, SameSectionIsReplacedInPlace) {
    WriteFile(kConf,
              "####eth1\nnameserver 1.1.1.1\n####eth0\nnameserver 3.3.3.3\nnameserver 4.4.4.4\n"
              "####eth2\nnameserver 2.2.2.2\n");
    EXPECT_EQ(0, Set("eth0", 2, {"9.9.9.9"}));
    EXPECT_EQ(
        "####eth1\nnameserver 1.1.1.1\n####eth0\nnameserver 9.9.9.9\n"
        "####eth2\nnameserver 2.2.2.2\n",
        ReadFile(kConf));
    EXPECT_EQ(0, Set("eth2", 2, {"7.7.7.7"}));
    EXPECT_EQ(0, Set("eth1", 2, {"6.6.6.6"}));
    EXPECT_EQ(
        "####eth1\nnameserver 6.6.6.6\n####eth0\nnameserver 9.9.9.9\n"
        "####eth2\nnameserver 7.7.7.7\n",
        ReadFile(kConf));
}

TEST(DnsSet, OnlyTheFirstOfTwoEqualSectionsIsReplaced) {
    WriteFile(kConf, "####eth0\nnameserver 1.1.1.1\n####eth0\nnameserver 2.2.2.2\n");
    EXPECT_EQ(0, Set("eth0", 2, {"3.3.3.3"}));
    EXPECT_EQ("####eth0\nnameserver 3.3.3.3\n####eth0\nnameserver 2.2.2.2\n", ReadFile(kConf));
}

TEST(DnsSet, FamiliesLiveInTwoSections) {
    WriteFile(kConf, "");
    EXPECT_EQ(0, Set("eth0", 2, {"8.8.8.8"}));
    EXPECT_EQ(0, Set("eth0", 10, {"2001:db8::1", "::1"}));
    EXPECT_EQ("####eth0v6\nnameserver 2001:db8::1\nnameserver ::1\n####eth0\nnameserver 8.8.8.8\n",
              ReadFile(kConf));
    EXPECT_EQ((Texts{"2001:db8::1", "::1", "8.8.8.8"}), Get());
    EXPECT_EQ(0, Set("eth0", 10, {"2001:db8::2"}));
    EXPECT_EQ("####eth0v6\nnameserver 2001:db8::2\n####eth0\nnameserver 8.8.8.8\n",
              ReadFile(kConf));
}

TEST(DnsSet, NameEqualsWholly) {
    WriteFile(kConf, "####eth01\nnameserver 1.1.1.1\n# ####eth0\nnameserver 2.2.2.2\n");
    EXPECT_EQ(0, Set("eth0", 2, {"3.3.3.3"}));
    EXPECT_EQ(
        "####eth0\nnameserver 3.3.3.3\n####eth01\nnameserver 1.1.1.1\n# ####eth0\n"
        "nameserver 2.2.2.2\n",
        ReadFile(kConf));
}

TEST(DnsSet, NamesOfSixteenCharacters) {
    WriteFile(kConf, "");
    EXPECT_EQ(0, Set("abcdefghijklmnop", 10, {"::2"}));
    EXPECT_EQ("####abcdefghijklmnopv6\nnameserver ::2\n", ReadFile(kConf));
    EXPECT_EQ((Texts{"::2"}), Get());
    EXPECT_EQ(0, Set("", 2, {"1.1.1.1"}));
    EXPECT_EQ("####\nnameserver 1.1.1.1\n####abcdefghijklmnopv6\nnameserver ::2\n",
              ReadFile(kConf));
}

TEST(DnsSet, RefusedNames) {
    Capture log;
    WriteFile(kConf, "####eth1\n");
    EXPECT_EQ(1105, Set("abcdefghijklmnopq", 2, {"1.1.1.1"}));
    EXPECT_EQ(1105, VimbraDNSSet(nullptr, 2, nullptr, 0));
    EXPECT_EQ(1105, Set("a\nb", 2, {"1.1.1.1"}));
    EXPECT_EQ(3, log.Count(Kind::kError, "VimbraDNSSet", "pchIfaceName is invalid!"));
    EXPECT_EQ(0, log.Count(Kind::kPrint));
    EXPECT_EQ("####eth1\n", ReadFile(kConf));
}

TEST(DnsSet, MixedFamiliesAreRefused) {
    Capture log;
    WriteFile(kConf, "####eth1\nsearch here\n");
    EXPECT_EQ(-1, Set("eth0", 2, {"1.1.1.1", "::1"}));
    EXPECT_EQ(-1, Set("eth0", 10, {"1.1.1.1", "::1"}));
    EXPECT_EQ(-1, Set("eth0", 3, {"1.1.1.1"}));  // looked at before the family itself
    EXPECT_EQ(3, log.Count(Kind::kError, "VimbraDNSSet",
                           "all the atDnsIP wSinFamily value must be same!"));
    EXPECT_EQ("####eth1\nsearch here\n", ReadFile(kConf));
}

TEST(DnsSet, OtherFamiliesAreRefused) {
    for (const u16 family : {u16{0}, u16{1}, u16{3}, u16{9}, u16{11}, u16{0xffff}}) {
        Capture log;
        WriteFile(kConf, "####eth1\n");
        TVimbraAddr address = {};
        address.wSinFamily = family;
        char name[] = "eth0";
        const std::string text = "all the atDnsIP wSinFamily " + std::to_string(family) +
                                 " value must be AF_INET or AF_INET6!";
        EXPECT_EQ(-1, VimbraDNSSet(name, family, &address, 1));
        EXPECT_EQ(-1, VimbraDNSSet(name, family, nullptr, 0));
        EXPECT_EQ(2, log.Count(Kind::kError, "VimbraDNSSet", text));
        EXPECT_EQ("####eth1\n", ReadFile(kConf));
    }
}

TEST(DnsSet, CountOfZeroLeavesABareMarker) {
    WriteFile(kConf, "####eth0\nnameserver 1.1.1.1\n####eth1\nnameserver 2.2.2.2\n");
    char name[] = "eth0";
    EXPECT_EQ(0, VimbraDNSSet(name, 2, nullptr, 0));
    EXPECT_EQ("####eth0\n####eth1\nnameserver 2.2.2.2\n", ReadFile(kConf));
    auto* nowhere = reinterpret_cast<TVimbraAddr*>(8);
    EXPECT_EQ(0, VimbraDNSSet(name, 2, nowhere, 0));
    EXPECT_EQ("####eth0\n####eth1\nnameserver 2.2.2.2\n", ReadFile(kConf));
}

TEST(DnsSet, CountOfZeroEmptiesTheSectionOfItsFamily) {
    WriteFile(kConf, "####eth0v6\nnameserver ::1\n####eth0\nnameserver 1.1.1.1\n");
    char name[] = "eth0";
    auto* nowhere = reinterpret_cast<TVimbraAddr*>(8);
    EXPECT_EQ(0, VimbraDNSSet(name, 10, nowhere, 0));
    EXPECT_EQ("####eth0v6\n####eth0\nnameserver 1.1.1.1\n", ReadFile(kConf));
    EXPECT_EQ(0, Set("eth0", 10, {"::2"}));
    EXPECT_EQ(0, VimbraDNSSet(name, 2, nullptr, 0));
    EXPECT_EQ("####eth0v6\nnameserver ::2\n####eth0\n", ReadFile(kConf));
    char other[] = "eth1";
    EXPECT_EQ(0, VimbraDNSSet(other, 10, nullptr, 0));
    EXPECT_EQ("####eth1v6\n####eth0v6\nnameserver ::2\n####eth0\n", ReadFile(kConf));
}

// The steps on their own know no family but that of the servers.
TEST(DnsSet, StepsWithoutServersEmptyThePlainSection) {
    WriteFile(kConf, "####eth0v6\nnameserver ::1\n####eth0\nnameserver 1.1.1.1\n");
    char name[] = "eth0";
    EXPECT_EQ(0, WriteToDnsConf(name, nullptr, 0));
    EXPECT_EQ("####eth0v6\nnameserver ::1\n####eth0\n", ReadFile(kConf));
}

// A first server that is not counted has no say.
TEST(DnsSet, StepsWithoutServersDoNotLookAtTheArray) {
    WriteFile(kConf, "####eth0v6\nnameserver ::1\n####eth0\nnameserver 1.1.1.1\n");
    char name[] = "eth0";
    TVimbraAddr server = {};
    server.wSinFamily = 10;
    EXPECT_EQ(0, WriteToDnsConf(name, &server, 0));
    EXPECT_EQ("####eth0v6\nnameserver ::1\n####eth0\n", ReadFile(kConf));
}

TEST(DnsSet, NullArrayWithACount) {
    Capture log;
    WriteFile(kConf, "####eth1\n");
    char name[] = "eth0";
    EXPECT_EQ(-1, VimbraDNSSet(name, 2, nullptr, 1));
    EXPECT_EQ(-1, VimbraDNSSet(name, 2, nullptr, 0xffffffff));
    EXPECT_EQ(2, log.Count(Kind::kError, "VimbraDNSSet"));
    EXPECT_EQ("####eth1\n", ReadFile(kConf));
}

TEST(DnsSet, MoreThan64AreCut) {
    WriteFile(kConf, "");
    for (const size_t count : {size_t{63}, size_t{64}, size_t{65}, size_t{1000}}) {
        std::vector<TVimbraAddr> servers = ManyAddresses(count);
        char name[] = "eth0";
        EXPECT_EQ(0, VimbraDNSSet(name, 2, servers.data(), static_cast<u32>(count)));
        EXPECT_EQ("####eth0\n" + ServerLines(0, std::min<size_t>(count, 64)), ReadFile(kConf));
        servers.back().wSinFamily = 10;
        EXPECT_EQ(-1, VimbraDNSSet(name, 2, servers.data(), static_cast<u32>(count)))
            << "all that were given are looked at";
    }
}

TEST(DnsSet, MissingFileFails) {
    Capture log;
    Remove(kConf);
    EXPECT_EQ(-1, Set("eth0", 2, {"1.1.1.1"}));
    EXPECT_TRUE(log.Has(Kind::kPerror, "ReadFromReslovconf", "fopen error"));
    EXPECT_TRUE(log.Has(Kind::kError, "WriteToDnsConf", "ReadFromReslovconf error!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraDNSSet", "WriteToReslovconf error!"));
    auto info = std::make_unique<TVimbraDnsAddrInfo>();
    EXPECT_EQ(-1, VimbraDNSGet(info.get()));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraDNSGet", "ReadFromReslovconf error!"));
    EXPECT_NE(0, access(kConf, F_OK));
}

TEST(DnsSet, FileStaysTheSameFile) {
    Remove(kConf);
    WriteFile("/tmp/real.conf", "####eth0\n" + ServerLines(0, 40));
    ASSERT_EQ(0, symlink("/tmp/real.conf", kConf));
    ASSERT_EQ(0, chmod("/tmp/real.conf", 0640));
    ASSERT_EQ(0, lchown("/tmp/real.conf", 0, 0));
    const auto before = Identity(kConf);
    EXPECT_EQ(0, Set("eth0", 2, {"1.1.1.1"}));
    EXPECT_EQ("####eth0\nnameserver 1.1.1.1\n", ReadFile("/tmp/real.conf"));
    EXPECT_EQ(before, Identity(kConf));
    struct stat status {};
    ASSERT_EQ(0, lstat(kConf, &status));
    EXPECT_TRUE(S_ISLNK(status.st_mode));
}

TEST(DnsSet, DirectoryInItsPlace) {
    Capture log;
    AsDirectory(kConf);
    EXPECT_EQ(-1, Set("eth0", 2, {"1.1.1.1"}));
    EXPECT_TRUE(log.Has(Kind::kPerror, "ReadFromReslovconf", "fopen error"));
}

TEST(DnsSet, PipeInItsPlaceIsNotWaitedFor) {
    Remove(kConf);
    ASSERT_EQ(0, mkfifo(kConf, 0644));
    EXPECT_EQ(-1, Set("eth0", 2, {"1.1.1.1"}));
}

TEST(DnsSet, EndlessFileIsRefused) {
    Remove(kConf);
    ASSERT_EQ(0, symlink("/dev/zero", kConf));
    EXPECT_EQ(-1, Set("eth0", 2, {"1.1.1.1"}));
    Remove(kConf);
    WriteFile(kConf, "");
    ASSERT_EQ(0, truncate(kConf, off_t{1} << 30));
    EXPECT_EQ(-1, Set("eth0", 2, {"1.1.1.1"}));
}

TEST(DnsSet, ReadOnlyDisk) {
    Capture log;
    OnReadOnlyDisk(kConf, "####eth1\n");
    EXPECT_EQ(-1, Set("eth0", 2, {"1.1.1.1"}));
    EXPECT_TRUE(log.Has(Kind::kError, "WriteToReslovconf", "fopen error"));
    EXPECT_TRUE(log.Has(Kind::kError, "WriteToDnsConf", "WriteToReslovconf error"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraDNSSet", "WriteToReslovconf error!"));
    EXPECT_EQ("####eth1\n", ReadFile(kConf));
}

TEST(DnsSet, FullDiskKeepsTheOldContent) {
    Capture log;
    std::string content;
    for (int i = 0; content.size() < 4000; i++) {
        content += "####eth" + std::to_string(i) + "\nnameserver 1.1.1.1\n";
    }
    OnFullDisk(kConf, content);
    std::vector<TVimbraAddr> servers = ManyAddresses(64);
    char name[] = "eth0";
    EXPECT_EQ(-1, VimbraDNSSet(name, 2, servers.data(), 64));
    EXPECT_TRUE(log.Has(Kind::kError, "WriteToDnsConf", "WriteToReslovconf error"));
    EXPECT_EQ(content, ReadFile(kConf));
    EXPECT_EQ(0, VimbraDNSSet(name, 2, servers.data(), 0)) << "a shorter one still fits";
}

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
