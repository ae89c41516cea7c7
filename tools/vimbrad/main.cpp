// vimbrad: carries out on the running kernel what applications ask for through the library.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vimbra/log.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "hooks.hpp"
#include "log.hpp"
#include "options.hpp"
#include "readiness.hpp"
#include "rendezvous.hpp"
#include "run_dir.hpp"
#include "server.hpp"
#include "service.hpp"
#include "services/services.hpp"
#include "uv.hpp"

namespace vimbrad {
namespace {

// The loop of the process; whatever still has handles when it goes lets the loop finish them.
class Loop {
 public:
    Loop() { UvCheck(uv_loop_init(&loop_), "event loop"); }
    ~Loop() {
        uv_run(&loop_, UV_RUN_DEFAULT);
        uv_loop_close(&loop_);
    }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    uv_loop_t* Get() { return &loop_; }

 private:
    uv_loop_t loop_{};
};

UvHandle<uv_signal_t> StopOn(uv_loop_t* loop, int signal) {
    auto handle = MakeHandle<uv_signal_t>(
        [loop](uv_signal_t* raw) { return uv_signal_init(loop, raw); }, "signal");
    UvCheck(uv_signal_start(
                handle.get(),
                [](uv_signal_t* raw, int number) {
                    LogInfo("%s: ending", strsignal(number));
                    uv_stop(raw->loop);
                },
                signal),
            "signal");
    return handle;
}

// Whoever started us may have closed them: a log line must not go into whatever is opened next.
void OpenStandardDescriptors() {
    for (int fd = 0; fd >= 0 && fd <= STDERR_FILENO;) {
        fd = open("/dev/null", O_RDWR);
        if (fd > STDERR_FILENO) {
            close(fd);
        }
    }
}

// As many as the system lets us have, within reason.
size_t RaiseDescriptorLimit() {
    constexpr rlim_t kEnough = 4096;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 0;
    }
    limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, kEnough));
    setrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur;
}

void IgnoreSignals() {
    // A client may be gone when its reply is written.
    signal(SIGPIPE, SIG_IGN);
    // There is nothing to read again, and the end of a terminal is not ours.
    signal(SIGHUP, SIG_IGN);
}

void Run(const Options& options) {
    // What the library does here is told by our own log.
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    IgnoreSignals();
    Loop loop;
    const auto terminate = StopOn(loop.Get(), SIGTERM);
    const auto interrupt = StopOn(loop.Get(), SIGINT);
    Readiness readiness(options.ready_fd);
    const RunDirectory run_dir(options.run_dir);
    MakeHooks(run_dir);
    // Not before the signals are taken: whichever comes from now on, the socket is removed.
    Rendezvous rendezvous(options.group);
    Registry registry;
    const auto services = AllServices({loop.Get(), run_dir, options.web_root, options.set_clock});
    for (const auto& service : services) {
        service->Attach(registry);
    }
    const Server server(loop.Get(), registry, rendezvous.TakeSocket(),
                        LimitsFor(RaiseDescriptorLimit()));
    LogInfo("listening on %s", kSocketPath);
    readiness.TellReady();
    uv_run(loop.Get(), UV_RUN_DEFAULT);
    readiness.TellStopping();
}

}  // namespace
}  // namespace vimbrad

int main(int argc, char** argv) {
    vimbrad::OpenStandardDescriptors();
    if (const auto status = vimbrad::RunAsHook(argc, argv)) {
        return *status;
    }
    vimbrad::Options options;
    if (const auto status = vimbrad::ReadOptions(argc, argv, options)) {
        return *status;
    }
    vimbrad::SetOperatorLogLevel(options.log_level);
    if (options.syslog) {
        vimbrad::LogToSyslog();
    }
    try {
        vimbrad::Run(options);
    } catch (const std::exception& error) {
        vimbrad::LogError("%s", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
