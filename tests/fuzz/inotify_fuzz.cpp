// Records of the kernel's file watch, as the watcher of the lease file reads them.
#include <fcntl.h>
#include <sys/inotify.h>

#include "api/api_1x/api_dhcps/inotify_utils.hpp"
#include "api/api_1x/api_dhcps/leases.hpp"
#include "files.hpp"
#include "input.hpp"

namespace vimbra::tests {
namespace {

constexpr size_t kMost = 16384;

int g_changes;

// Whole records, and those among them that tell of a change.
struct Counts {
    int records = 0;
    int changes = 0;
};

Counts CountRecords(std::span<const u8> bytes) {
    constexpr u32 kEvents = IN_ALL_EVENTS | IN_UNMOUNT | IN_Q_OVERFLOW | IN_IGNORED;
    Counts counts;
    inotify_event event;
    while (bytes.size() >= sizeof(event)) {
        memcpy(&event, bytes.data(), sizeof(event));
        if (event.len > bytes.size() - sizeof(event)) {
            break;
        }
        counts.records++;
        counts.changes += (event.mask & kEvents) == IN_MODIFY ? 1 : 0;
        bytes = bytes.subspan(sizeof(event) + event.len);
    }
    return counts;
}

bool PrepareWatch() {
    Prepare();
    const char leases[8] = {};
    Write(kLeaseFile, leases, sizeof(leases));
    StoreDhcpsCallBack([](u32, TNetDhcpsNotify*) { return ++g_changes; });
    // The watcher prints what it sees.
    return freopen("/dev/null", "w", stdout) != nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    static const bool prepared = PrepareWatch();
    if (!prepared || size == 0 || size > kMost) {
        return -1;
    }
    int ends[2];
    Require(pipe2(ends, O_CLOEXEC) == 0);
    Require(write(ends[1], data, size) == static_cast<ssize_t>(size));
    close(ends[1]);
    Watcher watcher;
    watcher.fd.Reset(ends[0]);
    watcher.queue = queue_create();
    watcher.watched = 1;
    g_changes = 0;
    const Counts counts = CountRecords({data, size});
    Require(read_events(watcher) == counts.records);
    handle_events(watcher);
    Require(g_changes == counts.changes && queue_empty(watcher.queue) != 0);
    queue_destroy(watcher.queue);
    return 0;
}

}  // namespace vimbra::tests
