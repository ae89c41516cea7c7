// What the end-to-end tests stand on: the real daemon, hosts in namespaces of their own, and the
// kernel's own view of them.
#ifndef VIMBRA_TESTS_E2E_HPP
#define VIMBRA_TESTS_E2E_HPP

#include <sys/types.h>

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace vimbra::tests {

using Json = nlohmann::json;

// A program that was started: ended and reaped by its owner at the latest.
class Program {
 public:
    // Standard output and standard error go to `output`, a file.
    Program(const std::vector<std::string>& command, const std::string& output);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t Pid() const { return pid_; }
    bool Running();
    void Signal(int number) const;
    // Waits for its end. Its exit status, or 128 and the signal that ended it; -1 when it does not
    // end.
    int Wait();
    std::string Output() const;
    // Waits until the output holds this text.
    bool WaitOutput(const std::string& text) const;

 private:
    std::string output_;
    pid_t pid_ = -1;
    int status_ = -1;
};

// Ends a daemon at once. When this returns, nobody answers in its place either: a program that it was
// just beginning has its sockets until it is one.
void KillDaemon(Program& daemon);

// The daemon, serving when the constructor returns.
class Daemon {
 public:
    explicit Daemon(const std::vector<std::string>& options = {});
    // Ends it, if that was not done yet; a failure or a sanitizer's report fails the test.
    ~Daemon();

    // SIGTERM; its exit status.
    int Stop();
    bool Running() { return program_.Running(); }
    std::string Log() const { return program_.Output(); }
    bool WaitLog(const std::string& text) const { return program_.WaitOutput(text); }
    Program& Process() { return program_; }

 private:
    Program program_;
    bool stopped_ = false;
};

// Command line of the daemon under test.
std::vector<std::string> DaemonCommand(const std::vector<std::string>& options = {});

// The answer to a line on the operators' socket.
Json AskOperators(const std::string& line);
// What operators are told of one thing.
Json Shown(const std::string& what);

// A program that is run in another's place by whoever is started from now on: lines for the shell.
void Pretend(const std::string& program, const std::string& script);

// Runs a shell command; its output. A command that fails throws std::runtime_error with what it
// wrote.
std::string Shell(const std::string& command);
// Exit status of a shell command, whatever it wrote.
int ShellStatus(const std::string& command);
// What `ip -json ARGUMENTS` tells.
Json Ip(const std::string& arguments);

// The kernel's own view of an interface's addresses: "10.0.0.1/24 global", one for each of this
// family (2 or 10), sorted.
std::vector<std::string> KernelAddresses(const std::string& iface, int family);

// The private directories of the daemons that run.
std::string Directories();

// Another host: a network namespace with a program in it that holds it open.
class Host {
 public:
    Host();
    // Runs a shell command there.
    std::string Shell(const std::string& command) const;
    int ShellStatus(const std::string& command) const;
    std::string Prefix() const;
    pid_t Pid() const { return program_.Pid(); }

 private:
    Program program_;
};

// A link between this host's interface `name` and that of the other; both are up.
void Connect(const std::string& name, const Host& host, const std::string& nameThere = "eth0");
// An interface that is up and leads nowhere.
void MakeIface(const std::string& name);

}  // namespace vimbra::tests

#endif
