// Traffic counters of eth0, eth1 and eth2, reported at the interval that was asked for, in seconds;
// the first report goes out at once.
#include <netlink/route/link.h>

#include <nlohmann/json.hpp>

#include "api/api_network_common/stat_wire.hpp"
#include "log.hpp"
#include "netlink.hpp"
#include "notifier.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

constexpr const char* kInterfaces[] = {"eth0", "eth1", "eth2"};

// The kernel's counters of 64 bits. An interface that is not there is not valid.
wire::StatReportBody Count() {
    Netlink kernel;
    const NlCache links = kernel.Dump([](nl_sock* socket, nl_cache** cache) {
        return rtnl_link_alloc_cache(socket, AF_UNSPEC, cache);
    });
    wire::StatReportBody report{};
    static_assert(std::size(kInterfaces) == std::size(wire::StatReportBody{}.atStat));
    for (size_t i = 0; i < std::size(kInterfaces); ++i) {
        const Link link(rtnl_link_get_by_name(links.get(), kInterfaces[i]));
        if (link) {
            report.atStat[i] = {.dwBandSended = rtnl_link_get_stat(link.get(), RTNL_LINK_TX_BYTES),
                                .dwBandRecved = rtnl_link_get_stat(link.get(), RTNL_LINK_RX_BYTES),
                                .bIsValid = 1,
                                .dwReserved = 0};
        }
    }
    return report;
}

class StatisticsService : public Service {
 public:
    explicit StatisticsService(const Context& context)
        : timer_(MakeTimer(context.loop, this)),
          notifier_(context.loop, wire::kStatSocket, [this] { Stop(); }) {}

    void Attach(Registry& registry) override {
        registry.Change<wire::StatStartBody, wire::PlainResult>(
            wire::kStatStart, "statistics start",
            [this](const wire::StatStartBody& body) { return Start(body.nInterval); });
        registry.Change<NoBody, wire::PlainResult>(wire::kStatStop, "statistics stop",
                                                   [this](const NoBody&) { return Stop(); });
    }

    void Save(Json& state) const override {
        if (interval_ != 0) {
            state["statistics"] = interval_;
        }
    }
    void Restore(const Json& state) override {
        if (state.contains("statistics")) {
            Start(state.at("statistics").get<s32>());
        }
    }
    void Show(Json& answer) const override {
        if (interval_ != 0) {
            answer["watches"].push_back({{"kind", "statistics"}, {"interval", interval_}});
        }
    }

 private:
    // There is one socket to report to: a new client takes it over.
    wire::PlainResult Start(s32 seconds) {
        if (seconds <= 0) {
            throw Refusal(EINVAL, "an interval below one second");
        }
        Stop();
        const u64 interval = static_cast<u64>(seconds) * 1000;
        UvCheck(
            uv_timer_start(
                timer_.get(),
                [](uv_timer_t* timer) { static_cast<StatisticsService*>(timer->data)->Report(); },
                0, interval),
            "timer");
        interval_ = seconds;
        return {0};
    }

    wire::PlainResult Stop() {
        uv_timer_stop(timer_.get());
        interval_ = 0;
        notifier_.Clear();
        return {0};
    }

    void Report() {
        try {
            notifier_.Post(0, Count());
        } catch (const Refusal& refusal) {
            LogWarning("statistics: no counters: %s", refusal.what());
        }
    }

    // In seconds; 0 when nobody wants reports.
    s32 interval_ = 0;
    UvHandle<uv_timer_t> timer_;
    Notifier notifier_;
};

}  // namespace

std::unique_ptr<Service> MakeStatisticsService(const Context& context) {
    return std::make_unique<StatisticsService>(context);
}

}  // namespace vimbrad
