// The event queue.
#include <gtest/gtest.h>
#include <vimbra/queue.h>

#include <cstddef>
#include <cstdlib>

namespace vimbra::tests {
namespace {

queue_entry_t Entry(int watch) {
    auto* entry = static_cast<queue_entry_t>(calloc(1, sizeof(queue_entry)));
    entry->inot_ev.wd = watch;
    return entry;
}

TEST(Queue, LayoutIsHeaderBehindAPointer) {
    EXPECT_EQ(0u, offsetof(queue_entry, next_ptr));
    EXPECT_EQ(sizeof(void*), offsetof(queue_entry, inot_ev));
    EXPECT_EQ(0u, offsetof(queue_struct, head));
    EXPECT_EQ(sizeof(void*), offsetof(queue_struct, tail));
}

TEST(Queue, IsFirstInFirstOut) {
    queue_t queue = queue_create();
    EXPECT_EQ(1, queue_empty(queue));
    for (int i = 1; i <= 5; i++) {
        queue_enqueue(Entry(i), queue);
        EXPECT_EQ(0, queue_empty(queue));
    }
    for (int i = 1; i <= 5; i++) {
        queue_entry_t entry = queue_dequeue(queue);
        ASSERT_NE(nullptr, entry);
        EXPECT_EQ(i, entry->inot_ev.wd);
        free(entry);
    }
    EXPECT_EQ(1, queue_empty(queue));
    queue_destroy(queue);
}

TEST(Queue, DequeueOfAnEmptyQueueIsNullAndLeavesItEmpty) {
    queue_t queue = queue_create();
    EXPECT_EQ(nullptr, queue_dequeue(queue));
    EXPECT_EQ(1, queue_empty(queue));
    EXPECT_EQ(nullptr, queue->head);
    EXPECT_EQ(nullptr, queue->tail);
    queue_destroy(queue);
}

TEST(Queue, EnqueueAfterTheLastWasTakenSetsBothEnds) {
    queue_t queue = queue_create();
    queue_enqueue(Entry(1), queue);
    free(queue_dequeue(queue));
    EXPECT_EQ(nullptr, queue->head);
    EXPECT_EQ(nullptr, queue->tail);
    queue_entry_t entry = Entry(2);
    queue_enqueue(entry, queue);
    EXPECT_EQ(entry, queue->head);
    EXPECT_EQ(entry, queue->tail);
    queue_destroy(queue);
}

TEST(Queue, EnqueueClearsTheLinkOfTheEntry) {
    queue_t queue = queue_create();
    queue_entry_t entry = Entry(1);
    entry->next_ptr = entry;
    queue_enqueue(entry, queue);
    EXPECT_EQ(nullptr, entry->next_ptr);
    queue_destroy(queue);
}

TEST(Queue, DestroyFreesTheEntriesAndTakesNull) {
    queue_destroy(nullptr);
    queue_t queue = queue_create();
    for (int i = 0; i < 100; i++) {
        queue_enqueue(Entry(i), queue);
    }
    queue_destroy(queue);  // A leak checker tells what was forgotten.
}

}  // namespace
}  // namespace vimbra::tests
