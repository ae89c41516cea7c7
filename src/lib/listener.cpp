#include "lib/listener.hpp"

#include <poll.h>
#include <unistd.h>
#include <vimbra/thread.h>

#include <new>

#include "lib/ipc_api_msg.hpp"
#include "lib/lock.hpp"
#include "lib/memory.hpp"
#include "lib/text.hpp"

namespace vimbra {

namespace {

constexpr int kStackSize = 0x200000;
constexpr int kPriority = 5;
constexpr int kPauseMicroseconds = 200000;

pthread_mutex_t g_tListenerMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t g_tSettled = PTHREAD_COND_INITIALIZER;

thread_local bool t_isListener = false;

// Errors of accept(2) that have nothing to do with the listening socket itself.
bool IsPassing(int error) {
    switch (error) {
        case ECONNABORTED:
        case EMFILE:
        case ENFILE:
        case ENOBUFS:
        case ENOMEM:
        case EPERM:
        case EPROTO:
            return true;
        default:
            return false;
    }
}

// Not inlined, since it has a variable in memory; see Listener::ReadOnce().
[[gnu::noinline]] bool HasHungUp(int fd) {
    pollfd look = {fd, 0, 0};
    return poll(&look, 1, 0) > 0;
}

void CloseOnce(int& fd) {
    if (fd >= 0) {
        close(fd);
        fd = -1;
    }
}

}  // namespace

// ---- The service's side -------------------------------------------------------------------------

pthread_t StartListener(const ListenerService& service, ListenerSlot& slot,
                        const ListenerStart& start) {
    void* const memory = malloc(sizeof(Listener));
    if (memory == nullptr) {
        LogErrnoAt({service.detached ? "ThreadSpawnDeatched" : "ThreadSpawn", __LINE__},
                   "THREAD: spawn() malloc error");
        return 0;
    }
    bool settled = false;
    auto* const listener = new (memory) Listener(service, start, settled);

    const Lock lock(g_tListenerMutex);
    if (slot.current != nullptr) {
        const ListenerStop stop = slot.current->Kill();
        ThreadDetach(stop.join);
    }
    const auto spawn = service.detached ? ThreadSpawnDeatched : ThreadSpawn;
    const pthread_t thread = spawn(const_cast<char*>(service.threadName), Listener::Run, listener,
                                   kStackSize, SCHED_OTHER, kPriority);
    if (thread == 0) {
        listener->~Listener();
        free(listener);
        return 0;
    }
    listener->thread_ = thread;
    listener->slot_ = &slot;
    slot.current = listener;
    if (start.handle != nullptr) {
        *start.handle = thread;
    }
    while (!settled) {
        pthread_cond_wait(&g_tSettled, &g_tListenerMutex);
    }
    return thread;
}

ListenerStop KillListener(ListenerSlot& slot) {
    const Lock lock(g_tListenerMutex);
    if (slot.current == nullptr) {
        return {-1, 0};
    }
    ListenerStop stop = slot.current->Kill();
    if (stop.join != 0 && t_isListener) {
        ThreadDetach(stop.join);
        stop.join = 0;
    }
    return stop;
}

void WaitListener(const ListenerStop& stop) {
    if (stop.join != 0) {
        ThreadWait(stop.join);
    }
}

bool OnListenerThread() {
    return t_isListener;
}

void AbandonListener(ListenerSlot& slot) {
    const Lock lock(g_tListenerMutex);
    if (slot.current != nullptr) {
        if (!slot.current->service_->detached) {
            ThreadDetach(slot.current->thread_);
        }
        slot.current->LetGo();
    }
}

// ---- Between the two ----------------------------------------------------------------------------

Listener::Listener(const ListenerService& service, const ListenerStart& start, bool& settled)
    : service_(&service), argument_(start.argument), handle_(start.handle), settled_(&settled) {
    CopyText(socketName_, sizeof(socketName_),
             service.socketName != nullptr ? service.socketName : start.socketName);
}

Listener::~Listener() {
    CloseOnce(connection_);
    for (size_t i = 0; i < keptCount_; i++) {
        close(kept_[i]);
    }
    CloseOnce(server_);
}

// With the lock held.
ListenerStop Listener::Kill() {
    const ListenerStop stop = {ThreadKill(thread_), service_->detached ? 0 : thread_};
    // A thread that still waits on it keeps it open a moment longer: nobody connects any more.
    shutdown(server_, SHUT_RDWR);
    CloseOnce(server_);
    LetGo();
    return stop;
}

// With the lock held.
void Listener::LetGo() {
    slot_->current = nullptr;
    if (handle_ != nullptr) {
        *handle_ = 0;
    }
    slot_ = nullptr;
}

bool Listener::IsCurrent() const {
    const Lock lock(g_tListenerMutex);
    return slot_ != nullptr;
}

bool Listener::Release() {
    const Lock lock(g_tListenerMutex);
    if (slot_ == nullptr) {
        return false;
    }
    LetGo();
    // Nobody knows of it any more who could wait for it.
    if (!service_->detached) {
        ThreadDetach(thread_);
    }
    return true;
}

// The starter may go on.
void Listener::Settle() {
    const Lock lock(g_tListenerMutex);
    if (settled_ != nullptr) {
        *settled_ = true;
        settled_ = nullptr;
        pthread_cond_broadcast(&g_tSettled);
    }
}

// ---- The thread ---------------------------------------------------------------------------------

void Listener::Run(void* listener) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    t_isListener = true;
    pthread_cleanup_push(Finish, listener);
    static_cast<Listener*>(listener)->Serve();
    pthread_cleanup_pop(1);
}

