#include "server.hpp"

#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <vector>

#include "log.hpp"
#include "monitor.hpp"

namespace vimbrad {
namespace {

constexpr int kBacklog = 128;
// Descriptors that are kept for what runs all the time: programs, watches, sockets of the kernel.
constexpr size_t kDescriptorsKept = 64;
// A quick request has its connection, and another one while the kernel is asked. A request that
// takes its time has a connection and a program with its pipes, and must leave room for the others.
constexpr size_t kDescriptorsQuick = 4;
constexpr size_t kDescriptorsPending = 6;
constexpr size_t kPlacesMin = 4;
constexpr size_t kQuickMax = 128;
constexpr size_t kPendingMax = 256;
// A client writes its request in one piece and reads its reply at once.
constexpr u64 kReceiveMs = 5'000;
constexpr u64 kSendMs = 5'000;
// No client waits longer than this for its reply.
constexpr u64 kAnswerMs = 65'000;

}  // namespace

// One request and its reply. Lives until it is dropped by the server; an answer that comes later
// finds it gone.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
    Connection(Server& server, uv_loop_t* loop)
        : server_(server), pipe_(MakePipe(loop, this)), timer_(MakeTimer(loop, this)) {}

    bool Open(uv_stream_t* listener) {
        if (uv_accept(listener, AsStream(pipe_)) != 0) {
            return false;
        }
        uv_os_fd_t fd = -1;
        if (uv_fileno(reinterpret_cast<const uv_handle_t*>(pipe_.get()), &fd) == 0) {
            peer_ = PeerOf(fd);
        }
        SetTimeLimit(kReceiveMs);
        return uv_read_start(AsStream(pipe_), GiveBuffer, OnRead) == 0;
    }

    bool AwaitsRequest() const { return state_ == State::kRequest; }
    // Its request takes its time.
    bool AwaitsAnswer() const { return state_ == State::kAnswer; }

    // The request is not complete, and nothing of it waits to be read.
    bool IsSilent() const {
        uv_os_fd_t fd = -1;
        int waiting = 0;
        return AwaitsRequest() &&
               (uv_fileno(reinterpret_cast<const uv_handle_t*>(pipe_.get()), &fd) != 0 ||
                ioctl(fd, FIONREAD, &waiting) != 0 || waiting == 0);
    }

 private:
    enum class State { kRequest, kAnswer, kReply };

    // Owns its bytes: the loop may hold on to it longer than the connection lives.
    struct Reply {
        uv_write_t write{};
        std::vector<char> bytes;
        std::weak_ptr<Connection> connection;
    };

    void SetTimeLimit(u64 milliseconds) {
        uv_timer_start(timer_.get(), OnTimeLimit, milliseconds, 0);
    }

    static void OnTimeLimit(uv_timer_t* timer) {
        auto* self = static_cast<Connection*>(timer->data);
        LogWarning("a client %s: closed (%s)",
                   self->AwaitsRequest()  ? "sent no whole request in time"
                   : self->AwaitsAnswer() ? "got no answer in time"
                                          : "took no reply in time",
                   self->peer_.Text().c_str());
        self->server_.Drop(self);
    }

    static void GiveBuffer(uv_handle_t* handle, size_t, uv_buf_t* buffer) {
        auto* self = static_cast<Connection*>(handle->data);
        *buffer = uv_buf_init(self->buffer_.data() + self->received_,
                              static_cast<unsigned>(self->buffer_.size() - self->received_));
    }

    static void OnRead(uv_stream_t* stream, ssize_t count, const uv_buf_t*) {
        auto* self = static_cast<Connection*>(stream->data);
        if (count < 0) {
            if (self->received_ != 0) {
                LogWarning("a client closed after %zu bytes of a request (%s)", self->received_,
                           self->peer_.Text().c_str());
            }
            self->server_.Drop(self);
            return;
        }
        self->received_ += static_cast<size_t>(count);
        self->Examine();
    }

    void Examine() {
        if (received_ < sizeof(head_)) {
            return;
        }
        std::memcpy(&head_, buffer_.data(), sizeof(head_));
        if (head_.size > VIMBRA_IPC_BODY_MAX) {
            LogWarning("request 0x%04x with %u bytes: too long (%s)", head_.type, head_.size,
                       peer_.Text().c_str());
            FinishRequest();
            const wire::PlainResult refusal{EMSGSIZE};
            Send(std::as_bytes(std::span(&refusal, 1)));
            return;
        }
        if (received_ < sizeof(head_) + head_.size) {
            return;
        }
        FinishRequest();
        // The handler may answer at once and so end this connection.
        const auto alive = shared_from_this();
        const std::weak_ptr<Connection> weak = alive;
        server_.Requests().Dispatch(
            head_.type, std::as_bytes(std::span(buffer_)).subspan(sizeof(head_), head_.size),
            [weak](Bytes reply) {
                if (const auto connection = weak.lock()) {
                    connection->Send(reply);
                }
            },
            peer_, server_.MayWait());
    }

