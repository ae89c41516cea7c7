#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <list>
#include <mutex>
#include <system_error>

#include "internal.hpp"
#include "vimbra/bed.hpp"

namespace vimbra::bed {

using internal::Descriptor;

class ScriptedDaemon::Server {
 public:
    explicit Server(std::string_view name)
        : path_(internal::SocketPath(name)),
          listening_(internal::BindSocket(SOCK_STREAM, path_)),
          released_(std::make_shared<internal::StopPipe>()) {
        if (listen(listening_.Get(), 100) != 0) {
            throw std::system_error(errno, std::generic_category(), "cannot listen on " + path_);
        }
        accepting_ = internal::StartThread([this] { AcceptLoop(); });
    }

    ~Server() {
        {
            const std::lock_guard guard(lock_);
            for (const Gate& gate : gates_) {
                gate.Open();
            }
            stop_.Stop();
        }
        accepting_.join();
        for (Serving& serving : serving_) {
            serving.thread.join();
        }
        unlink(path_.c_str());
    }

    void Remember(const Answer& answer) {
        const std::lock_guard guard(lock_);
        RememberLocked(answer);
    }

    void SetDefault(Answer answer) {
        const std::lock_guard guard(lock_);
        RememberLocked(answer);
        default_ = std::move(answer);
    }

    void SetForType(uint32_t type, Answer answer) {
        const std::lock_guard guard(lock_);
        RememberLocked(answer);
        byType_[type] = std::move(answer);
    }

    void Queue(Answer answer) {
        const std::lock_guard guard(lock_);
        RememberLocked(answer);
        queue_.push_back(std::move(answer));
    }

    void QueueForType(uint32_t type, Answer answer) {
        const std::lock_guard guard(lock_);
        RememberLocked(answer);
        queueByType_[type].push_back(std::move(answer));
    }

    std::vector<Request> Requests() const {
        const std::lock_guard guard(lock_);
        return requests_;
    }

    void Forget() {
        const std::lock_guard guard(lock_);
        requests_.clear();
    }

    bool WaitRequests(size_t count) const {
        std::unique_lock guard(lock_);
        return changed_.wait_for(guard, kPatience, [&] { return requests_.size() >= count; });
    }

    size_t Connections() const {
        const std::lock_guard guard(lock_);
        return accepted_;
    }

    size_t OpenConnections() const {
        const std::lock_guard guard(lock_);
        return accepted_ - ended_;
    }

    bool WaitIdle() const {
        std::unique_lock guard(lock_);
        return changed_.wait_for(guard, kPatience, [&] { return accepted_ == ended_; });
    }

    // Whoever waits keeps the old pipe for as long as he looks at it.
    void Release() {
        const std::lock_guard guard(lock_);
        released_->Stop();
        released_ = std::make_shared<internal::StopPipe>();
    }

 private:
    void RememberLocked(const Answer& answer) {
        if (answer.gate_) {
            gates_.push_back(*answer.gate_);
        }
    }

    static bool ActsUnread(const Answer& answer) {
        return answer.act_ == Answer::Act::kCloseUnread || answer.act_ == Answer::Act::kLeaveUnread;
    }

    void AcceptLoop() {
        for (;;) {
            pollfd watched[2] = {{listening_.Get(), POLLIN, 0}, {stop_.Waiter(), POLLIN, 0}};
            poll(watched, 2, -1);
            if (watched[1].revents != 0) {
                return;
            }
            if (watched[0].revents == 0) {
                continue;
            }
            Descriptor client = internal::AcceptSocket(listening_.Get());
            if (client.Get() < 0) {
                continue;
            }
            const auto shared = std::make_shared<Descriptor>(std::move(client));
            const auto [number, unread] = Enter();
            JoinEnded();
            Serving& serving = serving_.emplace_back();
            serving.thread =
                internal::StartThread([this, shared, &serving, number = number, unread = unread] {
                    if (unread) {
                        Act(shared->Get(), Request(), *unread);
                    } else {
                        Serve(shared->Get(), number);
                    }
                    shared->Reset();
                    const std::lock_guard guard(lock_);
                    ++ended_;
                    serving.ended = true;
                    changed_.notify_all();
                });
        }
    }

