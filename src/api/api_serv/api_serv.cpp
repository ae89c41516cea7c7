#include "api/api_serv/api_serv.hpp"

#include <pthread.h>
#include <signal.h>
#include <vimbra/process.h>

#include <cstdio>

#include "api/api_serv/inetd_list.hpp"
#include "api/api_serv/serv_table.hpp"
#include "api/forget.hpp"
#include "lib/base/lock.hpp"
#include "lib/failure.hpp"
#include "lib/files/inetd.hpp"
#include "lib/files/inetd_owner.hpp"
#include "lib/files/pw_file.hpp"
#include "lib/log.hpp"

using namespace vimbra;

namespace {

pthread_mutex_t g_tServiceMutex = PTHREAD_MUTEX_INITIALIZER;

// A path of the table, which has no terminator when it is as long as can be.
std::string_view PathOf(const char* path) {
    return {path, strnlen(path, VIMBRA_SERVICE_PATH_LEN)};
}

// Where the service's line is, from 1; 0 if it has none.
// Kept: neither name nor protocol counts, so that a service which is switched on for another family
// takes the line over; the test is Service.TheOtherFamilyTakesTheLineOver.
u32 FindLine(const ServNode* list, const TInetdInfo& record) {
    u32 position = 1;
    for (const ServNode* node = list->next; node != nullptr; node = node->next, position++) {
        const std::string_view text = node->Text();
        constexpr auto kNone = std::string_view::npos;
        if (text.find(record.pchSockType) != kNone && text.find(record.pchFlags) != kNone &&
            text.find(record.pchSerPath) != kNone) {
            return position;
        }
    }
    return 0;
}

// Replaces or adds the line. The results of StartNetService().
s32 PutLine(CallSite site, ServNode* list, const TInetdInfo& record, const TServType& row) {
    const LineParts line = {record.pchServerName, "\t", record.pchSockType,  "\t",
                            record.pchProto,      "\t", record.pchFlags,     "\t",
                            record.pchUser,       "\t", record.pchSerPath,   "\t",
                            record.pchArgs,       " ",  PathOf(row.achPath), "\n"};
    const u32 position = FindLine(list, record);
    if (position == 0) {
        VLOG_PRINT_AT(site, "service no exists!");
        return AddInetdfileLine(list, row, line);
    }
    const ServNode* node = list;
    for (u32 i = 0; i < position; i++) {
        node = node->next;
    }
    const u32 flag = node->flag;
    if (flag == 1) {
        VLOG_PRINT_AT(site, "service already exists but banned!");
    } else {
        VLOG_PRINT_AT(site, "service already exists!");
    }
    if (AddOneNode(list, position, flag, line) != VIMBRA_OK) {
        return VIMBRA_ERR_GENERAL;
    }
    DelOneNode(list, position + 1);
    return flag == 1 ? 1 : 2;
}

// The request's own checks; those of the table come after.
bool CheckRequest(CallSite site, const TVimbraServInfo* info) {
    if (info == nullptr) {
        VLOG_ERROR_AT(site, "servName or parametre is NULL");
        return false;
    }
    if (info->pchServerName == nullptr) {
        VLOG_ERROR_AT(site, "ServInfo 's pchServerName is empty or not campared with servname");
        return false;
    }
    if (info->wPort == 0) {
        VLOG_ERROR_AT(site, "wrong port");
        return false;
    }
    return true;
}

// Kept: the caller's path stays in the table; the test is Service.PathsPersist. Its characters go into a line: none may end it.
bool TakePath(CallSite site, TServType& row, const char* path) {
    if (path == nullptr) {
        return true;
    }
    const std::string_view text = PathOf(path);
    if (HasControl(text)) {
        VLOG_ERROR_AT(site, "pchArgPath is invalid!");
        return false;
    }
    if (text != PathOf(row.achPath)) {
        memset(row.achPath, 0, sizeof(row.achPath));
        memcpy(row.achPath, text.data(), text.size());
    }
    return true;
}

void Announce(CallSite site, const TInetdInfo& record, u16 port, const char* path) {
    constexpr int kPathLen = VIMBRA_SERVICE_PATH_LEN;
    VLOG_PRINT_AT(site, "##############################");
    VLOG_PRINT_AT(site, "Start %s Service", record.pchServerName);
    VLOG_PRINT_AT(site, "Port is -->%d ", port);
    VLOG_PRINT_AT(site, "Protocol is %s ", record.pchProto);
    VLOG_PRINT_AT(site, "Path is %.*s ", kPathLen, path);
    VLOG_PRINT_AT(site, "%.*s ", kPathLen, path);
}

// Writes the file without the service's line.
s32 RemoveLine(CallSite site, NetService*& list, const char* service) {
    if (StopServToList(list, service) != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "StopServToList error");
        return VIMBRA_ERR_GENERAL;
    }
    if (WriteToInetdFile(list) != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "WriteToInetdFile error");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

void KillService(CallSite site, char* service) {
    char directory[] = "/proc/";
    const s32 pid = GetServicePid(directory, service);
    if (pid <= 0) {
        VLOG_PRINT_AT(site, "No Runnig Service");
        return;
    }
    VLOG_PRINT_AT(site, "Service's Pid:%d", pid);
    kill(pid, SIGKILL);
}

}  // namespace

