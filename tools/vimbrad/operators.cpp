#include "operators.hpp"

#include <algorithm>
#include <array>
#include <deque>
#include <nlohmann/json.hpp>
#include <optional>

#include "log.hpp"
#include "monitor.hpp"
#include "plain_json.hpp"

namespace vimbrad {
namespace {

constexpr size_t kConnectionsMax = 16;
constexpr int kBacklog = 16;
constexpr size_t kLineMax = 4096;
constexpr u64 kSilentMs = 30'000;

// Lines that an operator who looks on has not taken yet.
constexpr size_t kUntoldMax = 1024;

bool IsWishToLookOn(const std::string& line) {
    const Json question = ParsePlainJson(line);
    return question.is_object() && question.value("ask", Json()) == "monitor";
}

std::string ErrorLine(int error, const std::string& why) {
    return Json{{"error", why}, {"errno", error}}.dump(-1, ' ', false,
                                                       Json::error_handler_t::replace);
}

}  // namespace

// One operator. Questions that come while an answer is written wait their turn in the socket.
class Operators::Connection {
 public:
    Connection(Operators& operators, uv_loop_t* loop)
        : operators_(operators), pipe_(MakePipe(loop, this)), timer_(MakeTimer(loop, this)) {}

    bool Open(uv_stream_t* listener) {
        return uv_accept(listener, AsStream(pipe_)) == 0 && Listen();
    }

 private:
    // Owns its bytes: the loop may hold on to it longer than the connection lives.
    struct Reply {
        uv_write_t write{};
        std::string text;
        Connection* connection;
    };

    bool Listen() {
        uv_timer_start(
            timer_.get(),
            [](uv_timer_t* timer) {
                auto* self = static_cast<Connection*>(timer->data);
                self->operators_.Drop(self);
            },
            kSilentMs, 0);
        return uv_read_start(
                   AsStream(pipe_),
                   [](uv_handle_t* handle, size_t, uv_buf_t* buffer) {
                       auto* self = static_cast<Connection*>(handle->data);
                       *buffer = uv_buf_init(self->buffer_.data(),
                                             static_cast<unsigned>(self->buffer_.size()));
                   },
                   [](uv_stream_t* stream, ssize_t count, const uv_buf_t*) {
                       static_cast<Connection*>(stream->data)->Take(count);
                   }) == 0;
    }

    void Take(ssize_t count) {
        if (count < 0) {
            operators_.Drop(this);
            return;
        }
        if (!watcher_) {
            line_.append(buffer_.data(), static_cast<size_t>(count));
            Work();
        }
    }

    void Work() {
        const size_t end = line_.find('\n');
        if (end == std::string::npos && line_.size() > kLineMax) {
            operators_.Drop(this);
        } else if (end != std::string::npos) {
            const std::string line = line_.substr(0, end);
            line_.erase(0, end + 1);
            if (IsWishToLookOn(line)) {
                LookOn();
            } else {
                Send(operators_.AnswerTo(line) + "\n");
            }
        }
    }

    // From now on the connection only tells, until the operator closes it.
    void LookOn() {
        uv_timer_stop(timer_.get());
        watcher_ = Monitor::Instance().Add([this](const std::string& line) { Tell(line); });
        Tell(Json{{"kind", "watching"}}.dump());
    }

    // An operator who reads too slowly loses lines and is told how many: nobody waits for him.
    void Tell(const std::string& line) {
        if (untold_.size() == kUntoldMax) {
            lost_++;
            return;
        }
        if (lost_ > 0) {
            untold_.push_back(Json{{"kind", "lost"}, {"lines", std::exchange(lost_, 0)}}.dump());
        }
        untold_.push_back(line);
        // Not from here: a write that fails ends the connection, and with it who is just told.
        uv_timer_start(
            timer_.get(),
            [](uv_timer_t* timer) { static_cast<Connection*>(timer->data)->TellNext(); }, 0, 0);
    }

    void TellNext() {
        if (!untold_.empty() && reply_ == nullptr) {
            std::string text = std::move(untold_.front());
            untold_.pop_front();
            Send(text + "\n");
        }
    }

    void Send(std::string text) {
        if (!watcher_) {
            uv_read_stop(AsStream(pipe_));
        }
        reply_ = new Reply{{}, std::move(text), this};
        reply_->write.data = reply_;
        const uv_buf_t buffer =
            uv_buf_init(reply_->text.data(), static_cast<unsigned>(reply_->text.size()));
        const auto sent = [](uv_write_t* write, int status) {
            const std::unique_ptr<Reply> reply(static_cast<Reply*>(write->data));
            if (reply->connection != nullptr) {
                reply->connection->Sent(status);
            }
        };
        if (uv_write(&reply_->write, AsStream(pipe_), &buffer, 1, sent) != 0) {
            delete std::exchange(reply_, nullptr);
            operators_.Drop(this);
        }
    }

    // There may be the next question already.
    void Sent(int status) {
        reply_ = nullptr;
        if (status != 0 || (!watcher_ && !Listen())) {
            operators_.Drop(this);
        } else if (watcher_) {
            TellNext();
        } else {
            Work();
        }
    }

 public:
    ~Connection() {
        if (watcher_) {
            Monitor::Instance().Remove(*watcher_);
        }
        if (reply_ != nullptr) {
            reply_->connection = nullptr;
        }
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

 private:
    Operators& operators_;
    std::array<char, 1024> buffer_{};
    std::string line_;
    Reply* reply_ = nullptr;
    // Of one who looks on.
    std::optional<Monitor::Watcher> watcher_;
    std::deque<std::string> untold_;
    size_t lost_ = 0;
    UvHandle<uv_pipe_t> pipe_;
    UvHandle<uv_timer_t> timer_;
};

Operators::Operators(uv_loop_t* loop, const RunDirectory& runDir, Ask ask)
    : loop_(loop), ask_(std::move(ask)), listener_(MakePipe(loop, this)) {
    UvCheck(uv_pipe_bind(listener_.get(), runDir.PathOf(kOperatorsName).c_str()),
            "operators' socket");
    UvCheck(uv_listen(AsStream(listener_), kBacklog,
                      [](uv_stream_t* stream, int status) {
                          if (status == 0) {
                              static_cast<Operators*>(stream->data)->Accept();
                          }
                      }),
            "operators' socket");
}

Operators::~Operators() = default;

std::string Operators::AnswerTo(std::string_view line) const {
    try {
        const Json question = ParsePlainJson(line);
        if (!question.is_object()) {
            throw Refusal(EINVAL, "no question");
        }
        return ask_(question).dump(-1, ' ', false, Json::error_handler_t::replace);
    } catch (const Refusal& refusal) {
        return ErrorLine(refusal.Error(), refusal.what());
    } catch (const std::exception& error) {
        return ErrorLine(EINVAL, error.what());
    }
}

// The one that has been there longest makes room.
void Operators::Accept() {
    if (connections_.size() == kConnectionsMax) {
        connections_.pop_front();
    }
    auto connection = std::make_shared<Connection>(*this, loop_);
    if (connection->Open(AsStream(listener_))) {
        connections_.push_back(std::move(connection));
    }
}

void Operators::Drop(const Connection* connection) {
    connections_.remove_if([connection](const auto& each) { return each.get() == connection; });
}

}  // namespace vimbrad
