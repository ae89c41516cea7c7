// A watch as an object of C++: it is on as long as the object lives.
//
//     watch eth0
//
// The library's callbacks take no context, so there is one place for it; a second object of the same kind
// is refused. What a callback uses has to outlive the stop, since it may still be running when the stop
// returns: here it is the static queue, not the object.
#include <arpa/inet.h>
#include <vimbra/vimbra.h>

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <string>

class AddressWatch {
 public:
    explicit AddressWatch(std::string interface) : interface_(std::move(interface)) {
        if (VimbraRouterAdvertiseStart(interface_.data(), OnChange) != VIMBRA_OK) {
            throw std::runtime_error("no watch of " + interface_);
        }
    }
    ~AddressWatch() { VimbraRouterAdvertiseStop(interface_.data()); }
    AddressWatch(const AddressWatch&) = delete;
    AddressWatch& operator=(const AddressWatch&) = delete;

    // Waits for the next change.
    TVimbraIfaceAllIp Next() {
        std::unique_lock lock(g_queue.mutex);
        g_queue.changed.wait(lock, [] { return !g_queue.changes.empty(); });
        const TVimbraIfaceAllIp change = g_queue.changes.front();
        g_queue.changes.pop_front();
        return change;
    }

 private:
    struct Queue {
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<TVimbraIfaceAllIp> changes;
    };

    // On the library's thread; no exception may leave it.
    static void OnChange(TVimbraRouterAdCb* change) {
        try {
            const std::lock_guard lock(g_queue.mutex);
            g_queue.changes.push_back(change->tNetIfaceAllIp);
            g_queue.changed.notify_one();
        } catch (const std::exception&) {
        }
    }

    static Queue g_queue;
    std::string interface_;
};

AddressWatch::Queue AddressWatch::g_queue;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: watch INTERFACE\n");
        return 2;
    }
    VimbraDebugLevelSet(0);
    VimbraInit();
    try {
        AddressWatch watch(argv[1]);
        const TVimbraIfaceAllIp now = watch.Next();
        for (u32 i = 0; i < now.dwIpNum && i < VIMBRA_IFACE_IP_MAX; i++) {
            char text[INET6_ADDRSTRLEN] = "?";
            const TVimbraAddr& address = now.atNetIfaceIp[i].tIpAddr;
            inet_ntop(address.wSinFamily, &address.tV6Addr, text, sizeof(text));
            std::printf("%s/%u\n", text, static_cast<unsigned>(now.atNetIfaceIp[i].dwPrefix));
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "watch: %s\n", error.what());
        return 1;
    }
}
