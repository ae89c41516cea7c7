// What the library's threads report, taken up by the thread that prints it, until somebody wants
// the command to end.
#ifndef VIMBRA_TOOLS_VIMBRACTL_EVENTS_HPP
#define VIMBRA_TOOLS_VIMBRACTL_EVENTS_HPP

#include <signal.h>
#include <vimbra/types.h>

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace ctl {

// Ctrl-C, a request to terminate, and an output that nobody reads any more. Make it before the
// first thread of the library, which inherits the signal mask.
class EndWish {
 public:
    // `output` is the descriptor that the command writes to. Throws std::system_error.
    explicit EndWish(int output);
    ~EndWish();
    EndWish(const EndWish&) = delete;
    EndWish& operator=(const EndWish&) = delete;

    int Signals() const { return signals_; }
    int Output() const { return output_; }

 private:
    int output_;
    int signals_ = -1;
    sigset_t before_{};
    void (*pipeBefore_)(int) = nullptr;
};

enum class Woken { kEvent, kEnd, kTimeout };

// A counter that can be waited for together with the wish to end.
class Bell {
 public:
    Bell();
    ~Bell();
    Bell(const Bell&) = delete;
    Bell& operator=(const Bell&) = delete;

    void Ring();
    // The wish to end comes first.
    Woken Wait(const EndWish& wish, std::optional<std::chrono::milliseconds> patience);

 private:
    int counter_;
};

// A callback may still run when the library's stop has returned: queues are never destroyed.
template <typename Event>
class EventQueue {
 public:
    static EventQueue& Instance() {
        static auto* const instance = new EventQueue();
        return *instance;
    }

    // From any thread.
    void Post(Event event) {
        const std::lock_guard lock(mutex_);
        // Nobody prints so slowly; if he does, he misses the newest.
        if (events_.size() < kLongest) {
            events_.push_back(std::move(event));
            bell_.Ring();
        }
    }

    // The next event; nothing when the command is to end or when none came in time.
    std::optional<Event> Next(const EndWish& wish, Woken& woken,
                              std::optional<std::chrono::milliseconds> patience = std::nullopt) {
        woken = bell_.Wait(wish, patience);
        if (woken != Woken::kEvent) {
            return std::nullopt;
        }
        const std::lock_guard lock(mutex_);
        Event event = std::move(events_.front());
        events_.pop_front();
        return event;
    }

 private:
    static constexpr size_t kLongest = 10000;

    std::mutex mutex_;
    std::deque<Event> events_;
    Bell bell_;
};

// Throws CommandFailed when the wait was ended by its time: the daemon has gone, or forgotten us.
void ExpectMore(Woken woken);

// How a row of events ended: after so many, and by what the last wait was ended.
struct Shown {
    u32 count;
    Woken woken;
};

// Shows each event as it comes, `count` of them or, if that is 0, any number, until the command is
// to end, none comes in time, or `show` returns false: the event could not be written, or is the last.
template <typename Event, typename Show>
Shown ShowEach(const EndWish& wish, u32 count, Show show,
               std::optional<std::chrono::milliseconds> patience = std::nullopt) {
    Shown shown = {0, Woken::kEvent};
    while (count == 0 || shown.count < count) {
        const std::optional<Event> event =
            EventQueue<Event>::Instance().Next(wish, shown.woken, patience);
        if (!event || !show(*event)) {
            break;
        }
        shown.count++;
    }
    return shown;
}

}  // namespace ctl

#endif
