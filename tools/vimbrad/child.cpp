#include "child.hpp"

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "lib/base/fd.hpp"
#include "lines.hpp"
#include "missing.hpp"
#include "refusal.hpp"

namespace vimbrad {

std::string ChildEnd::Text() const {
    return signal != 0 ? "killed by signal " + std::to_string(signal)
                       : "exit status " + std::to_string(status);
}

namespace {

// What a new process does between its birth and its program. The daemon's memory is still there,
// but nothing may be allocated, logged or freed.
class Birth {
 public:
    Birth(const Child::Program& program, int output) : program_(program), output_(output) {
        for (const std::string& each : program.command) {
            arguments_.push_back(const_cast<char*>(each.c_str()));
        }
        arguments_.push_back(nullptr);
        if (!program.called.empty()) {
            arguments_.front() = const_cast<char*>(program.called.c_str());
        }
    }

    // The new process. Throws Refusal.
    pid_t Run() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw Refusal(errno);
        }
        vimbra::Fd ours;
        ours.Reset(ends[0]);
        vimbra::Fd theirs;
        theirs.Reset(ends[1]);
        const pid_t parent = getpid();
        const pid_t pid = fork();
        if (pid == 0) {
            Become(parent, theirs.Get());
        }
        if (pid < 0) {
            throw Refusal(errno, std::string("fork: ") + std::strerror(errno));
        }
        theirs.Reset();
        int error = 0;
        if (read(ours.Get(), &error, sizeof(error)) != sizeof(error)) {
            return pid;
        }
        waitpid(pid, nullptr, 0);
        if (error == ENOENT) {
            RefuseFor(program_.command.front(), error);
        }
        throw Refusal(error,
                      program_.command.front() + ": " + uv_strerror(uv_translate_sys_error(error)));
    }

 private:
    // A daemon that died before it was named as the parent to live and die with does not count any
    // more.
    [[noreturn]] void Become(pid_t parent, int failed) {
        if (program_.user && !ChangeUser(*program_.user)) {
            Fail(failed);
        }
        if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent) {
            _exit(EXIT_FAILURE);
        }
        for (const int each : {SIGPIPE, SIGHUP}) {
            signal(each, SIG_DFL);
        }
        if (program_.inherited >= 0) {
            fcntl(program_.inherited, F_SETFD, 0);
        }
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        const int input = open("/dev/null", O_RDWR);
        if (input >= 0 && dup2(input, STDIN_FILENO) >= 0 && dup2(output_, STDOUT_FILENO) >= 0 &&
            dup2(output_, STDERR_FILENO) >= 0) {
            if (input > STDERR_FILENO) {
                close(input);
            }
            execvp(program_.command.front().c_str(), arguments_.data());
        }
        Fail(failed);
    }

    [[noreturn]] static void Fail(int failed) {
        const int error = errno;
        static_cast<void>(write(failed, &error, sizeof(error)) == sizeof(error));
        _exit(EXIT_FAILURE);
    }

    // Before the process is tied to its parent: the kernel forgets that when the user changes,
    // which is why the program cannot be left to do it.
    static bool ChangeUser(const Child::User& user) {
        constexpr u32 kBind = 1U << CAP_NET_BIND_SERVICE;
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        const __user_cap_data_struct capabilities[2] = {{kBind, kBind, kBind}, {0, 0, 0}};
        return prctl(PR_SET_KEEPCAPS, 1) == 0 && setgroups(0, nullptr) == 0 &&
               setgid(user.gid) == 0 && setuid(user.uid) == 0 &&
               syscall(SYS_capset, &header, capabilities) == 0 &&
               prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_NET_BIND_SERVICE, 0, 0) == 0;
    }

    const Child::Program& program_;
    int output_;
    std::vector<char*> arguments_;
};

std::set<pid_t>& RunningOnes() {
    static std::set<pid_t> running;
    return running;
}

ChildEnd EndOf(int status) {
    return WIFSIGNALED(status) ? ChildEnd{0, WTERMSIG(status)} : ChildEnd{WEXITSTATUS(status), 0};
}

}  // namespace

// Outlives its child until the program has been reaped.
class Child::Run : public std::enable_shared_from_this<Run> {
 public:
    explicit Run(Events events)
        : events_(std::move(events)), lines_([this](std::string_view line) { Report(line); }) {}

