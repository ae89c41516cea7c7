// The other end of every measured exchange: a process that answers on the daemon's socket and does
// nothing else, the same for both contestants.
#ifndef VIMBRA_BENCH_ANSWERER_HPP
#define VIMBRA_BENCH_ANSWERER_HPP

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/ipc.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace bench {

inline constexpr char kDaemonPath[] = "/tmp/api_daemon";

inline sockaddr_un DaemonAddress() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, kDaemonPath, sizeof(kDaemonPath));
    return address;
}

// Answers the request types below with a zeroed body of their size until it is destroyed.
class Answerer {
 public:
    enum : u32 { kShortAnswer = 261, kLongAnswer = 277 };
    static constexpr s32 kShortSize = 4;
    static constexpr s32 kLongSize = 456;

    Answerer() {
        const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_un address = DaemonAddress();
        unlink(kDaemonPath);
        if (server < 0 ||
            bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
            listen(server, 100) != 0) {
            perror(kDaemonPath);
            exit(1);
        }
        child_ = fork();
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            Serve(server);
        }
        close(server);
    }
    ~Answerer() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
        unlink(kDaemonPath);
    }
    Answerer(const Answerer&) = delete;
    Answerer& operator=(const Answerer&) = delete;

 private:
    [[noreturn]] static void Serve(int server) {
        char request[4096];
        char reply[sizeof(IpcMsgHead) + kLongSize] = {};
        for (;;) {
            const int client = accept(server, nullptr, nullptr);
            if (client < 0) {
                continue;
            }
            if (read(client, request, sizeof(request)) >=
                static_cast<ssize_t>(sizeof(IpcMsgHead))) {
                IpcMsgHead head;
                memcpy(&head, request, sizeof(head));
                head.size = head.type == kLongAnswer ? kLongSize : kShortSize;
                memcpy(reply, &head, sizeof(head));
                // Who asked may have gone.
                send(client, reply, sizeof(head) + head.size, MSG_NOSIGNAL);
            }
            close(client);
        }
    }

    pid_t child_ = -1;
};

}  // namespace bench

#endif
