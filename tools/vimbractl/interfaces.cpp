#include "interfaces.hpp"

#include <net/if.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "tool.hpp"

namespace ctl {

namespace {

struct IndexDeleter {
    void operator()(struct if_nameindex* list) const { if_freenameindex(list); }
};

}  // namespace

std::vector<std::string> InterfaceNames() {
    const std::unique_ptr<struct if_nameindex, IndexDeleter> list(if_nameindex());
    if (!list) {
        throw CommandFailed(ExitStatus::kFailed,
                            std::string("the interfaces cannot be listed: ") + strerror(errno));
    }
    std::vector<std::string> names;
    for (const struct if_nameindex* entry = list.get(); entry->if_index != 0; entry++) {
        names.emplace_back(entry->if_name);
    }
    return names;
}

bool InterfaceExists(const std::string& name) {
    return if_nametoindex(name.c_str()) != 0;
}

}  // namespace ctl
