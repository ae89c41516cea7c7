// Services of inetd: the table, starts, the legacy calls.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/net_service.h>
#include <vimbra/service.h>

#include <csignal>
#include <optional>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "files.hpp"
#include "services.hpp"

namespace vimbra::tests {

using namespace std::string_literals;
using namespace bed;

namespace {

TEST(ServiceTable, HasElevenRows) {
    const struct {
        const char* text;
        const char* path;
    } kRows[] = {
        {"telnetd 23 telnet stream tcp nowait root /sbin/telnetd /sbin/telnetd -i", " "},
        {"telnetd 23 telnet stream tcp6 nowait root /sbin/telnetd /sbin/telnetd -i", " "},
        {"ssh 22 ssh stream tcp nowait root /sbin/dropbear /sbin/dropbear -i", " "},
        {"ssh 22 ssh stream tcp6 nowait root /sbin/dropbear /sbin/dropbear -i", " "},
        {"ftpd 21 ftp stream tcp nowait root /sbin/ftpd /sbin/ftpd -w", "/"},
        {"ftpd 21 ftp stream tcp6 nowait root /sbin/ftpd /sbin/ftpd -w", "/"},
        {"tftpd 69 tftp dgram udp nowait root /sbin/tftpd /sbin/tftpd -l -c", "/"},
        {"tftpd 69 tftp dgram udp6 nowait root /sbin/tftpd /sbin/tftpd -l -c", "/"},
        {"httpd 80 www stream tcp nowait root /sbin/httpd /sbin/httpd -i -c ", "/etc/httpd.conf"},
        {"httpd 80 www stream tcp6 nowait root /sbin/httpd /sbin/httpd -i -c ", "/etc/httpd.conf"},
        {"tcp_server1 8000 tcptest stream tcp nowait admin /usr/tcp_server1 /usr/tcp_server1",
         " "}};
    ASSERT_EQ(std::size(kRows), std::size(g_atNetServiceInfo));
    for (size_t i = 0; i < std::size(kRows); i++) {
        const TServType& row = g_atNetServiceInfo[i];
        const TInetdInfo& line = row.tInetdInfo;
        std::string text = row.pchServType + " "s + std::to_string(row.wPort);
        for (const char* field : {line.pchServerName, line.pchSockType, line.pchProto,
                                  line.pchFlags, line.pchUser, line.pchSerPath, line.pchArgs}) {
            text += " "s + field;
        }
        EXPECT_EQ(kRows[i].text, text);
        EXPECT_STREQ(kRows[i].path, row.achPath);
    }
}

TEST_F(Service, StartAppendsMarkerAndLine) {
    const auto before = Identity(kInetd);
    EXPECT_EQ(0, Start("telnetd", 23, "tcp"));
    EXPECT_EQ("#telnetd\n"s + kTelnet, ReadFile(kInetd));
    EXPECT_TRUE(
        log_.Has(Kind::kPrint, "StartNetService", "Inetd Pid:" + std::to_string(inetd_->Pid())));
    ExpectTold();
    for (const char* text : {"##############################", "Start telnet Service",
                             "Port is -->23 ", "Protocol is tcp ", "Path is   ", "  "}) {
        EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraServiceStart", text));
    }
    EXPECT_TRUE(log_.Has(Kind::kPrint, "StartNetService", "service no exists!"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "GetRootUser", "achPasswdBuf : chief:x:0:0:::"));
    EXPECT_EQ(0, log_.Count(Kind::kPrint, "GetRootUser", "achPasswdBuf : root:x:0:0:::"));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(before, Identity(kInetd));
}

TEST_F(Service, AnotherPortIsWrittenAsANumber) {
    EXPECT_EQ(0, Start("telnetd", 2323, "tcp"));
    EXPECT_EQ("#telnetd\n2323\tstream\ttcp\tnowait\tchief\t/sbin/telnetd\t/sbin/telnetd -i  \n",
              ReadFile(kInetd));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraServiceStart", "Start 2323 Service"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraServiceStart", "Port is -->2323 "));
    ExpectTold();
    EXPECT_EQ(0, Start("telnetd", 65535, "tcp"));
    EXPECT_THAT(ReadFile(kInetd), testing::StartsWith("65535\tstream"));
    EXPECT_STREQ("telnet", g_atNetServiceInfo[0].tInetdInfo.pchServerName);
    EXPECT_STREQ("root", g_atNetServiceInfo[0].tInetdInfo.pchUser);
}

