#include "proxy.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>

#include "tool.hpp"

namespace ctl {

namespace {

constexpr char kName[] = "/tmp/api_daemon";

[[noreturn]] void Fail(const std::string& what) {
    throw CommandFailed(ExitStatus::kUnreachable, what + ": " + strerror(errno));
}

std::unique_ptr<StandIn> Replace() {
    StandIn::Restore(kName);
    if (!ConnectTo(kName)) {
        Fail(std::string("no daemon at ") + kName);
    }
    std::unique_ptr<StandIn> place = StandIn::For(kName);
    if (!place) {
        Fail(std::string("cannot stand in front of ") + kName);
    }
    return place;
}

std::string NameOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

}  // namespace

// What threads of connections still need when the proxy is gone.
struct Proxy::Shared {
    explicit Shared(std::function<void(const Passed&)> wanted) : seen(std::move(wanted)) {}

    const std::unique_ptr<StandIn> place = Replace();
    std::mutex mutex;
    std::function<void(const Passed&)> seen;  // empty when nobody wants to know any more

    void Carry(int client);
    void Show(const Passed& passed);
};

Proxy::Proxy(std::function<void(const Passed&)> seen, Relays::Seen told)
    : shared_(std::make_shared<Shared>(std::move(seen))),
      relays_(std::move(told)),
      thread_([this] { Serve(); }) {}

// The process ends soon after: connections that are open are cut, as by a daemon that ends.
Proxy::~Proxy() {
    shared_->place->GiveBack();
    shutdown(shared_->place->Listener(), SHUT_RDWR);
    thread_.join();
    const std::lock_guard lock(shared_->mutex);
    shared_->seen = nullptr;
}

void Proxy::Serve() const {
    while (true) {
        const int client = accept4(shared_->place->Listener(), nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0) {
            std::thread([shared = shared_, client] { shared->Carry(client); }).detach();
        } else if (errno != EINTR && errno != ECONNABORTED && errno != EMFILE) {
            return;
        }
    }
}

void Proxy::Shared::Carry(int client) {
    ucred peer = {};
    socklen_t size = sizeof(peer);
    getsockopt(client, SOL_SOCKET, SO_PEERCRED, &peer, &size);
    Passed passed{peer.pid, peer.uid, NameOf(peer.pid), ReadMessage(client), {}};
    const vimbra::Fd daemon = place->Original();
    if (daemon && WriteMessage(daemon.Get(), passed.request)) {
        passed.reply = ReadMessage(daemon.Get());
    }
    // First: whoever has his answer finds it shown.
    Show(passed);
    if (!passed.reply.empty()) {
        WriteMessage(client, passed.reply);
    }
    close(client);
}

void Proxy::Shared::Show(const Passed& passed) {
    const std::lock_guard lock(mutex);
    if (seen) {
        seen(passed);
    }
}

}  // namespace ctl
