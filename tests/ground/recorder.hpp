// Takes what callbacks report, for tests to wait for. A callback is a plain function, so there is
// one recorder of each kind in a process.
#ifndef VIMBRA_TESTS_GROUND_RECORDER_HPP
#define VIMBRA_TESTS_GROUND_RECORDER_HPP

#include <sys/prctl.h>
#include <vimbra/types.h>

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

template <typename Event>
class Recorder {
 public:
    // For callbacks: notes the event, then runs the hook, which may call the library.
    void Add(const Event& event) {
        std::function<void(const Event&)> hook;
        {
            const std::lock_guard lock(mutex_);
            events_.push_back(event);
            hook = hook_;
        }
        if (hook) {
            hook(event);
        }
    }

    // What callbacks do from now on; they hand the event to a hook that takes one.
    template <typename Hook>
    void InCallback(Hook hook) {
        const std::lock_guard lock(mutex_);
        if constexpr (std::is_invocable_v<Hook>) {
            hook_ = [hook](const Event&) { hook(); };
        } else {
            hook_ = hook;
        }
    }

    std::vector<Event> Events() const {
        const std::lock_guard lock(mutex_);
        return events_;
    }

    // The events' own numbers.
    std::vector<u32> Kinds() const {
        std::vector<u32> kinds;
        for (const Event& event : Events()) {
            kinds.push_back(event.event);
        }
        return kinds;
    }

    size_t Count() const { return Events().size(); }

    void Clear() {
        const std::lock_guard lock(mutex_);
        events_.clear();
    }

    bool WaitCount(size_t count) const {
        return bed::WaitFor([&] { return Count() >= count; });
    }

 private:
    mutable std::mutex mutex_;
    std::vector<Event> events_;
    std::function<void(const Event&)> hook_;
};

// The name of the thread that asks.
inline std::string ThisThread() {
    char name[16] = {};
    prctl(PR_GET_NAME, name);
    return name;
}

// A thread's name as the kernel keeps it: without what is too long.
inline std::string ThreadOf(std::string_view name) {
    return std::string(name.substr(0, 15));
}

}  // namespace vimbra::tests

#endif
