// Questions of operators. Each line gets one line, which is a JSON object, until one is too long.
#include <nlohmann/json.hpp>

#include "daemon.hpp"
#include "daemon_requests.hpp"

namespace vimbra::tests {

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    const std::string lines(reinterpret_cast<const char*>(data), size);
    Daemon daemon;
    daemon.Request(wire::kMtuGet, std::string(VIMBRA_IFACE_NAME_LEN, 'x'));
    daemon.Request(wire::kIpRuleAdd, std::string(sizeof(TVimbraIpRuleParam), '\0'));
    const std::string answers = daemon.Ask(lines);
    for (size_t at = 0; at < answers.size();) {
        const size_t end = answers.find('\n', at);
        Require(end != answers.npos);
        Require(nlohmann::json::parse(answers.substr(at, end - at), nullptr, false).is_object());
        at = end + 1;
    }
    return 0;
}

}  // namespace vimbra::tests
