#include "monitor.hpp"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

#include "value.hpp"

namespace vimbrad {
namespace {

// "2026-01-31 12:00:00.123", local time.
std::string Now() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(
        now - std::chrono::system_clock::from_time_t(seconds));
    std::tm local{};
    localtime_r(&seconds, &local);
    std::array<char, 32> text{};
    const size_t length = std::strftime(text.data(), text.size(), "%F %T", &local);
    std::snprintf(text.data() + length, text.size() - length, ".%03d",
                  static_cast<int>(rest.count()));
    return text.data();
}

void Tell(const std::list<Monitor::Sink>& sinks, protocol::Json head,
          const protocol::Json& message) {
    head.update(message);
    const std::string line = head.dump(-1, ' ', false, protocol::Json::error_handler_t::replace);
    for (const Monitor::Sink& sink : sinks) {
        sink(line);
    }
}

}  // namespace

Monitor& Monitor::Instance() {
    static Monitor monitor;
    return monitor;
}

void Monitor::SawRequest(const Peer& peer, u32 type, std::span<const std::byte> body,
                         std::span<const std::byte> reply) const {
    if (!sinks_.empty()) {
        Tell(sinks_,
             {{"time", Now()},
              {"kind", "request"},
              {"process", peer.name},
              {"pid", peer.pid},
              {"uid", peer.uid}},
             protocol::TellRequest(type, body, reply));
    }
}

void Monitor::SawNotification(std::string_view path, u32 type,
                              std::span<const std::byte> body) const {
    if (!sinks_.empty()) {
        path.remove_prefix(path.rfind('/') + 1);
        Tell(sinks_, {{"time", Now()}, {"kind", "notification"}},
             protocol::TellNotification(path, type, body));
    }
}

}  // namespace vimbrad
