// What the kernel may answer to each question and change of a daemon that watches all it can, and
// what it may announce. The first byte chooses the request, or the announcement.
#include "daemon.hpp"
#include "daemon_requests.hpp"

namespace vimbra::tests {
namespace {

// Bodies that make sense: an interface, an address in every place where there may be one.
std::string SensibleBody(const RequestKind& kind, u8 family) {
    std::string body(kind.size, '\0');
    const auto put = [&body](size_t at, std::string_view bytes) {
        if (at + bytes.size() <= body.size()) {
            body.replace(at, bytes.size(), bytes);
        }
    };
    const bool familyFirst = kind.type == wire::kAllRouteGet;
    put(0, "eth0");
    put(familyFirst ? 0 : VIMBRA_IFACE_NAME_LEN, std::string_view("\x02\0", 2));
    if (family != VIMBRA_FAMILY_IPV4) {
        put(familyFirst ? 0 : VIMBRA_IFACE_NAME_LEN, std::string_view("\x0a\0", 2));
    }
    return body;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    Input input(data, size);
    Daemon daemon;
    for (const RequestKind& each : kRequestKinds) {
        if (each.type == wire::kConflictStart || each.type == wire::kStatStart ||
            each.type == wire::kRouterAdvertiseStart) {
            daemon.Request(each.type, SensibleBody(each, VIMBRA_FAMILY_IPV4));
        }
    }
    const u8 choice = input.Byte();
    const u8 family = input.Byte() % 2 == 0 ? VIMBRA_FAMILY_IPV4 : VIMBRA_FAMILY_IPV6;
    std::string body = input.Block();
    if (choice >= std::size(kRequestKinds)) {
        Announce(input);
        daemon.Pass(2'000);
    } else {
        const RequestKind& kind = kRequestKinds[choice];
        if (body.empty()) {
            body = SensibleBody(kind, family);
        }
        body.resize(kind.size);
        SetKernelWhims(&input);
        daemon.Request(kind.type, body);
        daemon.Pass(2'000);
        SetKernelWhims(nullptr);
    }
    return 0;
}

}  // namespace vimbra::tests
