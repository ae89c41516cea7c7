// The DHCP client program for IPv4: busybox udhcpc.
#include "lease_client.hpp"
#include "log.hpp"
#include "netlink.hpp"

namespace vimbrad {
namespace {

class UdhcpcClient : public LeaseClient {
 public:
    UdhcpcClient(uv_loop_t* loop, Registry& registry, const std::string& name,
                 const PrivateDir& files)
        : LeaseClient(loop, registry, name, VIMBRA_FAMILY_IPV4, files) {}

    void Run() override {
        Netlink().BringUp(Name());
        RunProgram({"busybox", "udhcpc", "-f", "-R", "-i", Name(), "-s",
                    Files().Write("hook", kUdhcpcHook, 0700)});
        LogInfo("%s: started", Title());
    }
};

}  // namespace

std::unique_ptr<LeaseClient> MakeUdhcpcClient(uv_loop_t* loop, Registry& registry,
                                              const std::string& name, const PrivateDir& files) {
    return std::make_unique<UdhcpcClient>(loop, registry, name, files);
}

}  // namespace vimbrad
