// Chains of a fixed number of records, each for one watch or test that runs at a time. The records
// are public and chained by their ptNext; behind each stands what the library keeps to itself. A
// chain is built once and never freed.
//
// Only Runs takes a lock: a service guards its chain with a mutex of its own. How a record is
// matched and what clearing it means differs by service; whoever clears one calls GiveBack().
#ifndef VIMBRA_LIB_IPC_SLOTS_HPP
#define VIMBRA_LIB_IPC_SLOTS_HPP

#include <cstddef>
#include <type_traits>

#include "lib/base/lock.hpp"
#include "lib/base/memory.hpp"
#include "lib/ipc/listener.hpp"
#include "lib/ipc/record.hpp"

namespace vimbra {

template <typename Info>
struct Slot {
    Info info;
    ListenerSlot listener;
    bool taken;      // from TakeSlot() to GiveBack(); a record may count as started later than that
    u32 generation;  // tells a taker from those before and after it
    u32 pending;     // starts that share it and await a reply; see ShareSlot()
};

// The slot of a record; null for null.
template <typename Info>
Slot<Info>* SlotOf(Info* info) {
    static_assert(std::is_standard_layout_v<Slot<Info>> && offsetof(Slot<Info>, info) == 0);
    return reinterpret_cast<Slot<Info>*>(info);
}

// Its record; null for null.
template <typename Info>
Info* InfoOf(Slot<Info>* slot) {
    return slot != nullptr ? &slot->info : nullptr;
}

// Builds a chain of zeroed records, each set up by setup(info, index). False when memory is out;
// what was built so far stays. A chain that is there already is left as it is.
template <typename Info, typename Setup>
bool BuildSlots(Info*& head, int count, Setup setup) {
    if (head != nullptr) {
        return true;
    }
    Info** link = &head;
    for (int i = 0; i < count; i++) {
        auto* slot = NewZeroed<Slot<Info>>();
        if (slot == nullptr) {
            return false;
        }
        setup(slot->info, i);
        *link = &slot->info;
        link = &slot->info.ptNext;
    }
    return true;
}

// The first slot for which match(slot) holds, or null.
template <typename Info, typename Match>
Slot<Info>* FindSlot(Info* head, Match match) {
    for (Info* info = head; info != nullptr; info = info->ptNext) {
        if (match(*SlotOf(info))) {
            return SlotOf(info);
        }
    }
    return nullptr;
}

// The first started slot for whose record match(info) holds, or null.
template <typename Info, typename Match>
Slot<Info>* FindBusySlot(Info* head, Match match) {
    return FindSlot(
        head, [&](const Slot<Info>& slot) { return IsStarted(slot.info) && match(slot.info); });
}

// The first slot that is neither started nor being started, or null.
template <typename Info>
Slot<Info>* FindFreeSlot(Info* head) {
    return FindSlot(head,
                    [](const Slot<Info>& slot) { return !IsStarted(slot.info) && !slot.taken; });
}

// Makes the slot the caller's, in a generation of its own.
template <typename Info>
u32 TakeSlot(Slot<Info>& slot) {
    slot.taken = true;
    return ++slot.generation;
}

template <typename Info>
void GiveBack(Slot<Info>& slot) {
    slot.taken = false;
    slot.pending = 0;
}

// In a forked child: whatever ran is cleared, by clear(slot). The chain itself has been whole since
// it was built.
template <typename Info, typename Clear>
void ForgetSlots(Info* head, Clear clear) {
    for (Info* info = head; info != nullptr; info = info->ptNext) {
        if (SlotOf(info)->taken) {
            clear(*SlotOf(info));
        }
    }
}

// For services whose runs have user ids of the application's: a record before its first run, and
// after each.
template <typename Info>
void SetUpUserRun(Info& info, int index) {
    info.wSinFamily = index == 0 ? VIMBRA_FAMILY_IPV4 : 0;
}

template <typename Info>
void ClearUserRun(Slot<Info>& slot) {
    SetStarted(slot.info, 0);
    slot.info.tThreadId = static_cast<pthread_t>(-1);
    slot.info.nUserId = -1;
    slot.info.wSinFamily = 0;
    slot.info.ptCallBackFunc = nullptr;
    GiveBack(slot);
}

// For a service of which there is one: starts that cross share its slot. Each asks the daemon, and
// one listener, which the first of them starts (`pending` is 1), serves them all.
template <typename Info>
u32 ShareSlot(Slot<Info>& slot) {
    if (!slot.taken) {
        TakeSlot(slot);
    }
    slot.pending++;
    return slot.generation;
}

// Is it still of that generation? Its listener, or a stop, may have given it back meanwhile, and
// another start may have taken it since.
template <typename Info>
bool IsStillTaken(const Slot<Info>& slot, u32 generation) {
    return slot.taken && slot.generation == generation;
}

// The ends of runs whose listeners give their slots back, for services that clear a record by
// `kClear` and guard their chain with `kMutex`.
template <typename Info, pthread_mutex_t& kMutex, void (*kClear)(Info*)>
struct Runs {
    // With the chain locked.
    static void End(Slot<Info>& slot) {
        KillListener(slot.listener);
        kClear(&slot.info);
    }

    // Ends one generation of a slot, unless it has ended already: the slot may be another's by now.
    static void EndGeneration(Slot<Info>& slot, u32 generation) {
        const Lock lock(kMutex);
        if (IsStillTaken(slot, generation)) {
            End(slot);
        }
    }

    // A listener that ends after its last message gives the slot back. One that could not serve
    // its socket leaves the run busy, for its owner to stop.
    static void ListenerEnded(Listener& listener, Ended why) {
        if (why == Ended::kNotBound || why == Ended::kAcceptFailed || why == Ended::kWaitFailed) {
            return;
        }
        const Lock lock(kMutex);
        if (listener.Release()) {
            kClear(&static_cast<Slot<Info>*>(listener.Argument())->info);
        }
    }
};

}  // namespace vimbra

#endif
