// The texts of a bond: what goes to the daemon can be taken apart again, and says the same.
#include <vimbra/bond.h>
#include <vimbra/ipc.h>
#include <vimbra/net_bond.h>

#include <vector>

#include "files.hpp"
#include "input.hpp"
#include "request_peer.hpp"

// A control path may be called anything.
extern "C" int __wrap_access(const char*, int) {
    return 0;
}

namespace vimbra::tests {
namespace {

constexpr size_t kHeader = 12;

// What came last. Looked at once the call has returned, which waited for the answer.
std::string g_request;

void Note(std::span<const u8> request, int client) {
    g_request.assign(request.begin(), request.end());
    const u32 yes[4] = {0, sizeof(u32), 0, 0};
    send(client, yes, sizeof(yes), MSG_NOSIGNAL);
}

std::string WordOf(size_t value) {
    const auto word = static_cast<u32>(value);
    return {reinterpret_cast<const char*>(&word), sizeof(word)};
}

std::string FieldOf(const std::string& text) {
    return WordOf(text.size() + 1) + text + '\0';
}

struct Wish {
    u32 mode;
    std::string path;
    std::string active;
    std::vector<std::string> members;

    std::string Body() const {
        std::string body = WordOf(mode) + FieldOf(path) + WordOf(members.size());
        for (const std::string& each : members) {
            body += FieldOf(each);
        }
        body += FieldOf(active);
        return WordOf(body.size() + sizeof(u32)) + body;
    }
};

void Start(const Wish& wish) {
    const ExactText path(wish.path);
    const ExactText active(wish.active);
    std::vector<ExactText> members;
    TVimbraBondParam param = {};
    param.pchBondPath = path.Get();
    param.pchActiveIface = active.Get();
    param.dwIfaceNum = static_cast<u32>(wish.members.size());
    for (const std::string& each : wish.members) {
        members.emplace_back(each);
        if (members.size() <= VIMBRA_BOND_IFACE_MAX) {
            param.achIface[members.size() - 1] = members.back().Get();
        }
    }
    g_request.clear();
    const s32 result = VimbraBondStart(wish.mode, &param);
    if (wish.mode > 6 || wish.members.size() > VIMBRA_BOND_IFACE_MAX) {
        Require(result == VIMBRA_ERR_PARAM && g_request.empty());
        return;
    }
    const std::string body = wish.Body();
    const bool fits = body.size() <= VIMBRA_IPC_BODY_MAX;
    Require(result == (fits ? VIMBRA_OK : VIMBRA_ERR_REFUSED));
    Require(g_request.empty() == !fits);
    Require(!fits || g_request.substr(kHeader) == body);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    static const bool prepared = [] {
        Prepare();
        ServeRequests(Note);
        return true;
    }();
    Input input(data, prepared ? size : 0);
    Wish wish;
    wish.mode = input.Byte();
    const u8 count = input.Byte() % (VIMBRA_BOND_IFACE_MAX + 2);
    wish.path = input.Text();
    wish.active = input.Text();
    for (u8 i = 0; i < count; i++) {
        wish.members.push_back(input.Text());
    }
    Start(wish);
    return 0;
}

}  // namespace vimbra::tests