TEST_F(Service, EveryRowButTheLast) {
    for (size_t i = 0; i < 10; i++) {
        const TServType& row = g_atNetServiceInfo[i];
        const TInetdInfo& line = row.tInetdInfo;
        WriteFile(kInetd, "");
        EXPECT_EQ(0, Start(row.pchServType, row.wPort, line.pchProto));
        EXPECT_EQ("#"s + row.pchServType + "\n" + line.pchServerName + "\t" + line.pchSockType +
                      "\t" + line.pchProto + "\tnowait\tchief\t" + line.pchSerPath + "\t" +
                      line.pchArgs + " " + row.achPath + "\n",
                  ReadFile(kInetd));
        ExpectTold();
    }
}

TEST_F(Service, WhatTheTableDoesNotHave) {
    EXPECT_EQ(-1, Start("tcp_server1", 8000, "tcp"));
    EXPECT_EQ(-1, Start("telnetd", 23, "sctp"));
    EXPECT_EQ(-1, Start("telnetd", 23, "udp"));
    EXPECT_EQ(-1, Start("telnetd", 23, "TCP"));
    EXPECT_EQ(-1, Start("telnetd", 23, std::nullopt));
    EXPECT_EQ(-1, Start("telnet", 23, "tcp"));
    EXPECT_EQ(-1, Start("", 23, ""));
    EXPECT_EQ(7, log_.Count(Kind::kError, "VimbraServiceStart", "can't find relevant services"));
    EXPECT_EQ("", ReadFile(kInetd));
    EXPECT_TRUE(inetd_->Lives());
}

