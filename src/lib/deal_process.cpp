// Running programs.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <vimbra/process.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "lib/base/cancel.hpp"
#include "lib/base/directory.hpp"
#include "lib/base/fd.hpp"
#include "lib/base/memory.hpp"
#include "lib/log.hpp"

using namespace vimbra;

namespace {

constexpr s32 kLoggedOutput = 2000;
constexpr int kExecFailed = 255;

// The default disposition of SIGCHLD for a scope. An application that ignores it or reaps in a
// handler would take the exit status away.
class DefaultChildSignal {
 public:
    DefaultChildSignal() {
        struct sigaction action = {};
        action.sa_handler = SIG_DFL;
        sigaction(SIGCHLD, &action, &previous_);
    }
    ~DefaultChildSignal() { sigaction(SIGCHLD, &previous_, nullptr); }
    DefaultChildSignal(const DefaultChildSignal&) = delete;
    DefaultChildSignal& operator=(const DefaultChildSignal&) = delete;

 private:
    struct sigaction previous_ = {};
};

// No signal for this thread in a scope.
class BlockedSignals {
 public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &previous_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

    const sigset_t& Previous() const { return previous_; }

 private:
    sigset_t previous_;
};

struct Pipe {
    Fd read;
    Fd write;

    // Both ends are closed by exec, and neither takes the place of a closed standard descriptor:
    // there the child puts its output.
    bool Open(int flags) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC | flags) != 0) {
            return false;
        }
        read.Reset(ends[0]);
        write.Reset(ends[1]);
        return Lift(read) && Lift(write);
    }

 private:
    static bool Lift(Fd& fd) {
        if (fd.Get() <= STDERR_FILENO) {
            fd.Reset(fcntl(fd.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        }
        return static_cast<bool>(fd);
    }
};

// exec sets them back anyway; until then a handler would run on the memory of the parent.
void DropSignalHandlers() {
    struct sigaction unset = {};
    unset.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; number++) {
        struct sigaction action;
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_DFL &&
            action.sa_handler != SIG_IGN) {
            sigaction(number, &unset, nullptr);
        }
    }
}

// The child. It borrows the memory of its parent, whose other threads go on meanwhile: no log line
// (syslog would leave its socket's number behind, in a process that has no such descriptor), no
// exit handlers, no buffers written out. Why it failed goes to the parent, which tells it.
[[noreturn]] void BecomeProgram(const char* file, char** argv, int output, int failure,
                                const sigset_t& signals) {
    DropSignalHandlers();
    pthread_sigmask(SIG_SETMASK, &signals, nullptr);
    NewProcessSafe();
    if (output >= 0) {
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
    }
    execvp(file, argv);
    const int error = errno;
    [[maybe_unused]] const ssize_t told = write(failure, &error, sizeof(error));
    _exit(kExecFailed);
}

// Starts the program; its output goes where that of this process goes, unless output is a
// descriptor. -1 when there is no child.
pid_t Start(const char* file, char** argv, int output, int failure) {
    const BlockedSignals blocked;
    const pid_t pid = vfork();
    if (pid == 0) {
        BecomeProgram(file, argv, output, failure, blocked.Previous());
    }
    return pid;
}

// The log line of a program that could not be started, under its process id. It goes to the
// program's output too, where that is collected: to standard output is where log lines go.
void TellExecFailure(CallSite site, pid_t pid, const Pipe& failure, int output) {
    int error = 0;
    if (!failure.read || read(failure.read.Get(), &error, sizeof(error)) != sizeof(error) ||
        !Logs(VIMBRA_LEVEL_ERR)) {
        return;
    }
    constexpr char kStep[] = "exec error:";
    const char* reason = strerror(error);
    VimbraLogPerror(VIMBRA_FORMAT_PERROR, pid, site.function, site.line, kStep, error, reason);
    if (output >= 0) {
        dprintf(output, VIMBRA_FORMAT_PERROR, pid, site.function, site.line, kStep, error, reason);
    }
}

// -1 waits for any child.
pid_t Wait(pid_t pid, int* status) {
    pid_t result;
    do {
        result = waitpid(pid, status, 0);
    } while (result < 0 && errno == EINTR);
    return result;
}

s32 ExitCode(int status) {
    return (status & 0xff00) >> 8;
}

