#include <arpa/inet.h>
#include <vimbra/iface.h>
#include <vimbra/net_ip.h>
#include <vimbra/process.h>

#include <algorithm>
#include <cstdio>

#include "api/api_1x/api_ip/net_ip_wire.hpp"
#include "api/api_1x/legacy.hpp"
#include "lib/base/cancel.hpp"
#include "lib/base/memory.hpp"
#include "lib/base/text.hpp"
#include "lib/ipc/request.hpp"

using namespace vimbra;
using namespace vimbra::wire;

NetdevParam TNetdevParam = {};

namespace {

constexpr RequestRule kReportRule = {
    VIMBRA_TAG_ERR "send and recv msg error:%d!",
    VIMBRA_TAG_ERR "send and recv msg error:%d!",
    Failure::kPassOn,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kErrno,
};

// All address and MTU calls say so, whatever their own name.
constexpr char kNamingFailed[] = "NetSetEthParam interface_name failed";

// Entries that the daemon marks are not for the legacy view.
bool IsShown(const ir_ipaddr_param& entry) {
    return (entry.ipflag & 1) == 0;
}

// A text of the report as a terminated one: the daemon is not trusted to end it.
template <size_t N>
class ReportText {
 public:
    explicit ReportText(const char (&field)[N]) { memcpy(text_, field, N); }
    char* Get() { return text_; }
    bool IsEmpty() const { return text_[0] == '\0'; }

 private:
    char text_[N + 1] = {};
};

bool ReadAddress(CallSite site, const char* text, u32* address) {
    if (inet_pton(AF_INET, text, address) == 1) {
        return true;
    }
    VLOG_ERROR_AT(site, "ipaddr=[%s]", text);
    LogErrnoAt(site, "converts  the  character string src into a network address error");
    return false;
}

// All of the MAC address or nothing.
bool ReadMac(CallSite site, const ir_ipaddr_show_info& info, u8 (&mac)[6]) {
    ReportText text(info.mac);
    char bytes[sizeof(mac)] = {};
    if (StrToU8WitchoutSepchar(text.Get(), ':', bytes, sizeof(bytes)) != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "delete sepeated char error");
        return false;
    }
    memcpy(mac, bytes, sizeof(mac));
    return true;
}

s32 ReadMask(CallSite site, const char* failed, u32 prefix, u32* mask) {
    const s32 result = MaskConvertIpv4(mask, &prefix, 1);
    if (result != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "%s", failed);
    }
    return result;
}

// Runs read on the interface's report.
template <typename Read>
s32 WithReport(CallSite site, u32 number, Read read) {
    return OnInterface(site, number, "interface check error!", [&](const char* name) {
        const Buffer buffer(sizeof(api_ipaddr_show_info));
        if (!buffer) {
            LogErrnoAt(site, "malloc error:");
            return static_cast<s32>(VIMBRA_ERR_GENERAL);
        }
        auto* report = reinterpret_cast<api_ipaddr_show_info*>(buffer.Get());
        const s32 result = apic_ipaddr_show_filter(name, report);
        if (result != VIMBRA_OK) {
            VLOG_ERROR_AT(site, "ipaddr_show_filter error");
            return result;
        }
        return read(report->ipaddr_show_info);
    });
}

u32 EntryCount(const ir_ipaddr_show_info& info) {
    return std::min<u32>(info.ipaddr_param_all.ipnum, VIMBRA_IFACE_IP_MAX);
}

s32 ReadOne(CallSite site, const ir_ipaddr_show_info& info, TNetEthParam* param) {
    const ir_ipaddr_param* const entries = info.ipaddr_param_all.ipaddr_param;
    const ir_ipaddr_param* const end = entries + EntryCount(info);
    const ir_ipaddr_param* const entry = std::find_if(entries, end, IsShown);
    ir_ipaddr_param none = {};
    ReportText text(entry == end ? none.ipaddr : entry->ipaddr);
    const bool isNone = text.IsEmpty();
    // Success with what there is by then: callers take an address of 0 for none.
    if (!ReadAddress(site, isNone ? "0.0.0.0" : text.Get(), &param->dwIpAdrs) ||
        !ReadMac(site, info, param->byMacAdrs)) {
        return VIMBRA_OK;
    }
    return ReadMask(site, "mask_convert_ipv4 error", isNone ? 0 : entry->ipmask, &param->dwIpMask);
}

s32 ReadAll(CallSite site, const ir_ipaddr_show_info& info, TNetEthParamAll* all) {
    u32 count = 0;
    for (u32 i = 0; i < EntryCount(info); i++) {
        const ir_ipaddr_param& entry = info.ipaddr_param_all.ipaddr_param[i];
        if (!IsShown(entry)) {
            continue;
        }
        TNetEthParam& param = all->atNetEthParam[count];
        ReportText text(entry.ipaddr);
        if (!ReadAddress(site, text.Get(), &param.dwIpAdrs) ||
            !ReadMac(site, info, param.byMacAdrs)) {
            return VIMBRA_OK;
        }
        const s32 result =
            ReadMask(site, "convert network mask error", entry.ipmask, &param.dwIpMask);
        if (result != VIMBRA_OK) {
            return result;
        }
        count++;
    }
    all->dwIpNum = count;
    return VIMBRA_OK;
}

// The mask word goes over as prefix length, as it is.
s32 OnAddress(CallSite site, u32 number, const TNetEthParam* param,
              s32 (*call)(char*, TVimbraIfaceIp*)) {
    return OnInterface(site, number, kNamingFailed, [=](char* name) {
        if (param == nullptr) {
            return RefuseArgument(site.function, VIMBRA_ERR_PARAM);
        }
        TVimbraIfaceIp ip = {VIMBRA_SCOPE_TYPE_DEF, Ipv4(param->dwIpAdrs), param->dwIpMask};
        return call(name, &ip);
    });
}

