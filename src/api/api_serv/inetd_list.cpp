#include "api/api_serv/inetd_list.hpp"

#include "api/api_serv/serv_table.hpp"
#include "lib/failure.hpp"
#include "lib/files/inetd.hpp"
#include "lib/log.hpp"

using namespace vimbra;

namespace {

// The node before a position, or null.
ServNode* Before(ServNode* list, u32 position) {
    if (position == 0) {
        return nullptr;
    }
    for (u32 i = 1; i < position && list != nullptr; i++) {
        list = list->next;
    }
    return list;
}

bool Contains(const LineNode& line, const char* part) {
    return line.Text().find(part) != std::string_view::npos;
}

// A line as it stands, with the newline that the file's last one may lack.
LineNode* NewWholeLine(std::string_view line) {
    return NewLine({line, line.ends_with('\n') ? "" : "\n"});
}

}  // namespace

ServNode* CreateInetdList() {
    LineReader reader;
    const Fd file = OpenLines(kInetdPaths, Open::kRead);
    if (!file || !reader.Load(file)) {
        VLOG_ERROR("fopen error.");
        return nullptr;
    }
    ServNode* list = NewLine({});
    if (list == nullptr) {
        VLOG_ERROR("XMALLOC error");
        return nullptr;
    }
    ServNode* last = list;
    std::string_view line;
    while (reader.Next(line)) {
        if (line.starts_with('#')) {
            continue;
        }
        last->next = NewWholeLine(line);
        last = last->next;
        if (last == nullptr) {
            VLOG_ERROR("pchContent malloc error");
            FreeList(list);
            return nullptr;
        }
    }
    return list;
}

s32 AddOneNode(ServNode* list, u32 position, u32 flag, LineParts parts) {
    ServNode* before = Before(list, position);
    if (before == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    ServNode* node = NewLine(parts, flag);
    if (node == nullptr) {
        VLOG_ERROR("pchContent malloc error");
        return VIMBRA_ERR_GENERAL;
    }
    node->next = before->next;
    before->next = node;
    return VIMBRA_OK;
}

s32 DelOneNode(ServNode* list, u32 position) {
    ServNode* before = Before(list, position);
    if (before == nullptr || before->next == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    ServNode* node = before->next;
    before->next = node->next;
    free(node);
    return VIMBRA_OK;
}

void FreeList(ServNode* list) {
    FreeLines(list);
}

s32 WriteList(const ServNode* list) {
    LineFile file(kInetdPaths, LineFile::How::kRewrite);
    if (!file || !file.Rewrite(list->next, Filler::kComment)) {
        VLOG_ERROR("fopen error.");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 AddInetdfileLine(ServNode* list, const TServType& row, LineParts line) {
    u32 end = 1;
    for (const ServNode* node = list->next; node != nullptr; node = node->next, end++) {
        if (node->flag == 1 && node->length > 1 && node->Text()[1] == row.pchServType[0] &&
            Contains(*node, row.pchServType)) {
            return AddOneNode(list, end + 1, 0, line);
        }
    }
    if (AddOneNode(list, end, 1, {"#", row.pchServType, "\n"}) != VIMBRA_OK) {
        return VIMBRA_ERR_GENERAL;
    }
    return AddOneNode(list, end + 1, 0, line);
}

NetService* ReadFromInetdFile() {
    LineReader reader;
    const Fd file = OpenLines(kInetdPaths, Open::kRead);
    if (!file || !reader.Load(file)) {
        VLOG_ERROR("fopen error");
        return nullptr;
    }
    NetService* first = nullptr;
    NetService** end = &first;
    std::string_view line;
    while (reader.Next(line)) {
        *end = NewLine({line});
        if (*end == nullptr) {
            VLOG_ERROR("XMALLOC error");
            FreeLines(first);
            return nullptr;
        }
        end = &(*end)->next;
    }
    return first;
}

s32 StopServToList(NetService*& list, const char* service) {
    const TServType* row = FindService(service, nullptr);
    if (row == nullptr) {
        VLOG_ERROR("Services is not supported!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    for (NetService** place = &list; *place != nullptr; place = &(*place)->next) {
        NetService* line = *place;
        if (Contains(*line, row->tInetdInfo.pchSerPath)) {
            *place = line->next;
            free(line);
            break;
        }
    }
    return VIMBRA_OK;
}

s32 WriteToInetdFile(const NetService* list) {
    LineFile file(kInetdPaths, LineFile::How::kRewrite);
    if (!file || !file.Rewrite(list, Filler::kComment)) {
        VLOG_ERROR("OpenConfigFile error!");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}
