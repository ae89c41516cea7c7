// The listener engine: the other direction of the socket protocol. A service that reports back has
// a thread in the application's process which serves a socket of its own below /tmp, takes one
// message per connection and calls the application. Everything that such threads have in common is
// here; a service says in data what differs and brings small functions for what is its own.
//
//     Next TakeReport(Listener& listener, Message& message) {
//         auto& report = message.As<ReportBody>();
//         ...call the application...
//         return Next::kGoOn;
//     }
//
//     constexpr ListenerService kService = {
//         .function = "ReportCBThread",
//         .threadName = "VimbraReportCBThread",
//         .socketName = "ipc_report",
//         .bodySize = sizeof(ReportBody),
//         .message = TakeReport,
//     };
//
//     ListenerSlot g_tSlot;
//
//     StartListener(kService, g_tSlot, {.argument = record, .handle = &record->tThreadId});
//     ...
//     const ListenerStop stop = KillListener(g_tSlot);    // stop.result is what ThreadKill() says
//     WaitListener(stop);
//
// Who owns what. A ListenerSlot belongs to the service and knows its running listener, if any. The
// Listener belongs to its thread, which frees it. The two are detached from each other in one step:
// when the service kills the listener, or when the listener ends by itself (Release()).
// From then on neither touches the other, so a slot, and the record that it is part of, may be used
// again or freed; a thread that is late finds that it owns nothing any more.
//
// A listener is stopped by a flag and by shutting down the sockets that it waits on. What it waits
// on it closes itself, so that the number never becomes somebody else's meanwhile.
// pthread_cancel(3) is not used: with glibc its first call loads libgcc_s.so.1 and aborts the
// process where a device lacks it. Who cancels the thread through its published handle is served
// all the same: cancellation is on in the blocking waits and off everywhere else. A callback, a
// hook, a log line or a held lock is never cut. Whoever kills a listener from within its own
// callback is served too: the thread ends after the callback.
//
// StartListener() returns when the listener has bound its socket or failed to, so listeners of one
// name take it over in the order in which they were started, and none binds after it was stopped.
// `begin` and `bound` run while the starter waits: they must not take a lock that a starter holds.
// `message`, `tick` and `ended` run without any lock of the engine; they may take the service's
// own. Locks are taken in the order service, engine, thread table. No log line is written with the
// engine's lock held: a standard output that blocks would stop every service.
//
// A peer has kMessageSeconds for its message once it is accepted. One that says nothing is a short
// read; it does not keep the others waiting for good.
#ifndef VIMBRA_LIB_IPC_LISTENER_HPP
#define VIMBRA_LIB_IPC_LISTENER_HPP

#include <pthread.h>
#include <vimbra/ipc.h>

#include <array>
#include <cstring>
#include <type_traits>

#include "lib/base/memory.hpp"
#include "lib/base/select_set.hpp"
#include "lib/ipc_api_msg.hpp"
#include "lib/log.hpp"

namespace vimbra {

class Listener;

inline constexpr int kMessageSeconds = 5;

// What follows on a message, a time-out or a failure.
enum class Next { kGoOn, kEnd };

// What a failure leads to: the words of its log line (null: none), with errno or without, and what
// follows. A message
// that failed is dropped and its connection closed either way.
struct FailureRule {
    const char* text;
    enum Form { kPlain, kErrno } form;
    Next next;
};

enum class Reading {
    kExact,         // one read of header and body of bodySize; anything else is a shortRead
    kUpTo,          // one read of at most that much; only a failed read is a shortRead, the message
                    // hook sees what came, the rest zero, and nothing checks the header
    kHeadThenBody,  // a read of the header, then one of as many bytes as it says, at most bodySize
};

enum class Connections {
    kClose,  // after each message
    kKeep,   // until the peer closes; the oldest goes when there are too many
};

enum class AcceptFailure {
    kEnds,         // the listener
    kMayBePassing  // want of descriptors or memory, or a peer that has gone, passes: go on
};

// How the start of a listener went.
enum class Bound {
    kListening,
    kBindFailed,  // bind or listen; MakeAddrServer() calls it a success, and accepting will fail
    kNameRefused,
    kSocketFailed,
    kStopped,  // stopped before it had bound
};

// Why a listener has ended.
enum class Ended {
    kKilled,     // or the application ended the thread from its callback
    kByService,  // a hook returned kEnd
    kNotBound,   // see Bound; except kBindFailed, which is kAcceptFailed
    kAcceptFailed,
    kWaitFailed,
    kBadMessage,  // a message that could not be read
    kOutOfMemory,
};

// A message in the listener's buffer, which is freed when the hook returns.
struct Message {
    IpcMsgHead head;
    u8* body;      // bodySize bytes of room with kExact and kUpTo, zero where nothing came
    u32 bodySize;  // how much of the body came
    size_t count;  // how much came in all, header included

