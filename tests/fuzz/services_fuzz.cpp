// The configuration of inetd: services are switched on and off, and their owner changes.
#include <vimbra/account.h>
#include <vimbra/service.h>

#include <algorithm>

#include "files.hpp"

namespace {

constexpr char kInetd[] = "/etc/inetd.conf";
constexpr char kRoot[] = "root:x:0:0:::\n";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Prepare();
    char name[] = "telnetd";
    char proto[] = "tcp";
    char owner[] = "owner";
    TVimbraServInfo info = {name, 23, proto, nullptr};
    fuzz::Write("/etc/passwd", kRoot, sizeof(kRoot) - 1);

    fuzz::Write(kInetd, data, size);
    fuzz::Require(VimbraServiceStart(&info) == -1);  // no inetd runs; the file is written
    const std::string started = fuzz::Read(kInetd);
    const std::string line =
        "telnet\tstream\ttcp\tnowait\troot\t/sbin/telnetd\t/sbin/telnetd -i  \n";
    const size_t at = started.find(line);
    fuzz::Require(at != std::string::npos && (at == 0 || started[at - 1] == '\n'));
    fuzz::Require(VimbraServiceStart(&info) == -1);
    fuzz::Require(fuzz::Read(kInetd).find(line) != std::string::npos);

    fuzz::Write(kInetd, data, size);
    VimbraServiceStop(name);
    const std::string stopped = fuzz::Read(kInetd);
    fuzz::Require(stopped.size() <= size);

    fuzz::Write(kInetd, data, size);
    fuzz::Require(ChangeNetServiceOwner(owner) == VIMBRA_OWNER_CHANGED);
    const std::string owned = fuzz::Read(kInetd);
    fuzz::Require(owned.find('\0') == std::string::npos);
    return 0;
}
