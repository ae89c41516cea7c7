#include "traces.hpp"

#include <sys/sem.h>
#include <unistd.h>

#include <regex>
#include <vimbra/bed.hpp>

namespace vimbra::tests::torture {
namespace {

constexpr const char* kFiles[] = {"/etc/passwd", "/etc/inetd.conf", "/etc/resolv.conf",
                                  "/usr/config/system/inetd.conf"};

std::string WithoutSalt(const std::string& text) {
    static const std::regex kHash("\\$1\\$[^$:]*\\$[^:]*");
    return text.find("$1$") != std::string::npos ? std::regex_replace(text, kHash, "$$1$$") : text;
}

}  // namespace

Contents FilesNow() {
    Contents contents;
    for (const char* path : kFiles) {
        const bool isThere = access(path, F_OK) == 0;
        contents[path] = isThere ? "=" + WithoutSalt(bed::ReadFile(path)) : "none";
    }
    return contents;
}

std::string Uncut(const std::string& path, const std::string& before, const std::string& after) {
    if (before.size() <= after.size() || before == "none") {
        return after;
    }
    std::string filler(before.size() - after.size(), path == kFiles[2] ? '\n' : '#');
    if (after.size() > 1 && after.back() != '\n') {
        filler.front() = '\n';
    }
    return after + filler;
}

std::string WrongSemaphore() {
    for (const key_t key : {7783, 7784}) {
        const int value = semctl(semget(key, 1, 0), 0, GETVAL);
        if (value >= 0 && value != 1) {
            return "semaphore " + std::to_string(key) + " is at " + std::to_string(value);
        }
    }
    return "";
}

}  // namespace vimbra::tests::torture