s32 StartNetService(const TInetdInfo& record, const TServType& row) {
    const OwnedList<ServNode, FreeList> list(CreateInetdList());
    if (!list) {
        VLOG_ERROR("CreateInetdList error!");
        return VIMBRA_ERR_GENERAL;
    }
    const s32 result = PutLine(VIMBRA_HERE, list.Get(), record, row);
    if (result == VIMBRA_ERR_GENERAL) {
        return VIMBRA_ERR_GENERAL;
    }
    if (WriteList(list.Get()) != VIMBRA_OK) {
        VLOG_ERROR("Write list to file error!");
        return VIMBRA_ERR_GENERAL;
    }
    return ReloadInetd(VIMBRA_HERE) == VIMBRA_OK ? result : VIMBRA_ERR_GENERAL;
}

// The mutex stands from the start, so that there is nothing that a second call could break.
void ServiceInit() {}

FILE* OpenConfigFile(const char* pchMode) {
    return OpenInetdStream(pchMode);
}

char* GetRootUser() {
    constexpr size_t kNameMax = 50;
    const CancelGuard guard;
    LineReader reader;
    const Fd file = OpenLines(kPasswdFile, Open::kRead);
    if (!file || !reader.Load(file)) {
        VLOG_ERRNO("fopen error");
        return nullptr;
    }
    std::string_view text;
    while (reader.Next(text)) {
        VLOG_PRINT("achPasswdBuf : %.*s", static_cast<int>(text.size()), text.data());
        const PasswdLine line(text);
        // A name that would break the line in which it is to stand is no one's.
        if (line.IsRoot() && IsServiceOwner(line.name)) {
            const std::string_view name = Front(line.name, kNameMax);
            return strndup(name.data(), name.size());
        }
    }
    return nullptr;
}

void vimbra::ForgetServiceLock() {
    g_tServiceMutex = PTHREAD_MUTEX_INITIALIZER;
}

s32 VimbraServiceStart(TVimbraServInfo* ptServInfo) {
    const CallSite site = VIMBRA_HERE;
    if (!CheckRequest(site, ptServInfo)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    const Lock lock(g_tServiceMutex);
    TServType* row = ptServInfo->pchProto != nullptr
                         ? FindService(ptServInfo->pchServerName, ptServInfo->pchProto)
                         : nullptr;
    if (row == nullptr) {
        VLOG_ERROR("can't find relevant services");
        return VIMBRA_ERR_GENERAL;
    }
    TInetdInfo record = row->tInetdInfo;
    char port[sizeof("65535")];
    if (ptServInfo->wPort != row->wPort) {
        snprintf(port, sizeof(port), "%u", ptServInfo->wPort);
        record.pchServerName = port;
    }
    if (!TakePath(site, *row, ptServInfo->pchArgPath)) {
        return VIMBRA_ERR_GENERAL;
    }
    Announce(site, record, ptServInfo->wPort, row->achPath);
    char* root = GetRootUser();
    if (root == nullptr) {
        VLOG_ERROR("there is no root user, cannot start net service!");
        return VIMBRA_ERR_GENERAL;
    }
    record.pchUser = root;
    const s32 result = StartNetService(record, *row);
    free(root);
    if (result == VIMBRA_ERR_GENERAL) {
        VLOG_ERROR("Apic Net Service Start failed");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 VimbraServiceStop(char* pchServName) {
    if (pchServName == nullptr) {
        VLOG_ERROR("servName is NULL");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    const CancelGuard guard;
    OwnedList<NetService, FreeLines> list(ReadFromInetdFile());
    if (!list) {
        VLOG_ERROR("ReadFromInetdFile error");
        // Kept: no configuration, no service; the test is Service.StopWithoutAConfigurationIsDone.
        return VIMBRA_OK;
    }
    const s32 result = RemoveLine(VIMBRA_HERE, list.First(), pchServName);
    if (result != VIMBRA_OK) {
        return result;
    }
    KillService(VIMBRA_HERE, pchServName);
    return ReloadInetd(VIMBRA_HERE);
}
