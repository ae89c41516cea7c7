// Traces: echo requests with a growing time to live, one hop after the other, each hop asked up to
// three times. Times are told in microseconds; a highest hop of 0 is the usual one, 30.
#include <map>
#include <nlohmann/json.hpp>

#include "address_text.hpp"
#include "api/api_traceroute/traceroute_wire.hpp"
#include "echo_prober.hpp"
#include "notifier.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

// What became of a hop. nErrType and nErrCode are those of the ICMP message that told, if one did.
enum TraceEvent : u32 {
    kHop = wire::kTracerouteFirstEvent,  // a router on the way
    kArrived,                            // the destination; the last
    kSilent,                             // no answer: no address, no time
    kUnreachable,                        // a router knows no further; the last
    kTooFar,                             // a router, at the highest hop; the last
    kNotSent =
        wire::kTracerouteLastEvent,  // this host knows no way: nErrCode is the errno; the last
};
static_assert(kNotSent == kTooFar + 1);

constexpr u32 kHops = 30;
constexpr u32 kHopsMax = 255;
constexpr int kTries = 3;
constexpr u64 kTryMs = 1'000;
constexpr size_t kPayload = 32;
constexpr size_t kTracesMax = 64;

u32 CheckedHops(u32 hops) {
    if (hops > kHopsMax) {
        throw Refusal(EINVAL, "no such number of hops");
    }
    return hops == 0 ? kHops : hops;
}

class Trace {
 public:
    // Called with each hop's record; the last one ends the trace.
    using Report = std::function<void(TraceEvent event, const TVimbraTracerouteCBInfo& hop)>;

    Trace(uv_loop_t* loop, const wire::TracerouteStartBody& body, Report report)
        : id_(body.nUserID),
          host_(TextOf(body.tDestIp)),
          family_(body.tDestIp.wSinFamily),
          hops_(CheckedHops(body.dwTtl)),
          report_(std::move(report)),
          prober_(loop, body.tDestIp, [this](const Echo& echo) { Take(echo); }),
          timer_(MakeTimer(loop, this)) {
        // The first goes out from the loop, when the client has its reply.
        Schedule(0);
    }

    const std::string& Host() const { return host_; }

 private:
    void Schedule(u64 milliseconds) {
        uv_timer_start(
            timer_.get(), [](uv_timer_t* timer) { static_cast<Trace*>(timer->data)->Try(); },
            milliseconds, 0);
    }

    void Try() {
        prober_.Forget(probe_);
        if (tries_ == kTries) {
            Tell(kSilent, {}, 0);
            return;
        }
        ++tries_;
        Schedule(kTryMs);
        if (const int error = prober_.Send(++probe_, static_cast<int>(hop_), kPayload);
            error != 0) {
            Tell(kNotSent, {}, error);
        }
    }

    void Take(const Echo& echo) {
        if (echo.number != probe_) {
            return;
        }
        switch (echo.outcome) {
            case Outcome::kReply:
                Tell(kArrived, echo, 0);
                break;
            case Outcome::kTimeExceeded:
                Tell(hop_ == hops_ ? kTooFar : kHop, echo, 0);
                break;
            case Outcome::kUnreachable:
                Tell(kUnreachable, echo, 0);
                break;
        }
    }

    void Tell(TraceEvent event, const Echo& echo, int error) {
        TVimbraTracerouteCBInfo hop{};
        hop.tIpaddr = echo.from;
        hop.tIpaddr.wSinFamily = family_;
        hop.dwTtl = hop_;
        hop.nUserId = id_;
        hop.nTripTime = static_cast<s32>(echo.microseconds);
        const bool errorMessage = event != kArrived;
        hop.nErrType = errorMessage ? static_cast<s32>(echo.type) : 0;
        hop.nErrCode = event == kNotSent ? error : errorMessage ? static_cast<s32>(echo.code) : 0;
        hop.nIsOver = (event != kHop && event != kSilent) || hop_ == hops_ ? 1 : 0;
        ++hop_;
        tries_ = 0;
        Schedule(0);
        // The trace may be gone after this.
        const Report report = report_;
        report(event, hop);
    }

    s32 id_;
    std::string host_;
    u16 family_;
    u32 hops_;
    Report report_;
    EchoProber prober_;
    UvHandle<uv_timer_t> timer_;
    u32 hop_ = 1;
    int tries_ = 0;
    u16 probe_ = 0;
};

class TracerouteService : public Service {
 public:
    explicit TracerouteService(const Context& context)
        : loop_(context.loop),
          notifier_(loop_, wire::kTracerouteSocket, [this] { traces_.clear(); }) {}

    void Attach(Registry& registry) override {
        registry.Query<wire::TracerouteStartBody, wire::PlainResult>(
            wire::kTracerouteStart, "traceroute start",
            [this](const wire::TracerouteStartBody& body) { return Start(body); });
        registry.Query<wire::TracerouteStopBody, wire::PlainResult>(
            wire::kTracerouteStop, "traceroute stop",
            [this](const wire::TracerouteStopBody& body) { return Stop(body.nUserID); });
    }

    void Show(Json& answer) const override {
        for (const auto& [id, trace] : traces_) {
            answer["watches"].push_back(
                {{"kind", "traceroute"}, {"id", id}, {"host", trace->Host()}});
        }
    }

 private:
    // A client that is new may use the number of one that has gone.
    wire::PlainResult Start(const wire::TracerouteStartBody& body) {
        Stop(body.nUserID);
        if (traces_.size() == kTracesMax) {
            throw Refusal(EBUSY, "too many traces");
        }
        notifier_.AwaitListener();
        traces_[body.nUserID] = std::make_unique<Trace>(
            loop_, body, [this](TraceEvent event, const TVimbraTracerouteCBInfo& hop) {
                notifier_.Post(event, hop);
                if (hop.nIsOver != 0) {
                    traces_.erase(s32{hop.nUserId});
                }
            });
        return {0};
    }

    wire::PlainResult Stop(s32 id) {
        traces_.erase(id);
        return {0};
    }

    uv_loop_t* loop_;
    std::map<s32, std::unique_ptr<Trace>> traces_;
    Notifier notifier_;
};

}  // namespace

std::unique_ptr<Service> MakeTracerouteService(const Context& context) {
    return std::make_unique<TracerouteService>(context);
}

}  // namespace vimbrad
