// What the tests of ping and traceroute share: their chains of slots, and what a test leaves.
#ifndef VIMBRA_TESTS_DIAG_SLOTS_HPP
#define VIMBRA_TESTS_DIAG_SLOTS_HPP

#include <gtest/gtest.h>
#include <vimbra/common.h>

#include <optional>
#include <vimbra/bed.hpp>

#include "../ground/level.hpp"
#include "../ground/prepared.hpp"

namespace vimbra::tests {

template <typename Slot>
u32 CountBusy(const Slot* chain) {
    u32 count = 0;
    for (const Slot* slot = chain; slot != nullptr; slot = slot->ptNext) {
        count += __atomic_load_n(&slot->bIsStarted, __ATOMIC_ACQUIRE) != 0 ? 1 : 0;
    }
    return count;
}

// The service at a daemon, once the library is prepared; BusySlots() is the service's.
template <typename BeforeInit, u32 (*BusySlots)()>
class AfterInit : public BeforeInit {
 protected:
    void SetUp() override {
        ASSERT_EQ(0, VimbraInit());
        level_.emplace();
    }

    // Nothing of any run is left.
    bool AllGone() const {
        level_->ExpectBack();
        return bed::WaitFor([] { return BusySlots() == 0; });
    }

    // Waits until so many runs have a thread.
    bool WaitRunning(size_t count) const {
        return bed::WaitFor([=, this] { return bed::Threads() == level_->Threads() + count; });
    }

 private:
    std::optional<Level> level_;
};

}  // namespace vimbra::tests

#endif
