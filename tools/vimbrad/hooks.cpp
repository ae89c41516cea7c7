#include "hooks.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

#include "keeper.hpp"
#include "run_dir.hpp"

namespace vimbrad {
namespace {

std::string Variable(const char* name) {
    const char* const value = getenv(name);
    return value != nullptr ? value : "";
}

std::string VariableOr(const char* name, const char* otherwise) {
    const std::string value = Variable(name);
    return value.empty() ? otherwise : value;
}

// One line for each value: a line that is read has a limited length, a list of servers has not.
void Say(const char* key, const std::string& value) {
    std::printf("@%s %s\n", key, value.c_str());
}

void SayEach(const char* key, const std::string& list) {
    std::istringstream words(list);
    for (std::string word; words >> word;) {
        Say(key, word);
    }
}

int TellOfUdhcpc(int argc, char** argv) {
    Say("event", argc > 1 ? argv[1] : "");
    Say("ip", Variable("ip"));
    Say("mask", Variable("mask"));
    Say("lease", Variable("lease"));
    SayEach("router", Variable("router"));
    SayEach("dns", Variable("dns"));
    std::puts("@end");
    return EXIT_SUCCESS;
}

// In udhcpc's words; nothing for what is not news.
const char* EventOf(std::string_view reason) {
    if (reason == "BOUND6") {
        return "bound";
    }
    if (reason == "RENEW6" || reason == "REBIND6") {
        return "renew";
    }
    return reason == "EXPIRE6" || reason == "RELEASE6" || reason == "STOP6" ? "deconfig" : nullptr;
}

int TellOfDhclient(int, char**) {
    const char* const event = EventOf(Variable("reason"));
    if (event == nullptr) {
        return EXIT_SUCCESS;
    }
    Say("event", event);
    Say("ip", Variable("new_ip6_address"));
    Say("mask", Variable("new_ip6_prefixlen"));
    Say("lease", Variable("new_max_life"));
    SayEach("dns", Variable("new_dhcp6_name_servers"));
    std::puts("@end");
    return EXIT_SUCCESS;
}

// pppd gives its hooks no output: this one takes pppd's own.
int TellOfPppd(int, char**) {
    const std::string output = "/proc/" + Variable("PPPD_PID") + "/fd/1";
    FILE* const file = std::fopen(output.c_str(), "we");
    if (file == nullptr) {
        return EXIT_FAILURE;
    }
    std::fprintf(file, "@up %s %s %s %s\n", Variable("IPLOCAL").c_str(),
                 VariableOr("IPREMOTE", "0.0.0.0").c_str(), VariableOr("DNS1", "0.0.0.0").c_str(),
                 VariableOr("DNS2", "0.0.0.0").c_str());
    return std::fclose(file) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

struct Hook {
    const char* name;
    int (*run)(int argc, char** argv);
};

constexpr Hook kHooks[] = {{kUdhcpcHook, TellOfUdhcpc},
                           {kDhclientHook, TellOfDhclient},
                           {kPppdHook, TellOfPppd},
                           {kLinkKeeper, RunKeeper}};

}  // namespace

void MakeHooks(const RunDirectory& runDir) {
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    for (const Hook& each : kHooks) {
        const std::string path = runDir.PathOf(each.name);
        if (symlink(program.c_str(), path.c_str()) != 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }
}

std::optional<int> RunAsHook(int argc, char** argv) {
    const std::string_view called = argc > 0 ? argv[0] : "";
    const std::string_view name = called.substr(called.rfind('/') + 1);
    for (const Hook& each : kHooks) {
        if (name == each.name) {
            return each.run(argc, argv);
        }
    }
    return std::nullopt;
}

}  // namespace vimbrad
