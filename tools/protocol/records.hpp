// The records of the protocol by their types: RecordOf<wire::RouteBody>().
#ifndef VIMBRA_TOOLS_PROTOCOL_RECORDS_HPP
#define VIMBRA_TOOLS_PROTOCOL_RECORDS_HPP

#include <vimbra/net.h>
#include <vimbra/vimbra.h>

#include <array>
#include <type_traits>

#include "api/api_1x/api_ip/net_ip_wire.hpp"
#include "api/api_bond/bond_wire.hpp"
#include "api/api_dhcpc/dhcpc_wire.hpp"
#include "api/api_dhcps/dhcps_wire.hpp"
#include "api/api_ip/api_ipaddr/ipaddr_wire.hpp"
#include "api/api_network_common/ip_conflict_wire.hpp"
#include "api/api_network_common/netcommon_wire.hpp"
#include "api/api_network_common/stat_wire.hpp"
#include "api/api_ntpc/ntpc_wire.hpp"
#include "api/api_ping/ping_wire.hpp"
#include "api/api_pppoe/pppoe_wire.hpp"
#include "api/api_route/api_route/route_wire.hpp"
#include "api/api_route/api_route/router_notify_wire.hpp"
#include "api/api_traceroute/traceroute_wire.hpp"
#include "api/api_webs/webs_wire.hpp"
#include "record.hpp"

namespace protocol {

namespace wire = vimbra::wire;

template <class T>
struct Fields;

template <class T>
const Record& RecordOf();

template <class T>
constexpr Kind KindOf(std::string_view name) {
    using Element = std::remove_all_extents_t<T>;
    if constexpr (std::is_same_v<Element, TVimbraAddr>) {
        return Kind::kAddress;
    } else if constexpr (std::is_same_v<Element, TVimbraIfaceMac>) {
        return Kind::kMac;
    } else if constexpr (std::is_same_v<Element, char>) {
        return name.find("passw") != std::string_view::npos ? Kind::kSecret : Kind::kText;
    } else if constexpr (std::is_array_v<T> && std::is_same_v<Element, u8>) {
        return Kind::kBytes;
    } else if constexpr (std::is_class_v<Element>) {
        return Kind::kRecord;
    } else if constexpr (std::is_enum_v<Element>) {
        return Kind::kUnsigned;
    } else {
        return std::is_signed_v<Element> ? Kind::kSigned : Kind::kUnsigned;
    }
}

template <class T>
constexpr Field FieldOf(const char* name, const char* meaning, size_t offset) {
    using Element = std::remove_all_extents_t<T>;
    constexpr Kind kKind = KindOf<T>("");
    const bool isWhole = kKind == Kind::kText || kKind == Kind::kBytes;
    Field field{name,
                meaning,
                KindOf<T>(name),
                offset,
                isWhole ? sizeof(T) : sizeof(Element),
                isWhole ? 1 : sizeof(T) / sizeof(Element),
                nullptr};
    if constexpr (kKind == Kind::kRecord) {
        field.record = &RecordOf<Element>;
    }
    return field;
}

#define VIMBRA_FIELD(record, field, meaning) \
    FieldOf<decltype(record::field)>(#field, meaning, offsetof(record, field))

using namespace vimbra::wire;

#include "fields.inc"

// A request of the main table with the number of another one behind it.
template <class Main>
struct Fields<InTable<Main>> {
    static constexpr const char* kName = Fields<Main>::kName;
    static constexpr const char* kMeaning = "The same of a numbered table.";
    static constexpr auto kList = [] {
        std::array<Field, Fields<Main>::kList.size() + 1> list{};
        size_t i = 0;
        for (const Field& field : Fields<Main>::kList) {
            list[i++] = field;
        }
        list[i] = VIMBRA_FIELD(InTable<Main>, dwTableId, "which table");
        return list;
    }();
};

// An address that is a whole body.
struct AddressAlone {
    TVimbraAddr tServerIp;
};

template <>
struct Fields<AddressAlone> {
    static constexpr const char* kName = "TVimbraAddr";
    static constexpr const char* kMeaning = "An address alone.";
    static constexpr auto kList =
        std::to_array<Field>({VIMBRA_FIELD(AddressAlone, tServerIp, "the server")});
};

template <class T>
const Record& RecordOf() {
    static constexpr Record kRecord{Fields<T>::kName, Fields<T>::kMeaning, sizeof(T),
                                    Fields<T>::kList};
    return kRecord;
}

}  // namespace protocol

#endif
