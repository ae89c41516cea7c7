// The web server switch.
#include <gtest/gtest.h>
#include <vimbra/net_webs.h>
#include <vimbra/webs.h>

#include <climits>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr u32 kEnable = 769;
constexpr u32 kDisable = 770;

TEST(Webs, EnableSendsThePort) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(0, VimbraWebsEnable(8080));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(Message(kEnable, Pack().S32(8080)), daemon.Requests()[0].raw);
    EXPECT_EQ(1u, daemon.Requests()[0].reads);
    EXPECT_TRUE(log.IsSilent());
    EXPECT_TRUE(daemon.WaitIdle());
}

TEST(Webs, EnableSendsAnyPortUnchanged) {
    ScriptedDaemon daemon;
    const int ports[] = {0, 1, -1, 65535, 65536, INT_MAX, INT_MIN};
    for (const int port : ports) {
        EXPECT_EQ(0, VimbraWebsEnable(port));
    }
    ASSERT_EQ(std::size(ports), daemon.Requests().size());
    for (size_t i = 0; i < std::size(ports); i++) {
        EXPECT_EQ(Pack().S32(ports[i]), daemon.Requests()[i].body);
    }
}

TEST(Webs, DisableSendsNoBody) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(0, VimbraWebsDisable());
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(Message(kDisable, {}), daemon.Requests()[0].raw);
    EXPECT_TRUE(log.IsSilent());
}

TEST(Webs, RefusalIsMinusOneWhateverTheNumber) {
    for (const int number : {1, -1, 13, 1109, INT_MIN}) {
        Capture log;
        ScriptedDaemon daemon;
        daemon.Default(Answer::Code(number));
        const std::string text = "send and recv msg error, nErrid = " + std::to_string(number);
        EXPECT_EQ(-1, VimbraWebsEnable(80));
        EXPECT_TRUE(log.Has(Kind::kError, "ApicWebEnable", text + "!"));
        EXPECT_TRUE(log.Has(Kind::kError, "VimbraWebsEnable", "web server start fault:ret=-1"));
        EXPECT_EQ(-1, VimbraWebsDisable());
        EXPECT_TRUE(log.Has(Kind::kError, "ApicWebDisable", text + "!"));
        EXPECT_TRUE(log.Has(Kind::kError, "VimbraWebsDisable", "web server stop fault:ret=-1"));
    }
}

TEST(Webs, TransportFailureIsPassedOn) {
    Capture log;
    ScriptedDaemon daemon;
    daemon.Default(Answer::Code(0).Size(8));  // 16 bytes come, the head does not agree
    EXPECT_EQ(16, VimbraWebsEnable(80));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicWebEnable", "send and recv msg error, nRet = 16!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraWebsEnable", "web server start fault:ret=16"));
    EXPECT_EQ(16, VimbraWebsDisable());
    EXPECT_TRUE(log.Has(Kind::kError, "ApicWebDisable", "send and recv msg error, nRet = 16!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraWebsDisable", "web server stop fault:ret=16"));
}

TEST(Webs, NoDaemonIsMinusOne) {
    Capture log;
    EXPECT_EQ(-1, VimbraWebsEnable(80));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicWebEnable", "send and recv msg error, nRet = -1!"));
    EXPECT_EQ(-1, VimbraWebsDisable());
    EXPECT_TRUE(log.Has(Kind::kError, "ApicWebDisable", "send and recv msg error, nRet = -1!"));
}

TEST(Webs, DaemonThatClosesWithoutAnswerCountsAsDone) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Close());
    EXPECT_EQ(0, VimbraWebsEnable(80));
    EXPECT_EQ(0, VimbraWebsDisable());
}

TEST(Webs, LegacyNamesAreTheSameCalls) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(0, NetWebsEnable(-7));
    EXPECT_EQ(0, NetWebsDisable());
    ASSERT_EQ(2u, daemon.Requests().size());
    EXPECT_EQ(Message(kEnable, Pack().S32(-7)), daemon.Requests()[0].raw);
    EXPECT_EQ(Message(kDisable, {}), daemon.Requests()[1].raw);
    daemon.Default(Answer::Code(5));
    EXPECT_EQ(-1, NetWebsEnable(80));
    EXPECT_EQ(-1, NetWebsDisable());
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraWebsEnable", "web server start fault:ret=-1"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraWebsDisable", "web server stop fault:ret=-1"));
}

}  // namespace
}  // namespace vimbra::tests
