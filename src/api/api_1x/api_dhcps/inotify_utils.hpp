// The watch of the DHCP server's lease file, inotify(7).
#ifndef VIMBRA_API_1X_API_DHCPS_INOTIFY_UTILS_HPP
#define VIMBRA_API_1X_API_DHCPS_INOTIFY_UTILS_HPP

#include <vimbra/queue.h>

#include "lib/base/fd.hpp"

// One watcher; any number may run, each on a thread of its own.
struct Watcher {
    vimbra::Fd fd;
    u32 watched = 0;  // items
    queue_t queue = nullptr;
    Watcher* next = nullptr;  // of those that run
};

// Makes the descriptor; false when the watcher is to end.
bool open_inotify_fd(Watcher& watcher);

// Watches one more item. The watch descriptor, or -1.
int watch_dir(Watcher& watcher, const char* name, u32 mask);

// Handles events until nothing is watched any more.
void process_inotify_events(Watcher& watcher);

// Waits for events: what select(2) returns.
int event_check(const Watcher& watcher);

// Queues the events that wait. Their number, or -1.
int read_events(Watcher& watcher);

// Handles what is queued.
void handle_events(Watcher& watcher);
void handle_event(Watcher& watcher, const inotify_event& event);

// The watcher's thread.
void VimbraDhcpsCBThread(void*);

#endif
