#include "api/api_dhcpc/dns_node.hpp"

#include <cstdlib>

#include "lib/log.hpp"

s32 FreeList(DnsNode* ptList) {
    if (ptList == nullptr) {
        VLOG_ERROR("free list invalid!");
        return VIMBRA_ERR_GENERAL;
    }
    while (ptList != nullptr) {
        DnsNode* next = ptList->next;
        free(ptList->pchIfaceName);
        free(ptList);
        ptList = next;
    }
    return VIMBRA_OK;
}
