// What a service is to the daemon: a set of requests, each with a type code, a body of one size and
// a typed reply.
//
// A service is one file in services/. Its class takes a Context, keeps whatever state it needs, and
// names its requests in Attach():
//
//     registry.Query<wire::IfaceBody, wire::TIpcMtu>(wire::kMtuGet, "mtu get", GetMtu);
//     registry.Change<wire::IfaceMtuBody, wire::PlainResult>(wire::kMtuSet, "mtu set", SetMtu);
//
// A change is told in the log with its values, for which Describe() has to know its body, and is
// noted in the daemon's state before its reply goes out. A handler returns the reply; one that is
// named with Later gets an Answer and may keep it until the reply is known. Both refuse by throwing
// Refusal. A type code may be named several times with bodies of different sizes.
#ifndef VIMBRA_TOOLS_VIMBRAD_SERVICE_HPP
#define VIMBRA_TOOLS_VIMBRAD_SERVICE_HPP

#include <uv.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "describe.hpp"
#include "lib/wire.hpp"
#include "peer.hpp"
#include "refusal.hpp"

namespace vimbrad {

using Bytes = std::span<const std::byte>;

class Registry;

// A request as it came, without its body.
struct Call {
    std::string what;
    Peer peer;
    bool changes = false;
    // Of a change.
    std::string values = {};
    // Whether there is room for one more request that takes its time.
    bool mayWait = true;
};

// A reply that is owed. If everyone lets go of it unanswered the client is told ECANCELED.
class Owed {
 public:
    using Send = std::function<void(Bytes reply)>;

    Owed(Registry& registry, Call call, Send send)
        : registry_(registry), call_(std::move(call)), send_(std::move(send)) {}
    ~Owed();
    Owed(const Owed&) = delete;
    Owed& operator=(const Owed&) = delete;

    // The first answer counts.
    void Reply(Bytes reply);
    void Refuse(Bytes reply, int error, const char* why);

    // What to send if nobody answers: the reply record of the request, zeroed but for the code.
    void SetDefault(std::vector<std::byte> reply) { default_ = std::move(reply); }
    void SetValues(std::string values) { call_.values = std::move(values); }

    const Call& TheCall() const { return call_; }

 private:
    void HandOver(Bytes reply);

    Registry& registry_;
    Call call_;
    Send send_;
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
        const Reply record = RefusalRecord<Reply>(error);
        owed_->Refuse(std::as_bytes(std::span(&record, 1)), error, why);
    }
    void Refuse(int error) const { Refuse(error, std::strerror(error)); }

 private:
    std::shared_ptr<Owed> owed_;
};

class Registry {
 public:
    // Answers at once: Reply handler(const Body&).
    template <class Body, class Reply, class Handler>
    void Query(u32 type, const char* what, Handler handler) {
        Add(type, kBodySize<Body>, {what, false},
            Guarded<Reply>([handler](Bytes bytes, Owed&, const Answer<Reply>& answer) mutable {
                answer(handler(BodyOf<Body>(bytes)));
            }));
    }
    template <class Body, class Reply, class Handler>
    void Change(u32 type, const char* what, Handler handler) {
        Add(type, kBodySize<Body>, {what, true},
            Guarded<Reply>([handler](Bytes bytes, Owed& owed, const Answer<Reply>& answer) mutable {
                const Body body = BodyOf<Body>(bytes);
                owed.SetValues(Describe(body));
                answer(handler(body));
            }));
    }

    // Answers when it can: void handler(const Body&, Answer<Reply>).
    template <class Body, class Reply, class Handler>
    void QueryLater(u32 type, const char* what, Handler handler) {
        Add(type, kBodySize<Body>, {what, false},
            Guarded<Reply>([handler](Bytes bytes, Owed& owed, const Answer<Reply>& answer) mutable {
                CheckMayWait(owed);
                handler(BodyOf<Body>(bytes), answer);
            }));
    }
    template <class Body, class Reply, class Handler>
    void ChangeLater(u32 type, const char* what, Handler handler) {
        Add(type, kBodySize<Body>, {what, true},
            Guarded<Reply>([handler](Bytes bytes, Owed& owed, const Answer<Reply>& answer) mutable {
                const Body body = BodyOf<Body>(bytes);
                owed.SetValues(Describe(body));
                CheckMayWait(owed);
                handler(body, answer);
            }));
    }

