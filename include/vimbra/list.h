/**
 * @file
 * A doubly linked list of untyped pointers. The library itself does not use it. Nodes come from one
 * pool of the process, which has no lock: the calls must not be made from two threads at once, and
 * not from a callback while another thread makes them.
 *
 * The node is that of GLib, by name and by layout. A program that is built with GLib's directories
 * gets it from <glib.h>, which this header then includes, so that both can be used in one file, in
 * either order. GLib's calls may read and sort such a list; they must neither allocate nor free a
 * node of it, since its nodes are not theirs. A compiler without __has_include (GCC before version
 * 5) needs <glib.h> to come first.
 */
#ifndef VIMBRA_LIST_H
#define VIMBRA_LIST_H

#include <vimbra/types.h>

/* A structure can be defined only once: where GLib's definition may follow it is the one. */
#ifdef __has_include
#if __has_include(<glib.h>) && __has_include(<glibconfig.h>)
#ifdef __cplusplus
extern "C++" {
#endif
#include <glib.h>
#ifdef __cplusplus
}
#endif
#endif
#endif

VIMBRA_BEGIN_DECLS

#ifndef __G_LIST_H__

/** An element. */
typedef void* gpointer;

/** A node. Any node stands for its list, normally the first; null is the empty list. */
typedef struct _GList GList;
struct _GList {
    gpointer data; /**< the caller's; never followed */
    GList* next;   /**< null in the last node */
    GList* prev;   /**< null in the first node */
};

#endif

/**
 * Appends an element. Walks to the last node: the cost grows with the list.
 *
 * @param list  the list, or null.
 * @param data  the element.
 * @return `list`, or the new node when `list` was null. Without memory the list as it was.
 */
VIMBRA_API GList* vimbra_g_list_append(GList* list, gpointer data);

/**
 * Removes the first element from `list` onwards that is this pointer. Its node is used again for a
 * later append; memory is never given back to the system.
 *
 * @param list  the list, or null.
 * @param data  the element.
 * @return `list`, or its successor when `list` itself was removed.
 */
VIMBRA_API GList* vimbra_g_list_remove(GList* list, gpointer data);

/**
 * Finds the beginning of a list.
 *
 * @param list  any node of it, or null.
 * @return the first node; null for null.
 */
VIMBRA_API GList* vimbra_g_list_first(GList* list);

VIMBRA_END_DECLS

#endif
