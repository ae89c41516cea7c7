// The records of services that have one for each address family. The service guards them with a
// lock of its own, which is held in all that is here.
#ifndef VIMBRA_LIB_IPC_FAMILIES_HPP
#define VIMBRA_LIB_IPC_FAMILIES_HPP

#include <cstddef>
#include <type_traits>

#include "lib/base/memory.hpp"
#include "lib/ipc/listener.hpp"
#include "lib/ipc/record.hpp"
#include "lib/log.hpp"

namespace vimbra {

// A published record with what only the library knows of it.
template <typename Info>
struct FamilyRecord {
    Info info;
    ListenerSlot listener;
    bool isStarting;  // a start is under way, on another thread or further up on this one
    bool isStopping;  // its listener's end is being waited for
    u32 generation;   // of its newest start
};

// All records of a service, chained in their order. They live as long as the process.
template <typename Info, size_t kCount>
struct FamilyTable {
    FamilyRecord<Info> of[kCount];
};

// Made in one piece, so that there are all or none. Null when memory is out, with errno.
template <typename Info, size_t kCount>
FamilyTable<Info, kCount>* NewFamilies(const u16 (&families)[kCount]) {
    auto* const table = NewZeroed<FamilyTable<Info, kCount>>();
    if (table == nullptr) {
        return nullptr;
    }
    for (size_t i = 0; i < kCount; i++) {
        Info& info = table->of[i].info;
        info.*kFamilyField<Info> = families[i];
        info.ptNext = i + 1 < kCount ? &table->of[i + 1].info : nullptr;
    }
    return table;
}

// What a lookup logs that finds nothing.
struct LookupWords {
    const char* notInitialised;
    const char* unknownFamily;  // a format with the tag, for the family
};

// The first of these records that is of the family; null, which is logged, if there is none.
template <typename Info, size_t kCount>
Info* FindFamily(CallSite site, const LookupWords& words, Info* const (&records)[kCount],
                 u16 family) {
    if (records[0] == nullptr) {
        VLOG_ERROR_AT(site, "%s", words.notInitialised);
        return nullptr;
    }
    for (Info* const info : records) {
        if (info != nullptr && FamilyOf(*info) == family) {
            return info;
        }
    }
    if (Logs(VIMBRA_LEVEL_ERR)) {
        VimbraLogError(words.unknownFamily, getpid(), site.function, site.line, family);
    }
    return nullptr;
}

template <typename Info, size_t kCount>
FamilyRecord<Info>* FindFamily(CallSite site, const LookupWords& words,
                               FamilyTable<Info, kCount>* table, u16 family) {
    using Record = FamilyRecord<Info>;
    static_assert(std::is_standard_layout_v<Record> && offsetof(Record, info) == 0);
    Info* records[kCount] = {};
    for (size_t i = 0; table != nullptr && i < kCount; i++) {
        records[i] = &table->of[i].info;
    }
    return reinterpret_cast<Record*>(FindFamily(site, words, records, family));
}

// In a forked child nothing runs.
template <typename Info, size_t kCount>
void ForgetFamilies(FamilyTable<Info, kCount>& table) {
    for (FamilyRecord<Info>& record : table.of) {
        SetStarted(record.info, false);
        record.isStarting = false;
        record.isStopping = false;
    }
}

}  // namespace vimbra

#endif
