#include "lib/files/pw_list.hpp"

#include "lib/log.hpp"

using namespace vimbra;

tagListNode* CreatList() {
    tagListNode* head = NewLine({});
    if (head == nullptr) {
        VLOG_ERRNO("malloc error!");
    }
    return head;
}

tagListNode* InsertUserInfoToList(tagListNode* last,
                                  std::initializer_list<std::string_view> parts) {
    if (last == nullptr) {
        VLOG_ERROR("parameter is null.");
        return nullptr;
    }
    tagListNode* node = NewLine(parts);
    if (node == nullptr) {
        VLOG_ERRNO("malloc error!");
        return nullptr;
    }
    while (last->next != nullptr) {
        last = last->next;
    }
    last->next = node;
    return node;
}

s32 WriteListToFile(const tagListNode* list, LineFile& file) {
    if (list == nullptr) {
        VLOG_ERROR("list is null.");
        return VIMBRA_ERR_GENERAL;
    }
    if (!file) {
        VLOG_ERROR("open file error.");
        return VIMBRA_ERR_GENERAL;
    }
    // An empty line would be one without a name.
    if (!file.Rewrite(list->next, Filler::kComment)) {
        VLOG_ERRNO("write error!");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

void ReleaseList(tagListNode* list) {
    FreeLines(list);
}
