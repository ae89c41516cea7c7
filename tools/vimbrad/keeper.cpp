#include "keeper.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/types.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "lib/base/fd.hpp"

namespace vimbrad {
namespace {

using Clock = std::chrono::steady_clock;

// Longer than pppd asks a silent peer to end the link.
constexpr auto kEndPatience = std::chrono::seconds(8);

// What the daemon had from whoever started it must end with the daemon: somebody may wait for that.
void CloseAllBut(int kept) {
    std::vector<int> open;
    std::error_code ignored;
    for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd", ignored)) {
        open.push_back(std::atoi(each.path().filename().c_str()));
    }
    for (const int each : open) {
        if (each > STDERR_FILENO && each != kept) {
            close(each);
        }
    }
}

class Keeper {
 public:
    explicit Keeper(int control) {
        CloseAllBut(control);
        control_.Reset(control);
        fcntl(control, F_SETFD, FD_CLOEXEC);
        sigemptyset(&signals_);
        for (const int each : {SIGCHLD, SIGTERM, SIGINT, SIGHUP}) {
            sigaddset(&signals_, each);
        }
        sigprocmask(SIG_BLOCK, &signals_, nullptr);
        signalFd_.Reset(signalfd(-1, &signals_, SFD_CLOEXEC | SFD_NONBLOCK));
    }

    // Never waits for a reader, since the program must not wait for a daemon that is not there: what
    // a full pipe does not take is lost.
    bool OpenOutput(const char* path) const {
        const vimbra::Fd output(open, path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
        return output && dup2(output.Get(), STDOUT_FILENO) >= 0 &&
               dup2(output.Get(), STDERR_FILENO) >= 0;
    }

    void Start(char** command) {
        const pid_t keeper = getpid();
        pid_ = fork();
        if (pid_ == 0) {
            Become(keeper, command);
        }
        Say(std::string(kKeeperPid) + std::to_string(pid_));
    }

    // Until the program has ended.
    void Watch() {
        while (!HasEnded()) {
            pollfd waits[] = {{signalFd_.Get(), POLLIN, 0},
                              {isAlone_ ? -1 : control_.Get(), POLLIN, 0}};
            poll(waits, std::size(waits), MillisecondsLeft());
            if (waits[0].revents != 0) {
                TakeSignal();
            }
            if (waits[1].revents != 0) {
                TakeOrder();
            }
            if (deadline_ && Clock::now() >= *deadline_) {
                kill(pid_, SIGKILL);
                deadline_ = Clock::now() + kEndPatience;
            }
        }
    }

 private:
    [[noreturn]] void Become(pid_t keeper, char** command) const {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() == keeper) {
            sigprocmask(SIG_UNBLOCK, &signals_, nullptr);
            execvp(command[0], command);
            std::printf("%s: %s\n", command[0], std::strerror(errno));
            std::fflush(stdout);
        }
        _exit(EXIT_FAILURE);
    }

    static void Say(const std::string& line) {
        const std::string text = line + "\n";
        static_cast<void>(write(STDOUT_FILENO, text.data(), text.size()) == 0);
    }

    bool HasEnded() const {
        int status = 0;
        if (pid_ > 0 && waitpid(pid_, &status, WNOHANG) == 0) {
            return false;
        }
        const bool killed = WIFSIGNALED(status);
        Say(std::string(kKeeperEnded) + std::to_string(killed ? 0 : WEXITSTATUS(status)) + " " +
            std::to_string(killed ? WTERMSIG(status) : 0));
        return true;
    }

    int MillisecondsLeft() const {
        if (!deadline_) {
            return -1;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline_ - Clock::now());
        return static_cast<int>(std::max<s64>(left.count(), 0));
    }

    void TakeSignal() {
        signalfd_siginfo signal{};
        if (read(signalFd_.Get(), &signal, sizeof(signal)) == sizeof(signal) &&
            (signal.ssi_signo == SIGTERM || signal.ssi_signo == SIGINT)) {
            End();
        }
    }

    void TakeOrder() {
        char order = 0;
        const ssize_t count = read(control_.Get(), &order, sizeof(order));
        if (count == 0) {
            TakeParting();
        } else if (count > 0 && order == kKeeperEnd) {
            End();
        } else if (count > 0) {
            mayLive_ = order == kKeeperLive;
        }
    }

    // The daemon has gone. An end that nobody writes to any more is always ready; a fresh one
    // waits for the next daemon.
    void TakeParting() {
        if (mayLive_) {
            const std::string path = "/proc/self/fd/" + std::to_string(control_.Get());
            control_ = vimbra::Fd(open, path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        }
        // Whom no daemon can reach must not stay. The next one sees by the pipe whether it has ended.
        if (!mayLive_ || !control_) {
            isAlone_ = true;
            End();
        }
    }

    void End() {
        if (!deadline_) {
            deadline_ = Clock::now() + kEndPatience;
            kill(pid_, SIGTERM);
        }
    }

    sigset_t signals_{};
    vimbra::Fd signalFd_;
    vimbra::Fd control_;
    pid_t pid_ = -1;
    bool mayLive_ = false;
    bool isAlone_ = false;
    std::optional<Clock::time_point> deadline_;
};

}  // namespace

int RunKeeper(int argc, char** argv) {
    constexpr int kProgram = 3;
    if (argc <= kProgram) {
        return EXIT_FAILURE;
    }
    // Nobody's child: the daemon that began it may not be the one that ends it.
    const pid_t pid = fork();
    if (pid != 0) {
        return pid > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    setsid();
    Keeper keeper(std::atoi(argv[1]));
    if (!keeper.OpenOutput(argv[2])) {
        return EXIT_FAILURE;
    }
    keeper.Start(argv + kProgram);
    keeper.Watch();
    return EXIT_SUCCESS;
}

}  // namespace vimbrad
