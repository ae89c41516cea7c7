// What the requests for routes, gateways, tables and the priority list share.
#ifndef VIMBRA_API_ROUTE_REQUEST_HPP
#define VIMBRA_API_ROUTE_REQUEST_HPP

#include "api/api_route/api_route/route_wire.hpp"
#include "lib/ipc/request.hpp"

namespace vimbra {

// Routes, tables and rules tell the application what went wrong.
inline constexpr RequestRule kRouteRule = {
    VIMBRA_TAG_ERR "send and recv msg return num : %d!",
    VIMBRA_TAG_ERR "send and recv msg error num : %d!",
    Failure::kPassOn,
    Failure::kPassOn,
    RequestRule::OutOfMemory::kErrno,
};

// Gateways and the priority list only log it.
inline constexpr RequestRule kGatewayRule = {
    VIMBRA_TAG_ERR "send and recv msg return num : %d!",
    VIMBRA_TAG_ERR "send and recv msg error num : %d!",
    Failure::kMinusOne,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kErrno,
};

// Words that more than one file has.
inline constexpr char kFamiliesDiffer[] = "tDestIpNet and tDestGateWay sinFamily is differ";
inline constexpr char kRouteRefused[] = "CheckRouteParam error!";

// A request that is the same for the main table (null) and for a numbered one.
template <typename Main>
class TableRequest : public BytesRequest {
 public:
    TableRequest(CallSite site, const RequestRule& rule, const u32* table)
        : BytesRequest(site, rule, table == nullptr ? sizeof(Main) : sizeof(wire::InTable<Main>)) {
        if (*this && table != nullptr) {
            reinterpret_cast<wire::InTable<Main>*>(Body())->dwTableId = *table;
        }
    }

    Main* operator->() { return reinterpret_cast<Main*>(Body()); }

    using BytesRequest::Send;
    template <typename Reply>
    s32 Send(u32 type, Reply& reply) {
        return Exchange(type, &reply, sizeof(reply), true);
    }
};

// A body that is one record, or one number.
template <typename Body>
s32 SendRecord(CallSite site, const RequestRule& rule, u32 type, const Body& record) {
    return SendRequest<Body>(site, rule, type, [&](Body& body) { body = record; });
}

// The result, logged if it is a failure.
// Kept: several calls name another's request; the test is PassOn.TheDaemonsNumberIsTheResult.
inline s32 LogResult(CallSite site, const char* request, s32 result) {
    if (result != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "%s error : %d!", request, result);
    }
    return result;
}

}  // namespace vimbra

#endif
