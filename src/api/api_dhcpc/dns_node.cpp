#include "api/api_dhcpc/dns_node.hpp"

#include <cstdlib>

void FreeList(DnsNode* ptList) {
    while (ptList != nullptr) {
        DnsNode* next = ptList->next;
        free(ptList->pchIfaceName);
        free(ptList);
        ptList = next;
    }
}