    // A thread that nobody has joined keeps its stack: a test of a minute makes very many.
    void JoinEnded() {
        for (auto serving = serving_.begin(); serving != serving_.end();) {
            bool ended = false;
            {
                const std::lock_guard guard(lock_);
                ended = serving->ended;
            }
            if (ended) {
                serving->thread.join();
                serving = serving_.erase(serving);
            } else {
                ++serving;
            }
        }
    }

    // What is due, and the pipe that ends it if it is to be held: both belong to the moment at
    // which the request, or the connection, becomes known to the test.
    struct Due {
        Answer answer;
        std::shared_ptr<internal::StopPipe> released;
    };

    // Counts a new connection, and decides whether it is to be treated unread.
    std::pair<size_t, std::optional<Due>> Enter() {
        const std::lock_guard guard(lock_);
        std::optional<Due> unread;
        if (!queue_.empty()) {
            if (ActsUnread(queue_.front())) {
                unread = Due{TakeFrom(queue_), released_};
            }
        } else if (ActsUnread(default_)) {
            unread = Due{default_, released_};
        }
        changed_.notify_all();
        return {accepted_++, unread};
    }

    // Records a request and chooses its answer.
    Due Record(const Request& request) {
        const std::lock_guard guard(lock_);
        requests_.push_back(request);
        changed_.notify_all();
        return {Choose(request), released_};
    }

    Answer Choose(const Request& request) {
        if (!request.complete) {
            return Answer::Close();
        }
        if (std::deque<Answer>& queue = queueByType_[request.type]; !queue.empty()) {
            return TakeFrom(queue);
        }
        if (!queue_.empty()) {
            return TakeFrom(queue_);
        }
        const auto own = byType_.find(request.type);
        return own != byType_.end() ? own->second : default_;
    }

    static Answer TakeFrom(std::deque<Answer>& queue) {
        Answer answer = std::move(queue.front());
        queue.pop_front();
        return answer;
    }

    // Waits until there is something to read; false when the daemon ends.
    bool AwaitInput(int client) const {
        for (;;) {
            pollfd watched[2] = {{client, POLLIN, 0}, {stop_.Waiter(), POLLIN, 0}};
            poll(watched, 2, -1);
            if (watched[1].revents != 0) {
                return false;
            }
            if (watched[0].revents != 0) {
                return true;
            }
        }
    }

    // Keeps the connection until the client closes it or somebody lets go.
    void Hold(int client, const internal::StopPipe& released) const {
        pollfd watched[3] = {
            {client, 0, 0}, {stop_.Waiter(), POLLIN, 0}, {released.Waiter(), POLLIN, 0}};
        while (poll(watched, 3, -1) < 0 && errno == EINTR) {
        }
    }

    // Reads one message to its end; false when not a single byte came.
    bool Read(int client, Request& request) const {
        constexpr size_t kHeader = 12;
        // No service comes near this: a larger size is a mistake or a lie.
        constexpr size_t kLargest = size_t{1} << 20;
        size_t wanted = kHeader;
        while (request.raw.size() < wanted) {
            const size_t have = request.raw.size();
            if (!AwaitInput(client)) {
                break;
            }
            request.raw.resize(wanted);
            const ssize_t got =
                recv(client, request.raw.data() + have, wanted - have, MSG_DONTWAIT);
            request.raw.resize(have + (got > 0 ? static_cast<size_t>(got) : 0));
            if (got > 0) {
                ++request.reads;
            } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
                break;
            }
            if (wanted == kHeader && request.raw.size() == kHeader) {
                wanted += std::min<size_t>(request.raw.U32(4), kLargest);
                // The header is looked at apart, but came with whatever is there already.
                if (wanted > kHeader && HasInput(client)) {
                    --request.reads;
                }
            }
        }
        request.type = request.raw.U32(0);
        request.size = request.raw.U32(4);
        request.flag = request.raw.S32(8);
        request.body = request.raw.Slice(kHeader, request.raw.size());
        request.complete = request.raw.size() >= kHeader && request.body.size() == request.size;
        return !request.raw.empty();
    }

    static bool HasInput(int client) {
        pollfd watched{client, POLLIN, 0};
        return poll(&watched, 1, 0) > 0 && (watched.revents & POLLIN) != 0;
    }

