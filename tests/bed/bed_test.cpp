// The bed's own tests.
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <vimbra/bed.hpp>

using namespace vimbra::bed;

namespace {

TEST(ScriptedDaemon, AnswersWithSuccessUntilToldOtherwise) {
    ScriptedDaemon daemon;
    Connection client("api_daemon");
    ASSERT_TRUE(client.Connected());
    ASSERT_TRUE(client.Send(Message(0x0702, Pack().U32(3))));
    EXPECT_EQ(Message(0x0702, Pack().S32(0)), client.Receive(16));
    client.Close();
    ASSERT_TRUE(daemon.WaitIdle());
    ASSERT_EQ(1u, daemon.Requests().size());
    const Request request = daemon.Requests()[0];
    EXPECT_EQ(0x0702u, request.type);
    EXPECT_EQ(4u, request.size);
    EXPECT_EQ(0, request.flag);
    EXPECT_EQ(Pack().U32(3), request.body);
    EXPECT_EQ(1u, request.reads);
    EXPECT_TRUE(request.complete);
}

TEST(Capture, ParsesBothDestinations) {
    Capture log;
    for (int priority : {LOG_LOCAL6 | LOG_ERR}) {
        syslog(priority, "[VIMBRA_ERR]:PID[%d]:[%s](%d): bad thing %d\n", getpid(), "Doer", 7, 5);
        printf("[VIMBRA_ERR]:PID[%d]:[%s](%d): bad thing %d\n", getpid(), "Doer", 7, 5);
    }
    EXPECT_TRUE(log.Has(Kind::kError, "Doer", "bad thing 5"));
    EXPECT_FALSE(log.Has(Kind::kError, "Doer", "bad thing 6"));
}

TEST(Sandbox, IsAlone) {
    EXPECT_EQ(2, getpid());
    EXPECT_EQ(1, getppid());
}

}  // namespace
