#include "proxy.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <thread>

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

Proxy::Proxy(std::function<void(const Passed&)> seen, Relays::Seen told)
    : seen_(std::move(seen)), place_(Replace()), relays_(std::move(told)) {
    std::thread([this] { Serve(); }).detach();
}

// The process ends soon after: connections that are open are cut, as by a daemon that ends.
Proxy::~Proxy() {
    place_->GiveBack();
    shutdown(place_->Listener(), SHUT_RDWR);
}

void Proxy::Serve() {
    while (true) {
        const int client = accept4(place_->Listener(), nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0) {
            std::thread([this, client] { Carry(client); }).detach();
        } else if (errno != EINTR && errno != ECONNABORTED && errno != EMFILE) {
            return;
        }
    }
}

void Proxy::Carry(int client) const {
    ucred peer = {};
    socklen_t size = sizeof(peer);
    getsockopt(client, SOL_SOCKET, SO_PEERCRED, &peer, &size);
    Passed passed{peer.pid, peer.uid, NameOf(peer.pid), ReadMessage(client), {}};
    const vimbra::Fd daemon = place_->Original();
    if (daemon && WriteMessage(daemon.Get(), passed.request)) {
        passed.reply = ReadMessage(daemon.Get());
        WriteMessage(client, passed.reply);
    }
    close(client);
    seen_(passed);
}

}  // namespace ctl
