#include "relays.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>

#include "messages.hpp"
#include "stand_in.hpp"
#include "take_over.hpp"

namespace ctl {

namespace {

constexpr char kFolder[] = "/tmp";
// As long as listeners wait for a message that was announced.
constexpr timeval kMessagePatience = {5, 0};
// Between two looks at a socket that has a name but does not listen yet, and how many there are.
constexpr int kLookMs = 10;
constexpr int kLooks = 100;

std::string PathOf(const std::string& name) {
    return std::string(kFolder) + "/" + name;
}

void Signal(const vimbra::Fd& event) {
    eventfd_write(event.Get(), 1);
}

}  // namespace

// One listener's. A single thread, so that notifications keep their order.
class Relay {
 public:
    Relay(std::string name, std::unique_ptr<StandIn> place, const Relays::Seen& seen)
        : name_(std::move(name)),
          place_(std::move(place)),
          seen_(seen),
          end_(eventfd, 0u, EFD_CLOEXEC),
          thread_([this] { Serve(); }) {}

    // Nobody comes once the name is given back; who came before is served.
    ~Relay() {
        place_->GiveBack();
        Signal(end_);
        thread_.join();
    }

    bool HasName() const { return place_->HasName(); }

 private:
    void Serve() {
        pollfd ready[] = {{place_->Listener(), POLLIN, 0}, {end_.Get(), POLLIN, 0}};
        while (poll(ready, 2, -1) > 0) {
            if ((ready[0].revents & POLLIN) != 0) {
                const vimbra::Fd from(accept4, place_->Listener(), nullptr, nullptr, SOCK_CLOEXEC);
                if (!HandOn(from) && (ready[1].revents & POLLIN) != 0) {
                    return;
                }
            } else if ((ready[1].revents & POLLIN) != 0) {
                return;
            }
        }
    }

    bool HandOn(const vimbra::Fd& from) {
        setsockopt(from.Get(), SOL_SOCKET, SO_RCVTIMEO, &kMessagePatience,
                   sizeof(kMessagePatience));
        const std::vector<std::byte> message = ReadMessage(from.Get());
        if (message.empty()) {
            return true;
        }
        const vimbra::Fd to = place_->Original();
        if (to && WriteMessage(to.Get(), message)) {
            seen_(name_, message);
            return true;
        }
        // The daemon is to see that nobody listens.
        place_->GiveBack();
        return false;
    }

    const std::string name_;
    const std::unique_ptr<StandIn> place_;
    const Relays::Seen& seen_;
    const vimbra::Fd end_;
    std::thread thread_;
};

Relays::Relays(Seen seen)
    : seen_(std::move(seen)),
      changes_(inotify_init1, IN_CLOEXEC | IN_NONBLOCK),
      end_(eventfd, 0u, EFD_CLOEXEC) {
    inotify_add_watch(changes_.Get(), kFolder, IN_CREATE | IN_MOVED_TO);
    std::error_code gone;
    for (const auto& file : std::filesystem::directory_iterator(kFolder, gone)) {
        early_[file.path().filename()] = 1;
    }
    LookAtAll();
    thread_ = std::thread([this] { Watch(); });
}

Relays::~Relays() {
    Signal(end_);
    thread_.join();
}

void Relays::Watch() {
    pollfd ready[] = {{changes_.Get(), POLLIN, 0}, {end_.Get(), POLLIN, 0}};
    while (true) {
        poll(ready, 2, early_.empty() ? -1 : kLookMs);
        if ((ready[1].revents & POLLIN) != 0) {
            return;
        }
        ReadNames();
        LookAtAll();
    }
}

void Relays::ReadNames() {
    alignas(inotify_event) char events[4096];
    const ssize_t size = read(changes_.Get(), events, sizeof(events));
    for (ssize_t at = 0; at < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(events + at);
        if (event->len > 0) {
            early_[event->name] = kLooks;
        }
        at += static_cast<ssize_t>(sizeof(*event) + event->len);
    }
}

void Relays::LookAtAll() {
    for (auto each = early_.begin(); each != early_.end();) {
        LookAt(each->first);
        const auto relay = relays_.find(each->first);
        const bool isServed = relay != relays_.end() && relay->second->HasName();
        if (isServed || --each->second <= 0 || !protocol::IsListener(each->first)) {
            each = early_.erase(each);
        } else {
            ++each;
        }
    }
}

// A socket that has just got its name does not listen yet, and one that has ended does not any more.
void Relays::LookAt(const std::string& name) {
    const auto known = relays_.find(name);
    if (!protocol::IsListener(name) || (known != relays_.end() && known->second->HasName())) {
        return;
    }
    if (known != relays_.end()) {
        relays_.erase(known);
    }
    if (!IsListening(PathOf(name))) {
        return;
    }
    if (std::unique_ptr<StandIn> place = StandIn::For(PathOf(name))) {
        relays_[name] = std::make_unique<Relay>(name, std::move(place), seen_);
    }
}

}  // namespace ctl
