// What other hosts may send to a daemon that watches for conflicts of addresses, pings and traces:
// frames, ICMP of both families, and errors of routers on the way. Whatever it is, applications get
// messages that are well-formed.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "daemon.hpp"
#include "daemon_requests.hpp"
#include "lib/base/fd.hpp"
#include "network.hpp"

namespace vimbra::tests {
namespace {

constexpr int kStepsMax = 32;

struct Notification {
    u32 type;
    std::string body;
};

// An application that listens and takes what there is.
class Listener {
 public:
    explicit Listener(const char* name)
        : socket_(socket, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        snprintf(address.sun_path, sizeof(address.sun_path), "/tmp/%s", name);
        unlink(address.sun_path);
        Require(bind(socket_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
                    0 &&
                listen(socket_.Get(), 128) == 0);
    }

    std::vector<Notification> Take() const {
        std::vector<Notification> taken;
        for (;;) {
            const Fd connection(accept4, socket_.Get(), nullptr, nullptr,
                                SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (!connection) {
                return taken;
            }
            char bytes[256];
            const ssize_t count = read(connection.Get(), bytes, sizeof(bytes));
            // Given up, or not written to yet: then it is tried again.
            if (count <= 0) {
                continue;
            }
            u32 head[3];
            Require(count >= static_cast<ssize_t>(sizeof(head)));
            memcpy(head, bytes, sizeof(head));
            taken.push_back({head[0], {bytes + sizeof(head), bytes + count}});
            Require(head[1] == taken.back().body.size());
        }
    }

 private:
    Fd socket_;
};

TVimbraAddr Address(int family, const char* text) {
    TVimbraAddr address = {};
    address.wSinFamily = static_cast<u16>(family);
    inet_pton(family, text, &address.tV6Addr);
    return address;
}

template <class Body>
Body BodyOf(const Notification& notification) {
    Body body;
    Require(notification.body.size() == sizeof(body));
    memcpy(&body, notification.body.data(), sizeof(body));
    return body;
}

class Life {
 public:
    Life() { StartAll(); }

    void Step(Input& input) {
        enum Kind : u8 { kDeliver, kDeliverAgain, kPass, kStart, kEnd };
        switch (input.Byte() % kEnd) {
            case kPass:
                daemon_.Pass(input.Word());
                break;
            case kStart:
                StartAll();
                break;
            default:
                daemon_.Receive(input);
                break;
        }
        Check();
    }

 private:
    static constexpr s32 kPing = 1;
    static constexpr s32 kTrace = 2;

    template <class Body>
    void Ask(u32 type, const Body& body) {
        daemon_.Request(type, {reinterpret_cast<const char*>(&body), sizeof(body)});
    }

    void StartAll() {
        for (const TVimbraAddr& host :
             {Address(AF_INET, "192.168.1.9"), Address(AF_INET6, "2001:db8::9")}) {
            Ask(wire::kConflictStart, wire::ConflictBody{host.wSinFamily});
            wire::PingStartBody ping = {};
            ping.tDestIp = host;
            ping.nUserID = kPing + host.wSinFamily;
            Ask(wire::kPingStart, ping);
            wire::TracerouteStartBody trace = {};
            trace.tDestIp = host;
            trace.nUserID = kTrace + host.wSinFamily;
            Ask(wire::kTracerouteStart, trace);
        }
    }

    void Check() const {
        for (const Notification& each : conflicts4_.Take()) {
            CheckConflict(each, VIMBRA_FAMILY_IPV4);
        }
        for (const Notification& each : conflicts6_.Take()) {
            CheckConflict(each, VIMBRA_FAMILY_IPV6);
        }
        for (const Notification& each : pings_.Take()) {
            const auto body = BodyOf<wire::pingmsg>(each);
            Require(each.type <= wire::kPingLastEvent && body.seq > 0 &&
                    (body.over_flag == wire::kPingMore || body.over_flag == wire::kPingLast));
        }
        for (const Notification& each : traces_.Take()) {
            const auto body = BodyOf<TVimbraTracerouteCBInfo>(each);
            Require(each.type >= wire::kTracerouteFirstEvent &&
                    each.type <= wire::kTracerouteLastEvent && body.dwTtl >= 1 &&
                    body.tIpaddr.wSinFamily == static_cast<u16>(body.nUserId - kTrace));
        }
    }

    static void CheckConflict(const Notification& notification, u16 family) {
        const auto body = BodyOf<wire::IpConfilctMsg>(notification);
        const std::string name(body.achIfcName, strnlen(body.achIfcName, sizeof(body.achIfcName)));
        const TVimbraAddr address = body.tIpAddr;
        Require((notification.type == 1 || notification.type == 2) &&
                (name == "eth0" || name == "eth1") && address.wSinFamily == family);
    }

    Listener conflicts4_{wire::kConflictSocket};
    Listener conflicts6_{wire::kConflictSocketV6};
    Listener pings_{wire::kPingSocket};
    Listener traces_{wire::kTracerouteSocket};
    Daemon daemon_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    Input input(data, size);
    Life life;
    for (int steps = 0; steps < kStepsMax && !input.AtEnd(); steps++) {
        life.Step(input);
    }
    return 0;
}

}  // namespace vimbra::tests
