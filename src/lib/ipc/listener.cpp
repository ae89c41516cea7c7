#include "lib/ipc/listener.hpp"

#include <poll.h>
#include <unistd.h>
#include <vimbra/thread.h>

#include <algorithm>
#include <ctime>
#include <new>

#include "lib/base/lock.hpp"
#include "lib/base/text.hpp"
#include "lib/base/thread_local.hpp"

namespace vimbra {

namespace {

constexpr int kStackSize = 0x200000;
constexpr int kPriority = 5;
constexpr int kPauseMicroseconds = 200000;
constexpr s64 kForEver = -1;

pthread_mutex_t g_tListenerMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t g_tReady = PTHREAD_COND_INITIALIZER;

// All that there are, so that a forked child can close its copies.
Listener* g_ptListeners = nullptr;

// The calling thread's.
VIMBRA_THREAD_LOCAL thread_local Listener* t_own = nullptr;

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

// Not inlined, like the next one, since it has a variable in memory; see Listener::Await().
[[gnu::noinline]] bool HasHungUp(int fd) {
    pollfd look = {fd, 0, 0};
    return poll(&look, 1, 0) > 0;
}

// Milliseconds on a clock that nobody sets.
[[gnu::noinline]] s64 Now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<s64>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void CloseOnce(int& fd) {
    if (fd >= 0) {
        close(fd);
        fd = -1;
    }
}

timeval Until(s64 deadline) {
    // A deadline is seconds away, so that a word holds it: a division of 64 bits is a function of its
    // own where the processor has none.
    const s32 left = static_cast<s32>(std::max<s64>(deadline - Now(), 0));
    return {left / 1000, left % 1000 * 1000};
}

}  // namespace

// ---- The service's side -------------------------------------------------------------------------

bool StartListener(const ListenerService& service, ListenerSlot& slot, const ListenerStart& start) {
    void* const memory = malloc(sizeof(Listener));
    if (memory == nullptr) {
        LogErrnoAt({service.detached ? "ThreadSpawnDeatched" : "ThreadSpawn", __LINE__},
                   "THREAD: spawn() malloc error");
        return false;
    }
    bool ready = false;
    auto* const listener = new (memory) Listener(service, start, ready);
    listener->Enter(slot);

    const auto spawn = service.detached ? ThreadSpawnDeatched : ThreadSpawn;
    if (spawn(const_cast<char*>(service.threadName), Listener::Run, listener, kStackSize,
              SCHED_OTHER, kPriority) == 0) {
        listener->Leave();
        return false;
    }
    const Lock lock(g_tListenerMutex);
    while (!ready) {
        pthread_cond_wait(&g_tReady, &g_tListenerMutex);
    }
    return true;
}

ListenerStop KillListener(ListenerSlot& slot) {
    const Lock lock(g_tListenerMutex);
    if (slot.current == nullptr) {
        return {-1, 0};
    }
    ListenerStop stop = slot.current->Kill();
    if (stop.join != 0 && OnListenerThread()) {
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
    return t_own != nullptr;
}

// ---- Between the two ----------------------------------------------------------------------------

Listener::Listener(const ListenerService& service, const ListenerStart& start, bool& ready)
    : service_(&service), argument_(start.argument), handle_(start.handle), ready_(&ready) {
    CopyText(socketName_, sizeof(socketName_),
             service.socketName != nullptr ? service.socketName : start.socketName);
}

// Into the slot, whose running listener has had its time.
void Listener::Enter(ListenerSlot& slot) {
    const Lock lock(g_tListenerMutex);
    if (slot.current != nullptr) {
        ThreadDetach(slot.current->Kill().join);
    }
    slot_ = &slot;
    slot.current = this;
    next_ = g_ptListeners;
    g_ptListeners = this;
}

// The end of it.
void Listener::Leave() {
    {
        const Lock lock(g_tListenerMutex);
        Detach();
        CloseAll();
        Listener** link = &g_ptListeners;
        while (*link != this) {
            link = &(*link)->next_;
        }
        *link = next_;
    }
    this->~Listener();
    free(this);
}

// With the lock held, all until the next line.

ListenerStop Listener::Kill() {
    const ListenerStop stop = {0, service_->detached ? 0 : thread_};
    __atomic_store_n(&isStopped_, true, __ATOMIC_RELEASE);
    shutdown(server_, SHUT_RDWR);
    shutdown(connection_, SHUT_RD);
    if (!isWaiting_) {
        CloseOnce(server_);
    }
    Detach();
    return stop;
}

void Listener::Detach() {
    if (slot_ == nullptr) {
        return;
    }
    slot_->current = nullptr;
    slot_ = nullptr;
    if (handle_ != nullptr) {
        *handle_ = 0;
    }
}

void Listener::CloseAll() {
    CloseOnce(connection_);
    for (size_t i = 0; i < keptCount_; i++) {
        close(kept_[i]);
    }
    keptCount_ = 0;
    CloseOnce(server_);
}

// ------------------------------------------------------------------------------------------------

bool Listener::IsCurrent() const {
    const Lock lock(g_tListenerMutex);
    return slot_ != nullptr;
}

bool Listener::Release() {
    const Lock lock(g_tListenerMutex);
    if (slot_ == nullptr) {
        return false;
    }
    Detach();
    // Nobody knows of it any more who could wait for it.
    if (!service_->detached) {
        ThreadDetach(thread_);
    }
    return true;
}

// The starter may go on.
void Listener::MarkReady() {
    const Lock lock(g_tListenerMutex);
    if (ready_ != nullptr) {
        *ready_ = true;
        ready_ = nullptr;
        pthread_cond_broadcast(&g_tReady);
    }
}

// ---- Around fork(2) -----------------------------------------------------------------------------

void HoldListeners() {
    pthread_mutex_lock(&g_tListenerMutex);
}

void ReleaseListeners() {
    pthread_mutex_unlock(&g_tListenerMutex);
}

// The child has one thread: nobody serves these any more, except where a callback has forked, which
// may return to its listener.
void ForgetListeners() {
    Listener* listener = g_ptListeners;
    g_ptListeners = nullptr;
    while (listener != nullptr) {
        Listener* const next = listener->next_;
        listener->Forget();
        listener = next;
    }
    g_tReady = PTHREAD_COND_INITIALIZER;
    pthread_mutex_unlock(&g_tListenerMutex);
}

void Listener::Forget() {
    isStopped_ = true;
    ready_ = nullptr;
    Detach();
    CloseAll();
    if (this == t_own) {
        next_ = g_ptListeners;
        g_ptListeners = this;
    } else {
        this->~Listener();
        free(this);
    }
}

// ---- The thread ---------------------------------------------------------------------------------

void Listener::Run(void* argument) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    t_own = static_cast<Listener*>(argument);
    pthread_cleanup_push(Finish, argument);
    t_own->Announce();
    t_own->Serve();
    pthread_cleanup_pop(1);
}

// What is left of a listener, however it ends. It is detached from its slot first: who sees a
// socket close may start the service again.
void Listener::Finish(void* argument) {
    auto* listener = static_cast<Listener*>(argument);
    listener->MarkReady();
    if (listener->service_->ended != nullptr) {
        listener->service_->ended(*listener, listener->why_);
    }
    listener->Release();
    listener->Leave();
}

// Publishes its handle, unless it was stopped before it ran: then nobody waits for it.
void Listener::Announce() {
    const Lock lock(g_tListenerMutex);
    thread_ = pthread_self();
    if (slot_ == nullptr) {
        ThreadDetach(thread_);
    } else if (handle_ != nullptr) {
        *handle_ = thread_;
    }
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
    MarkReady();
    if (bound == Bound::kListening) {
        return true;
    }
    End(Ended::kNotBound);
    if (bound == Bound::kBindFailed) {
        // Its descriptor is closed: the log says what accepting on it would have said.
        errno = EBADF;
        LogErrno(service_->waitText != nullptr ? service_->waitText : service_->acceptText);
        End(Ended::kAcceptFailed);
    }
    return false;
}

Bound Listener::Bind() {
    Server server = Server::kListening;
    const Bound bound = TakeName(server);
    if (bound == Bound::kSocketFailed) {
        LogErrno(service_->socketText);
    } else if (bound != Bound::kListening && bound != Bound::kStopped) {
        LogServer(server);
    }
    if (bound == Bound::kNameRefused) {
        VLOG_ERROR_AT(At(__LINE__), "%s", service_->serverText);
    }
    return bound;
}

// In one step: a stopped listener must not take the name from one that was started since.
Bound Listener::TakeName(Server& server) {
    const Lock lock(g_tListenerMutex);
    if (slot_ == nullptr) {
        return Bound::kStopped;
    }
    server_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (server_ < 0) {
        return Bound::kSocketFailed;
    }
    sockaddr_un address;
    socklen_t length;
    server = MakeServer(server_, socketName_, &address, &length);
    if (server == Server::kListening) {
        return Bound::kListening;
    }
    const int error = errno;
    CloseOnce(server_);
    errno = error;
    return server == Server::kNameTooLong ? Bound::kNameRefused : Bound::kBindFailed;
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
    if (!Accept()) {
        return AcceptFailed();
    }
    deadline_ = Now() + kMessageSeconds * 1000;
    const Next next = Receive();
    buffer_.Free();
    if (next == Next::kEnd) {
        return next;
    }
    if (service_->connections == Connections::kKeep) {
        Keep();
    } else {
        CloseConnection();
    }
    return next;
}

// The socket does not block, so neither does the lock.
bool Listener::Accept() {
    const Lock lock(g_tListenerMutex);
    if (isStopped_) {
        errno = 0;
        return false;
    }
    connection_ = accept4(server_, nullptr, nullptr, SOCK_CLOEXEC);
    return connection_ >= 0;
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
    if (IsStopped()) {
        return End(Ended::kKilled);
    }
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
    if (IsStopped()) {
        return End(Ended::kKilled);
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

Next Listener::Fail(const FailureRule& rule, Ended why) {
    if (IsStopped()) {
        return End(Ended::kKilled);  // The stop has cut the message.
    }
    if (rule.text != nullptr) {
        if (rule.form == FailureRule::kErrno) {
            LogErrno(rule.text);
        } else {
            VLOG_ERROR_AT(At(__LINE__), "%s", rule.text);
        }
    }
    CloseConnection();
    return rule.next == Next::kGoOn ? Next::kGoOn : End(why);
}

void Listener::LogErrno(const char* text) const {
    LogErrnoAt(At(__LINE__), text);
}

Next Listener::End(Ended why) {
    why_ = why;
    return Next::kEnd;
}

int Listener::WaitForConnection() {
    if (!BeginWait()) {
        return 1;  // Accepting tells why.
    }
    const int seconds = service_->tickSeconds;
    const int ready = Await(server_, seconds > 0 ? Now() + seconds * 1000 : kForEver);
    const int error = errno;
    EndWait();
    errno = error;
    return ready;
}

// False when it is stopped.
bool Listener::BeginWait() {
    const Lock lock(g_tListenerMutex);
    isWaiting_ = !isStopped_;
    return isWaiting_;
}

void Listener::EndWait() {
    const Lock lock(g_tListenerMutex);
    isWaiting_ = false;
    if (isStopped_) {
        CloseOnce(server_);
    }
}

// One read, as read(2), that waits until the message's deadline. errno is 0 when it was merely
// short.
ssize_t Listener::ReadOnce(void* to, size_t size) {
    for (;;) {
        errno = 0;
        const ssize_t count = recv(connection_, to, size, MSG_DONTWAIT);
        if (count >= 0 || (errno != EAGAIN && errno != EINTR)) {
            return count;
        }
        const int ready = Await(connection_, deadline_);
        if (ready <= 0) {
            errno = ready == 0 ? ETIMEDOUT : errno;
            return -1;
        }
    }
}

void Listener::Pause() {
    timeout_ = {0, kPauseMicroseconds};
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    select(0, nullptr, nullptr, nullptr, &timeout_);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

// As select(2) of one descriptor that is to be read. Not poll(2), which refuses to wait for
// anything where the limit of descriptors is 0. Cancellation acts here and in the pause: cut short,
// they have taken nothing that could be lost. Neither they nor any function that leads to them may
// hold anything that only its own code would give back, or have variables in memory: the stack is
// left as it is. A signal, which may be the application's own business, starts the wait again with
// the time that is left.
int Listener::Await(int fd, s64 deadline) {
    if (!set_.Watch(fd)) {
        return -1;
    }
    const bool isLimited = deadline != kForEver;
    for (;;) {
        if (isLimited) {
            timeout_ = Until(deadline);
        }
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        const int ready = set_.WaitReadable(isLimited ? &timeout_ : nullptr);
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        if (ready >= 0 || errno != EINTR) {
            return ready;
        }
    }
}

void Listener::CloseConnection() {
    const Lock lock(g_tListenerMutex);
    CloseOnce(connection_);
}

void Listener::Keep() {
    const Lock lock(g_tListenerMutex);
    if (connection_ < 0) {
        return;
    }
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
    const Lock lock(g_tListenerMutex);
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
