#include "lease_settings.hpp"

#include <fcntl.h>
#include <net/if.h>
#include <vimbra/dns.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <span>

#include "api/api_ip/api_ipaddr/ipaddr_wire.hpp"
#include "api/api_route/api_route/route_wire.hpp"
#include "kernel_route.hpp"
#include "lib/base/fd.hpp"
#include "log.hpp"
#include "netlink.hpp"
#include "record_text.hpp"
#include "resolver_memory.hpp"

namespace vimbrad {
namespace {

bool SameServers(std::span<const TVimbraAddr> one, std::span<const TVimbraAddr> other) {
    return std::ranges::equal(one, other, Same);
}

// The library's list of the resolver configuration's sections.
class Sections {
 public:
    Sections() : head_(ReadFromReslovconf()) {}
    ~Sections() {
        while (head_ != nullptr) {
            DnsNode* const next = head_->next;
            free(head_->pchIfaceName);
            free(head_);
            head_ = next;
        }
    }
    Sections(const Sections&) = delete;
    Sections& operator=(const Sections&) = delete;

    const DnsNode* Find(const std::string& name, u16 family) const {
        const std::string marker = "#" + name + (family == VIMBRA_FAMILY_IPV6 ? "v6" : "");
        for (DnsNode* each = head_; each != nullptr; each = each->next) {
            if (each->pchIfaceName != nullptr &&
                std::string(each->pchIfaceName).ends_with(marker)) {
                return each;
            }
        }
        return nullptr;
    }

 private:
    DnsNode* head_;
};

}  // namespace

bool LeaseSettings::Apply(const TVimbraDhcpcAddrInfo& lease) {
    const TVimbraIfaceIp wanted{VIMBRA_SCOPE_TYPE_DEF, lease.tIpAddrs, lease.dwIpPrefix};
    std::optional<TVimbraIfaceIp> old;
    if (!address_ || !Same(address_->tIpAddr, wanted.tIpAddr) ||
        address_->dwPrefix != wanted.dwPrefix) {
        // An address that is there already belongs to whoever set it. It is noted as ours before it
        // is there: a daemon that dies in between must know it again.
        old = std::exchange(address_, wanted);
        const s32 result = ChangeAddress(wire::kIpaddrAdd, wanted);
        if (result != 0) {
            address_ = result == EEXIST ? std::nullopt : old;
        }
        if (result != 0 && result != EEXIST) {
            return false;
        }
    }
    if (!gateway_ || !Same(*gateway_, lease.tGateWay)) {
        RemoveGateway();
        SetGateway(lease.tGateWay);
    }
    if (old) {
        ChangeAddress(wire::kIpaddrDel, *old);
    }
    SetServers({lease.atDnsServer, lease.atDnsServer + lease.dwDnsNum});
    return true;
}

void LeaseSettings::Remove() {
    RemoveServers();
    RemoveGateway();
    if (const auto address = std::exchange(address_, std::nullopt)) {
        ChangeAddress(wire::kIpaddrDel, *address);
    }
}

Json LeaseSettings::Save() const {
    Json state{{"servers", Json::array()}};
    if (address_) {
        state["address"] = TextOfRecord(*address_);
    }
    if (gateway_) {
        state["gateway"] = TextOfRecord(*gateway_);
    }
    for (const TVimbraAddr& each : servers_) {
        state["servers"].push_back(TextOfRecord(each));
    }
    return state;
}

void LeaseSettings::Restore(const Json& state) {
    if (state.contains("address")) {
        address_ = RecordFromText<TVimbraIfaceIp>(state.at("address").get<std::string>());
    }
    if (state.contains("gateway")) {
        gateway_ = AddressFrom(state.at("gateway"));
    }
    for (const Json& each : state.at("servers")) {
        servers_.push_back(AddressFrom(each));
    }
}

TVimbraAddr LeaseSettings::AddressFrom(const Json& state) const {
    const auto address = RecordFromText<TVimbraAddr>(state.get<std::string>());
    if (address.wSinFamily != family_) {
        throw Refusal(EINVAL, "an address of another family");
    }
    return address;
}

template <class Body>
s32 LeaseSettings::Request(u32 type, const Body& body) {
    wire::PlainResult result{EIO};
    context_.registry.Dispatch(
        type, std::as_bytes(std::span(&body, 1)),
        [&result](Bytes reply) {
            std::memcpy(&result, reply.data(), std::min(reply.size(), sizeof(result)));
        },
        Peer{"the DHCP client on " + name_});
    return result.nErrid;
}

s32 LeaseSettings::ChangeAddress(u32 type, const TVimbraIfaceIp& address) {
    wire::IfaceIpBody body{};
    name_.copy(body.achIfaceName, sizeof(body.achIfaceName));
    body.tIfaceIp = address;
    return Request(type, body);
}

void LeaseSettings::SetGateway(const TVimbraAddr& gateway) {
    if (IsZero(gateway)) {
        return;
    }
    wire::GatewayBody body{};
    name_.copy(body.achIfaceName, sizeof(body.achIfaceName));
    body.tGateWay = gateway;
    if (Request(wire::kGatewaySet, body) == 0) {
        gateway_ = gateway;
    }
}

void LeaseSettings::RemoveGateway() {
    const auto gateway = std::exchange(gateway_, std::nullopt);
    if (!gateway) {
        return;
    }
    try {
        const int iface = IfaceNumber(name_);
        for (const Route& each : ListRoutes(family_, RT_TABLE_MAIN)) {
            const RouteSpec held = SpecOf(each.get());
            if (held.prefix == 0 && held.iface == iface && Same(held.gateway, *gateway)) {
                DeleteRoute(each.get());
            }
        }
    } catch (const Refusal& refusal) {
        LogInfo("DHCP client on %s: the gateway stays: %s", name_.c_str(), refusal.what());
    }
}

// By the library's own call: the resolver configuration has sections that only it knows.
void LeaseSettings::SetServers(const std::vector<TVimbraAddr>& servers) {
    if (SameServers(servers_, servers)) {
        return;
    }
    if (servers.empty()) {
        RemoveServers();
        return;
    }
    if (servers_.empty()) {
        NoteResolver(context_.runDir);
    }
    // The library edits a file that is there.
    vimbra::Fd(open, "/etc/resolv.conf", O_RDONLY | O_CREAT | O_CLOEXEC, 0644);
    std::string name = name_;
    std::vector<TVimbraAddr> set = servers;
    if (VimbraDNSSet(name.data(), family_, set.data(), static_cast<u32>(set.size())) == 0) {
        servers_ = servers;
    } else {
        LogWarning("DHCP client on %s: the DNS servers cannot be set", name_.c_str());
    }
}

// Unless somebody has set others meanwhile.
void LeaseSettings::RemoveServers() {
    const std::vector<TVimbraAddr> servers = std::exchange(servers_, {});
    if (servers.empty()) {
        return;
    }
    TakeServersOut(servers);
    PutResolverBack(context_.runDir);
}

void LeaseSettings::TakeServersOut(const std::vector<TVimbraAddr>& servers) {
    const Sections sections;
    const DnsNode* const section = sections.Find(name_, family_);
    if (section == nullptr || section->nDnsNum < 0 ||
        !SameServers({section->atDnsServerIP, static_cast<size_t>(section->nDnsNum)}, servers)) {
        return;
    }
    std::string name = name_;
    if (VimbraDNSSet(name.data(), family_, nullptr, 0) != 0) {
        LogWarning("DHCP client on %s: the DNS servers stay", name_.c_str());
    }
}

}  // namespace vimbrad
