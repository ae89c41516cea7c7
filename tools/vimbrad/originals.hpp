// What interfaces were before requests changed them: put back when the daemon goes, unless a later
// life is to take it up.
#ifndef VIMBRA_TOOLS_VIMBRAD_ORIGINALS_HPP
#define VIMBRA_TOOLS_VIMBRAD_ORIGINALS_HPP

#include <net/if.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "log.hpp"
#include "service.hpp"

namespace vimbrad {

// One property of each interface. An interface is known by its number: another one may have its
// name by then.
template <class Value>
class Originals {
 public:
    // `before` is what it was when a request set it.
    void Note(int iface, const Value& before, const Value& set) {
        ForgetThoseThatAreGone();
        const auto [found, isFirst] = changes_.try_emplace(iface, Change{before, set});
        Change& change = found->second;
        // Somebody else has changed it meanwhile.
        if (!isFirst && before != change.set) {
            change.before = before;
        }
        change.set = set;
        if (change.before == set) {
            changes_.erase(found);
        }
    }

    // get(name) tells what it is now, set(name, value) changes it. What others have set stays.
    template <class Get, class Set>
    void TakeBack(Get get, Set set) {
        for (const auto& [iface, change] : std::exchange(changes_, {})) {
            const std::string name = NameOfIface(iface);
            try {
                if (!name.empty() && get(name) == change.set) {
                    set(name, change.before);
                }
            } catch (const Refusal& refusal) {
                LogWarning("%s is not as it was before: %s", name.c_str(), refusal.what());
            }
        }
    }

    Json Save() const {
        Json list = Json::array();
        for (const auto& [iface, change] : changes_) {
            list.push_back({{"index", iface}, {"before", change.before}, {"set", change.set}});
        }
        return list;
    }
    void Restore(const Json& list) {
        for (const Json& each : list) {
            changes_[each.at("index").get<int>()] = {each.at("before").get<Value>(),
                                                     each.at("set").get<Value>()};
        }
    }

 private:
    struct Change {
        Value before;
        Value set;
    };

    static std::string NameOfIface(int iface) {
        char name[IF_NAMESIZE] = "";
        return if_indextoname(static_cast<unsigned>(iface), name) != nullptr ? name : "";
    }

    void ForgetThoseThatAreGone() {
        std::erase_if(changes_, [](const auto& each) { return NameOfIface(each.first).empty(); });
    }

    std::map<int, Change> changes_;
};

}  // namespace vimbrad

#endif
