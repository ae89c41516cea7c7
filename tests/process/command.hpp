// What the tests of running programs share: argument vectors, collected output, dispositions and
// descriptors before and after.
#ifndef VIMBRA_TESTS_PROCESS_COMMAND_HPP
#define VIMBRA_TESTS_PROCESS_COMMAND_HPP

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/process.h>

#include <atomic>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

namespace vimbra::tests {

// An argument vector as execvp takes it.
struct Argv {
    Argv(std::initializer_list<const char*> words) : words_(words.begin(), words.end()) {
        for (std::string& word : words_) {
            pointers_.push_back(word.data());
        }
        pointers_.push_back(nullptr);
    }
    char** Get() { return pointers_.data(); }

 private:
    std::vector<std::string> words_;
    std::vector<char*> pointers_;
};

inline s32 RunShell(const char* script, s32* pid = nullptr) {
    return VimbraExecShellProcess("sh", Argv({"sh", "-c", script}).Get(), pid);
}

struct Output {
    s32 code;
    s32 length = -7;
    std::string text;
};

inline Output Collect(const char* script, size_t size = 4096) {
    std::vector<char> buffer(size + 1, '#');
    Output output;
    output.code = VimbraExecShellPrcPipe("sh", Argv({"sh", "-c", script}).Get(), buffer.data(),
                                         static_cast<s32>(size), &output.length);
    EXPECT_EQ('#', buffer[size]);  // Never past what was given.
    if (output.length >= 0) {
        output.text.assign(buffer.data(), static_cast<size_t>(output.length));
    }
    return output;
}

inline std::atomic<int> g_childSignals;

inline void CountChildSignal(int) {
    g_childSignals++;
}

// The signal dispositions before and after are the same.
class KeptDisposition {
 public:
    explicit KeptDisposition(void (*handler)(int)) {
        struct sigaction action = {};
        action.sa_handler = handler;
        action.sa_flags = SA_RESTART | SA_NOCLDSTOP;
        sigaddset(&action.sa_mask, SIGUSR2);
        sigaction(SIGCHLD, &action, nullptr);
        sigaction(SIGCHLD, nullptr, &before_);
    }
    ~KeptDisposition() {
        struct sigaction after = {};
        sigaction(SIGCHLD, nullptr, &after);
        EXPECT_EQ(before_.sa_handler, after.sa_handler);
        EXPECT_EQ(before_.sa_flags, after.sa_flags);
        EXPECT_EQ(1, sigismember(&after.sa_mask, SIGUSR2));
        signal(SIGCHLD, SIG_DFL);
    }

 private:
    struct sigaction before_ = {};
};

// Runs in a child of its own, which nobody needs afterwards.
inline int InChild(int (*body)()) {
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(body());
    }
    int status = 0;
    EXPECT_EQ(pid, waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status);
}

// Without standard input and output, and with descriptors below this number alone.
inline void LeaveDescriptors(int end) {
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = static_cast<rlim_t>(end);
    setrlimit(RLIMIT_NOFILE, &limit);
}

inline int LowestFree() {
    const int fd = fcntl(STDERR_FILENO, F_DUPFD, STDERR_FILENO + 1);
    close(fd);
    return fd;
}

// The soft limit of descriptors for a scope.
class DescriptorLimit {
 public:
    explicit DescriptorLimit(rlim_t limit) {
        EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &before_));
        rlimit changed = before_;
        changed.rlim_cur = limit;
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &changed));
    }
    ~DescriptorLimit() { EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &before_)); }

 private:
    rlimit before_ = {};
};

}  // namespace vimbra::tests

#endif
