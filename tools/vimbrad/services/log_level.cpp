// The log-level switch, which applications send along with their own.
#include "api/api_network_common/netcommon_wire.hpp"
#include "log.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

wire::PlainResult Switch(const wire::LogSwitchBody& body) {
    if (body.dwSwitch > kLogLevelMax) {
        throw Refusal(EINVAL, "no such log level");
    }
    SetLogLevel(static_cast<LogLevel>(body.dwSwitch));
    LogInfo("log level %u", body.dwSwitch);
    return {0};
}

class LogLevelService : public Service {
 public:
    void Attach(Registry& registry) override {
        registry.Change<wire::LogSwitchBody, wire::PlainResult>(wire::kLogSwitch, "log level",
                                                                Switch);
    }
};

}  // namespace

std::unique_ptr<Service> MakeLogLevelService(const Context&) {
    return std::make_unique<LogLevelService>();
}

}  // namespace vimbrad
