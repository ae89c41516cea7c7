#include <vimbra/queue.h>

#include "lib/base/memory.hpp"

queue_t queue_create() {
    auto* q = vimbra::NewZeroed<queue_struct>();
    if (q == nullptr) {
        // Kept: callers do not look at the result; the test is
        // MemoryOfQueues.WithoutMemoryTheProcessEnds.
        exit(-1);
    }
    return q;
}

int queue_empty(queue_t q) {
    return q->head == nullptr ? 1 : 0;
}

void queue_enqueue(queue_entry_t d, queue_t q) {
    d->next_ptr = nullptr;
    if (q->head == nullptr) {
        q->head = d;
    } else {
        q->tail->next_ptr = d;
    }
    q->tail = d;
}

queue_entry_t queue_dequeue(queue_t q) {
    queue_entry_t first = q->head;
    if (first == nullptr) {
        return nullptr;
    }
    q->head = first->next_ptr;
    if (q->head == nullptr) {
        q->tail = nullptr;
    }
    return first;
}

void queue_destroy(queue_t q) {
    if (q == nullptr) {
        return;
    }
    while (queue_entry_t entry = queue_dequeue(q)) {
        free(entry);
    }
    free(q);
}
