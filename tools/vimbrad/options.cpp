#include "options.hpp"

#include <fcntl.h>
#include <getopt.h>
#include <grp.h>
#include <pwd.h>
#include <vimbra/version.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string_view>

namespace vimbrad {
namespace {

constexpr char kUsage[] =
    "Usage: vimbrad [OPTION]...\n"
    "Network daemon: carries out requests of applications on the running kernel.\n"
    "Listens on /tmp/api_daemon, stays in the foreground, logs to standard error.\n"
    "\n"
    "  -g, --group=NAME       who may connect beside root: the socket's group\n"
    "  -r, --run-dir=DIR      where it keeps its own files, /run/vimbrad by default\n"
    "  -k, --keep             leave the network as it is when it ends\n"
    "  -f, --forget           do not take up what an earlier life left\n"
    "  -y, --syslog           log to the system's log instead\n"
    "  -n, --ready-fd=FD      write a line to this descriptor when it serves\n"
    "  -l, --log-level=LEVEL  0 (silence), 2 (errors), 3 (and warnings), 4 (and\n"
    "                         information, the default) or 5 (and debugging)\n"
    "  -w, --web-root=DIR     what the web server serves, /var/www by default\n"
    "  -u, --web-user=NAME    as whom the web server and its programs run, nobody by\n"
    "                         default\n"
    "  -s, --set-clock        NTP clients set the clock; otherwise they only tell how\n"
    "                         far it is off\n"
    "  -V, --version          print the version and exit\n"
    "  -h, --help             print this help and exit\n"
    "\n"
    "SIGTERM and SIGINT end it. Exit status: 0 ended by a signal, 1 could not run,\n"
    "2 wrong usage.\n";

constexpr option kOptions[] = {{"group", required_argument, nullptr, 'g'},
                               {"run-dir", required_argument, nullptr, 'r'},
                               {"keep", no_argument, nullptr, 'k'},
                               {"forget", no_argument, nullptr, 'f'},
                               {"syslog", no_argument, nullptr, 'y'},
                               {"ready-fd", required_argument, nullptr, 'n'},
                               {"log-level", required_argument, nullptr, 'l'},
                               {"web-root", required_argument, nullptr, 'w'},
                               {"web-user", required_argument, nullptr, 'u'},
                               {"set-clock", no_argument, nullptr, 's'},
                               {"version", no_argument, nullptr, 'V'},
                               {"help", no_argument, nullptr, 'h'},
                               {nullptr, 0, nullptr, 0}};

std::optional<unsigned> NumberOf(std::string_view text, unsigned most) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number > most) {
        return std::nullopt;
    }
    return number;
}

// By its name or its number.
std::optional<gid_t> GroupOf(const char* text) {
    if (const group* found = getgrnam(text)) {
        return found->gr_gid;
    }
    return NumberOf(text, std::numeric_limits<int>::max());
}

bool IsOpen(unsigned fd) {
    return fcntl(static_cast<int>(fd), F_GETFD) != -1;
}

// The following are false, and say so, when the value is none of the option's.

bool TakeGroup(const char* value, Options& options) {
    options.group = GroupOf(value);
    if (!options.group) {
        std::fprintf(stderr, "vimbrad: there is no group '%s'\n", value);
    }
    return options.group.has_value();
}

bool TakeLevel(const char* value, Options& options) {
    const auto level = NumberOf(value, kLogLevelMax);
    if (!level || std::strlen(value) != 1) {
        std::fprintf(stderr, "vimbrad: --log-level takes 0 to %u, not '%s'\n", kLogLevelMax, value);
        return false;
    }
    options.logLevel = static_cast<LogLevel>(*level);
    return true;
}

bool TakeReadyFd(const char* value, Options& options) {
    const auto fd = NumberOf(value, std::numeric_limits<int>::max());
    if (!fd || *fd <= 2 || !IsOpen(*fd)) {
        std::fprintf(stderr, "vimbrad: --ready-fd takes an open descriptor, not '%s'\n", value);
        return false;
    }
    options.readyFd = static_cast<int>(*fd);
    return true;
}

bool TakeWebUser(const char* value, Options& options) {
    if (getpwnam(value) == nullptr) {
        std::fprintf(stderr, "vimbrad: there is no user '%s'\n", value);
        return false;
    }
    options.webUser = value;
    return true;
}

bool Take(char letter, const char* value, Options& options) {
    switch (letter) {
        case 'g':
            return TakeGroup(value, options);
        case 'l':
            return TakeLevel(value, options);
        case 'n':
            return TakeReadyFd(value, options);
        case 'u':
            return TakeWebUser(value, options);
        case 'r':
            options.runDir = value;
            break;
        case 'w':
            options.webRoot = value;
            break;
        case 'f':
            options.forget = true;
            break;
        case 'k':
            options.keep = true;
            break;
        case 's':
            options.setClock = true;
            break;
        default:
            options.syslog = true;
            break;
    }
    return true;
}

}  // namespace

std::optional<int> ReadOptions(int argc, char** argv, Options& options) {
    for (int letter;
         (letter = getopt_long(argc, argv, "g:r:kfyn:l:w:u:sVh", kOptions, nullptr)) != -1;) {
        switch (letter) {
            case 'V':
                std::puts("vimbrad " VIMBRA_VERSION_TEXT);
                return 0;
            case 'h':
                std::fputs(kUsage, stdout);
                return 0;
            case '?':
                std::fputs("Try 'vimbrad --help'.\n", stderr);
                return 2;
            default:
                if (!Take(static_cast<char>(letter), optarg, options)) {
                    return 2;
                }
        }
    }
    if (optind != argc) {
        std::fprintf(stderr, "vimbrad: unexpected argument '%s'\nTry 'vimbrad --help'.\n",
                     argv[optind]);
        return 2;
    }
    return std::nullopt;
}

}  // namespace vimbrad