TEST_F(Service, RefusedArguments) {
    EXPECT_EQ(1105, VimbraServiceStart(nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraServiceStart", "servName or parametre is NULL"));
    TVimbraServInfo info = {};
    EXPECT_EQ(1105, VimbraServiceStart(&info));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraServiceStart",
                         "ServInfo 's pchServerName is empty or not campared with servname"));
    EXPECT_EQ(1105, Start("nonsense", 0, "tcp"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraServiceStart", "wrong port"));
    EXPECT_EQ(1105, VimbraServiceStop(nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraServiceStop", "servName is NULL"));
    EXPECT_EQ(4, log_.Count(Kind::kError));
}

TEST_F(Service, ALineOfItsProgramIsRewritten) {
    const std::string first = "daytime stream tcp nowait root internal\n";
    WriteFile(kInetd, first + "stream nowait /sbin/telnetd whatever\nlast\n");
    EXPECT_EQ(0, Start("telnetd", 23, "tcp"));
    EXPECT_EQ(first + kTelnet + "last\n", ReadFile(kInetd));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "StartNetService", "service already exists!"));
    ExpectTold();
    EXPECT_EQ(0, Start("telnetd", 23, "tcp"));
    EXPECT_EQ(first + kTelnet + "last\n", ReadFile(kInetd));
}

// Kept: neither name nor protocol is compared.
TEST_F(Service, TheOtherFamilyTakesTheLineOver) {
    EXPECT_EQ(0, Start("ssh", 22, "tcp"));
    ExpectTold();
    EXPECT_EQ(0, Start("ssh", 22, "tcp6"));
    EXPECT_EQ(kSsh, ReadFile(kInetd));
}

TEST_F(Service, OtherSocketTypesAndFlagsAreNotItsLine) {
    const std::string others =
        "telnet dgram tcp nowait root /sbin/telnetd x\ntelnet stream tcp wait root /sbin/telnetd\n"
        "telnet stream tcp nowait root /sbin/telnet x\n";
    WriteFile(kInetd, others);
    EXPECT_EQ(0, Start("telnetd", 23, "tcp"));
    EXPECT_EQ(others + "#telnetd\n" + kTelnet, ReadFile(kInetd));
}

// Kept: the file is read without its comments.
TEST_F(Service, CommentsDoNotSurvive) {
    WriteFile(kInetd, "# one\na b c\n#" + std::string(10000, 'x') + "\n  # kept\n#telnetd\n");
    EXPECT_EQ(0, Start("telnetd", 23, "tcp"));
    EXPECT_EQ("a b c\n  # kept\n#telnetd\n"s + kTelnet, ReadFile(kInetd));
    ExpectTold();
    EXPECT_EQ(0, Start("ssh", 22, "tcp6"));
    EXPECT_EQ("a b c\n  # kept\n"s + kTelnet + "#ssh\n" + kSsh, ReadFile(kInetd));
}

TEST_F(Service, OddFiles) {
    for (const std::string& content :
         {"x"s, "\n\n"s, " \t \n"s, "a\0b\nc\0\n"s, std::string(10000, 'l'), "\0"s}) {
        WriteFile(kInetd, content);
        EXPECT_EQ(0, Start("telnetd", 23, "tcp"));
        EXPECT_EQ(content + (content.ends_with('\n') ? "" : "\n") + "#telnetd\n" + kTelnet,
                  ReadFile(kInetd));
        ExpectTold();
    }
}

TEST_F(Service, LongLinesAreLines) {
    const std::string line = "stream nowait " + std::string(10000, 'l') + " /sbin/telnetd\n";
    WriteFile(kInetd, "a\n" + line + "b\n");
    EXPECT_EQ(0, Start("telnetd", 23, "tcp"));
    EXPECT_EQ("a\n"s + kTelnet + "b\n", ReadFile(kInetd));
    WriteFile(kInetd, "a\n" + line + "b\n");
    ExpectTold();
    EXPECT_EQ(0, Stop("telnetd"));
    EXPECT_EQ("a\nb\n", ReadFile(kInetd));
}

TEST_F(Service, PathsPersist) {
    EXPECT_EQ(0, Start("ftpd", 21, "tcp", "/media/disk one"));
    EXPECT_EQ("#ftpd\nftp\tstream\ttcp\tnowait\tchief\t/sbin/ftpd\t/sbin/ftpd -w /media/disk one\n",
              ReadFile(kInetd));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraServiceStart", "Path is /media/disk one "));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraServiceStart", "/media/disk one "));
    EXPECT_STREQ("/media/disk one", g_atNetServiceInfo[4].achPath);
    EXPECT_STREQ("/", g_atNetServiceInfo[5].achPath);
    ExpectTold();
    EXPECT_EQ(0, Start("ftpd", 21, "tcp"));
    EXPECT_THAT(ReadFile(kInetd), testing::EndsWith("/sbin/ftpd -w /media/disk one\n"));
    ExpectTold();
    EXPECT_EQ(0, Start("ftpd", 21, "tcp", ""));
    EXPECT_THAT(ReadFile(kInetd), testing::EndsWith("/sbin/ftpd -w \n"));
    EXPECT_EQ(Bytes(64), AsBytes(g_atNetServiceInfo[4].achPath));
}

TEST_F(Service, PathsOf64Characters) {
    const auto neighbour = AsBytes(g_atNetServiceInfo[5].wPort);
    for (const size_t length : {size_t{63}, size_t{64}, size_t{65}, size_t{10000}}) {
        const std::string kept(std::min<size_t>(length, 64), 'p');
        WriteFile(kInetd, "");
        EXPECT_EQ(0, Start("ftpd", 21, "tcp", std::string(length, 'p')));
        EXPECT_THAT(ReadFile(kInetd), testing::EndsWith("/sbin/ftpd -w " + kept + "\n"));
        EXPECT_EQ(Pack().Text(kept, 64).Get(), AsBytes(g_atNetServiceInfo[4].achPath));
        EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraServiceStart", "Path is " + kept + " "));
        ExpectTold();
    }
    EXPECT_EQ(neighbour, AsBytes(g_atNetServiceInfo[5].wPort));
}

