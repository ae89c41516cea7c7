#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>

#include "api/api_dhcpc/dns_node.hpp"
#include "lib/argument.hpp"
#include "lib/base/cancel.hpp"
#include "lib/failure.hpp"
#include "lib/files/line_file.hpp"
#include "lib/log.hpp"

using namespace vimbra;

namespace {

constexpr char kResolvConf[] = "/etc/resolv.conf";
constexpr char kMarker[] = "####";
constexpr std::string_view kServer = "nameserver";
constexpr std::string_view kIpv6 = "v6";
constexpr char kOutOfMemory[] = "XMALLOC error";

// The longest line that is taken in one piece, its newline included.
constexpr size_t kLineMax = 99;

using List = OwnedList<DnsNode, FreeList>;

bool Contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

// What a line says.
// Kept: the last character goes, newline or not; the test is
// DnsGet.LastLineWithoutNewlineLosesACharacter.
std::string_view Content(std::string_view line) {
    line = Front(line, line.find('\0'));
    return Front(line, line.size() - (line.empty() ? 0 : 1));
}

// A section of this name: a marker line as it stands, or the parts of one.
DnsNode* NewSection(std::initializer_list<std::string_view> name) {
    size_t length = 0;
    for (const std::string_view part : name) {
        length += part.size();
    }
    DnsNode* node = NewZeroed<DnsNode>();
    char* to = static_cast<char*>(calloc(1, length + 1));
    if (node == nullptr || to == nullptr) {
        free(node);
        free(to);
        return nullptr;
    }
    node->pchIfaceName = to;
    for (const std::string_view part : name) {
        memcpy(to, part.data(), part.size());
        to += part.size();
    }
    return node;
}

// Text that is no address leaves the entry at zero; the entry counts all the same.
void AddServer(DnsNode& section, std::string_view line) {
    if (section.nDnsNum >= VIMBRA_DNS_MAX) {
        return;
    }
    TVimbraAddr& server = section.atDnsServerIP[section.nDnsNum++];
    NextToken(line, " ");
    const std::string_view address = NextToken(line, " ");
    char text[kLineMax + 1] = {};
    memcpy(text, address.data(), address.size());
    if (Contains(section.pchIfaceName, kIpv6)) {
        server.wSinFamily = VIMBRA_FAMILY_IPV6;
        inet_pton(AF_INET6, text, &server.tV6Addr);
    } else {
        server.wSinFamily = VIMBRA_FAMILY_IPV4;
        inet_pton(AF_INET, text, &server.tV4Addr);
    }
}

u32 ServerCount(const DnsNode& section) {
    return static_cast<u32>(std::clamp(section.nDnsNum, 0, VIMBRA_DNS_MAX));
}

LineNode* NewServerLine(const TVimbraAddr& server) {
    char text[INET6_ADDRSTRLEN] = {};
    if (server.wSinFamily == VIMBRA_FAMILY_IPV4) {
        inet_ntop(AF_INET, &server.tV4Addr, text, sizeof(text));
    } else {
        inet_ntop(AF_INET6, &server.tV6Addr, text, sizeof(text));
    }
    return NewLine({kServer, " ", text, "\n"});
}

// Of servers whose family the caller does not give.
u16 FamilyOf(const TVimbraAddr* servers, u32 count) {
    return servers != nullptr && count > 0 ? servers->wSinFamily : u16{VIMBRA_FAMILY_IPV4};
}

// In the place of the section of that name, else first.
void PutSection(DnsNode* list, DnsNode* section) {
    for (DnsNode* before = list; before->next != nullptr; before = before->next) {
        DnsNode* old = before->next;
        if (old->pchIfaceName != nullptr && strcmp(old->pchIfaceName, section->pchIfaceName) == 0) {
            section->next = old->next;
            before->next = section;
            old->next = nullptr;
            FreeList(old);
            return;
        }
    }
    section->next = list->next;
    list->next = section;
}

// SetDnsToList() for a family that need not be that of the servers.
s32 SetFamilyToList(DnsNode* list, const char* iface, u16 family, const TVimbraAddr* servers,
                    u32 number) {
    constexpr char kFunction[] = "SetDnsToList";
    if (list == nullptr || iface == nullptr || (servers == nullptr && number > 0)) {
        VLOG_ERROR_AT((CallSite{kFunction, __LINE__}), "the parameters is invalid");
        return RefuseArgument(kFunction, VIMBRA_ERR_GENERAL);
    }
    DnsNode* section = NewSection({kMarker, iface, family == VIMBRA_FAMILY_IPV6 ? kIpv6 : ""});
    if (section == nullptr) {
        VLOG_ERROR_AT((CallSite{kFunction, __LINE__}), "%s", kOutOfMemory);
        return VIMBRA_ERR_GENERAL;
    }
    const u32 count = std::min<u32>(number, VIMBRA_DNS_MAX);
    section->nDnsNum = static_cast<s32>(count);
    std::copy_n(servers, count, section->atDnsServerIP);
    PutSection(list, section);
    return VIMBRA_OK;
}

// WriteToDnsConf() for a family that need not be that of the servers.
s32 WriteFamilyToDnsConf(const char* iface, u16 family, const TVimbraAddr* servers, u32 number) {
    constexpr char kFunction[] = "WriteToDnsConf";
    VLOG_PRINT_AT((CallSite{kFunction, __LINE__}), "ReadFromReslovconf start...!");
    const List list(ReadFromReslovconf());
    if (!list) {
        VLOG_ERROR_AT((CallSite{kFunction, __LINE__}), "ReadFromReslovconf error!");
        return VIMBRA_ERR_GENERAL;
    }
    VLOG_PRINT_AT((CallSite{kFunction, __LINE__}), "SetDnsToList start...!");
    if (SetFamilyToList(list.Get(), iface, family, servers, number) != VIMBRA_OK) {
        VLOG_ERROR_AT((CallSite{kFunction, __LINE__}), "SetDnsToList error!");
        return VIMBRA_ERR_GENERAL;
    }
    VLOG_PRINT_AT((CallSite{kFunction, __LINE__}), "WriteToReslovconf start...!");
    if (WriteToReslovconf(list.Get()) != VIMBRA_OK) {
        VLOG_ERROR_AT((CallSite{kFunction, __LINE__}), "WriteToReslovconf error");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

// False when memory is out.
bool AddLines(LineList& lines, const DnsNode& section) {
    if (section.pchIfaceName != nullptr && !lines.Add(NewLine({section.pchIfaceName, "\n"}))) {
        return false;
    }
    for (u32 i = 0; i < ServerCount(section); i++) {
        if (!lines.Add(NewServerLine(section.atDnsServerIP[i]))) {
            return false;
        }
    }
    return true;
}

}  // namespace

TNetDnsParam* ReadFromReslovconf() {
    const CancelGuard guard;
    LineReader reader;
    const Fd file = OpenLines(kResolvConf, Open::kRead);
    if (!file || !reader.Load(file)) {
        VLOG_ERRNO("fopen error");
        return nullptr;
    }
    List list(NewZeroed<DnsNode>());
    if (!list) {
        VLOG_ERROR("%s", kOutOfMemory);
        return nullptr;
    }
    DnsNode* section = list.Get();
    std::string_view line;
    while (reader.Next(line, kLineMax)) {
        const std::string_view content = Content(line);
        if (Contains(content, kMarker)) {
            section->next = NewSection({content});
            section = section->next;
            if (section == nullptr) {
                VLOG_ERROR("%s", kOutOfMemory);
                return nullptr;
            }
        } else if (Contains(content, kServer) && section != list.Get()) {
            AddServer(*section, content);
        }
    }
    return list.Release();
}

s32 SetDnsToList(TNetDnsParam* ptDnsList, char* pchIfaceName, TVimbraAddr* atDnsIP, u32 dwNum) {
    const CancelGuard guard;
    return SetFamilyToList(ptDnsList, pchIfaceName, FamilyOf(atDnsIP, dwNum), atDnsIP, dwNum);
}

s32 WriteToReslovconf(TNetDnsParam* ptDnsList) {
    if (ptDnsList == nullptr) {
        VLOG_ERROR("ptDnsList is NULL!");
        return VIMBRA_ERR_GENERAL;
    }
    const CancelGuard guard;
    LineFile file(kResolvConf, LineFile::How::kRewrite);
    if (!file) {
        VLOG_ERROR("fopen error");
        return VIMBRA_ERR_GENERAL;
    }
    LineList lines;
    for (const DnsNode* section = ptDnsList->next; section != nullptr; section = section->next) {
        if (!AddLines(lines, *section)) {
            VLOG_ERROR("%s", kOutOfMemory);
            return VIMBRA_ERR_GENERAL;
        }
    }
    // A comment of many "#" would be a marker.
    if (!file.Rewrite(lines.First(), Filler::kEmptyLines)) {
        VLOG_ERRNO("write error");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 WriteToDnsConf(char* pchIfaceName, TVimbraAddr* atDnsIP, u32 dwNum) {
    const CancelGuard guard;
    return WriteFamilyToDnsConf(pchIfaceName, FamilyOf(atDnsIP, dwNum), atDnsIP, dwNum);
}

s32 VimbraDNSSet(char* pchIfaceName, u16 wSinFamily, TVimbraAddr* atDnsIP, u32 dwNum) {
    // A newline in a name would make lines of its own.
    if (!IsIfaceName(pchIfaceName) || HasControl(pchIfaceName)) {
        VLOG_ERROR("pchIfaceName is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    VLOG_PRINT("pchIfaceName : %s", pchIfaceName);
    if (atDnsIP == nullptr && dwNum > 0) {
        VLOG_ERROR("atDnsIP is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    for (u32 i = 0; i < dwNum; i++) {
        if (atDnsIP[i].wSinFamily != wSinFamily) {
            VLOG_ERROR("all the atDnsIP wSinFamily value must be same!");
            return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
        }
    }
    if (!IsOneFamily(wSinFamily)) {
        VLOG_ERROR("all the atDnsIP wSinFamily %d value must be AF_INET or AF_INET6!", wSinFamily);
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    VLOG_PRINT("wSinFamily : %d", wSinFamily);
    const CancelGuard guard;
    // No servers, no family of theirs: it is the caller's section that is emptied.
    const s32 result = WriteFamilyToDnsConf(pchIfaceName, wSinFamily, atDnsIP, dwNum);
    if (result != VIMBRA_OK) {
        VLOG_ERROR("WriteToReslovconf error!");
    }
    return result;
}

s32 VimbraDNSGet(TVimbraDnsAddrInfo* atDnsIP) {
    if (atDnsIP == nullptr) {
        VLOG_ERROR("atDnsIP is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    const CancelGuard guard;
    const List list(ReadFromReslovconf());
    if (!list) {
        VLOG_ERROR("ReadFromReslovconf error!");
        return VIMBRA_ERR_GENERAL;
    }
    u32 total = 0;
    for (const DnsNode* section = list.Get(); section != nullptr; section = section->next) {
        const u32 count = std::min(ServerCount(*section), VIMBRA_DNS_MAX - total);
        std::copy_n(section->atDnsServerIP, count, atDnsIP->atDnsServer + total);
        total += count;
    }
    atDnsIP->dwDnsNum = total;
    return VIMBRA_OK;
}
