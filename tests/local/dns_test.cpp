// Resolver configuration: setting servers.
#include "dns.hpp"

#include <gtest/gtest.h>
#include <vimbra/dns.h>

#include <memory>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "files.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

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

}  // namespace
}  // namespace vimbra::tests
