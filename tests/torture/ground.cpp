#include "ground.hpp"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

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
