// Takes what callbacks report, for tests to wait for. A callback is a plain function, so there is
// one recorder of each kind in a process.
#ifndef VIMBRA_TESTS_DIAG_RECORDER_HPP
#define VIMBRA_TESTS_DIAG_RECORDER_HPP

#include <mutex>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

template <typename Event>
class Recorder {
 public:
    void Add(const Event& event) {
        const std::lock_guard lock(mutex_);
        events_.push_back(event);
    }

    std::vector<Event> Events() const {
        const std::lock_guard lock(mutex_);
        return events_;
    }

    bool WaitCount(size_t count) const {
        return bed::WaitFor([&] { return Events().size() >= count; });
    }

 private:
    mutable std::mutex mutex_;
    std::vector<Event> events_;
};

}  // namespace vimbra::tests

#endif
