// A program that the daemon runs: its output line by line, and its end.
#ifndef VIMBRA_TOOLS_VIMBRAD_CHILD_HPP
#define VIMBRA_TOOLS_VIMBRAD_CHILD_HPP

#include <sys/types.h>
#include <vimbra/types.h>

#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "uv.hpp"

namespace vimbrad {

// How a program ended: its exit status, or the signal that ended it.
struct ChildEnd {
    int status;
    int signal;

    std::string Text() const;
};

// Kills its program when destroyed, and when the daemon dies, however that happens; after that
// nothing is reported any more.
class Child {
 public:
    struct Events {
        // A line of standard output or standard error, without its end; long ones come in pieces.
        std::function<void(std::string_view line)> line;
        // The last report: the program itself has ended; what it started may live on.
        std::function<void(const ChildEnd& end)> end;
    };

    // Who a program is that is to be less than the daemon. It may still take ports below 1024.
    struct User {
        uid_t uid;
        gid_t gid;
    };

    // A program, and what is unusual about it.
    struct Program {
        std::vector<std::string> command;
        // Its name in the list of processes, if that is not its own.
        std::string called = {};
        std::optional<User> user = {};
        // A descriptor of ours that it gets under the same number.
        int inherited = -1;
    };

    // Throws Refusal when the program cannot be run. Events are called from the loop; they may
    // destroy the child.
    Child(uv_loop_t* loop, const Program& program, Events events);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Those that have not been reaped.
    static const std::set<pid_t>& Running();

    pid_t Pid() const;
    void Kill(int signal);
    // The program is to end within this time: asked to by SIGTERM, then killed.
    void End(u64 milliseconds);
    // The program is about to end by itself: killed if it does not within this time.
    void EndsWithin(u64 milliseconds);

 private:
    class Run;
    std::shared_ptr<Run> run_;
};

}  // namespace vimbrad

#endif
