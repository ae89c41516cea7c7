#include "api/api_1x/api_dhcps/leases.hpp"

#include <fcntl.h>

#include <algorithm>

#include "lib/base/fd.hpp"
#include "lib/base/shared_function.hpp"

using namespace vimbra;

namespace {

constexpr size_t kHeaderSize = 8;
constexpr size_t kLeaseSize = 36;
constexpr size_t kIpOffset = 4;
constexpr size_t kMacOffset = 8;

SharedFunction<NetDhcpsNotifyCallBack> g_tNetDhcpsNotifyCallBack;

// Up to the buffer's size; fewer where the file ends or cannot be read.
size_t Read(const Fd& file, std::span<u8> buffer) {
    size_t done = 0;
    while (done < buffer.size()) {
        const ssize_t count = read(file.Get(), buffer.data() + done, buffer.size() - done);
        if (count <= 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    return done;
}

}  // namespace

bool vimbra::ParseLeases(CallSite site, std::span<const u8> content, TNetDhcpsNotify& notify) {
    if (content.size() < kHeaderSize) {
        return false;
    }
    const size_t count =
        std::min<size_t>((content.size() - kHeaderSize) / kLeaseSize, VIMBRA_DHCPS_LEASE_MAX);
    VLOG_PRINT_AT(site, "ip_total: %d", static_cast<int>(count));
    notify.dhcps_index = static_cast<u32>(count);
    const u8* record = content.data() + kHeaderSize;
    for (size_t i = 0; i < count; i++, record += kLeaseSize) {
        TDhcpsMacIp& lease = notify.dhcps_mac_ip[i];
        memcpy(&lease.dhcps_ip, record + kIpOffset, sizeof(lease.dhcps_ip));
        memcpy(lease.dhcps_mac, record + kMacOffset, sizeof(lease.dhcps_mac));
        VLOG_PRINT_AT(site, "ip: %x", lease.dhcps_ip);
        for (const u8 byte : lease.dhcps_mac) {
            VLOG_PRINT_AT(site, "mac: %x", byte);
        }
    }
    return true;
}

void StoreDhcpsCallBack(NetDhcpsNotifyCallBack callback) {
    g_tNetDhcpsNotifyCallBack.Set(callback);
}

void deal_func_for_dhcps() {
    u8 content[kLeaseFileMax];
    size_t size;
    {
        // Not to wait for the other end where somebody has put a pipe.
        const Fd file(open, kLeaseFile, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (!file) {
            VLOG_ERRNO("fopen error");
            return;
        }
        size = Read(file, content);
    }
    TNetDhcpsNotify notify = {};
    if (!ParseLeases(VIMBRA_HERE, std::span(content, size), notify)) {
        return;
    }
    const NetDhcpsNotifyCallBack callback = g_tNetDhcpsNotifyCallBack.Get();
    if (callback != nullptr) {
        callback(0, &notify);
    }
}
