// vimbrad: carries out on the running kernel what applications ask for through the library.
#include <getopt.h>
#include <signal.h>
#include <unistd.h>
#include <vimbra/log.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>

#include "log.hpp"
#include "rendezvous.hpp"
#include "server.hpp"
#include "service.hpp"
#include "services/services.hpp"
#include "uv.hpp"

namespace vimbrad {
namespace {

constexpr char kUsage[] =
    "Usage: vimbrad [OPTION]...\n"
    "Network daemon: carries out requests of applications on the running kernel.\n"
    "Listens on /tmp/api_daemon, stays in the foreground, logs to standard error.\n"
    "\n"
    "  -l, --log-level=LEVEL  0 (silence), 2 (errors), 3 (and warnings), 4 (and\n"
    "                         information, the default) or 5 (and debugging)\n"
    "  -w, --web-root=DIR     what the web server serves, /var/www by default\n"
    "  -s, --set-clock        NTP clients set the clock; otherwise they only tell how\n"
    "                         far it is off\n"
    "  -V, --version          print the version and exit\n"
    "  -h, --help             print this help and exit\n"
    "\n"
    "SIGTERM and SIGINT end it. Exit status: 0 ended by a signal, 1 could not run,\n"
    "2 wrong usage.\n";

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

struct Options {
    std::string web_root = "/var/www";
    bool set_clock = false;
};

void Run(const Options& options) {
    // What the library does here is told by our own log.
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    // A client may be gone when its reply is written.
    signal(SIGPIPE, SIG_IGN);
    Loop loop;
    const auto terminate = StopOn(loop.Get(), SIGTERM);
    const auto interrupt = StopOn(loop.Get(), SIGINT);
    // Not before the signals are taken: whichever comes from now on, the socket is removed.
    Rendezvous rendezvous;
    Registry registry;
    const auto services = AllServices({loop.Get(), options.web_root, options.set_clock});
    for (const auto& service : services) {
        service->Attach(registry);
    }
    const Server server(loop.Get(), registry, rendezvous.TakeSocket());
    LogInfo("listening on %s", kSocketPath);
    uv_run(loop.Get(), UV_RUN_DEFAULT);
}

std::optional<LogLevel> ParseLogLevel(const char* text) {
    if (std::strlen(text) != 1 || *text < '0' || *text > '0' + static_cast<char>(kLogLevelMax)) {
        return std::nullopt;
    }
    return static_cast<LogLevel>(*text - '0');
}

// Exit status, or nothing when the daemon is to run.
std::optional<int> ReadOptions(int argc, char** argv, Options& options) {
    static const option kOptions[] = {{"log-level", required_argument, nullptr, 'l'},
                                      {"web-root", required_argument, nullptr, 'w'},
                                      {"set-clock", no_argument, nullptr, 's'},
                                      {"version", no_argument, nullptr, 'V'},
                                      {"help", no_argument, nullptr, 'h'},
                                      {nullptr, 0, nullptr, 0}};
    for (int letter; (letter = getopt_long(argc, argv, "l:w:sVh", kOptions, nullptr)) != -1;) {
        switch (letter) {
            case 'l':
                if (const auto level = ParseLogLevel(optarg)) {
                    SetLogLevel(*level);
                    break;
                }
                std::fprintf(stderr, "vimbrad: --log-level takes 0 to %u, not '%s'\n", kLogLevelMax,
                             optarg);
                return 2;
            case 'w':
                options.web_root = optarg;
                break;
            case 's':
                options.set_clock = true;
                break;
            case 'V':
                std::puts("vimbrad " VIMBRAD_VERSION);
                return 0;
            case 'h':
                std::fputs(kUsage, stdout);
                return 0;
            default:
                std::fputs("Try 'vimbrad --help'.\n", stderr);
                return 2;
        }
    }
    if (optind != argc) {
        std::fprintf(stderr, "vimbrad: unexpected argument '%s'\nTry 'vimbrad --help'.\n",
                     argv[optind]);
        return 2;
    }
    return std::nullopt;
}

}  // namespace
}  // namespace vimbrad

int main(int argc, char** argv) {
    vimbrad::Options options;
    if (const auto status = vimbrad::ReadOptions(argc, argv, options)) {
        return *status;
    }
    try {
        vimbrad::Run(options);
    } catch (const std::exception& error) {
        vimbrad::LogError("%s", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
