#include "daemon.hpp"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "log.hpp"
#include "rendezvous.hpp"

namespace vimbra::tests {
namespace {

namespace fs = std::filesystem;

// Enough for what a request sets in motion; nothing that it does is endless.
constexpr int kRounds = 4;

void WriteText(const std::string& path, std::string_view text, mode_t mode) {
    Write(path.c_str(), text.data(), text.size());
    chmod(path.c_str(), mode);
}

// A machine that has all programs and devices, none of which is ever used.
bool PrepareMachine() {
    Prepare();
    signal(SIGPIPE, SIG_IGN);
    mkdir("/tmp/bin", 0755);
    for (const char* each : {"busybox", "dhclient", "chronyd", "pppd"}) {
        WriteText(std::string("/tmp/bin/") + each, "", 0755);
    }
    setenv("PATH", "/tmp/bin", 1);
    WriteText("/dev/ppp", "", 0600);
    // All lines are made; nobody takes them.
    vimbrad::LogToSyslog();
    vimbrad::SetOperatorLogLevel(vimbrad::LogLevel::kDebug);
    return true;
}

vimbrad::Options OptionsOfTheDaemon() {
    vimbrad::Options options;
    options.runDir = kDaemonDir;
    options.setClock = true;
    return options;
}

}  // namespace

Daemon::Daemon(std::string_view state) {
    static const bool prepared = PrepareMachine();
    fs::remove_all(kDaemonDir);
    if (!state.empty() && prepared) {
        mkdir(kDaemonDir, 0700);
        WriteText(std::string(kDaemonDir) + "/" + vimbrad::kStateName, state, 0600);
    }
    Write("/etc/resolv.conf", "", 0);
    uv_loop_init(&loop_);
    life_.emplace(&loop_, OptionsOfTheDaemon());
    Run();
}

Daemon::~Daemon() {
    SetKernelWhims(nullptr);
    life_.reset();
    for (const int each : outputs_) {
        close(each);
    }
    uv_run(&loop_, UV_RUN_DEFAULT);
    uv_loop_close(&loop_);
}

std::string Daemon::Send(std::string_view message) {
    return Exchange(vimbrad::kSocketPath, message);
}

std::string Daemon::Request(u32 type, std::string_view body) {
    const u32 head[3] = {type, static_cast<u32>(body.size()), 0};
    return Send(std::string(reinterpret_cast<const char*>(head), sizeof(head)).append(body));
}

std::string Daemon::Ask(std::string_view lines) {
    return Exchange((std::string(kDaemonDir) + "/" + vimbrad::kOperatorsName).c_str(), lines);
}

void Daemon::Run() {
    for (int i = 0; i < kRounds; i++) {
        uv_run(&loop_, UV_RUN_NOWAIT);
    }
}

void Daemon::Pass(u64 milliseconds) {
    PassTime(milliseconds);
    Run();
}

void Daemon::Receive(Input& input) {
    Deliver(&loop_, input);
    Run();
}

void Daemon::End() {
    raise(SIGTERM);
    Run();
    for (size_t count = ProgramCount(); count > 0; count--) {
        ProgramEnds(0, 0, SIGTERM);
    }
    Pass(20'000);
}

void Daemon::KeptProgramsWrite(std::string_view bytes) {
    std::error_code ignored;
    for (const auto& each : fs::recursive_directory_iterator(kDaemonDir, ignored)) {
        if (each.is_fifo(ignored) && each.path().filename() == "output") {
            const int fd = open(each.path().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            if (fd >= 0) {
                outputs_.push_back(fd);
                static_cast<void>(write(fd, bytes.data(), bytes.size()) >= 0);
            }
        }
    }
    Run();
}

std::string Daemon::SavedState() const {
    const std::string path = std::string(kDaemonDir) + "/" + vimbrad::kStateName;
    return fs::exists(path) ? Read(path.c_str()) : "";
}

std::string Daemon::Exchange(const char* path, std::string_view bytes) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, path);
    std::string reply;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        write(fd, bytes.data(), bytes.size()) >= 0) {
        Run();
        char block[65536];
        ssize_t count;
        while ((count = read(fd, block, sizeof(block))) > 0) {
            reply.append(block, static_cast<size_t>(count));
        }
    }
    close(fd);
    Run();
    return reply;
}

std::string WithBoot(std::string text) {
    constexpr std::string_view kMark = "@BOOT@";
    std::string boot = Read("/proc/sys/kernel/random/boot_id");
    boot.resize(boot.find('\n'));
    if (const size_t at = text.find(kMark); at != text.npos) {
        text.replace(at, kMark.size(), boot);
    }
    return text;
}

}  // namespace vimbra::tests
