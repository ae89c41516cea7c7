// vimbrad: carries out on the running kernel what applications ask for through the library.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>
#include <vimbra/log.h>

#include <cstdlib>
#include <exception>

#include "hooks.hpp"
#include "life.hpp"
#include "log.hpp"
#include "options.hpp"
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

// Whoever started us may have closed them: a log line must not go into whatever is opened next.
void OpenStandardDescriptors() {
    for (int fd = 0; fd >= 0 && fd <= STDERR_FILENO;) {
        fd = open("/dev/null", O_RDWR);
        if (fd > STDERR_FILENO) {
            close(fd);
        }
    }
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
    Life life(loop.Get(), options);
    life.Run();
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
    vimbrad::SetOperatorLogLevel(options.logLevel);
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