    // False when the connection is over.
    bool Act(int client, const Request& request, const Due& due) {
        const Answer& answer = due.answer;
        if (answer.hook_) {
            answer.hook_(request);
        }
        if (answer.gate_) {
            answer.gate_->Pass();
        }
        switch (answer.act_) {
            case Answer::Act::kChoose: {
                const Answer chosen = answer.choose_(request);
                Remember(chosen);
                return Act(client, request, {chosen, due.released});
            }
            case Answer::Act::kNothing:
            case Answer::Act::kLeaveUnread:
                Hold(client, *due.released);
                return false;
            case Answer::Act::kClose:
            case Answer::Act::kCloseUnread:
                return false;
            case Answer::Act::kReply:
                break;
        }
        return Reply(client, request, answer);
    }

    bool Reply(int client, const Request& request, const Answer& answer) const {
        const auto size = answer.size_.value_or(static_cast<uint32_t>(answer.body_.size()));
        Bytes reply = answer.body_;
        if (answer.framed_) {
            reply = Pack()
                        .U32(answer.type_.value_or(request.type))
                        .U32(size)
                        .S32(answer.flag_)
                        .Add(answer.body_);
        }
        size_t start = 0;
        for (const size_t cut : answer.cuts_) {
            const Bytes piece = reply.Slice(start, cut - start);
            if (!internal::SendAll(client, piece.data(), piece.size()) ||
                !internal::AwaitRead(client, stop_.Waiter())) {
                return false;
            }
            start = cut;
        }
        const Bytes rest = reply.Slice(start, reply.size());
        return internal::SendAll(client, rest.data(), rest.size());
    }

    void Serve(int client, size_t number) {
        for (;;) {
            Request request;
            request.connection = number;
            if (!Read(client, request) || !Act(client, request, Record(request))) {
                return;
            }
        }
    }

    const std::string path_;
    Descriptor listening_;
    internal::StopPipe stop_;
    std::thread accepting_;
    struct Serving {
        std::thread thread;
        bool ended = false;  // guarded by lock_
    };
    std::list<Serving> serving_;  // the accepting thread's, until it has ended

    mutable std::mutex lock_;
    mutable std::condition_variable changed_;
    Answer default_ = Answer::Code(0);
    std::map<uint32_t, Answer> byType_;
    std::map<uint32_t, std::deque<Answer>> queueByType_;
    std::deque<Answer> queue_;
    std::vector<Gate> gates_;
    std::shared_ptr<internal::StopPipe> released_;
    std::vector<Request> requests_;
    size_t accepted_ = 0;
    size_t ended_ = 0;
};

ScriptedDaemon::ScriptedDaemon(std::string_view name) : server_(std::make_unique<Server>(name)) {}

ScriptedDaemon::~ScriptedDaemon() = default;

ScriptedDaemon& ScriptedDaemon::Default(Answer answer) {
    server_->SetDefault(std::move(answer));
    return *this;
}

ScriptedDaemon& ScriptedDaemon::On(uint32_t type, Answer answer) {
    server_->SetForType(type, std::move(answer));
    return *this;
}

ScriptedDaemon& ScriptedDaemon::Next(Answer answer) {
    server_->Queue(std::move(answer));
    return *this;
}

ScriptedDaemon& ScriptedDaemon::Next(uint32_t type, Answer answer) {
    server_->QueueForType(type, std::move(answer));
    return *this;
}

std::vector<Request> ScriptedDaemon::Requests() const {
    return server_->Requests();
}

std::vector<Request> ScriptedDaemon::Requests(uint32_t type) const {
    std::vector<Request> requests = server_->Requests();
    std::erase_if(requests, [&](const Request& request) { return request.type != type; });
    return requests;
}

bool ScriptedDaemon::WaitRequests(size_t count) const {
    return server_->WaitRequests(count);
}
void ScriptedDaemon::Forget() {
    server_->Forget();
}
size_t ScriptedDaemon::Connections() const {
    return server_->Connections();
}
size_t ScriptedDaemon::OpenConnections() const {
    return server_->OpenConnections();
}
bool ScriptedDaemon::WaitIdle() const {
    return server_->WaitIdle();
}
void ScriptedDaemon::Release() {
    server_->Release();
}

}  // namespace vimbra::bed
