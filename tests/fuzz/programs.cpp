#include "programs.hpp"

#include <algorithm>
#include <memory>
#include <vector>

#include "child.hpp"
#include "lines.hpp"
#include "udp_port.hpp"

namespace vimbra::tests {
namespace {

class Program;

std::vector<Program*> g_programs;
pid_t g_lastPid = 100;

// In the order in which they began, until they have ended or nobody cares any more.
class Program {
 public:
    explicit Program(const vimbrad::Child::Program& program) : pid_(++g_lastPid) {
        for (const std::string& each : program.command) {
            command_ += each + " ";
        }
        g_programs.push_back(this);
    }
    virtual ~Program() { Forget(); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t Pid() const { return pid_; }
    const std::string& Command() const { return command_; }
    void Forget() { std::erase(g_programs, this); }

    virtual void Write(std::string_view bytes) = 0;
    virtual void End(const vimbrad::ChildEnd& end) = 0;

 private:
    pid_t pid_;
    std::string command_;
};

bool HasProgram(pid_t pid) {
    return std::ranges::any_of(g_programs,
                               [pid](const Program* each) { return each->Pid() == pid; });
}

}  // namespace

size_t ProgramCount() {
    return g_programs.size();
}

std::string ProgramCommand(size_t index) {
    return index < g_programs.size() ? g_programs[index]->Command() : "";
}

void ProgramWrites(size_t index, std::string_view bytes) {
    if (index < g_programs.size()) {
        g_programs[index]->Write(bytes);
    }
}

void ProgramEnds(size_t index, int status, int signal) {
    if (index < g_programs.size()) {
        g_programs[index]->End({status, signal});
    }
}

}  // namespace vimbra::tests

namespace vimbrad {

std::string ChildEnd::Text() const {
    return std::to_string(status) + " or signal " + std::to_string(signal);
}

class Child::Run : public vimbra::tests::Program, public std::enable_shared_from_this<Run> {
 public:
    Run(const Child::Program& program, Events events)
        : Program(program),
          events_(std::move(events)),
          lines_([this](std::string_view line) { Report(line); }) {}

    void Write(std::string_view bytes) override {
        const auto alive = shared_from_this();
        lines_.Append(bytes);
    }

    void End(const ChildEnd& end) override {
        const auto alive = shared_from_this();
        Forget();
        lines_.Flush();
        if (const auto report = std::exchange(events_.end, nullptr)) {
            report(end);
        }
    }

    void Abandon() {
        events_ = {};
        Forget();
    }

 private:
    void Report(std::string_view line) const {
        if (const auto report = events_.line) {
            report(line);
        }
    }

    Events events_;
    Lines lines_;
};

Child::Child(uv_loop_t*, const Program& program, Events events)
    : run_(std::make_shared<Run>(program, std::move(events))) {}

Child::~Child() {
    run_->Abandon();
}

const std::set<pid_t>& Child::Running() {
    static std::set<pid_t> running;
    running.clear();
    return running;
}

pid_t Child::Pid() const {
    return run_->Pid();
}

void Child::Kill(int) {}

void Child::End(u64) {}

void Child::EndsWithin(u64) {}

// A server serves as soon as it runs.
bool HasUdpPort(pid_t pid, u16) {
    return vimbra::tests::HasProgram(pid);
}

}  // namespace vimbrad