// What is left of a listener, however it ends. The slot is let go of first: who sees a socket close
// may start the service again.
void Listener::Finish(void* argument) {
    auto* listener = static_cast<Listener*>(argument);
    listener->Settle();
    if (listener->service_->ended != nullptr) {
        listener->service_->ended(*listener, listener->why_);
    }
    listener->Release();
    listener->~Listener();
    free(listener);
}

void Listener::Serve() {
    if (service_->begin != nullptr && service_->begin(*this) == Next::kEnd) {
        End(Ended::kByService);
        return;
    }
    if (!Open()) {
        return;
    }
    while (ServeOne() == Next::kGoOn) {
    }
}

bool Listener::Open() {
    const Bound bound = Bind();
    if (service_->bound != nullptr) {
        service_->bound(*this, bound);
    }
    Settle();
    if (bound == Bound::kListening) {
        return true;
    }
    End(Ended::kNotBound);
    if (bound == Bound::kBindFailed) {
        // Its descriptor is closed, its number perhaps somebody else's: only what accepting on it
        // would have told is told.
        errno = EBADF;
        LogErrno(service_->waitText != nullptr ? service_->waitText : service_->acceptText);
        End(Ended::kAcceptFailed);
    }
    return false;
}

Bound Listener::Bind() {
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (server < 0) {
        LogErrno(service_->socketText);
        return Bound::kSocketFailed;
    }
    // In one step: who was told to stop must not take the name from who was started since.
    Lock lock(g_tListenerMutex);
    if (slot_ == nullptr) {
        close(server);
        return Bound::kToldToStop;
    }
    sockaddr_un address;
    socklen_t length;
    switch (MakeServer(server, socketName_, &address, &length)) {
        case Server::kListening:
            break;
        case Server::kFailed:
            return Bound::kBindFailed;
        case Server::kNameTooLong:
            lock.Unlock();
            close(server);
            VLOG_ERROR_AT(At(__LINE__), "%s", service_->serverText);
            return Bound::kNameRefused;
    }
    server_ = server;
    listening_ = server;
    return Bound::kListening;
}

Next Listener::ServeOne() {
    const int ready = WaitForConnection();
    if (ready < 0) {
        LogErrno(service_->waitText != nullptr ? service_->waitText : service_->acceptText);
        return End(Ended::kWaitFailed);
    }
    if (ready == 0) {
        return service_->tick(*this) == Next::kGoOn ? Next::kGoOn : End(Ended::kByService);
    }
    return AcceptOne();
}

Next Listener::AcceptOne() {
    CloseGone();
    connection_ = Accept();
    if (connection_ < 0) {
        return AcceptFailed();
    }
    const Next next = Receive();
    buffer_.Free();
    if (next == Next::kEnd) {
        return next;
    }
    if (connection_ >= 0 && service_->connections == Connections::kKeep) {
        Keep();
    } else {
        CloseOnce(connection_);
    }
    return next;
}

// Locked against who closes the server: its number may be somebody else's right after. The socket
// does not block, so neither does the lock.
int Listener::Accept() {
    const Lock lock(g_tListenerMutex);
    if (server_ < 0) {
        errno = 0;
        return -1;
    }
    return accept4(server_, nullptr, nullptr, SOCK_CLOEXEC);
}

Next Listener::AcceptFailed() {
    const int error = errno;
    if (error == 0) {
        return End(Ended::kKilled);
    }
    if (error == EAGAIN || error == EINTR) {
        return Next::kGoOn;
    }
    LogErrno(service_->acceptText);
    if (service_->acceptFailure == AcceptFailure::kEnds || !IsPassing(error)) {
        return End(Ended::kAcceptFailed);
    }
    // The connection still waits and would be found again at once.
    Pause();
    return Next::kGoOn;
}