TEST_F(Service, PathsThatWouldMakeLines) {
    for (const char* path : {"/a\nroot", "\t", "/\x7f", "\x01", "/a\r"}) {
        EXPECT_EQ(-1, Start("ftpd", 21, "tcp", path));
    }
    EXPECT_EQ(5, log_.Count(Kind::kError, "VimbraServiceStart"));
    EXPECT_STREQ("/", g_atNetServiceInfo[4].achPath);
    EXPECT_EQ("", ReadFile(kInetd));
    EXPECT_EQ(0, Start("ftpd", 21, "tcp", "/\xc3\xa4"));
}

TEST_F(Service, WithoutRootNothingStarts) {
    for (const char* content : {"", "a:x:1:0:::\nb:x:0:1:::\nc:x:0\n:x:0:0:::\n"}) {
        WriteFile(kPasswd, content);
        EXPECT_EQ(-1, Start("telnetd", 23, "tcp"));
    }
    Remove(kPasswd);
    EXPECT_EQ(-1, Start("telnetd", 23, "tcp"));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "GetRootUser", "fopen error"));
    EXPECT_EQ(3, log_.Count(Kind::kError, "VimbraServiceStart",
                            "there is no root user, cannot start net service!"));
    EXPECT_EQ("", ReadFile(kInetd));
}

TEST_F(Service, RootsName) {
    WriteFile(kPasswd, "a::0:0\nb:x:0:0:::\n");
    char* name = GetRootUser();
    EXPECT_STREQ("a", name) << "an empty password is a field too";
    free(name);
    WriteFile(kPasswd, std::string(60, 'r') + ":x:0123:0:::\n");
    name = GetRootUser();
    EXPECT_EQ(std::string(50, 'r'), name);
    free(name);
    WriteFile(kPasswd, "nobody:x:1:1:::");
    EXPECT_EQ(nullptr, GetRootUser());
}

