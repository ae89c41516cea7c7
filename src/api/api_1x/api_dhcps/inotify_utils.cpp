#include "api/api_1x/api_dhcps/inotify_utils.hpp"

#include <pthread.h>
#include <vimbra/thread.h>

#include <algorithm>
#include <cstdio>

#include "api/api_1x/api_dhcps/leases.hpp"
#include "api/forget.hpp"
#include "lib/base/cancel.hpp"
#include "lib/base/lock.hpp"
#include "lib/base/memory.hpp"
#include "lib/base/select_set.hpp"
#include "lib/log.hpp"

using namespace vimbra;

namespace {

constexpr u32 kEvents = IN_ALL_EVENTS | IN_UNMOUNT | IN_Q_OVERFLOW | IN_IGNORED;
static_assert(kEvents == 0xefff);

constexpr u32 kFlags = ~(kEvents | IN_ISDIR);
static_assert(kFlags == 0xbfff1000);

constexpr size_t kReadSize = 16384;

// Events that are only printed.
struct EventName {
    u32 event;
    const char* name;
    bool hasCookie;
};
constexpr EventName kNames[] = {
    {IN_ACCESS, "ACCESS", false},
    {IN_ATTRIB, "ATTRIB", false},
    {IN_CLOSE_WRITE, "CLOSE_WRITE", false},
    {IN_CLOSE_NOWRITE, "CLOSE_NOWRITE", false},
    {IN_OPEN, "OPEN", false},
    {IN_MOVED_FROM, "MOVED_FROM", true},
    {IN_MOVED_TO, "MOVED_TO", true},
    {IN_CREATE, "CREATE", false},
    {IN_DELETE, "DELETE", false},
    {IN_DELETE_SELF, "DELETE_SELF", false},
    {IN_MOVE_SELF, "MOVE_SELF", false},
    {IN_UNMOUNT, "UNMOUNT", false},
};

// The event's name, which ends within the event, if it has one.
struct Name {
    explicit Name(const inotify_event& event)
        : text(event.name), length(static_cast<int>(strnlen(event.name, event.len))) {}
    const char* text;
    int length;
};

void PrintEvent(const inotify_event& event) {
    const Name name(event);
    const auto* known = std::find_if(std::begin(kNames), std::end(kNames), [&](const auto& entry) {
        return entry.event == (event.mask & kEvents);
    });
    if (known == std::end(kNames)) {
        printf("UNKNOWN EVENT \"%X\" OCCURRED for file \"%.*s\" on WD #%i\n", event.mask,
               name.length, name.text, event.wd);
        return;
    }
    printf("%s: %s \"%.*s\" on WD #%i", known->name, (event.mask & IN_ISDIR) != 0 ? "Dir" : "File",
           name.length, name.text, event.wd);
    if (known->hasCookie) {
        printf(". Cookie=%d", static_cast<int>(event.cookie));
    }
    printf("\n");
}

// A queue entry of its own for one event. False when memory is out.
bool Enqueue(queue_t queue, const u8* event, size_t size) {
    auto* entry = static_cast<queue_entry_t>(
        calloc(1, std::max(sizeof(queue_entry), offsetof(queue_entry, inot_ev) + size)));
    if (entry == nullptr) {
        return false;
    }
    memcpy(&entry->inot_ev, event, size);
    queue_enqueue(entry, queue);
    return true;
}

pthread_mutex_t g_tWatchersMutex = PTHREAD_MUTEX_INITIALIZER;
Watcher* g_ptWatchers = nullptr;

// Those that run, so that a forked child can close its copies of their descriptors.
class Running {
 public:
    explicit Running(Watcher& watcher) : watcher_(watcher) {
        const Lock lock(g_tWatchersMutex);
        watcher_.next = g_ptWatchers;
        g_ptWatchers = &watcher_;
    }
    ~Running() {
        const Lock lock(g_tWatchersMutex);
        Watcher** link = &g_ptWatchers;
        while (*link != &watcher_) {
            link = &(*link)->next;
        }
        *link = watcher_.next;
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

 private:
    Watcher& watcher_;
};

void Close(Watcher& watcher) {
    if (close(watcher.fd.Release()) != 0) {
        perror("close (fd) = ");
    }
}

}  // namespace

// They lie on their threads' stacks, of which the child has copies.
void vimbra::ForgetLeaseWatchers() {
    g_tWatchersMutex = PTHREAD_MUTEX_INITIALIZER;
    for (const Watcher* watcher = g_ptWatchers; watcher != nullptr; watcher = watcher->next) {
        close(watcher->fd.Get());
    }
    g_ptWatchers = nullptr;
}

bool open_inotify_fd(Watcher& watcher) {
    watcher.watched = 0;
    watcher.fd.Reset(inotify_init1(IN_CLOEXEC));
    if (!watcher.fd) {
        perror("inotify_init () = ");
    }
    return watcher.fd.Get() >= 1;
}

int watch_dir(Watcher& watcher, const char* name, u32 mask) {
    const int wd = inotify_add_watch(watcher.fd.Get(), name, mask);
    if (wd < 0) {
        printf("Cannot add watch for \"%s\" with event mask %lX", name,
               static_cast<unsigned long>(mask));
        perror(" ");
        return wd;
    }
    watcher.watched++;
    printf("Watching %s WD=%d\n", name, wd);
    printf("Watching = %d items\n", static_cast<int>(watcher.watched));
    return wd;
}

int event_check(const Watcher& watcher) {
    SelectSet set(watcher.fd.Get());
    if (!set) {
        VLOG_ERRNO("XMALLOC error");
        return -1;
    }
    return set.WaitReadable(nullptr);
}

int read_events(Watcher& watcher) {
    alignas(inotify_event) u8 buffer[kReadSize];
    const ssize_t count = read(watcher.fd.Get(), buffer, sizeof(buffer));
    if (count < 0) {
        return -1;
    }
    int queued = 0;
    size_t at = 0;
    const auto end = static_cast<size_t>(count);
    while (end - at >= sizeof(inotify_event)) {
        inotify_event event;
        memcpy(&event, buffer + at, sizeof(event));
        if (event.len > end - at - sizeof(event)) {
            break;
        }
        const size_t size = sizeof(event) + event.len;
        if (!Enqueue(watcher.queue, buffer + at, size)) {
            VLOG_ERRNO("XMALLOC error");
            return -1;
        }
        at += size;
        queued++;
    }
    printf("\n%d events queued\n", queued);
    return queued;
}

void handle_event(Watcher& watcher, const inotify_event& event) {
    switch (event.mask & kEvents) {
        case IN_MODIFY:
            deal_func_for_dhcps();
            break;
        case IN_IGNORED:
            watcher.watched--;
            printf("IGNORED: WD #%d\n", event.wd);
            printf("Watching = %d items\n", static_cast<int>(watcher.watched));
            break;
        case IN_Q_OVERFLOW:
            printf("Warning: AN OVERFLOW EVENT OCCURRED: ");
            break;
        default:
            PrintEvent(event);
            break;
    }
    if ((event.mask & kFlags) != 0) {
        printf("Flags=%lX\n", static_cast<unsigned long>(event.mask));
    }
}

void handle_events(Watcher& watcher) {
    while (queue_empty(watcher.queue) == 0) {
        queue_entry_t entry = queue_dequeue(watcher.queue);
        handle_event(watcher, entry->inot_ev);
        free(entry);
    }
}

void process_inotify_events(Watcher& watcher) {
    while (watcher.watched > 0) {
        const int ready = event_check(watcher);
        if (ready < 0 && errno != EINTR) {
            return;
        }
        if (ready > 0) {
            if (read_events(watcher) < 0) {
                return;
            }
            handle_events(watcher);
        }
    }
}

void VimbraDhcpsCBThread(void*) {
    const CancelGuard guard;
    // Nobody waits for a watcher: what is left of it goes with it.
    ThreadDetach(pthread_self());
    Watcher watcher;
    if (!open_inotify_fd(watcher)) {
        return;
    }
    const Running running(watcher);
    // Not queue_create(), which ends the process where there is no memory.
    watcher.queue = NewZeroed<queue_struct>();
    if (watcher.queue == nullptr) {
        VLOG_ERRNO("XMALLOC error");
    } else if (watch_dir(watcher, kLeaseFile, IN_MODIFY) > 0) {
        process_inotify_events(watcher);
    }
    Close(watcher);
    queue_destroy(watcher.queue);
}