    // The body as the record that it is; for kExact and kUpTo.
    template <typename Body>
    Body& As() {
        static_assert(std::is_trivially_copyable_v<Body>);
        static_assert(alignof(Body) <= 4, "the body follows a header of 12 bytes");
        return *reinterpret_cast<Body*>(body);
    }
};

struct ListenerService {
    const char* function;              // whom the log lines name
    const char* threadName;            // the kernel shows 15 characters
    const char* socketName = nullptr;  // below /tmp; null: each start brings its own
    bool detached = true;              // else KillListener() has a thread to wait for
    u32 bodySize;                      // see Reading
    Reading reading = Reading::kExact;
    Connections connections = Connections::kClose;
    AcceptFailure acceptFailure = AcceptFailure::kEnds;
    int tickSeconds = 0;  // 0: no time-out

    // What the log says when the thread cannot start; these always end it.
    const char* socketText = "socket error";           // with errno
    const char* serverText = "MakeAddrServer ERROR!";  // without
    const char* acceptText = "accept error";           // with errno
    // A failed wait, and the first step on a socket that could not be bound, which is closed: for a
    // service that selects before it accepts this says so.
    const char* waitText = nullptr;  // with errno; null: acceptText

    FailureRule outOfMemory = {"XMALLOC error", FailureRule::kPlain, Next::kGoOn};
    FailureRule shortRead = {"read message error", FailureRule::kErrno, Next::kGoOn};
    FailureRule wrongSize = {"the sended data is too long!", FailureRule::kPlain,
                             Next::kGoOn};  // kExact
    FailureRule shortBody = {};             // kHeadThenBody: the body did not come whole
    FailureRule bodyTooLong = {};  // kHeadThenBody: more than bodySize, which is not even allocated

    // Before the socket is made; kEnd ends the thread, and `bound` is not called.
    Next (*begin)(Listener& listener) = nullptr;
    // Once, after begin.
    void (*bound)(Listener& listener, Bound bound) = nullptr;
    Next (*message)(Listener& listener, Message& message);
    // No connection came for tickSeconds.
    Next (*tick)(Listener& listener) = nullptr;
    // At the end, always, after a cancellation too, with the sockets still open. A service that
    // clears its record here does it only if Release() says that the record is still its own.
    void (*ended)(Listener& listener, Ended why) = nullptr;
};

// A service's hold on one running listener; zero in the beginning.
struct ListenerSlot {
    Listener* current;
};

struct ListenerStart {
    void* argument = nullptr;          // for the hooks
    const char* socketName = nullptr;  // where the service has none; copied
    // Receives the thread's handle, and 0 when the slot is detached from the thread.
    pthread_t* handle = nullptr;
};

struct ListenerStop {
    int result;      // 0, or -1: there was no thread any more
    pthread_t join;  // 0: nobody to wait for
};

// Starts a listener and waits until it serves its socket or cannot. A listener that still runs in
// the slot is stopped. False without a thread; true even if the listener has ended since.
bool StartListener(const ListenerService& service, ListenerSlot& slot, const ListenerStart& start);

// Stops the slot's listener and detaches it: its socket takes no more connections. Waits for
// nothing, so it may be called with the service's lock held.
ListenerStop KillListener(ListenerSlot& slot);

// Waits for a killed thread that can be waited for. Not with a lock that its callback or a hook
// takes. A listener's own thread never waits for itself or for another listener, which might wait
// for it in turn: those end on their own.
void WaitListener(const ListenerStop& stop);

// Is the calling thread a listener's? It must not wait for anybody who may be waiting for it.
bool OnListenerThread();

// Around fork(2). The child's copies of all listeners are closed and forgotten, without a shutdown,
// which the parent's would feel.
void HoldListeners();
void ReleaseListeners();
void ForgetListeners();

// A listener as its hooks see it.
class Listener {
 public:
    void* Argument() const { return argument_; }
    const ListenerService& Service() const { return *service_; }
    const char* SocketName() const { return socketName_; }

