#include <vimbra/list.h>

#include <cstddef>
#include <cstdlib>

namespace {

constexpr size_t kBlockNodes = 128;

// Storage of nodes. Blocks hang together, so that all of them stay reachable.
struct Block {
    Block* next;
    GList nodes[kBlockNodes];
};

struct NodePool {
    const char* name;
    Block* block;   // the newest
    size_t used;    // of its nodes
    GList* unused;  // released nodes
};

NodePool g_tPool = {"GLib default GList allocator", nullptr, 0, nullptr};

GList* TakeFromBlock(NodePool& pool) {
    if (pool.block == nullptr || pool.used == kBlockNodes) {
        auto* block = static_cast<Block*>(calloc(1, sizeof(Block)));
        if (block == nullptr) {
            return nullptr;
        }
        block->next = pool.block;
        pool.block = block;
        pool.used = 0;
    }
    return &pool.block->nodes[pool.used++];
}

GList* Take(NodePool& pool, gpointer data) {
    GList* node = pool.unused;
    if (node != nullptr) {
        pool.unused = node->next;
    } else {
        node = TakeFromBlock(pool);
    }
    if (node != nullptr) {
        *node = {data, nullptr, nullptr};
    }
    return node;
}

void Release(NodePool& pool, GList* node) {
    *node = {nullptr, pool.unused, nullptr};
    pool.unused = node;
}

}  // namespace

GList* vimbra_g_list_append(GList* list, gpointer data) {
    GList* const node = Take(g_tPool, data);
    if (list == nullptr || node == nullptr) {
        return list == nullptr ? node : list;
    }
    GList* last = list;
    while (last->next != nullptr) {
        last = last->next;
    }
    last->next = node;
    node->prev = last;
    return list;
}

GList* vimbra_g_list_remove(GList* list, gpointer data) {
    GList* node = list;
    while (node != nullptr && node->data != data) {
        node = node->next;
    }
    if (node == nullptr) {
        return list;
    }
    if (node->prev != nullptr) {
        node->prev->next = node->next;
    }
    if (node->next != nullptr) {
        node->next->prev = node->prev;
    }
    GList* const rest = node == list ? node->next : list;
    Release(g_tPool, node);
    return rest;
}

GList* vimbra_g_list_first(GList* list) {
    while (list != nullptr && list->prev != nullptr) {
        list = list->prev;
    }
    return list;
}
