// Texts of the proc file system: whose process it is, and how many Ethernet interfaces there are.
#include <sys/prctl.h>
#include <sys/stat.h>
#include <vimbra/net_ip.h>
#include <vimbra/process.h>

#include "files.hpp"
#include "input.hpp"

namespace {

constexpr char kDevices[] = "/tmp/net_dev";

}  // namespace

extern "C" FILE* __real_fopen(const char* path, const char* mode);

extern "C" FILE* __wrap_fopen(const char* path, const char* mode) {
    return __real_fopen(strcmp(path, "/proc/net/dev") == 0 ? kDevices : path, mode);
}

namespace vimbra::tests {
namespace {

constexpr char kStatus[] = "/tmp/proc/17/status";
constexpr char kCommandLine[] = "/tmp/proc/17/cmdline";

char g_directory[] = "/tmp/proc/";

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// What of a text a reader of C texts sees.
std::string Seen(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

void FindByStatus(const std::string& status, const std::string& service) {
    const std::string read = status.substr(0, 1000);
    const std::string line = Seen(read.substr(0, read.find('\n')));
    const bool found = !read.empty() && Contains(line, service);
    Require(GetServicePid(g_directory, ExactText(service).Get()) == (found ? 17 : 0));
}

void FindByCommandLine(const std::string& line, const std::string& service,
                       const std::string& keyword, const std::string& except) {
    std::string read = line.substr(0, 999);
    for (char& each : read) {
        if (static_cast<u8>(each) < ' ') {
            each = ' ';
        }
    }
    const bool found = Contains(read, service) && Contains(read, keyword);
    const ExactText words[] = {ExactText(service), ExactText(keyword), ExactText(except)};
    Require(GetServicePidFromCmdline(g_directory, words[0].Get(), words[1].Get()) ==
            (found ? 17 : 0));
    Require(
        GetServicePidFromCmdline2(g_directory, words[0].Get(), words[1].Get(), words[2].Get()) ==
        (found && !Contains(read, except) ? 17 : 0));
}

// The name of a process that there is: this one.
void CheckName(const std::string& name, const std::string& command) {
    prctl(PR_SET_NAME, name.c_str());
    const std::string held = Seen(name.substr(0, 15));
    const bool found = Contains(held.substr(0, held.find('\n')), command);
    Require(CheckCmdByPid(getpid(), command.c_str()) == (found ? 1 : 0));
}

void CountInterfaces(std::span<const u8> devices) {
    Write(kDevices, devices.data(), devices.size());
    s32 count = -1;
    Require(NetGetEthNum(&count) == VIMBRA_OK);
    const std::string text(devices.begin(), devices.end());
    s32 names = 0;
    for (size_t at = text.find("eth"); at != text.npos; at = text.find("eth", at + 1)) {
        names++;
    }
    Require(count >= 0 && count <= names);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    static const bool prepared = [] {
        Prepare();
        mkdir("/tmp/proc", 0755);
        mkdir("/tmp/proc/17", 0755);
        return true;
    }();
    Input input(data, prepared ? size : 0);
    const std::string service = input.Text();
    const std::string keyword = input.Text();
    const std::string except = input.Text();
    const std::string name = input.Text();
    const std::string status = input.Block();
    const std::string line = input.Block();
    Write(kStatus, status.data(), status.size());
    Write(kCommandLine, line.data(), line.size());
    FindByStatus(status, service);
    FindByCommandLine(line, service, keyword, except);
    CheckName(name, service);
    CountInterfaces(input.Rest());
    return 0;
}

}  // namespace vimbra::tests