    // The call site of a hook's log lines: VLOG_ERROR_AT(listener.At(__LINE__), ...).
    CallSite At(int line) const { return {service_->function, line}; }

    // Is it still its slot's listener? With the service's lock held the answer keeps.
    bool IsCurrent() const;

    // Detaches from the slot; false if that has happened already, by a kill or a newer start, and
    // what belongs to the slot must be left alone.
    bool Release();

 private:
    friend bool StartListener(const ListenerService&, ListenerSlot&, const ListenerStart&);
    friend ListenerStop KillListener(ListenerSlot&);

    friend void ForgetListeners();

    static constexpr size_t kKeptMax = 16;

    Listener(const ListenerService& service, const ListenerStart& start, bool& ready);
    ~Listener() = default;

    static void Run(void* listener);
    static void Finish(void* listener);

    void Enter(ListenerSlot& slot);
    void Leave();
    void Forget();
    ListenerStop Kill();
    void Detach();
    void CloseAll();
    bool IsStopped() const { return __atomic_load_n(&isStopped_, __ATOMIC_ACQUIRE); }

    void Announce();
    void Serve();
    bool Open();
    Bound Bind();
    Bound TakeName(Server& server);
    void MarkReady();
    Next ServeOne();
    Next AcceptOne();
    Next AcceptFailed();
    Next Receive();
    Next ReceiveAtOnce();
    Next ReceiveHeadThenBody();
    Next End(Ended why);
    int WaitForConnection();
    int Await(int fd, s64 deadline);
    ssize_t ReadOnce(void* to, size_t size);
    void Pause();
    // Not inlined, since they have variables in memory; see Await().
    [[gnu::noinline]] bool BeginWait();
    [[gnu::noinline]] void EndWait();
    [[gnu::noinline]] bool Accept();
    [[gnu::noinline]] Next Dispatch(u8* body, size_t bodySize, size_t count);
    [[gnu::noinline]] Next Fail(const FailureRule& rule, Ended why);
    [[gnu::noinline]] void LogErrno(const char* text) const;
    [[gnu::noinline]] void CloseConnection();
    [[gnu::noinline]] void Keep();
    [[gnu::noinline]] void CloseGone();

    const ListenerService* const service_;
    void* const argument_;
    Ended why_ = Ended::kKilled;
    s64 deadline_ = 0;  // of the message that is waited for
    Buffer buffer_;
    // Here and not on the stack, which a cancellation leaves as it is.
    IpcMsgHead head_ = {};
    timeval timeout_ = {};
    SelectSet set_;
    char socketName_[128];

    // Written with the engine's lock held; the listener's own thread reads them without.
    Listener* next_ = nullptr;  // of all listeners
    bool isStopped_ = false;
    int server_ = -1;
    int connection_ = -1;
    std::array<int, kKeptMax> kept_ = {};  // connections, the oldest first
    size_t keptCount_ = 0;

    // Guarded by the engine's lock.
    ListenerSlot* slot_ = nullptr;  // null: detached
    pthread_t* const handle_;
    pthread_t thread_ = 0;    // 0 until the thread runs
    bool isWaiting_ = false;  // for a connection: the thread, and nobody else, closes the server
    bool* ready_;             // the starter waits for it
};

}  // namespace vimbra

#endif
