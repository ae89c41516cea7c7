// An application may hold more descriptors than an fd_set has bits. The emulator that runs the
// device's build does not select on those; there fault_test looks at what is handed to select.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/ipc.h>

#include <vector>
#include <vimbra/bed.hpp>

#include "expect_log.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

class ManyDescriptors : public testing::Test {
 protected:
    void SetUp() override {
        rlimit limit = {};
        ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
        limit.rlim_cur = 4096;
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    }
    void TearDown() override {
        for (const int fd : held_) {
            close(fd);
        }
    }

    // From here on new descriptors have larger numbers.
    void HoldUpTo(int last) {
        while (held_.empty() || held_.back() < last) {
            held_.push_back(dup(STDERR_FILENO));
            ASSERT_GE(held_.back(), 0);
        }
    }

 private:
    std::vector<int> held_;
};

TEST_F(ManyDescriptors, RequestsGoOn) {
    ScriptedDaemon daemon;
    Capture log;
    for (const int last : {1021, 1022, 1023, 1024, 1088, 3000}) {
        HoldUpTo(last);
        EXPECT_EQ(0, VimbraLogSwitch(5)) << last;
    }
    EXPECT_TRUE(log.IsSilent());
    daemon.Default(Answer::Close());
    EXPECT_EQ(0, VimbraLogSwitch(5));
    EXPECT_TRUE(Wrote(log, {Err("IpcApiSendAndRecv", "fail to receive message!")}));
}

TEST_F(ManyDescriptors, MessagesGoOutOnAnyOfThem) {
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    Capture log;
    for (const int fd : {1023, 1024, 1025, 3000}) {
        ASSERT_EQ(fd, dup2(ends[0], fd));
        EXPECT_EQ(0, IpcApiSendMsg(fd, 1, nullptr, 0, fd));
        u8 message[12] = {};
        EXPECT_EQ(12, recv(ends[1], message, sizeof(message), MSG_WAITALL));
        EXPECT_EQ(fd, AsBytes(message).S32(8));
        close(fd);
        EXPECT_EQ(-1, IpcApiSendMsg(fd, 1, nullptr, 0, fd));
    }
    EXPECT_EQ(4, log.Count(Kind::kPerror, "IpcApiSendMsg", "select error"));
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
}  // namespace vimbra::tests