Next Listener::Receive() {
    return service_->reading == Reading::kHeadThenBody ? ReceiveHeadThenBody() : ReceiveAtOnce();
}

Next Listener::ReceiveAtOnce() {
    const size_t size = sizeof(head_) + service_->bodySize;
    if (!buffer_.Allocate(size)) {
        return Fail(service_->outOfMemory, Ended::kOutOfMemory);
    }
    const ssize_t count = ReadOnce(buffer_.Get(), size);
    const bool exact = service_->reading == Reading::kExact;
    if (count < 0 || (exact && static_cast<size_t>(count) != size)) {
        return Fail(service_->shortRead, Ended::kBadMessage);
    }
    memcpy(&head_, buffer_.Get(), sizeof(head_));
    if (exact && head_.size != service_->bodySize) {
        return Fail(service_->wrongSize, Ended::kBadMessage);
    }
    const size_t came = static_cast<size_t>(count);
    return Dispatch(buffer_.Get() + sizeof(head_), came > sizeof(head_) ? came - sizeof(head_) : 0,
                    came);
}

Next Listener::ReceiveHeadThenBody() {
    if (ReadOnce(&head_, sizeof(head_)) != static_cast<ssize_t>(sizeof(head_))) {
        return Fail(service_->shortRead, Ended::kBadMessage);
    }
    if (head_.size > service_->bodySize) {
        return Fail(service_->bodyTooLong, Ended::kBadMessage);
    }
    if (!buffer_.Allocate(head_.size > 0 ? head_.size : 1)) {
        return Fail(service_->outOfMemory, Ended::kOutOfMemory);
    }
    if (head_.size > 0 && ReadOnce(buffer_.Get(), head_.size) != static_cast<ssize_t>(head_.size)) {
        return Fail(service_->shortBody, Ended::kBadMessage);
    }
    return Dispatch(buffer_.Get(), head_.size, sizeof(head_) + head_.size);
}

Next Listener::Dispatch(u8* body, size_t bodySize, size_t count) {
    Message message = {head_, body, static_cast<u32>(bodySize), count};
    const Next next = service_->message(*this, message);
    // The application may have changed it.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    return next == Next::kGoOn ? next : End(Ended::kByService);
}

Next Listener::Fail(const Trouble& trouble, Ended why) {
    if (trouble.text != nullptr) {
        if (trouble.form == Trouble::kErrno) {
            LogErrno(trouble.text);
        } else {
            VLOG_ERROR_AT(At(__LINE__), "%s", trouble.text);
        }
    }
    CloseOnce(connection_);
    return trouble.next == Next::kGoOn ? Next::kGoOn : End(why);
}

void Listener::LogErrno(const char* text) const {
    LogErrnoAt(At(__LINE__), text);
}

Next Listener::End(Ended why) {
    why_ = why;
    return Next::kEnd;
}

// Cancellation acts in the next three functions only. Neither they nor any function that leads to
// them may hold anything that only its own code would give back, or have variables in memory: the
// stack is left as it is. A signal, which may be the application's own business, starts the wait
// again with the time that is left.

// As select(2): cut short, it has taken nothing that could be lost. A cancelled accept(2) may have.
int Listener::WaitForConnection() {
    if (!set_.Watch(listening_)) {
        return -1;
    }
    const bool limited = service_->tickSeconds > 0;
    timeout_ = {service_->tickSeconds, 0};
    for (;;) {
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        const int ready = set_.WaitReadable(limited ? &timeout_ : nullptr);
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        if (ready >= 0 || errno != EINTR) {
            return ready;
        }
    }
}

// One read, as read(2). errno is 0 when it was merely short.
ssize_t Listener::ReadOnce(void* to, size_t size) {
    for (;;) {
        errno = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        const ssize_t count = read(connection_, to, size);
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        if (count >= 0 || errno != EINTR) {
            return count;
        }
    }
}

void Listener::Pause() {
    timeout_ = {0, kPauseMicroseconds};
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    select(0, nullptr, nullptr, nullptr, &timeout_);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

void Listener::Keep() {
    if (keptCount_ == kKeptMax) {
        close(kept_[0]);
        keptCount_--;
        memmove(&kept_[0], &kept_[1], keptCount_ * sizeof(kept_[0]));
    }
    kept_[keptCount_++] = connection_;
    connection_ = -1;
}

// Closes the kept connections whose peers have closed them.
void Listener::CloseGone() {
    size_t left = 0;
    for (size_t i = 0; i < keptCount_; i++) {
        if (HasHungUp(kept_[i])) {
            close(kept_[i]);
        } else {
            kept_[left++] = kept_[i];
        }
    }
    keptCount_ = left;
}

}  // namespace vimbra
