#include "life.hpp"

#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>

#include "hooks.hpp"
#include "kept_program.hpp"
#include "log.hpp"
#include "missing.hpp"
#include "notifier.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

// Longer than a link takes to hang up.
constexpr u64 kEndMs = 12'000;
// For applications that listen; nobody is about to listen any more.
constexpr u64 kDeliverMs = 500;
constexpr u64 kLookMs = 10;

// As many as the system lets us have, within reason.
size_t RaiseDescriptorLimit() {
    constexpr rlim_t kEnough = 4096;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 0;
    }
    limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, kEnough));
    setrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur;
}

}  // namespace

Life::Life(uv_loop_t* loop, const Options& options)
    : loop_(loop),
      keep_(options.keep),
      terminate_(EndOn(SIGTERM)),
      interrupt_(EndOn(SIGINT)),
      deadline_(MakeTimer(loop, this)),
      nextStep_(MakeTimer(loop, this)),
      readiness_(options.readyFd),
      runDir_(options.runDir),
      operators_(std::in_place, loop, runDir_,
                 [this](const Json& question) { return overview_->Answer(question); }),
      rendezvous_(options.group),
      services_(AllServices(
          {loop, runDir_, registry_, options.webRoot, options.webUser, options.setClock})),
      state_(runDir_, services_) {
    MakeHooks(runDir_);
    for (const auto& service : services_) {
        service->Attach(registry_);
    }
    if (options.forget) {
        state_.Forget();
    } else {
        state_.Restore();
    }
    KeptProgram::EndOthers(runDir_);
    registry_.OnChange([this] { state_.Save(); });
    server_.emplace(loop, registry_, rendezvous_.TakeSocket(), LimitsFor(RaiseDescriptorLimit()));
    overview_.emplace(services_, registry_, *server_);
}

// Who answers or ends from now on changes nothing that a later life is to know.
Life::~Life() {
    registry_.OnChange(nullptr);
    operators_.reset();
    services_.clear();
}

void Life::Run() {
    for (const MissingThing& each : MissingThings()) {
        LogInfo("%s is missing: no %s", each.thing.c_str(), each.neededFor.c_str());
    }
    LogInfo("listening on %s", kSocketPath);
    readiness_.TellReady();
    uv_run(loop_, UV_RUN_DEFAULT);
}

UvHandle<uv_signal_t> Life::EndOn(int signal) {
    auto handle = MakeHandle<uv_signal_t>(
        [this](uv_signal_t* raw) { return uv_signal_init(loop_, raw); }, "signal");
    handle->data = this;
    UvCheck(uv_signal_start(
                handle.get(),
                [](uv_signal_t* raw, int number) {
                    LogInfo("%s: ending", strsignal(number));
                    static_cast<Life*>(raw->data)->End();
                },
                signal),
            "signal");
    return handle;
}

// Whoever asks twice does not want to wait.
void Life::End() {
    if (std::exchange(ending_, true)) {
        uv_stop(loop_);
        return;
    }
    if (keep_) {
        Keep();
        return;
    }
    readiness_.TellStopping();
    server_->StopListening();
    uv_timer_start(
        deadline_.get(),
        [](uv_timer_t* timer) {
            LogWarning("some of it does not end in time");
            uv_stop(timer->loop);
        },
        kEndMs, 0);
    const Ending ending(this, [](void* self) { static_cast<Life*>(self)->ProgramsEnded(); });
    for (const auto& service : services_) {
        service->End(ending);
    }
}

void Life::Keep() {
    for (const auto& service : services_) {
        service->Keep();
    }
    state_.Save();
    uv_stop(loop_);
}

// From the loop: who has let go last may be a program that is still telling of its end.
void Life::ProgramsEnded() {
    uv_timer_start(
        nextStep_.get(),
        [](uv_timer_t* timer) {
            auto* self = static_cast<Life*>(timer->data);
            for (const auto& service : self->services_) {
                service->TakeBack();
            }
            self->registry_.OnChange(nullptr);
            self->state_.Remove();
            uv_timer_start(
                self->deadline_.get(), [](uv_timer_t* raw) { uv_stop(raw->loop); }, kDeliverMs, 0);
            self->AwaitDeliveries();
        },
        0, 0);
}

void Life::AwaitDeliveries() {
    if (Notifier::Pending() == 0) {
        uv_stop(loop_);
        return;
    }
    uv_timer_start(
        nextStep_.get(),
        [](uv_timer_t* timer) { static_cast<Life*>(timer->data)->AwaitDeliveries(); }, kLookMs, 0);
}

}  // namespace vimbrad
