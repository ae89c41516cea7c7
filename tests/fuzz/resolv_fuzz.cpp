// The resolver configuration: whatever it holds, it is read, and rewritten so that it is read the
// same again.
#include <vimbra/dns.h>

#include <cstring>
#include <memory>

#include "files.hpp"

namespace vimbra::tests {
namespace {

constexpr char kConf[] = "/etc/resolv.conf";

std::unique_ptr<TVimbraDnsAddrInfo> Get() {
    auto info = std::make_unique<TVimbraDnsAddrInfo>();
    memset(info.get(), 0, sizeof(*info));
    Require(VimbraDNSGet(info.get()) == 0 && info->dwDnsNum <= VIMBRA_DNS_MAX);
    return info;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    Prepare();
    Write(kConf, data, size);
    Get();
    char name[] = "eth0";
    TVimbraAddr server = {};
    server.wSinFamily = VIMBRA_FAMILY_IPV4;
    server.tV4Addr.s_addr = 0x01020304;
    Require(VimbraDNSSet(name, VIMBRA_FAMILY_IPV4, &server, 1) == 0);
    const auto once = Get();
    const std::string text = Read(kConf);
    Require(text.find("####eth0\nnameserver 4.3.2.1\n") != std::string::npos);
    Require(VimbraDNSSet(name, VIMBRA_FAMILY_IPV4, &server, 1) == 0);
    Require(Read(kConf) == text);
    Require(memcmp(once.get(), Get().get(), sizeof(*once)) == 0);
    return 0;
}

}  // namespace vimbra::tests
