// Processes of a given name, to be found through /proc and signalled.
#ifndef VIMBRA_TESTS_GROUND_PROCESSES_HPP
#define VIMBRA_TESTS_GROUND_PROCESSES_HPP

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace vimbra::tests {

// A child that its owner ends at the latest.
class Child {
 public:
    Child() = default;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }

    pid_t Pid() const { return pid_; }

    // The signal that ended it; waits for one.
    int EndedBy() {
        int status = 0;
        EXPECT_EQ(pid_, waitpid(pid_, &status, 0));
        pid_ = -1;
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }

    // Nothing has ended it so far.
    bool Lives() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }

 protected:
    pid_t pid_ = -1;
};

// Sleeps under its name until a signal ends it.
class FakeProcess : public Child {
 public:
    explicit FakeProcess(const std::string& name) {
        int ready[2];
        EXPECT_EQ(0, pipe(ready));
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            prctl(PR_SET_NAME, name.c_str());
            close(ready[0]);
            close(ready[1]);
            for (;;) {
                pause();
            }
        }
        close(ready[1]);
        char none;
        EXPECT_EQ(0, read(ready[0], &none, 1));  // ends when the child has closed its end
        close(ready[0]);
    }
};

// What a command prints.
inline std::string OutputOf(const std::string& command) {
    FILE* stream = popen(command.c_str(), "r");
    std::string output;
    char block[512];
    while (stream != nullptr && fgets(block, sizeof(block), stream) != nullptr) {
        output += block;
    }
    EXPECT_EQ(0, stream != nullptr ? pclose(stream) : -1) << command;
    return output;
}

}  // namespace vimbra::tests

#endif
