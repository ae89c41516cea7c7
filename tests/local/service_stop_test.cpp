// Services of inetd: stops.
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "files.hpp"
#include "services.hpp"

namespace vimbra::tests {

using namespace std::string_literals;
using namespace bed;

namespace {

TEST_F(Service, StopRemovesOneLineAndTellsInetd) {
    WriteFile(kInetd, "a\n"s + kTelnet + "# note\n" + kTelnet + "b");
    const auto before = Identity(kInetd);
    EXPECT_EQ(0, Stop("telnetd"));
    EXPECT_EQ("a\n# note\n"s + kTelnet + "b", ReadFile(kInetd));
    EXPECT_TRUE(
        log_.Has(Kind::kPrint, "VimbraServiceStop", "Inetd Pid:" + std::to_string(inetd_->Pid())));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraServiceStop", "No Runnig Service"));
    EXPECT_TRUE(log_.HasNoTrouble());
    ExpectTold();
    EXPECT_EQ(0, Stop("telnetd"));
    EXPECT_EQ("a\n# note\nb", ReadFile(kInetd));
    EXPECT_EQ(before, Identity(kInetd));
}

TEST_F(Service, StopTakesTheFirstLineThatNamesTheProgram) {
    WriteFile(kInetd, "# see /sbin/telnetd\n"s + kTelnet);
    EXPECT_EQ(0, Stop("telnetd"));
    EXPECT_EQ(kTelnet, ReadFile(kInetd)) << "a comment too";
}

TEST_F(Service, StopMayEmptyTheFile) {
    WriteFile(kInetd, kTelnet);
    EXPECT_EQ(0, Stop("telnetd"));
    EXPECT_EQ("", ReadFile(kInetd));
    EXPECT_EQ(SIGHUP, inetd_->EndedBy());
}

TEST_F(Service, StopOfAServiceThatIsNotThere) {
    const std::string content = "a\n#c\n\n"s + kSsh + "no newline\0and a zero"s;
    WriteFile(kInetd, content);
    FakeProcess service("in.telnetd");  // the name is looked for as a part
    const std::string text = "Service's Pid:" + std::to_string(service.Pid());
    EXPECT_EQ(0, Stop("telnetd"));
    EXPECT_EQ(content, ReadFile(kInetd));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraServiceStop", text));
    EXPECT_EQ(SIGKILL, service.EndedBy());
    EXPECT_EQ(SIGHUP, inetd_->EndedBy());
}

TEST_F(Service, StopLooksForTheServicesNameNotItsProgram) {
    WriteFile(kInetd, kSsh);
    FakeProcess program("dropbear");
    EXPECT_EQ(0, Stop("ssh"));
    EXPECT_EQ("", ReadFile(kInetd));
    EXPECT_TRUE(program.Lives());
}

TEST_F(Service, StopOfUnknownServices) {
    WriteFile(kInetd, kTelnet);
    for (const char* name : {"tcp_server1", "telnet", "", "nonsense"}) {
        EXPECT_EQ(-1, Stop(name));
    }
    EXPECT_EQ(4, log_.Count(Kind::kError, "StopServToList", "Services is not supported!"));
    EXPECT_EQ(4, log_.Count(Kind::kError, "VimbraServiceStop", "StopServToList error"));
    EXPECT_EQ(kTelnet, ReadFile(kInetd));
    EXPECT_TRUE(inetd_->Lives());
}

// Kept: the file is read before anything else is looked at.
TEST_F(Service, StopWithoutAConfigurationIsDone) {
    Remove(kInetd);
    EXPECT_EQ(0, Stop("nonsense"));
    EXPECT_TRUE(log_.Has(Kind::kError, "ReadFromInetdFile", "fopen error"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraServiceStop", "ReadFromInetdFile error"));
    WriteFile(kInetd, "");
    EXPECT_EQ(0, Stop("telnetd"));
    EXPECT_EQ(1, log_.Count(Kind::kError, "ReadFromInetdFile", "fopen error"));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraServiceStop", "ReadFromInetdFile error"));
    AsDirectory(kInetd);
    EXPECT_EQ(0, Stop("telnetd"));
    EXPECT_TRUE(inetd_->Lives());
}

TEST_F(Service, StopWithoutInetdRunning) {
    inetd_.reset();
    WriteFile(kInetd, kTelnet);
    EXPECT_EQ(-1, Stop("telnetd"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraServiceStop", "can't get the pid of Inetd"));
    EXPECT_EQ("", ReadFile(kInetd));
}

}  // namespace
}  // namespace vimbra::tests
