// Echo tests, one probe a second. Times are told in microseconds, time-outs are taken in
// milliseconds. An option of 0 is the usual: a payload of 56 bytes, a time-out of 1000, the
// system's time to live, and probes until the test is stopped.
#include <algorithm>
#include <deque>
#include <map>
#include <nlohmann/json.hpp>

#include "address_text.hpp"
#include "api/api_ping/ping_wire.hpp"
#include "echo_prober.hpp"
#include "log.hpp"
#include "notifier.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

// What became of a probe; the application's number for it.
enum PingEvent : u32 {
    kReply = wire::kPingAnswer,
    kTimeout = 1,
    kUnreachable = 2,
    kTtlExceeded = 3,
};

constexpr u64 kIntervalMs = 1'000;
constexpr s32 kTimeoutMs = 1'000;
constexpr s32 kTimeoutMaxMs = 3'600'000;
constexpr s32 kPayload = 56;
constexpr s32 kTtlMax = 255;
constexpr size_t kTestsMax = 64;

TVimbraPingOpt Checked(TVimbraPingOpt options, u16 family) {
    const auto within = [](s32 value, s32 most) { return value >= 0 && value <= most; };
    if (!within(options.nPktSize, static_cast<s32>(MaxPayload(family)))) {
        throw Refusal(EINVAL, "no such payload");
    }
    if (!within(options.nTimeOut, kTimeoutMaxMs)) {
        throw Refusal(EINVAL, "no such time-out");
    }
    if (!within(options.nTtl, kTtlMax)) {
        throw Refusal(EINVAL, "no such time to live");
    }
    if (options.nCount < 0) {
        throw Refusal(EINVAL, "no such number of probes");
    }
    if (options.nPktSize == 0) {
        options.nPktSize = kPayload;
    }
    if (options.nTimeOut == 0) {
        options.nTimeOut = kTimeoutMs;
    }
    return options;
}

class Test {
 public:
    // Called with each probe's record; the last one ends the test.
    using Report = std::function<void(PingEvent event, const wire::pingmsg& message)>;

    Test(uv_loop_t* loop, const wire::PingStartBody& body, Report report)
        : loop_(loop),
          id_(body.nUserID),
          host_(TextOf(body.tDestIp)),
          options_(Checked(body.tPingOpt, body.tDestIp.wSinFamily)),
          report_(std::move(report)),
          prober_(loop, body.tDestIp, [this](const Echo& echo) { Take(echo); }),
          timer_(MakeTimer(loop, this)),
          next_(uv_now(loop)) {
        Schedule();
    }

    const std::string& Host() const { return host_; }

 private:
    struct Probe {
        s32 number;
        u64 deadline;
    };

    bool Done() const { return options_.nCount != 0 && sent_ == options_.nCount; }

    void Schedule() {
        u64 due = Done() ? UINT64_MAX : next_;
        if (!waiting_.empty()) {
            due = std::min(due, waiting_.front().deadline);
        }
        const u64 now = uv_now(loop_);
        uv_timer_start(
            timer_.get(), [](uv_timer_t* timer) { static_cast<Test*>(timer->data)->Work(); },
            due > now ? due - now : 0, 0);
    }

    // One step at a time: a report may end the test.
    void Work() {
        const u64 now = uv_now(loop_);
        Schedule();
        if (!waiting_.empty() && waiting_.front().deadline <= now) {
            const s32 number = waiting_.front().number;
            prober_.Forget(static_cast<u16>(number));
            End(waiting_.begin(), kTimeout, {});
        } else if (!Done() && next_ <= now) {
            next_ = now + kIntervalMs;
            SendNext(now);
        }
    }

    // Probes are numbered from 1.
    void SendNext(u64 now) {
        ++sent_;
        waiting_.push_back({sent_, now + static_cast<u64>(options_.nTimeOut)});
        Schedule();
        const int error = prober_.Send(static_cast<u16>(sent_), options_.nTtl,
                                       static_cast<size_t>(options_.nPktSize));
        if (error == 0) {
            return;
        }
        LogDebug("ping %d: %s", id_, std::strerror(error));
        End(std::prev(waiting_.end()), kUnreachable, {});
    }

    void Take(const Echo& echo) {
        const auto probe = std::ranges::find_if(waiting_, [&echo](const Probe& each) {
            return static_cast<u16>(each.number) == echo.number;
        });
        if (probe == waiting_.end()) {
            return;
        }
        switch (echo.outcome) {
            case Outcome::kReply:
                End(probe, kReply, echo);
                break;
            case Outcome::kTimeExceeded:
                End(probe, kTtlExceeded, {});
                break;
            case Outcome::kUnreachable:
                End(probe, kUnreachable, {});
                break;
        }
    }

    void End(std::deque<Probe>::iterator probe, PingEvent event, const Echo& echo) {
        wire::pingmsg message{};
        message.nUserID = static_cast<u32>(id_);
        message.ttl = echo.ttl;
        message.time = echo.microseconds;
        message.seq = probe->number;
        waiting_.erase(probe);
        message.over_flag = Done() && waiting_.empty() ? wire::kPingLast : wire::kPingMore;
        if (message.over_flag == wire::kPingMore) {
            Schedule();
        }
        // The test may be gone after this.
        const Report report = report_;
        report(event, message);
    }

    uv_loop_t* loop_;
    s32 id_;
    std::string host_;
    TVimbraPingOpt options_;
    Report report_;
    EchoProber prober_;
    s32 sent_ = 0;
    // In the order in which they were sent, and so in that of their deadlines.
    std::deque<Probe> waiting_;
    UvHandle<uv_timer_t> timer_;
    u64 next_;
};

class PingService : public Service {
 public:
    explicit PingService(const Context& context)
        : loop_(context.loop), notifier_(loop_, wire::kPingSocket, [this] { tests_.clear(); }) {}

    void Attach(Registry& registry) override {
        registry.Query<wire::PingStartBody, wire::PlainResult>(
            wire::kPingStart, "ping start",
            [this](const wire::PingStartBody& body) { return Start(body); });
        registry.Query<wire::PingStopBody, wire::PlainResult>(
            wire::kPingStop, "ping stop",
            [this](const wire::PingStopBody& body) { return Stop(body.nUserID); });
    }

    void Show(Json& answer) const override {
        for (const auto& [id, test] : tests_) {
            answer["watches"].push_back({{"kind", "ping"}, {"id", id}, {"host", test->Host()}});
        }
    }

 private:
    // A client that is new may use the number of one that has gone.
    wire::PlainResult Start(const wire::PingStartBody& body) {
        Stop(body.nUserID);
        if (tests_.size() == kTestsMax) {
            throw Refusal(EBUSY, "too many tests");
        }
        notifier_.AwaitListener();
        tests_[body.nUserID] = std::make_unique<Test>(
            loop_, body, [this](PingEvent event, const wire::pingmsg& message) {
                notifier_.Post(event, message);
                if (message.over_flag != wire::kPingMore) {
                    tests_.erase(static_cast<s32>(message.nUserID));
                }
            });
        return {0};
    }

    wire::PlainResult Stop(s32 id) {
        tests_.erase(id);
        return {0};
    }

    uv_loop_t* loop_;
    std::map<s32, std::unique_ptr<Test>> tests_;
    Notifier notifier_;
};

}  // namespace

std::unique_ptr<Service> MakePingService(const Context& context) {
    return std::make_unique<PingService>(context);
}

}  // namespace vimbrad
