// Waiting for what listeners tell, on threads of their own, until somebody interrupts.
#ifndef VIMBRACTL_WATCH_HPP
#define VIMBRACTL_WATCH_HPP

#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

#include "tool.hpp"

namespace ctl {

// One at a time: SIGINT and SIGTERM end it while it lives.
class Watch {
 public:
    // What was told, to be shown on the main thread.
    using Report = std::function<void(Tool&)>;

    // Throws CommandFailed.
    Watch();
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // From any thread; nobody is there to hear it when there is no watch.
    static void Tell(Report report);

    // Shows every report at once, until interrupted.
    void ShowAll(Tool& tool);
    // Shows the next report; false when none came in time, or on an interruption.
    bool ShowOne(Tool& tool, std::chrono::seconds patience);

 private:
    std::optional<Report> Next(int milliseconds);

    std::mutex mutex_;
    std::deque<Report> reports_;
    bool interrupted_ = false;
};

}  // namespace ctl

#endif
