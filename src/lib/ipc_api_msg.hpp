// The socket protocol's moving parts, shared by the transport calls and the request path.
#ifndef VIMBRA_LIB_IPC_API_MSG_HPP
#define VIMBRA_LIB_IPC_API_MSG_HPP

#include <vimbra/ipc.h>

#include "lib/base/memory.hpp"
#include "lib/log.hpp"
#include "lib/wire.hpp"

namespace vimbra {

// The failed step where a message finds no memory.
inline constexpr char kNoMemory[] = "XMALLOC error";

// A message in one block, header and body, so that it goes out with one write.
class IpcMessage {
 public:
    IpcMessage() = default;
    // The body is the caller's until the message is built.
    IpcMessage(const void* body, s32 bodySize)
        : body_(body), bodySize_(static_cast<u32>(bodySize)) {}

    // False when memory is out; the body is zero.
    bool Allocate(u32 bodySize);
    // The same with a copy of the caller's body, unless it is built already.
    bool Build();

    explicit operator bool() const { return static_cast<bool>(block_); }
    u8* Body() const { return block_.Get() + sizeof(IpcMsgHead); }
    u32 BodySize() const { return bodySize_; }

    const u8* Whole(u32 type, s32 flag);
    size_t WholeSize() const { return sizeof(IpcMsgHead) + bodySize_; }

 private:
    const void* body_ = nullptr;
    Buffer block_;
    u32 bodySize_ = 0;
};

// Whom an exchange is with, and the words of its log lines, which differ between the two callers.
struct IpcPeer {
    const char* name;
    const char* socketStep;
    const char* connectText;
    const char* writeText;
};

// The network daemon.
extern const IpcPeer kDaemonPeer;

// One exchange on a connection of its own. A message that is not built yet is built once the
// connection stands. Results as IpcApiSendAndRecv() has them.
s32 IpcExchange(CallSite site, const IpcPeer& peer, u32 type, IpcMessage& message, void* reply,
                s32 replySize);

// How a socket fared that was to become a server.
enum class Server { kListening, kNameTooLong, kBindFailed, kListenFailed };

// MakeAddrServer() without its log lines, so that it can be called with a lock held. After a
// failure there is no file of the name; the socket stays open, and errno tells why bind or listen
// failed.
Server MakeServer(s32 fd, const char* name, sockaddr_un* address, socklen_t* length);

// The log line of a failure, with errno as MakeServer() left it.
void LogServer(Server failure);

}  // namespace vimbra

#endif
