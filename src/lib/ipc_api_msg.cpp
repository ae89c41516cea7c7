#include "lib/ipc_api_msg.hpp"

#include <fcntl.h>

#include "lib/base/cancel.hpp"
#include "lib/base/fd.hpp"
#include "lib/base/select_set.hpp"
#include "lib/failure.hpp"
#include "lib/ipc/connect.hpp"

namespace vimbra {

namespace {

constexpr size_t kPathMax = 102;        // exclusive
constexpr timeval kPatience = {60, 0};  // of all waits of a call together
constexpr timeval kNoTime = {0, 0};

constexpr char kSelectError[] = "select error";

// A buffer and its length go together or not at all.
bool IsPair(const void* buffer, s32 length) {
    return buffer != nullptr ? length > 0 : length == 0;
}

// The address of "/tmp/" and the name; a zeroed structure, so that its full size and the path's
// length name the same file. False when the path is too long.
bool FillAddress(const char* name, sockaddr_un* address, socklen_t* length) {
    constexpr char kPrefix[] = "/tmp/";
    constexpr size_t kNameMax = kPathMax - (sizeof(kPrefix) - 1);
    const size_t nameLength = strnlen(name, kNameMax);
    if (nameLength == kNameMax) {
        return false;
    }
    memset(address, 0, sizeof(*address));
    address->sun_family = AF_UNIX;
    memcpy(address->sun_path, kPrefix, sizeof(kPrefix) - 1);
    memcpy(address->sun_path + sizeof(kPrefix) - 1, name, nameLength);
    *length = static_cast<socklen_t>(sizeof(kPrefix) - 1 + nameLength + 2);
    return true;
}

// ---- Connecting ---------------------------------------------------------------------------------

// Whoever connects, the lines are those of the call that applications know.
constexpr char kMakeAddrClient[] = "MakeAddrClient";

bool FillPeerAddress(const char* name, sockaddr_un* address, socklen_t* length) {
    if (FillAddress(name, address, length)) {
        return true;
    }
    VLOG_ERROR_AT((CallSite{kMakeAddrClient, __LINE__}), "the name is too long!");
    NoteFailure(kMakeAddrClient, VIMBRA_FAILURE_ARGUMENT);
    return false;
}

// What the error of a connect says of the peer.
EVimbraFailureStep StepOfConnect(int error) {
    switch (error) {
        case EACCES:
        case EPERM:
            return VIMBRA_FAILURE_NO_PERMISSION;
        case EAGAIN:
            return VIMBRA_FAILURE_TIMEOUT;
        case ECONNREFUSED:
        case ELOOP:
        case ENOENT:
        case ENOTDIR:
        case EPROTOTYPE:
            return VIMBRA_FAILURE_NO_DAEMON;
        default:
            return VIMBRA_FAILURE_LOCAL;
    }
}

void TellFailedConnect(CallSite site) {
    LogErrnoAt(site, "connect error");
    NoteFailure(site.function, StepOfConnect(errno), errno);
}

// The connection of one exchange.
bool ConnectTo(const char* name, int fd, timeval* left) {
    sockaddr_un address;
    socklen_t length;
    if (!FillPeerAddress(name, &address, &length)) {
        return false;
    }
    if (!ConnectNonBlocking(fd, address, left)) {
        TellFailedConnect({kMakeAddrClient, __LINE__});
        return false;
    }
    return true;
}

// ---- Sending and receiving ----------------------------------------------------------------------

enum class Sent { kWhole, kShort, kTimeout, kFailed };

// One write of the whole message. A peer that has gone is an error of the call, not a signal for
// the application's process.
Sent SendNow(int fd, const u8* data, size_t size) {
    errno = 0;  // It stays so where a part was written.
    const ssize_t written = send(fd, data, size, MSG_NOSIGNAL);
    return written == static_cast<ssize_t>(size) ? Sent::kWhole : Sent::kShort;
}

Sent SendWhenWritable(CallSite site, int fd, SelectSet& set, timeval* left, const u8* data,
                      size_t size) {
    const int ready = set.WaitWritable(left);
    if (ready < 0) {
        FailedCallAt(site, kSelectError);
        return Sent::kFailed;
    }
    if (ready == 0) {
        VLOG_ERROR_AT(site, "wait time out for writing!");
        return Sent::kTimeout;
    }
    return SendNow(fd, data, size);
}

// For a socket that does not block. A new one has room, unless the system's buffers are set to next
// to nothing; only then is there a wait.
Sent SendAtOnce(CallSite site, int fd, SelectSet& set, timeval* left, const u8* data, size_t size) {
    const Sent sent = SendNow(fd, data, size);
    return sent == Sent::kShort && errno == EAGAIN
               ? SendWhenWritable(site, fd, set, left, data, size)
               : sent;
}

// One read of the whole reply: a reply that comes in pieces is no reply.
s32 ReceiveWhole(CallSite site, int fd, SelectSet& set, timeval* left, void* reply, s32 replySize) {
    const size_t size = sizeof(IpcMsgHead) + static_cast<size_t>(replySize);
    const Buffer buffer(size);
    if (!buffer) {
        FailedCallAt(site, kNoMemory);
        return VIMBRA_ERR_GENERAL;
    }
    const int ready = set.WaitReadable(left);
    if (ready < 0) {
        LogErrnoAt(site, kSelectError);
        NoteFailure(site.function, VIMBRA_FAILURE_ANSWER, errno);
        return VIMBRA_ERR_GENERAL;
    }
    if (ready == 0) {
        VLOG_ERROR_AT(site, "wait time out for reading!");
        NoteFailure(site.function, VIMBRA_FAILURE_TIMEOUT);
        return VIMBRA_ERR_RECV_TIMEOUT;
    }
    const ssize_t count = read(fd, buffer.Get(), size);
    if (count != static_cast<ssize_t>(size)) {
        if (count != 0) {  // Established: none at all is no failure.
            NoteFailure(site.function, VIMBRA_FAILURE_ANSWER, count < 0 ? errno : 0);
        }
        VLOG_ERROR_AT(site, "fail to receive message!");
        return static_cast<s32>(count);
    }
    IpcMsgHead head;
    memcpy(&head, buffer.Get(), sizeof(head));
    if (head.size != static_cast<u32>(replySize)) {
        NoteFailure(site.function, VIMBRA_FAILURE_ANSWER);
        VLOG_ERROR_AT(site, "received message's head is error!");
        return static_cast<s32>(count);
    }
    memcpy(reply, buffer.Get() + sizeof(head), static_cast<size_t>(replySize));
    return VIMBRA_OK;
}

// The exchange of raw buffers that both public calls are.
s32 SendAndRecv(CallSite site, const IpcPeer& peer, u32 type, const void* body, s32 bodySize,
                void* reply, s32 replySize) {
    if (peer.name == nullptr || !IsPair(body, bodySize) || !IsPair(reply, replySize)) {
        VLOG_ERROR_AT(site, "the parameters is invalid");
        return RefuseArgument(site.function, VIMBRA_ERR_GENERAL);
    }
    IpcMessage message(body, bodySize);
    return IpcExchange(site, peer, type, message, reply, replySize);
}

}  // namespace

bool IpcMessage::Allocate(u32 bodySize) {
    bodySize_ = bodySize;
    return block_.Allocate(WholeSize());
}

bool IpcMessage::Build() {
    if (block_) {
        return true;
    }
    if (!Allocate(bodySize_)) {
        return false;
    }
    if (bodySize_ > 0) {
        memcpy(Body(), body_, bodySize_);
    }
    return true;
}

const u8* IpcMessage::Whole(u32 type, s32 flag) {
    const IpcMsgHead head = {type, bodySize_, flag};
    memcpy(block_.Get(), &head, sizeof(head));
    return block_.Get();
}

const IpcPeer kDaemonPeer = {"api_daemon", "socket error", "MakeAddrClient error!",
                             "write message failed"};

s32 IpcExchange(CallSite site, const IpcPeer& peer, u32 type, IpcMessage& message, void* reply,
                s32 replySize) {
    if (message.BodySize() > VIMBRA_IPC_BODY_MAX) {
        VLOG_ERROR_AT(site, "the send buf is too long:%d,the max capacity is %d!",
                      static_cast<int>(message.BodySize()), VIMBRA_IPC_BODY_MAX);
        return RefuseArgument(site.function, VIMBRA_ERR_GENERAL);
    }
    const Fd fd(socket, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (!fd) {
        FailedCallAt(site, peer.socketStep);
        return VIMBRA_ERR_GENERAL;
    }
    // One budget for all waits: what the first takes, the next ones lack. Nobody answers a message
    // without a reply, and who posts one may be the very thread that its listener runs on.
    timeval left = reply != nullptr ? kPatience : kNoTime;
    if (!ConnectTo(peer.name, fd.Get(), &left)) {
        NameFailure(site.function);
        VLOG_ERROR_AT(site, "%s", peer.connectText);
        return VIMBRA_ERR_GENERAL;
    }
    SelectSet set(fd.Get());
    if (!set || !message.Build()) {
        FailedCallAt(site, kNoMemory);
        return VIMBRA_ERR_GENERAL;
    }
    switch (SendAtOnce(site, fd.Get(), set, &left, message.Whole(type, 0), message.WholeSize())) {
        case Sent::kFailed:
            return VIMBRA_ERR_GENERAL;
        case Sent::kTimeout:
            return VIMBRA_OK;  // Established: the caller then finds its reply untouched.
        case Sent::kShort:
            NoteFailure(site.function, VIMBRA_FAILURE_SENDING, errno);
            VLOG_ERROR_AT(site, "%s", peer.writeText);
            return VIMBRA_ERR_SEND;
        case Sent::kWhole:
            break;
    }
    if (reply == nullptr) {
        return VIMBRA_OK;
    }
    return ReceiveWhole(site, fd.Get(), set, &left, reply, replySize);
}

Server MakeServer(s32 fd, const char* name, sockaddr_un* address, socklen_t* length) {
    if (!FillAddress(name, address, length)) {
        return Server::kNameTooLong;
    }
    // What cannot be removed, such as a directory, shows as a failed bind.
    const char* path = address->sun_path;
    while (access(path, R_OK | W_OK) == 0 && unlink(path) == 0) {
    }
    unlink(path);
    const bool bound = bind(fd, reinterpret_cast<const sockaddr*>(address), *length) == 0;
    if (bound && listen(fd, 100) == 0) {
        return Server::kListening;
    }
    const int error = errno;
    unlink(path);
    errno = error;
    return bound ? Server::kListenFailed : Server::kBindFailed;
}

void LogServer(Server failure) {
    constexpr char kFunction[] = "MakeAddrServer";
    if (failure == Server::kNameTooLong) {
        VLOG_ERROR_AT((CallSite{kFunction, __LINE__}), "the name is too long!");
    } else {
        LogErrnoAt({kFunction, __LINE__},
                   failure == Server::kBindFailed ? "bind error" : "listen error!");
    }
}

}  // namespace vimbra

using namespace vimbra;

s32 MakeAddrClient(s32 nSockfd, const char* pchName, sockaddr_un* ptAddr, socklen_t* len) {
    if (pchName == nullptr || ptAddr == nullptr || len == nullptr) {
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    if (!FillPeerAddress(pchName, ptAddr, len)) {
        return VIMBRA_ERR_GENERAL;
    }
    const CancelGuard guard;
    if (!ConnectAny(nSockfd, *ptAddr, kPatience)) {
        TellFailedConnect(VIMBRA_HERE);
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 MakeAddrServer(s32 nSockfd, const char* pchName, sockaddr_un* ptAddr, socklen_t* len) {
    if (pchName == nullptr || ptAddr == nullptr || len == nullptr) {
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    const CancelGuard guard;  // The socket may have to be closed.
    const Server server = MakeServer(nSockfd, pchName, ptAddr, len);
    if (server == Server::kListening) {
        return VIMBRA_OK;
    }
    LogServer(server);
    if (server == Server::kNameTooLong) {
        return VIMBRA_ERR_GENERAL;
    }
    close(nSockfd);
    return VIMBRA_OK;  // Established: the caller finds out when it accepts.
}

s32 IpcApiSendAndRecv(u32 dwType, const void* pSendBuf, s32 nSendLen, void* pRecvBuf,
                      s32 nRecvLen) {
    return SendAndRecv(VIMBRA_HERE, kDaemonPeer, dwType, pSendBuf, nSendLen, pRecvBuf, nRecvLen);
}

s32 IpcCallbackSendAndRecv(const char* pchPathName, u32 dwType, const void* pSendBuf, s32 nSendLen,
                           void* pRecvBuf, s32 nRecvLen) {
    const IpcPeer peer = {pchPathName, "socket error:", "make_addr_client error!",
                          "fail to send message!"};
    return SendAndRecv(VIMBRA_HERE, peer, dwType, pSendBuf, nSendLen, pRecvBuf, nRecvLen);
}

s32 IpcApiSendMsg(s32 nSockfd, u32 dwType, void* pSendBuf, s32 nSendLen, s32 nFlag) {
    const CallSite site = VIMBRA_HERE;
    if (!IsPair(pSendBuf, nSendLen)) {
        VLOG_ERROR("the parameters is invalid");
        return RefuseArgument(site.function, VIMBRA_ERR_GENERAL);
    }
    const CancelGuard guard;
    // Not left to select(2): a 32-bit kernel does not look at what lies above its table, and a set
    // for the largest number takes hundreds of megabytes.
    if (fcntl(nSockfd, F_GETFD) < 0) {
        VLOG_ERRNO(kSelectError);
        return VIMBRA_ERR_GENERAL;
    }
    IpcMessage message(pSendBuf, nSendLen);
    SelectSet set(nSockfd);
    if (!set || !message.Build()) {
        VLOG_ERRNO(kNoMemory);
        return VIMBRA_ERR_GENERAL;
    }
    timeval left = kPatience;
    switch (SendWhenWritable(site, nSockfd, set, &left, message.Whole(dwType, nFlag),
                             message.WholeSize())) {
        case Sent::kWhole:
            return VIMBRA_OK;
        case Sent::kTimeout:
            NoteFailure(site.function, VIMBRA_FAILURE_TIMEOUT);
            return VIMBRA_ERR_SEND_TIMEOUT;
        case Sent::kShort:
            NoteFailure(site.function, VIMBRA_FAILURE_SENDING, errno);
            VLOG_ERROR("fail to send message!");
            return VIMBRA_ERR_GENERAL;
        case Sent::kFailed:
            break;
    }
    return VIMBRA_ERR_GENERAL;
}

s32 IpcApiRecvmsg(s32, u32, void*, s32, s32) {
    return VIMBRA_ERR_GENERAL;
}
