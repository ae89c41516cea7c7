// What a DHCP lease gives an interface: address, default route, DNS servers.
#ifndef VIMBRA_TOOLS_VIMBRAD_LEASE_SETTINGS_HPP
#define VIMBRA_TOOLS_VIMBRAD_LEASE_SETTINGS_HPP

#include <vimbra/addr.h>
#include <vimbra/dhcpc.h>

#include <optional>
#include <string>
#include <vector>

#include "service.hpp"

namespace vimbrad {

// The requests are those of applications: a gateway takes its place by the network priority,
// whoever asks for it. What others have set since stays.
class LeaseSettings {
 public:
    LeaseSettings(const Context& context, std::string name, u16 family)
        : context_(context), name_(std::move(name)), family_(family) {}
    LeaseSettings(const LeaseSettings&) = delete;
    LeaseSettings& operator=(const LeaseSettings&) = delete;

    // What a lease leaves unchanged is not touched: the application may have changed it since. The
    // new address is there before the old one goes. False when the address cannot be set.
    bool Apply(const TVimbraDhcpcAddrInfo& lease);
    void Remove();

    // What a later life has to know to take it away or to leave it.
    Json Save() const;
    void Restore(const Json& state);

 private:
    template <class Body>
    s32 Request(u32 type, const Body& body);
    s32 ChangeAddress(u32 type, const TVimbraIfaceIp& address);
    void SetGateway(const TVimbraAddr& gateway);
    void RemoveGateway();
    void SetServers(const std::vector<TVimbraAddr>& servers);
    void RemoveServers();
    TVimbraAddr AddressFrom(const Json& state) const;
    void TakeServersOut(const std::vector<TVimbraAddr>& servers);

    const Context& context_;
    std::string name_;
    u16 family_;
    std::optional<TVimbraIfaceIp> address_;
    std::optional<TVimbraAddr> gateway_;
    std::vector<TVimbraAddr> servers_;
};

}  // namespace vimbrad

#endif
