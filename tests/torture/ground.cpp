#include "ground.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "answers.hpp"

namespace vimbra::tests::torture {

namespace {

using bed::Answer;
using bed::Bytes;
using bed::Message;
using bed::Pack;

// Without the bed's care, since whom it concerns may be gone.
int Connect(const char* name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "/tmp/%s", name);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

}  // namespace

// The connection is closed when all is done: until then it is there to be read from.
long Post(const char* name, u32 type, const Bytes& body) {
    const long before = g_events;
    const int fd = Connect(name);
    if (fd < 0) {
        return 0;
    }
    const Bytes message = Message(type, body);
    static_cast<void>(send(fd, message.data(), message.size(), MSG_NOSIGNAL));
    Injector::WaitQuiet();
    close(fd);
    return g_events - before;
}

std::string Arrives(const char* name, u32 type, const Bytes& body) {
    const long events = Post(name, type, body);
    return events == 1 ? "" : "the event arrives " + std::to_string(events) + " times";
}

void AddService(std::vector<Operation>& all, const Service& service) {
    const auto arrives = [service] { return Arrives(service.socket, service.type, service.body); };
    const auto stop = [service] {
        const long result = service.doStop();
        return !service.isStuck || !service.isStuck(result);
    };
    const auto start = [service] { service.doStart(); };
    all.push_back({.name = service.start,
                   .call = service.doStart,
                   .undo = stop,
                   .proof = arrives,
                   .lenient = service.lenient,
                   .spoils = service.spoils});
    if (service.stop != nullptr) {
        all.push_back({.name = service.stop,
                       .call = service.doStop,
                       .prepare = start,
                       .undo = stop,
                       .spoils = service.spoils});
    }
    all.push_back({.name = std::string(service.start) + ": event",
                   .call = [service] { return Post(service.socket, service.type, service.body); },
                   .prepare = start,
                   .undo = stop,
                   .good = 1,
                   .others = {0},
                   .spoils = service.spoils,
                   .isEvent = true});
}

// ---- Processes ----------------------------------------------------------------------------------

Fake::Fake(const std::string& name, const std::string& word) : name_(name), word_(word) {
    Revive();
}

Fake::~Fake() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

// The program itself again, with an end of a pipe that it closes when it has its name.
void Fake::Revive() {
    if (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0) {
        return;
    }
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) {
        abort();
    }
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        signal(SIGHUP, SIG_IGN);
        signal(SIGUSR1, SIG_IGN);
        dup2(ready[1], STDOUT_FILENO);
        execl("/proc/self/exe", name_.c_str(), "--wait", word_.c_str(), nullptr);
        _exit(1);
    }
    close(ready[1]);
    char none;
    static_cast<void>(read(ready[0], &none, 1) == 0);
    close(ready[0]);
}

void BeFake(const char* name) {
    prctl(PR_SET_NAME, name);
    close(STDOUT_FILENO);
    for (;;) {
        pause();
    }
}

void SetAnswers(bed::ScriptedDaemon& daemon) {
    daemon
        .On(277, Answer::Body(Pack().S32(0).U32(0).FillTo(456)))      // an interface's addresses
        .On(263, Answer::Body(Bytes(12)))                             // MAC address
        .On(274, Answer::Body(Pack().S32(0).U32(1500)))               // MTU
        .On(283, Answer::Body(Pack().S32(0).U32(1500).FillTo(928)))   // the interface report
        .On(272, Answer::Body(Pack().S32(0).Address(2, "10.0.0.1")))  // gateway
        .On(275, Answer::Body(Bytes(648)))                            // routes
        .On(285, Answer::Body(Bytes(204)))                            // network priority
        .On(281, Answer::Code(0))
        .On(0x804, Answer::Body(Pack().U32(1)));  // the DHCP server's state
}

}  // namespace vimbra::tests::torture
