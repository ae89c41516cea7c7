// What of the kernel's settings is ours: the records of the requests that made them. It goes when
// the daemon does, unless a later life is to take it up.
#ifndef VIMBRA_TOOLS_VIMBRAD_LEDGER_HPP
#define VIMBRA_TOOLS_VIMBRAD_LEDGER_HPP

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "record_text.hpp"
#include "service.hpp"

namespace vimbrad {

template <class Record>
class Ledger {
 public:
    // Once, however often.
    void Note(const Record& record) {
        ForgetIf([&record](const Record& each) {
            return std::memcmp(&each, &record, sizeof(record)) == 0;
        });
        records_.push_back(record);
    }

    // In the place of the one that it replaces, if there is one.
    template <class Which>
    void Replace(const Record& record, Which which) {
        const auto found = std::ranges::find_if(records_, which);
        if (found != records_.end()) {
            *found = record;
        } else {
            records_.push_back(record);
        }
    }

    template <class Which>
    void ForgetIf(Which which) {
        std::erase_if(records_, which);
    }

    template <class Change>
    void Alter(Change change) {
        std::ranges::for_each(records_, change);
    }

    const std::vector<Record>& Records() const { return records_; }

    // Undoes each; what is not there any more needs no undoing.
    template <class Undo>
    void TakeBack(Undo undo) {
        for (const Record& each : std::exchange(records_, {})) {
            try {
                undo(each);
            } catch (const Refusal&) {
            }
        }
    }

    Json Save() const {
        Json list = Json::array();
        for (const Record& each : records_) {
            list.push_back(TextOfRecord(each));
        }
        return list;
    }
    void Restore(const Json& list) {
        for (const Json& each : list) {
            records_.push_back(RecordFromText<Record>(each.get<std::string>()));
        }
    }

 private:
    std::vector<Record> records_;
};

}  // namespace vimbrad

#endif
