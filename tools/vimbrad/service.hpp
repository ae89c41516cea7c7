// What a service is to the daemon: a set of requests, each with a type code, a body of one size and
// a typed reply.
//
// A service is one file in services/. Its class takes a Context, keeps whatever state it needs, and
// names its requests in Attach():
//
//     registry.On<wire::IfaceBody, wire::TIpcMtu>(wire::kMtuGet, "mtu get", GetMtu);
//     registry.OnLater<wire::PingBody, wire::PlainResult>(wire::kPingStart, "ping start", ...);
//
// A handler of On() returns the reply; one of OnLater() gets an Answer and may keep it until the
// reply is known. Both refuse by throwing Refusal. A type code may be named several times with
// bodies of different sizes.
#ifndef VIMBRA_VIMBRAD_SERVICE_HPP
#define VIMBRA_VIMBRAD_SERVICE_HPP

#include <uv.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "lib/wire.hpp"
#include "refusal.hpp"

namespace vimbrad {

namespace wire = vimbra::wire;

using Bytes = std::span<const std::byte>;

// Body of a request that has none.
struct NoBody {};

// A reply that is owed. If everyone lets go of it unanswered the client is told ECANCELED.
class Owed {
 public:
    using Send = std::function<void(Bytes reply)>;

    Owed(Send send, std::string what) : send_(std::move(send)), what_(std::move(what)) {}
    ~Owed();
    Owed(const Owed&) = delete;
    Owed& operator=(const Owed&) = delete;

    // The first answer counts.
    void Reply(Bytes reply);
    void LogRefusal(int error, const char* why) const;

    // What to send if nobody answers: the reply record of the request, zeroed but for the code.
    void SetDefault(std::vector<std::byte> reply) { default_ = std::move(reply); }

 private:
    Send send_;
    std::string what_;
    std::vector<std::byte> default_;
};

// A reply record starts with its result code; the few that have none cannot tell a failure.
template <class Reply>
constexpr bool kHasResult = requires(Reply reply) {
    reply.nErrid;
}
|| requires(Reply reply) {
    reply.errid;
};

template <class Reply>
Reply RefusalRecord(int error) {
    static_assert(std::is_trivially_copyable_v<Reply>);
    Reply reply{};
    if constexpr (kHasResult<Reply>) {
        const s32 code = error;
        std::memcpy(&reply, &code, sizeof(code));
    }
    return reply;
}

template <class Reply>
class Answer {
 public:
    explicit Answer(std::shared_ptr<Owed> owed) : owed_(std::move(owed)) {
        const Reply record = RefusalRecord<Reply>(ECANCELED);
        const Bytes bytes = std::as_bytes(std::span(&record, 1));
        owed_->SetDefault({bytes.begin(), bytes.end()});
    }

    void operator()(const Reply& reply) const { owed_->Reply(std::as_bytes(std::span(&reply, 1))); }

    void Refuse(int error, const char* why) const {
        owed_->LogRefusal(error, why);
        (*this)(RefusalRecord<Reply>(error));
    }
    void Refuse(int error) const { Refuse(error, std::strerror(error)); }

 private:
    std::shared_ptr<Owed> owed_;
};

class Registry {
 public:
    // Answers at once: Reply handler(const Body&).
    template <class Body, class Reply, class Handler>
    void On(u32 type, const char* what, Handler handler) {
        OnLater<Body, Reply>(type, what,
                             [handler](const Body& body, const Answer<Reply>& answer) mutable {
                                 answer(handler(body));
                             });
    }

    // Answers when it can: void handler(const Body&, Answer<Reply>).
    template <class Body, class Reply, class Handler>
    void OnLater(u32 type, const char* what, Handler handler) {
        static_assert(std::is_trivially_copyable_v<Body>);
        Add(type, kBodySize<Body>, what,
            Guarded<Reply>([handler](Bytes bytes, const Answer<Reply>& answer) mutable {
                Body body{};
                if constexpr (kBodySize<Body> != 0) {
                    std::memcpy(&body, bytes.data(), sizeof(body));
                }
                handler(body, answer);
            }));
    }

    // For a request whose body has no fixed size: Reply handler(Bytes body). It takes every size
    // that is not named otherwise.
    template <class Reply, class Handler>
    void OnBytes(u32 type, const char* what, Handler handler) {
        Add(type, kAnySize, what,
            Guarded<Reply>([handler](Bytes body, const Answer<Reply>& answer) mutable {
                answer(handler(body));
            }));
    }

    // Carries out one request. What nobody serves, and what has a body of a size that nobody
    // expects, is refused with four bytes.
    void Dispatch(u32 type, Bytes body, Owed::Send send);

 private:
    using Entry = std::function<void(Bytes, const std::shared_ptr<Owed>&)>;
    struct Operation {
        std::string what;
        Entry entry;
    };

    template <class Body>
    static constexpr size_t kBodySize = std::is_same_v<Body, NoBody> ? 0 : sizeof(Body);

    static constexpr size_t kAnySize = SIZE_MAX;

    // Turns what a handler throws into a refusal.
    template <class Reply, class Handler>
    static Entry Guarded(Handler handler) {
        return [handler](Bytes bytes, const std::shared_ptr<Owed>& owed) mutable {
            const Answer<Reply> answer(owed);
            try {
                handler(bytes, answer);
            } catch (const Refusal& refusal) {
                answer.Refuse(refusal.Error(), refusal.what());
            } catch (const std::bad_alloc&) {
                answer.Refuse(ENOMEM);
            } catch (const std::exception& error) {
                answer.Refuse(EIO, error.what());
            }
        };
    }

    void Add(u32 type, size_t size, const char* what, Entry entry);

    std::map<u32, std::map<size_t, Operation>> operations_;
};

class RunDirectory;

// What services work with.
struct Context {
    uv_loop_t* loop;
    const RunDirectory& run_dir;
    // What the web server serves.
    std::string web_root = {};
    // Whether NTP clients set the clock.
    bool set_clock = false;
};

class Service {
 public:
    virtual ~Service() = default;
    virtual void Attach(Registry& registry) = 0;
};

}  // namespace vimbrad

#endif
