// The road of one request: a typed body goes to the daemon, a typed reply comes back, and the
// service's rule says what becomes of a failure. A service file holds its type codes, its bodies
// and its rule; everything else is here.
//
//     return SendRequest<FlushBody>(VIMBRA_HERE, kRule, kFlush, [&](auto& body) {
//         body.wSinFamily = wSinFamily;
//         CopyField(body.achIfaceName, pchIfaceName);
//     });
#ifndef VIMBRA_LIB_IPC_REQUEST_HPP
#define VIMBRA_LIB_IPC_REQUEST_HPP

#include <type_traits>

#include "lib/failure.hpp"
#include "lib/ipc_api_msg.hpp"

namespace vimbra {

// What a failure becomes on its way to the application. Services keep to one of two conventions:
// the value is passed on, or every failure is -1 and the value is only logged.
enum class Failure { kPassOn, kMinusOne };

struct RequestRule {
    const char* transportFormat;  // tagged, with one %d: the transport's result
    const char* refusalFormat;    // tagged, with one %d: the daemon's result code
    Failure transport;
    Failure refusal;
    // How want of memory for a body is logged: with errno, as a plain error, or as the transport's
    // failure, like any other of its.
    enum class OutOfMemory { kErrno, kPlain, kTransport } outOfMemory;
    const char* outOfMemoryText = kNoMemory;
    s32 unanswered = 0;  // result code when the daemon closes without an answer
};

// A request without body has nothing of its own that could find no memory: whatever the rule says,
// that is the transport's failure.
struct NoBody {};

class RequestBase {
 public:
    RequestBase(const RequestBase&) = delete;
    RequestBase& operator=(const RequestBase&) = delete;

    // False when memory is out; that is logged already.
    explicit operator bool() const { return static_cast<bool>(message_); }

    // The reply is a result code alone.
    s32 Send(u32 type) {
        s32 result = rule_.unanswered;
        return Exchange(type, &result, sizeof(result), true);
    }

 protected:
    RequestBase(CallSite site, const RequestRule& rule, u32 bodySize);

    s32 Exchange(u32 type, void* reply, s32 replySize, bool hasResult);
    void NoteResult(s32 result) const;

    const CallSite site_;
    const RequestRule& rule_;
    IpcMessage message_;
};

// A body whose size is known only at run time.
class BytesRequest : public RequestBase {
 public:
    BytesRequest(CallSite site, const RequestRule& rule, u32 bodySize)
        : RequestBase(site, rule, bodySize) {}

    u8* Body() { return message_.Body(); }
};

template <typename Body>
class Request : public RequestBase {
    static_assert(std::is_trivially_copyable_v<Body>);
    static_assert(alignof(Body) <= 4, "the body follows a header of 12 bytes");

 public:
    Request(CallSite site, const RequestRule& rule)
        : RequestBase(site, rule, std::is_empty_v<Body> ? 0 : sizeof(Body)) {}

    Body* operator->() { return reinterpret_cast<Body*>(message_.Body()); }
    Body& operator*() { return *operator->(); }

    using RequestBase::Send;

    // The reply is a record that begins with the result code.
    template <typename Reply>
    s32 Send(u32 type, Reply& reply) {
        static_assert(std::is_trivially_copyable_v<Reply> && sizeof(Reply) > sizeof(s32));
        return Exchange(type, &reply, sizeof(reply), true);
    }

    // The reply is a record without result code: whatever the transport takes is good.
    template <typename Reply>
    s32 SendForRecord(u32 type, Reply& reply) {
        static_assert(std::is_trivially_copyable_v<Reply>);
        return Exchange(type, &reply, sizeof(reply), false);
    }
};

// A request whose body is filled by fill(body); -1 when memory is out.
template <typename Body, typename Fill>
s32 SendRequest(CallSite site, const RequestRule& rule, u32 type, Fill fill) {
    Request<Body> request(site, rule);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    fill(*request);
    return request.Send(type);
}

// The same, answered by a record that begins with the result code.
template <typename Body, typename Reply, typename Fill>
s32 SendRequest(CallSite site, const RequestRule& rule, u32 type, Reply& reply, Fill fill) {
    Request<Body> request(site, rule);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    fill(*request);
    return request.Send(type, reply);
}

}  // namespace vimbra

#endif
