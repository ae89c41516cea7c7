// Shows what a listener tells, each report as a function that knows how to show itself, until
// somebody wants the command to end.
#ifndef VIMBRA_TOOLS_VIMBRACTL_WATCH_HPP
#define VIMBRA_TOOLS_VIMBRACTL_WATCH_HPP

#include <chrono>
#include <functional>
#include <optional>
#include <utility>

#include "events.hpp"
#include "tool.hpp"

namespace ctl {

// Make it before the listener is started; see EndWish.
class Watch {
 public:
    using Report = std::function<void(Tool&)>;

    explicit Watch(Tool& tool) : tool_(tool), wish_(tool.OutputDescriptor()) {}

    // From any thread.
    static void Tell(Report report) { Reports().Post(std::move(report)); }

    // Shows every report at once, until the command is to end.
    void ShowAll() {
        while (Show(std::nullopt)) {
            tool_.Finish();
        }
    }

    // The same; then `stop` ends what reports, also when the output could not be written.
    void ShowAllAndStop(const std::function<s32()>& stop) {
        try {
            ShowAll();
        } catch (...) {
            tool_.Try(stop);
            throw;
        }
        tool_.Call(stop);
    }

    // Shows the next report; false when none came in time, or when the command is to end.
    bool ShowOne(std::chrono::seconds patience) { return Show(patience); }

 private:
    static EventQueue<Report>& Reports() { return EventQueue<Report>::Instance(); }

    bool Show(std::optional<std::chrono::milliseconds> patience) {
        Woken woken;
        const std::optional<Report> report = Reports().Next(wish_, woken, patience);
        if (report) {
            (*report)(tool_);
        }
        return report.has_value();
    }

    Tool& tool_;
    EndWish wish_;
};

}  // namespace ctl

#endif
