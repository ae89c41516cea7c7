// The DHCP server's lease file.

#include <cstring>

#include "api/api_1x/api_dhcps/leases.hpp"
#include "files.hpp"

namespace vimbra::tests {
namespace {

constexpr size_t kHeader = 8;
constexpr size_t kRecord = 36;

// What the callback must be told; null when it must not be called.
const u8* g_data;
size_t g_size;
int g_calls;

int OnLeases(u32 event, TNetDhcpsNotify* notify) {
    g_calls++;
    const size_t seen = g_size < 1023 ? g_size : 1023;
    Require(event == 0 && notify->dhcps_index == (seen - kHeader) / kRecord);
    for (u32 i = 0; i < notify->dhcps_index; i++) {
        const u8* record = g_data + kHeader + i * kRecord;
        Require(memcmp(&notify->dhcps_mac_ip[i].dhcps_ip, record + 4, 4) == 0);
        Require(memcmp(notify->dhcps_mac_ip[i].dhcps_mac, record + 8, 6) == 0);
    }
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    Prepare();
    g_data = data;
    g_size = size;
    g_calls = 0;
    StoreDhcpsCallBack(OnLeases);
    Write(kLeaseFile, data, size);
    deal_func_for_dhcps();
    Require(g_calls == (size >= kHeader ? 1 : 0));
    TNetDhcpsNotify notify = {};
    Require(ParseLeases(VIMBRA_HERE, std::span(data, size), notify) == (size >= kHeader));
    Require(notify.dhcps_index <= VIMBRA_DHCPS_LEASE_MAX);
    return 0;
}

}  // namespace vimbra::tests
