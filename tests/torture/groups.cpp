#include "groups.hpp"

namespace vimbra::tests::torture {

std::vector<Group> AllGroups() {
    return {
        {"iface", IfaceOperations()},
        {"notify", NotifyOperations()},
    };
}

const std::vector<LeftOut>& AllLeftOut() {
    static const std::vector<LeftOut> all = {};
    return all;
}

}  // namespace vimbra::tests::torture
