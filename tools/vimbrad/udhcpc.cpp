// The DHCP client program for IPv4: busybox udhcpc.
#include "address_text.hpp"
#include "hooks.hpp"
#include "lease_client.hpp"
#include "log.hpp"
#include "netlink.hpp"

namespace vimbrad {
namespace {

class UdhcpcClient : public LeaseClient {
 public:
    UdhcpcClient(const Context& context, const std::string& name, const PrivateDir& files)
        : LeaseClient(context, name, VIMBRA_FAMILY_IPV4, files) {}

    // A program that has just begun is about to ask anyway, and may not know the signal yet.
    void Renew() override {
        if (HasSpoken()) {
            LeaseClient::Renew();
        }
    }

    void Run() override {
        Netlink().BringUp(Name());
        std::vector<std::string> command = {"busybox", "udhcpc", "-f", "-R",
                                            "-i",      Name(),   "-s", HookOf(kUdhcpcHook)};
        // The address of an earlier life, if the server still has it for us.
        if (HasLease()) {
            command.insert(command.end(), {"-r", TextOf(Lease().tIpAddrs)});
        }
        RunProgram({command});
        LogInfo("%s: started", Title());
    }
};

}  // namespace

std::unique_ptr<LeaseClient> MakeUdhcpcClient(const Context& context, const std::string& name,
                                              const PrivateDir& files) {
    return std::make_unique<UdhcpcClient>(context, name, files);
}

}  // namespace vimbrad
