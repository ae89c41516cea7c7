// The configuration of inetd: services are switched on and off, and their owner changes.
#include <vimbra/account.h>
#include <vimbra/service.h>

#include <algorithm>

#include "files.hpp"

namespace vimbra::tests {
namespace {

constexpr char kInetd[] = "/etc/inetd.conf";
constexpr char kRoot[] = "root:x:0:0:::\n";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    Prepare();
    char name[] = "telnetd";
    char proto[] = "tcp";
    char owner[] = "owner";
    TVimbraServInfo info = {name, 23, proto, nullptr};
    Write("/etc/passwd", kRoot, sizeof(kRoot) - 1);

    Write(kInetd, data, size);
    Require(VimbraServiceStart(&info) == -1);  // no inetd runs; the file is written
    const std::string started = Read(kInetd);
    const std::string line =
        "telnet\tstream\ttcp\tnowait\troot\t/sbin/telnetd\t/sbin/telnetd -i  \n";
    const size_t at = started.find(line);
    Require(at != std::string::npos && (at == 0 || started[at - 1] == '\n'));
    Require(VimbraServiceStart(&info) == -1);
    Require(Read(kInetd).find(line) != std::string::npos);

    Write(kInetd, data, size);
    VimbraServiceStop(name);
    const std::string stopped = Read(kInetd);
    Require(stopped.size() <= size);

    Write(kInetd, data, size);
    Require(ChangeNetServiceOwner(owner) == VIMBRA_OWNER_CHANGED);
    const std::string owned = Read(kInetd);
    Require(owned.find('\0') == std::string::npos);
    return 0;
}

}  // namespace vimbra::tests
