#include "groups.hpp"

namespace vimbra::tests::torture {

std::vector<Group> AllGroups() {
    return {
        {"core", CoreOperations()},     {"ipc", IpcOperations()},
        {"thread", ThreadOperations()}, {"process", ProcessOperations()},
        {"iface", IfaceOperations()},   {"route", RouteOperations()},
        {"notify", NotifyOperations()}, {"dhcpc", DhcpcOperations()},
        {"pppoe", PppoeOperations()},   {"ntp", NtpOperations()},
        {"diag", DiagOperations()},     {"account", AccountOperations()},
        {"dns", DnsOperations()},       {"service", ServiceOperations()},
        {"system", SystemOperations()},
    };
}

const std::vector<LeftOut>& AllLeftOut() {
    static const std::vector<LeftOut> all = {
        {"ThreadExit", "ends the thread that calls, and calls nothing but pthread_exit(3)"},
    };
    return all;
}

}  // namespace vimbra::tests::torture