    void FinishRequest() {
        state_ = State::kAnswer;
        uv_read_stop(AsStream(pipe_));
        SetTimeLimit(kAnswerMs);
    }

    // The whole message goes out in one write: clients read it in one piece.
    void Send(Bytes body) {
        const size_t received = std::min(received_ - sizeof(head_), size_t{head_.size});
        Monitor::Instance().SawRequest(
            peer_, head_.type, std::as_bytes(std::span(buffer_)).subspan(sizeof(head_), received),
            body);
        state_ = State::kReply;
        SetTimeLimit(kSendMs);
        auto reply = std::make_unique<Reply>();
        const IpcMsgHead head{head_.type, static_cast<u32>(body.size()), 0};
        reply->bytes.resize(sizeof(head) + body.size());
        std::memcpy(reply->bytes.data(), &head, sizeof(head));
        std::copy(body.begin(), body.end(),
                  reinterpret_cast<std::byte*>(reply->bytes.data()) + sizeof(head));
        reply->connection = weak_from_this();
        reply->write.data = reply.get();
        const uv_buf_t buffer =
            uv_buf_init(reply->bytes.data(), static_cast<unsigned>(reply->bytes.size()));
        if (uv_write(&reply->write, AsStream(pipe_), &buffer, 1, OnSent) == 0) {
            static_cast<void>(reply.release());
        } else {
            server_.Drop(this);
        }
    }

    static void OnSent(uv_write_t* write, int) {
        const std::unique_ptr<Reply> reply(static_cast<Reply*>(write->data));
        if (const auto connection = reply->connection.lock()) {
            connection->server_.Drop(connection.get());
        }
    }

    Server& server_;
    Peer peer_;
    State state_ = State::kRequest;
    IpcMsgHead head_{};
    size_t received_ = 0;
    std::array<char, sizeof(IpcMsgHead) + VIMBRA_IPC_BODY_MAX> buffer_{};
    UvHandle<uv_pipe_t> pipe_;
    UvHandle<uv_timer_t> timer_;
};

ServerLimits LimitsFor(size_t descriptors) {
    const size_t free = descriptors - std::min(descriptors, kDescriptorsKept);
    return {std::clamp(free / kDescriptorsQuick, kPlacesMin, kQuickMax),
            std::clamp(free / kDescriptorsPending, kPlacesMin, kPendingMax)};
}

Server::Server(uv_loop_t* loop, Registry& registry, int listeningSocket, const ServerLimits& limits)
    : loop_(loop),
      registry_(registry),
      limits_(limits),
      listener_(MakePipe(loop, this)),
      next_(MakeHandle<uv_idle_t>([loop](uv_idle_t* raw) { return uv_idle_init(loop, raw); },
                                  "idle")) {
    next_->data = this;
    UvCheck(uv_pipe_open(listener_.get(), listeningSocket), "socket");
    UvCheck(uv_listen(AsStream(listener_), kBacklog,
                      [](uv_stream_t* stream, int status) {
                          if (status < 0) {
                              LogWarning("accept: %s", uv_strerror(status));
                          } else {
                              static_cast<Server*>(stream->data)->Accept();
                          }
                      }),
            "listen");
}

Server::~Server() = default;

// With the socket goes its queue: no place that becomes free is for anybody there.
void Server::StopListening() {
    clientWaits_ = false;
    uv_idle_stop(next_.get());
    listener_.reset();
}

// A client that is not accepted stays in the socket's queue, and the loop asks for no other.
void Server::Accept() {
    clientWaits_ = !MakeRoom();
    if (clientWaits_) {
        return;
    }
    auto connection = std::make_shared<Connection>(*this, loop_);
    if (connection->Open(AsStream(listener_))) {
        connections_.push_back(std::move(connection));
    }
}

size_t Server::Pending() const {
    return static_cast<size_t>(
        std::ranges::count_if(connections_, [](const auto& each) { return each->AwaitsAnswer(); }));
}

// The one that asks is among them.
bool Server::MayWait() const {
    return Pending() <= limits_.pending;
}

bool Server::MakeRoom() {
    if (connections_.size() - Pending() < limits_.quick) {
        return true;
    }
    const auto silent = std::find_if(connections_.begin(), connections_.end(),
                                     [](const auto& each) { return each->IsSilent(); });
    if (silent == connections_.end()) {
        return false;
    }
    connections_.erase(silent);
    return true;
}

void Server::Drop(const Connection* connection) {
    connections_.remove_if([connection](const auto& each) { return each.get() == connection; });
    if (clientWaits_) {
        uv_idle_start(next_.get(), [](uv_idle_t* idle) {
            uv_idle_stop(idle);
            static_cast<Server*>(idle->data)->Accept();
        });
    }
}

}  // namespace vimbrad
