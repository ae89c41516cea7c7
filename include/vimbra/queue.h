/**
 * @file
 * A first-in, first-out queue of inotify(7) events. It has no lock: its users guard it. What holds
 * for every call stands in <vimbra/vimbra.h>.
 */
#ifndef VIMBRA_QUEUE_H
#define VIMBRA_QUEUE_H

#include <sys/inotify.h>
#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/* ISO C has no record that ends in one with a flexible array. */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"

/** An event. Allocated by who enqueues it, with malloc(3); the name follows in the same block. */
typedef struct queue_entry {
    struct queue_entry* next_ptr; /**< the next younger one, or null */
    struct inotify_event inot_ev; /**< the event's header; `len` bytes of name follow */
} * queue_entry_t;

#pragma GCC diagnostic pop

/** A queue; empty when `head` is null. */
typedef struct queue_struct {
    struct queue_entry* head; /**< the oldest */
    struct queue_entry* tail; /**< the youngest */
} * queue_t;

/**
 * Makes a queue. WITHOUT MEMORY THE PROCESS ENDS with exit(-1), exit(3).
 *
 * @return a new, empty queue, to be given back to queue_destroy().
 */
VIMBRA_API queue_t queue_create(void);

/**
 * Is the queue empty?
 *
 * @param q   the queue.
 * @retval 1  it is.
 * @retval 0  it is not.
 */
VIMBRA_API int queue_empty(queue_t q);

/**
 * Appends an entry, which belongs to the queue from here on.
 *
 * @param d  the entry, made with malloc(3); its `next_ptr` is overwritten.
 * @param q  the queue.
 */
VIMBRA_API void queue_enqueue(queue_entry_t d, queue_t q);

/**
 * Takes the oldest entry.
 *
 * @param q  the queue.
 * @return the entry, which the caller frees with free(3); null when the queue is empty.
 */
VIMBRA_API queue_entry_t queue_dequeue(queue_t q);

/**
 * Frees a queue with all its entries.
 *
 * @param q  the queue; null is taken.
 */
VIMBRA_API void queue_destroy(queue_t q);

VIMBRA_END_DECLS

#endif