// The prefix length of the mask that NetSetEthParam takes.
s32 PrefixOfMask(CallSite site, u32 mask, u32* prefix) {
    if (check_mask(mask) != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "invalid mask!");
        return RefuseArgument(site.function, VIMBRA_ERR_GENERAL);
    }
    if (mask <= 32) {
        *prefix = mask;
        return VIMBRA_OK;
    }
    VLOG_DEBUG_AT(site, "mask is string, so convert!");
    MaskConvertIpv4(&mask, prefix, 0);  // Of a mask it does not fail.
    VLOG_PRINT_AT(site, "MaskConvertIpv4 success");
    return VIMBRA_OK;
}

}  // namespace

s32 apic_ipaddr_show_filter(const char* devname, api_ipaddr_show_info* out) {
    if (devname == nullptr || out == nullptr) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return SendRequest<IfaceBody>(
        VIMBRA_HERE, kReportRule, kIpaddrShowFilter, *out,
        [&](auto& body) { memcpy(body.achIfaceName, devname, sizeof(body.achIfaceName)); });
}

s32 NetGetEthParam(u32 byEthId, TNetEthParam* ptNetEthParam) {
    const CallSite site = VIMBRA_HERE;
    if (ptNetEthParam == nullptr) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    memset(ptNetEthParam, 0, sizeof(*ptNetEthParam));
    return WithReport(site, byEthId, [&](const ir_ipaddr_show_info& info) {
        return ReadOne(site, info, ptNetEthParam);
    });
}

s32 NetGetEthParamAll(u32 byEthId, TNetEthParamAll* ptNetEthParamAll) {
    const CallSite site = VIMBRA_HERE;
    if (ptNetEthParamAll == nullptr) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    memset(ptNetEthParamAll, 0, sizeof(*ptNetEthParamAll));
    return WithReport(site, byEthId, [&](const ir_ipaddr_show_info& info) {
        return ReadAll(site, info, ptNetEthParamAll);
    });
}

s32 NetSetEthParam(u32 byEthId, u32 byIpOrMask, TNetEthParam* ptNetEthParam) {
    const CallSite site = VIMBRA_HERE;
    // Address and mask together, by either number; the others are no longer carried out.
    if (byIpOrMask != 1 && byIpOrMask != 4) {
        VLOG_ERROR("don't support command:%d", static_cast<int>(byIpOrMask));
        return VIMBRA_ERR_GENERAL;
    }
    return OnInterface(site, byEthId, kNamingFailed, [=](char* name) {
        if (ptNetEthParam == nullptr) {
            return RefuseArgument(site.function, VIMBRA_ERR_PARAM);
        }
        TVimbraIfaceAllIp all = {};
        all.dwIpNum = 1;
        TVimbraIfaceIp& ip = all.atNetIfaceIp[0];
        ip.tIpAddr = Ipv4(ptNetEthParam->dwIpAdrs);
        const s32 result = PrefixOfMask(site, ptNetEthParam->dwIpMask, &ip.dwPrefix);
        return result == VIMBRA_OK ? VimbraIfaceSetIp(name, VIMBRA_FAMILY_IPV4, &all) : result;
    });
}

s32 NetAddEthParamIPAndMask(u32 byEthId, TNetEthParam* ptNetEthParam) {
    return OnAddress(VIMBRA_HERE, byEthId, ptNetEthParam, VimbraIfaceAddIp);
}

s32 NetDelEthParamIPAndMask(u32 byEthId, TNetEthParam* ptNetEthParam) {
    return OnAddress(VIMBRA_HERE, byEthId, ptNetEthParam, VimbraIfaceDelIp);
}

s32 NetDelEthParam(u32 byEthId) {
    return OnInterface(VIMBRA_HERE, byEthId, kNamingFailed,
                       [](char* name) { return VimbraIfaceFlushIp(name, VIMBRA_FAMILY_IPV4); });
}

s32 NetSetMtu(u32 byEthId, u32 dwMtu) {
    VLOG_WARN("please use vimbra new API");
    return OnInterface(VIMBRA_HERE, byEthId, kNamingFailed, [=](char* name) {
        return VimbraIfaceSetMtu(name, VIMBRA_FAMILY_IPV4, dwMtu);
    });
}

s32 NetGetMtu(u32 byEthId, u32* pdwMtu) {
    VLOG_WARN("please use vimbra new API");
    return OnInterface(VIMBRA_HERE, byEthId, kNamingFailed,
                       [=](char* name) { return VimbraIfaceGetMtu(name, pdwMtu); });
}

s32 NetGetEthNum(s32* pnEthNum) {
    if (pnEthNum == nullptr) {
        VLOG_ERROR("param error");
        return VIMBRA_ERR_GENERAL;
    }
    const CancelGuard guard;
    FILE* file = fopen("/proc/net/dev", "re");
    if (file == nullptr) {
        VLOG_ERROR("fopen error");
        return VIMBRA_ERR_GENERAL;
    }
    s32 count = 0;
    char line[1024];
    while (fgets(line, sizeof(line), file) != nullptr) {
        char name[32] = {};
        // At least one blank before the name: the kernel indents names of up to five characters.
        sscanf(line, "%*[' ']%31[(a-z)|(A-Z)|(0-9)]%*[':']", name);
        if (strstr(name, "eth") != nullptr) {
            count++;
        }
    }
    fclose(file);
    *pnEthNum = count;
    return VIMBRA_OK;
}