    // For a change whose body has no fixed size: Reply handler(Bytes body). It takes every size
    // that is not named otherwise.
    template <class Reply, class Handler>
    void ChangeBytes(u32 type, const char* what, Handler handler) {
        Add(type, kAnySize, {what, true},
            Guarded<Reply>([handler](Bytes body, Owed&, const Answer<Reply>& answer) mutable {
                answer(handler(body));
            }));
    }

    // Carries out one request. What nobody serves, and what has a body of a size that nobody
    // expects, is refused with four bytes.
    void Dispatch(u32 type, Bytes body, Owed::Send send, const Peer& peer, bool mayWait = true);

    // Called before the reply to a change goes out, whether it was made or refused.
    void OnChange(std::function<void()> call) { onChange_ = std::move(call); }
    void Changed() const {
        if (onChange_) {
            onChange_();
        }
    }

    struct Refused {
        Peer peer;
        std::string what;
        int error;
        std::string why;
    };
    void NoteRefusal(Refused refused);
    // The newest is the last.
    const std::deque<Refused>& Refusals() const { return refusals_; }

 private:
    using Entry = std::function<void(Bytes, const std::shared_ptr<Owed>&)>;
    struct Title {
        std::string what;
        bool changes;
    };
    struct Operation {
        Title title;
        Entry entry;
    };

    template <class Body>
    static constexpr size_t kBodySize = std::is_same_v<Body, NoBody> ? 0 : sizeof(Body);

    static constexpr size_t kAnySize = SIZE_MAX;

    template <class Body>
    static Body BodyOf(Bytes bytes) {
        static_assert(std::is_trivially_copyable_v<Body>);
        Body body{};
        if constexpr (kBodySize<Body> != 0) {
            std::memcpy(&body, bytes.data(), sizeof(body));
        }
        return body;
    }

    static void CheckMayWait(const Owed& owed) {
        if (!owed.TheCall().mayWait) {
            throw Refusal(EBUSY, "too many requests wait for their replies");
        }
    }

    // Turns what a handler throws into a refusal.
    template <class Reply, class Handler>
    static Entry Guarded(Handler handler) {
        return [handler](Bytes bytes, const std::shared_ptr<Owed>& owed) mutable {
            const Answer<Reply> answer(owed);
            try {
                handler(bytes, *owed, answer);
            } catch (const Refusal& refusal) {
                answer.Refuse(refusal.Error(), refusal.what());
            } catch (const std::bad_alloc&) {
                answer.Refuse(ENOMEM);
            } catch (const std::exception& error) {
                answer.Refuse(EIO, error.what());
            }
        };
    }

    void Add(u32 type, size_t size, const Title& title, Entry entry);

    std::map<u32, std::map<size_t, Operation>> operations_;
    std::function<void()> onChange_;
    std::deque<Refused> refusals_;
};

class RunDirectory;

// What services work with.
struct Context {
    uv_loop_t* loop;
    const RunDirectory& runDir;
    // For requests of their own, and to tell of changes that nobody asked for.
    Registry& registry;
    // What the web server serves.
    std::string webRoot = {};
    // As whom; a user that we cannot become is none.
    std::string webUser = {};
    // Whether NTP clients set the clock.
    bool setClock = false;
};

using Json = nlohmann::json;

// Held by whoever has not ended yet; when nobody holds it any more the daemon goes on ending.
using Ending = std::shared_ptr<void>;

class Service {
 public:
    virtual ~Service() = default;
    virtual void Attach(Registry& registry) = 0;

    // Adds what a later life takes up again to the daemon's state, under names of its own.
    virtual void Save(Json&) const {}
    // Takes it up. Whatever is thrown is told, and the rest forgotten.
    virtual void Restore(const Json&) {}
    // Takes back what nobody looks after in a life without memory.
    virtual void Forget(const Json&) {}

    // Answers operators' questions, each under its name.
    virtual void Show(Json&) const {}

    // The daemon ends, and the network stays as it is.
    virtual void Keep() {}
    // The daemon ends and leaves nothing: programs end, and applications that listen are told.
    virtual void End(const Ending&) {}
    // Then settings of the kernel are taken back.
    virtual void TakeBack() {}
};

}  // namespace vimbrad

#endif