ssize_t ReadOnce(int fd, char* buf, size_t size) {
    ssize_t count;
    do {
        count = read(fd, buf, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

// The words of a command; false is logged. A command without any names the program "", which there
// is not.
bool SplitCommand(CallSite site, char* command, s32 size, char* (&argv)[VIMBRA_EXEC_ARG_MAX + 1]) {
    if (VimbraBufToArgv(command, argv, VIMBRA_EXEC_ARG_MAX, size, ' ') != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "%s", command);
        return false;
    }
    if (argv[0] == nullptr) {
        argv[0] = command;
        argv[1] = nullptr;
    }
    return true;
}

}  // namespace

void NewProcessSafe() {}

s32 VimbraExecShellProcess(const char* file, char** argv, s32* child_pid) {
    if (file == nullptr || argv == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    const CancelGuard guard;
    const DefaultChildSignal childSignal;
    Pipe failure;
    failure.Open(O_NONBLOCK);  // Without it only the reason of a failure is not logged.
    const pid_t pid = Start(file, argv, -1, failure.write.Get());
    if (pid < 0) {
        VLOG_ERROR("vfork error");
        return VIMBRA_ERR_GENERAL;
    }
    if (child_pid != nullptr) {
        *child_pid = pid;
    }
    int status = 0;
    const pid_t ended = Wait(-1, &status);
    TellExecFailure(VIMBRA_HERE, pid, failure, -1);
    if (ended < 0) {
        VLOG_ERROR("wait error");
        return VIMBRA_ERR_GENERAL;
    }
    return ExitCode(status);
}

s32 VimbraExecShellPrcPipe(const char* file, char** argv, char* buf, s32 max_size, s32* length) {
    if (file == nullptr || argv == nullptr || buf == nullptr || max_size < 0) {
        return VIMBRA_ERR_GENERAL;
    }
    const CancelGuard guard;
    const DefaultChildSignal childSignal;
    Pipe output;
    if (!output.Open(0)) {
        VLOG_ERROR("pipe error!");
        return VIMBRA_ERR_GENERAL;
    }
    Pipe failure;
    failure.Open(O_NONBLOCK);
    const pid_t pid = Start(file, argv, output.write.Get(), failure.write.Get());
    if (pid < 0) {
        return VIMBRA_ERR_GENERAL;
    }
    // Wait, then read: what is read is what the program has left in the pipe.
    int status = 0;
    if (Wait(pid, &status) < 0) {
        VLOG_ERROR("wait error");
        return VIMBRA_ERR_GENERAL;
    }
    TellExecFailure(VIMBRA_HERE, pid, failure, output.write.Get());
    output.write.Reset();
    const ssize_t count = ReadOnce(output.read.Get(), buf, static_cast<size_t>(max_size));
    if (length != nullptr) {
        *length = static_cast<s32>(std::max<ssize_t>(count, 0));
    }
    return ExitCode(status);
}

s32 ExecCmd(char* pchCmdBuf, s32 nBufLen, s32) {
    if (pchCmdBuf == nullptr) {
        VLOG_ERROR("ExecCmd pchCmd is NULL!");
        return VIMBRA_ERR_GENERAL;
    }
    char* argv[VIMBRA_EXEC_ARG_MAX + 1];
    if (!SplitCommand(VIMBRA_HERE, pchCmdBuf, nBufLen, argv)) {
        return VIMBRA_ERR_GENERAL;
    }
    const Buffer output(kLoggedOutput);
    if (!output) {
        VLOG_ERRNO("malloc error!");
        return VIMBRA_ERR_GENERAL;
    }
    char* text = reinterpret_cast<char*>(output.Get());
    s32 length = 0;
    if (VimbraExecShellPrcPipe(argv[0], argv, text, kLoggedOutput, &length) == 0) {
        return VIMBRA_OK;
    }
    VLOG_ERROR("%s", pchCmdBuf);
    VLOG_ERROR("%.*s", length, text);
    return VIMBRA_ERR_GENERAL;
}

s32 VimbraExecCmdAndGetOutput(char* pchCmdBuf, s32 nBufLen, char* child_stdout_buf,
                              s32 nStdoutBufLen) {
    if (pchCmdBuf == nullptr || child_stdout_buf == nullptr) {
        VLOG_ERROR("ExecCmd pchCmd is NULL!");
        return VIMBRA_ERR_GENERAL;
    }
    char* argv[VIMBRA_EXEC_ARG_MAX + 1];
    if (!SplitCommand(VIMBRA_HERE, pchCmdBuf, nBufLen, argv)) {
        return VIMBRA_ERR_GENERAL;
    }
    if (nStdoutBufLen > 0) {
        memset(child_stdout_buf, 0, static_cast<size_t>(nStdoutBufLen));
    }
    const s32 code =
        VimbraExecShellPrcPipe(argv[0], argv, child_stdout_buf, nStdoutBufLen, nullptr);
    return code == 0 ? VIMBRA_OK : VIMBRA_ERR_GENERAL;
}

void CloseInheritFatherProcessFd(int lowfd) {
    constexpr int kEnd = 1024;
    rlimit limit;
    const int end = getrlimit(RLIMIT_NOFILE, &limit) == 0 ? kEnd : 0;  // Whatever the limit says.
    const int first = std::max(lowfd, 0);
    char path[256];
    snprintf(path, sizeof(path), "/proc/%d/fd", getpid());
    Directory directory(path);
    if (!directory) {
        for (int fd = first; fd < end; fd++) {
            close(fd);
        }
        return;
    }
    while (const dirent* entry = directory.Next()) {
        if (entry->d_name[0] == '.') {
            continue;  // All other names are descriptors' numbers.
        }
        const int fd = atoi(entry->d_name);
        if (fd >= first && fd < end && fd != directory.Fd()) {
            close(fd);
        }
    }
}
