// System V semaphores and the message queues that are switched off.
#include <gtest/gtest.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/msg_queue.h>
#include <vimbra/semaphore.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

int Value(int id) {
    return semctl(id, 0, GETVAL);
}

TEST(Semaphore, IsTakenAndGivenBack) {
    Capture log;
    const int id = semget(7783, 1, IPC_CREAT | 0666);
    ASSERT_GE(id, 0);
    EXPECT_EQ(0, set_semvalue(id));
    EXPECT_EQ(1, Value(id));
    EXPECT_EQ(0, semaphore_p(id));
    EXPECT_EQ(0, Value(id));
    EXPECT_EQ(0, semaphore_v(id));
    EXPECT_EQ(1, Value(id));
    EXPECT_EQ(0, del_semvalue(id));
    EXPECT_EQ(-1, Value(id));
    EXPECT_TRUE(log.IsSilent());
}

TEST(Semaphore, WaitsForWhoHasIt) {
    const int id = semget(IPC_PRIVATE, 1, 0666);
    ASSERT_EQ(0, set_semvalue(id));
    ASSERT_EQ(0, semaphore_p(id));
    const pid_t child = fork();
    if (child == 0) {
        _exit(semaphore_p(id) == 0 && semaphore_v(id) == 0 ? 0 : 1);
    }
    ASSERT_TRUE(WaitFor([=] { return semctl(id, 0, GETNCNT) == 1; }));
    EXPECT_EQ(0, semaphore_v(id));
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ(0, del_semvalue(id));
}

TEST(Semaphore, ProcessThatEndsGivesItBack) {
    const int id = semget(IPC_PRIVATE, 1, 0666);
    ASSERT_EQ(0, set_semvalue(id));
    const pid_t child = fork();
    if (child == 0) {
        _exit(semaphore_p(id) == 0 ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ(1, Value(id));
    EXPECT_EQ(0, del_semvalue(id));
}

TEST(Semaphore, FailuresAreTold) {
    const std::pair<int (*)(int), const char*> calls[] = {
        {set_semvalue, "set_semvalue"},
        {del_semvalue, "del_semvalue"},
        {semaphore_p, "semaphore_p"},
        {semaphore_v, "semaphore_v"},
    };
    for (const auto& [call, name] : calls) {
        for (const int id : {-1, INT_MAX}) {
            Capture log;
            EXPECT_EQ(-1, call(id));
            EXPECT_TRUE(log.Has(Kind::kError, name, std::string(name) + " error"));
            EXPECT_TRUE(log.Has(Kind::kError, name, "sem_id:" + std::to_string(id)));
        }
    }
}

TEST(MsgQueue, IsSwitchedOff) {
    Capture log;
    EXPECT_EQ(-1, CreateMsgQueue(3328, 512));
    EXPECT_TRUE(log.Has(Kind::kPerror, "CreateMsgQueue", "msgget error"));
    log.Clear();
    char buffer[4] = {1, 2, 3, 4};
    EXPECT_EQ(0, DestroyMsgQueue(-1));
    EXPECT_EQ(0, RecvFromQueue(0, 1, buffer, sizeof(buffer), 0));
    EXPECT_EQ(1, buffer[0]);
    EXPECT_EQ(0, SendtoQueue(0, 1, buffer, sizeof(buffer), 0));
    EXPECT_EQ(0, SendtoQueue(-1, 0, nullptr, -1, 0));
    EXPECT_TRUE(log.IsSilent());
}

TEST(MsgQueue, SendingAlwaysFails) {
    Capture log;
    char message[4] = {};
    for (const int size : {0, 4, -1, INT_MAX}) {
        log.Clear();
        EXPECT_EQ(-1, IpcSendMsgToQueue(3328, 1, 2, message, size, 0));
        EXPECT_TRUE(
            log.Has(Kind::kPerror, "IpcSendMsgToQueue", "CreateMsgQueue error!\n", Where::kSyslog));
        EXPECT_NE(std::string::npos, log.StdoutText().find("CreateMsgQueue error!\n{errno("));
    }
    log.Clear();
    EXPECT_EQ(-1, IpcSendMsgToQueue(3328, 1, 2, nullptr, 4, 0));
    EXPECT_TRUE(log.Has(Kind::kError, "IpcSendMsgToQueue", "msg is NULL!"));
    EXPECT_EQ(0, log.Count(Kind::kPerror));
}

}  // namespace
}  // namespace vimbra::tests