TEST_F(Service, StartWithoutInetdRunning) {
    inetd_.reset();
    EXPECT_EQ(-1, Start("telnetd", 23, "tcp"));
    EXPECT_TRUE(log_.Has(Kind::kError, "StartNetService", "can't get the pid of Inetd"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraServiceStart", "Apic Net Service Start failed"));
    EXPECT_EQ("#telnetd\n"s + kTelnet, ReadFile(kInetd)) << "stays written";
}

TEST_F(Service, StartWithoutAFile) {
    Remove(kInetd);
    EXPECT_EQ(-1, Start("telnetd", 23, "tcp"));
    EXPECT_TRUE(log_.Has(Kind::kError, "CreateInetdList", "fopen error."));
    EXPECT_TRUE(log_.Has(Kind::kError, "StartNetService", "CreateInetdList error!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraServiceStart", "Apic Net Service Start failed"));
    ASSERT_EQ(0, mkdir(kInetd, 0755));
    EXPECT_EQ(-1, Start("telnetd", 23, "tcp"));
    EXPECT_TRUE(inetd_->Lives());
}

TEST_F(Service, StartWithTheFileElsewhere) {
    Remove(kInetd);
    WriteFile(kInetdElsewhere, "a b c\n");
    EXPECT_EQ(0, Start("telnetd", 23, "tcp"));
    EXPECT_EQ("a b c\n#telnetd\n"s + kTelnet, ReadFile(kInetd)) << "written where it can be made";
    EXPECT_EQ("a b c\n", ReadFile(kInetdElsewhere));
}

TEST_F(Service, StartOnAFullOrReadOnlyDisk) {
    const std::string content = std::string(4070, 'x') + "\n";
    OnFullDisk(kInetd, content);
    EXPECT_EQ(-1, Start("telnetd", 23, "tcp"));
    EXPECT_TRUE(log_.Has(Kind::kError, "WriteList", "fopen error."));
    EXPECT_TRUE(log_.Has(Kind::kError, "StartNetService", "Write list to file error!"));
    EXPECT_EQ(content, ReadFile(kInetd));
    ASSERT_EQ(0, mount("tmpfs", "/tmp/disk", "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr));
    EXPECT_EQ(-1, Start("telnetd", 23, "tcp"));
    EXPECT_EQ(-1, Stop("telnetd"));
    EXPECT_TRUE(log_.Has(Kind::kError, "WriteToInetdFile", "OpenConfigFile error!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraServiceStop", "WriteToInetdFile error"));
    EXPECT_EQ(content, ReadFile(kInetd));
    EXPECT_TRUE(inetd_->Lives());
}

TEST_F(Service, StartsAtOnceDoNotLoseOneAnother) {
    // Each start of the crowd signals; an inetd that ignores it stays to be found.
    inetd_.reset();
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGHUP, SIG_IGN);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        prctl(PR_SET_NAME, "inetd");
        for (;;) {
            pause();
        }
    }
    ASSERT_TRUE(
        WaitFor([&] { return ReadFile("/proc/" + std::to_string(child) + "/comm") == "inetd\n"; }));
    std::vector<std::thread> crowd;
    for (const auto& [name, proto] : {std::pair{"telnetd", "tcp"},
                                      {"ssh", "tcp6"},
                                      {"ftpd", "tcp"},
                                      {"tftpd", "udp"},
                                      {"httpd", "tcp"}}) {
        crowd.emplace_back([name = name, proto = proto] {
            for (int i = 0; i < 20; i++) {
                EXPECT_EQ(0, Start(name, 1000, proto));
            }
        });
    }
    for (std::thread& thread : crowd) {
        thread.join();
    }
    const std::string content = ReadFile(kInetd);
    for (const char* program :
         {"/sbin/telnetd", "/sbin/dropbear", "/sbin/ftpd", "/sbin/tftpd", "/sbin/httpd"}) {
        EXPECT_THAT(content, testing::HasSubstr(program));
    }
    EXPECT_EQ(5, std::count(content.begin(), content.end(), '\n') -
                     std::count(content.begin(), content.end(), '#'));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(Service, LegacyNamesAreTheSameCalls) {
    char name[] = "telnetd";
    char proto[] = "tcp";
    TServInfo info = {name, 23, proto, nullptr};
    EXPECT_EQ(0, NetServiceStart(nullptr, &info));
    EXPECT_EQ("#telnetd\n"s + kTelnet, ReadFile(kInetd));
    ExpectTold();
    EXPECT_EQ(0, NetServiceStop(name, 0));
    EXPECT_EQ("#telnetd\n", ReadFile(kInetd));
    EXPECT_EQ(1105, NetServiceStart(name, nullptr));
    EXPECT_EQ(1105, NetServiceStop(nullptr, 23));
}

TEST_F(Service, ConfigurationStream) {
    Remove(kInetd);
    EXPECT_EQ(nullptr, OpenConfigFile("r"));
    EXPECT_EQ(nullptr, OpenConfigFile(nullptr));
    WriteFile(kInetdElsewhere, "elsewhere\n");
    char text[32] = {};
    FILE* stream = OpenConfigFile("r");
    ASSERT_NE(nullptr, stream);
    EXPECT_STREQ("elsewhere\n", fgets(text, sizeof(text), stream));
    fclose(stream);
}

TEST_F(Service, WorksBeforeAndAfterInit) {
    EXPECT_EQ(0, Start("telnetd", 23, "tcp"));
    ExpectTold();
    EXPECT_EQ(0, VimbraInit());
    ServiceInit();
    EXPECT_EQ(0, Start("telnetd", 23, "tcp"));
    EXPECT_EQ(kTelnet, ReadFile(kInetd));
}

TEST_F(Service, NothingStaysOpen) {
    const auto before = OpenDescriptors();
    EXPECT_EQ(0, Start("telnetd", 23, "tcp"));
    ExpectTold();
    EXPECT_EQ(0, Stop("telnetd"));
    AsDirectory(kInetd);
    EXPECT_EQ(-1, Start("telnetd", 23, "tcp"));
    EXPECT_EQ(before, OpenDescriptors());
}

}  // namespace
}  // namespace vimbra::tests
