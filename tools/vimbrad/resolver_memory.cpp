#include "resolver_memory.hpp"

#include <string>

#include "log.hpp"
#include "private_dir.hpp"
#include "refusal.hpp"
#include "run_dir.hpp"

namespace vimbrad {
namespace {

constexpr char kPath[] = "/etc/resolv.conf";

bool HasServers(const std::string& text) {
    return text.starts_with("nameserver") || text.find("\nnameserver") != std::string::npos;
}

}  // namespace

void NoteResolver(const RunDirectory& runDir) {
    const std::string text = ReadWholeFile(kPath);
    if (!HasServers(text) || !runDir.Read(kResolverName).empty()) {
        return;
    }
    try {
        runDir.Replace(kResolverName, text, 0600);
    } catch (const Refusal& refusal) {
        LogWarning("%s will not come back as it is: %s", kPath, refusal.what());
    }
}

void PutResolverBack(const RunDirectory& runDir) {
    const std::string before = runDir.Read(kResolverName);
    if (before.empty() || HasServers(ReadWholeFile(kPath))) {
        return;
    }
    try {
        WriteWholeFile(kPath, before, 0644);
        runDir.Remove(kResolverName);
    } catch (const Refusal& refusal) {
        LogWarning("%s is not as it was before: %s", kPath, refusal.what());
    }
}

}  // namespace vimbrad
