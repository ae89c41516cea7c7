#include "notifier.hpp"

#include <vimbra/ipc.h>

#include <cstring>

#include "log.hpp"
#include "monitor.hpp"

namespace vimbrad {
namespace {

constexpr size_t kQueueMax = 256;
constexpr u64 kRetryMs = 10;
// For an application that has just asked and is about to listen.
constexpr u64 kNobodyMs = 1'000;
// For one that listens, but whose callback takes its time.
constexpr u64 kBusyMs = 30'000;

}  // namespace

// One connection's requests to the loop and the bytes they point to: the loop may hold on to them
// longer than the notifier lives, and ends them in any case.
struct Notifier::Attempt {
    Notifier* notifier;
    std::vector<char> bytes;
    uv_connect_t connect{};
    uv_write_t write{};

    void Connected(uv_stream_t* stream, int status) {
        if (status == 0 && notifier != nullptr) {
            const uv_buf_t buffer = uv_buf_init(bytes.data(), static_cast<unsigned>(bytes.size()));
            status = uv_write(&write, stream, &buffer, 1, [](uv_write_t* written, int result) {
                static_cast<Attempt*>(written->data)->End(result);
            });
            if (status == 0) {
                return;
            }
        }
        End(status);
    }

    void End(int status) {
        const std::unique_ptr<Attempt> self(this);
        if (notifier != nullptr) {
            notifier->Finished(status);
        }
    }
};

Notifier::Notifier(uv_loop_t* loop, const char* name, std::function<void()> onNobody)
    : loop_(loop),
      path_(std::string("/tmp/") + name),
      onNobody_(std::move(onNobody)),
      timer_(MakeTimer(loop, this)) {}

Notifier::~Notifier() {
    Clear();
}

void Notifier::Clear() {
    pending_ -= queue_.size();
    queue_.clear();
    uv_timer_stop(timer_.get());
    if (attempt_ != nullptr) {
        attempt_->notifier = nullptr;
    }
    attempt_ = nullptr;
    pipe_.reset();
    failingSince_ = 0;
}

void Notifier::Enqueue(u32 type, Bytes body) {
    if (queue_.size() == kQueueMax) {
        LogWarning("%s: nobody takes the messages: the oldest is dropped", path_.c_str());
        // The first is on its way.
        queue_.erase(queue_.begin() + 1);
        --pending_;
    }
    const IpcMsgHead head{type, static_cast<u32>(body.size()), 0};
    const Bytes headBytes = std::as_bytes(std::span(&head, 1));
    std::vector<char>& message = queue_.emplace_back();
    for (const Bytes part : {headBytes, body}) {
        const auto* bytes = reinterpret_cast<const char*>(part.data());
        message.insert(message.end(), bytes, bytes + part.size());
    }
    ++pending_;
    if (queue_.size() == 1) {
        Deliver();
    }
}

void Notifier::Deliver() {
    pipe_ = MakePipe(loop_, nullptr);
    attempt_ = new Attempt{this, queue_.front()};
    attempt_->connect.data = attempt_;
    attempt_->write.data = attempt_;
    uv_pipe_connect(&attempt_->connect, pipe_.get(), path_.c_str(),
                    [](uv_connect_t* connect, int status) {
                        static_cast<Attempt*>(connect->data)->Connected(connect->handle, status);
                    });
}

void Notifier::Finished(int status) {
    attempt_ = nullptr;
    pipe_.reset();
    if (status < 0) {
        TryLater(status);
        return;
    }
    failingSince_ = 0;
    Show(queue_.front());
    queue_.pop_front();
    --pending_;
    if (!queue_.empty()) {
        Deliver();
    }
}

void Notifier::Show(const std::vector<char>& message) const {
    IpcMsgHead head{};
    std::memcpy(&head, message.data(), sizeof(head));
    Monitor::Instance().SawNotification(path_, head.type,
                                        std::as_bytes(std::span(message)).subspan(sizeof(head)));
}

void Notifier::TryLater(int status) {
    const u64 now = uv_now(loop_);
    if (failingSince_ == 0) {
        failingSince_ = now;
    }
    const bool listens = status == UV_EAGAIN;
    if (now - failingSince_ < (listens ? kBusyMs : kNobodyMs)) {
        uv_timer_start(
            timer_.get(), [](uv_timer_t* timer) { static_cast<Notifier*>(timer->data)->Deliver(); },
            kRetryMs, 0);
        return;
    }
    LogInfo("%s: %s: %zu messages dropped", path_.c_str(), uv_strerror(status), queue_.size());
    Clear();
    // The service may end with this call, and its notifier too.
    const std::function<void()> onNobody = onNobody_;
    onNobody();
}

}  // namespace vimbrad
