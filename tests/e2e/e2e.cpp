#include "e2e.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

Program::Program(const std::vector<std::string>& command, const std::string& output)
    : output_(output) {
    std::vector<char*> arguments;
    for (const std::string& each : command) {
        arguments.push_back(const_cast<char*>(each.c_str()));
    }
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0666);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    const int error =
        posix_spawnp(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("cannot run " + command[0] + ": " + strerror(error));
    }
}

Program::~Program() {
    if (Running()) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

bool Program::Running() {
    if (status_ >= 0) {
        return false;
    }
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) != pid_) {
        return true;
    }
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return false;
}

// The thread sanitizer holds a signal back until the next call that waits, and may lose the one that
// comes on the way into it: then a program waits for ever that was told to end. In its wait it gets it.
#ifdef __SANITIZE_THREAD__
bool Sleeps(pid_t process) {
    const std::string stat = bed::ReadFile("/proc/" + std::to_string(process) + "/stat");
    return stat.substr(stat.rfind(')') + 1).starts_with(" S ");
}
#endif

void Program::Signal(int number) const {
#ifdef __SANITIZE_THREAD__
    if (number != SIGKILL) {
        bed::WaitFor([this] { return Sleeps(pid_); });
    }
#endif
    kill(pid_, number);
}

int Program::Wait() {
    bed::WaitFor([this] { return !Running(); });
    return status_;
}

std::string Program::Output() const {
    return bed::ReadFile(output_);
}

bool Program::WaitOutput(const std::string& text) const {
    return bed::WaitFor([this, &text] { return Output().find(text) != std::string::npos; });
}

std::vector<std::string> DaemonCommand(const std::vector<std::string>& options) {
    std::vector<std::string> command{VIMBRAD_PATH};
    command.insert(command.end(), options.begin(), options.end());
    return command;
}

Daemon::Daemon(const std::vector<std::string>& options)
    : program_(DaemonCommand(options), "/tmp/vimbrad.log") {
    if (!bed::WaitFor([this] { return bed::HasListener("api_daemon") || !program_.Running(); }) ||
        !program_.Running()) {
        throw std::runtime_error("the daemon does not serve: " + Log());
    }
}

Daemon::~Daemon() {
    if (!stopped_) {
        EXPECT_EQ(0, Stop()) << Log();
    }
}

void KillDaemon(Program& daemon) {
    daemon.Signal(SIGKILL);
    EXPECT_EQ(128 + SIGKILL, daemon.Wait());
    EXPECT_TRUE(bed::WaitForNoListener("api_daemon"));
}

int Daemon::Stop() {
    stopped_ = true;
    program_.Signal(SIGTERM);
    return program_.Wait();
}

void Pretend(const std::string& program, const std::string& script) {
    const std::string path = "/tmp/bin/" + program;
    bed::WriteFile(path, "#!/bin/sh\n" + script);
    ASSERT_EQ(0, chmod(path.c_str(), 0755));
    const std::string paths = getenv("PATH");
    if (!paths.starts_with("/tmp/bin:")) {
        ASSERT_EQ(0, setenv("PATH", ("/tmp/bin:" + paths).c_str(), 1));
    }
}

Json AskOperators(const std::string& line) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/run/vimbrad/status");
    const std::string question = line + "\n";
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        write(fd, question.data(), question.size()) < 0) {
        close(fd);
        throw std::runtime_error("nobody answers operators");
    }
    std::string answer;
    for (char each; read(fd, &each, 1) == 1 && each != '\n';) {
        answer += each;
    }
    close(fd);
    return Json::parse(answer);
}

Json Shown(const std::string& what) {
    return AskOperators(R"({"ask": ")" + what + R"("})").at(what);
}

namespace {

int RunShell(const std::string& command, std::string& output) {
    FILE* pipe = popen(("exec 2>&1; " + command).c_str(), "re");
    if (pipe == nullptr) {
        throw std::runtime_error("popen");
    }
    char buffer[4096];
    for (size_t count; (count = fread(buffer, 1, sizeof(buffer), pipe)) != 0;) {
        output.append(buffer, count);
    }
    return pclose(pipe);
}

}  // namespace

std::string Shell(const std::string& command) {
    std::string output;
    if (RunShell(command, output) != 0) {
        throw std::runtime_error(command + ": " + output);
    }
    return output;
}

int ShellStatus(const std::string& command) {
    std::string output;
    const int status = RunShell(command, output);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string Directories() {
    return Shell("ls -d /run/vimbrad/files.?????? 2>/dev/null || true");
}

Json Ip(const std::string& arguments) {
    std::string text;
    do {
        text = Shell("ip -json " + arguments);
        // Something changed while it was read, and ip has told us on the way.
    } while (text.find("Dump was interrupted") != std::string::npos);
    // Nothing found is nothing written.
    return text.find_first_not_of(" \n") == std::string::npos ? Json::array() : Json::parse(text);
}

std::vector<std::string> KernelAddresses(const std::string& iface, int family) {
    std::vector<std::string> found;
    const Json shown = Ip("address show dev " + iface);
    for (const Json& address : shown.at(0).at("addr_info")) {
        if (address.at("family") == (family == 2 ? "inet" : "inet6")) {
            found.push_back(address.at("local").get<std::string>() + "/" +
                            std::to_string(address.at("prefixlen").get<int>()) + " " +
                            address.at("scope").get<std::string>());
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

Host::Host() : program_({"unshare", "-n", "sleep", "1000"}, "/dev/null") {
    const std::string here = tests::Shell("readlink /proc/self/ns/net");
    if (!bed::WaitFor([&] {
            return ShellStatus(Prefix() + "true") == 0 &&
                   tests::Shell(Prefix() + "readlink /proc/self/ns/net") != here;
        })) {
        throw std::runtime_error("no namespace for another host");
    }
    Shell("ip link set lo up");
}

std::string Host::Prefix() const {
    return "nsenter -t " + std::to_string(Pid()) + " -n ";
}

std::string Host::Shell(const std::string& command) const {
    return tests::Shell(Prefix() + "sh -c '" + command + "'");
}

int Host::ShellStatus(const std::string& command) const {
    return tests::ShellStatus(Prefix() + "sh -c '" + command + "'");
}

void Connect(const std::string& name, const Host& host, const std::string& nameThere) {
    Shell("ip link add " + name + " type veth peer name " + nameThere + " netns " +
          std::to_string(host.Pid()));
    host.Shell("ip link set " + nameThere + " up");
    Shell("ip link set " + name + " up");
}

void MakeIface(const std::string& name) {
    Shell("ip link add " + name + " type veth peer name peer-" + name);
    Shell("ip link set peer-" + name + " up && ip link set " + name + " up");
}

}  // namespace vimbra::tests