    // The event loop's own way of running programs has no room for what has to be done before the
    // program is one.
    void Start(uv_loop_t* loop, const Program& program) {
        const vimbra::Fd theirs = OpenOutput(loop);
        ended_ = MakeHandle<uv_signal_t>(
            [loop](uv_signal_t* raw) { return uv_signal_init(loop, raw); }, "signal");
        ended_->data = this;
        UvCheck(uv_signal_start(
                    ended_.get(),
                    [](uv_signal_t* raw, int) { static_cast<Run*>(raw->data)->Reap(); }, SIGCHLD),
                "signal");
        pid_ = Birth(program, theirs.Get()).Run();
        RunningOnes().insert(pid_);
        self_ = shared_from_this();
    }

    pid_t Pid() const { return pid_; }

    void Kill(int signal) {
        if (self_) {
            kill(pid_, signal);
        }
    }

    void EndsWithin(u64 milliseconds) {
        if (!patience_) {
            patience_ = MakeTimer(ended_->loop, this);
        }
        uv_timer_start(
            patience_.get(),
            [](uv_timer_t* timer) { static_cast<Run*>(timer->data)->Kill(SIGKILL); }, milliseconds,
            0);
    }

    void Abandon() {
        events_ = {};
        output_.reset();
        patience_.reset();
        Kill(SIGKILL);
    }

 private:
    // The end of a pipe for the program to write to.
    vimbra::Fd OpenOutput(uv_loop_t* loop) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw Refusal(errno);
        }
        vimbra::Fd theirs;
        theirs.Reset(ends[1]);
        vimbra::Fd ours;
        ours.Reset(ends[0]);
        output_ = MakePipe(loop, this);
        UvCheck(uv_pipe_open(output_.get(), ours.Get()), "pipe");
        outputFd_ = ours.Release();
        UvCheck(uv_read_start(AsStream(output_), GiveBuffer, OnRead), "pipe");
        return theirs;
    }

    static void GiveBuffer(uv_handle_t* handle, size_t, uv_buf_t* buffer) {
        auto* self = static_cast<Run*>(handle->data);
        *buffer = uv_buf_init(self->buffer_.data(), static_cast<unsigned>(self->buffer_.size()));
    }

    static void OnRead(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
        const auto self = static_cast<Run*>(stream->data)->shared_from_this();
        if (count < 0) {
            self->output_.reset();
        } else {
            self->lines_.Append({buffer->base, static_cast<size_t>(count)});
        }
    }

    // The receiver may let go of the child, and of the function with it.
    void Report(std::string_view line) const {
        if (const auto report = events_.line) {
            report(line);
        }
    }

    // Programs end in any order, and one signal may stand for several of them.
    void Reap() {
        int status = 0;
        if (self_ && waitpid(pid_, &status, WNOHANG) == pid_) {
            RunningOnes().erase(pid_);
            Ended(EndOf(status));
        }
    }

    void Ended(const ChildEnd& end) {
        const auto self = std::exchange(self_, nullptr);
        // What the program wrote comes before its end; what it started may hold the pipe for ever.
        while (output_) {
            const ssize_t count = read(outputFd_, buffer_.data(), buffer_.size());
            if (count <= 0) {
                break;
            }
            lines_.Append({buffer_.data(), static_cast<size_t>(count)});
        }
        lines_.Flush();
        ended_.reset();
        output_.reset();
        patience_.reset();
        if (const auto report = std::exchange(events_.end, nullptr)) {
            report(end);
        }
    }

    Events events_;
    std::array<char, 4096> buffer_{};
    Lines lines_;
    pid_t pid_ = -1;
    UvHandle<uv_signal_t> ended_;
    UvHandle<uv_pipe_t> output_;
    UvHandle<uv_timer_t> patience_;
    int outputFd_ = -1;
    std::shared_ptr<Run> self_;
};

Child::Child(uv_loop_t* loop, const Program& program, Events events)
    : run_(std::make_shared<Run>(std::move(events))) {
    run_->Start(loop, program);
}

Child::~Child() {
    run_->Abandon();
}

const std::set<pid_t>& Child::Running() {
    return RunningOnes();
}

pid_t Child::Pid() const {
    return run_->Pid();
}

void Child::Kill(int signal) {
    run_->Kill(signal);
}

void Child::End(u64 milliseconds) {
    run_->Kill(SIGTERM);
    run_->EndsWithin(milliseconds);
}

void Child::EndsWithin(u64 milliseconds) {
    run_->EndsWithin(milliseconds);
}

}  // namespace vimbrad
