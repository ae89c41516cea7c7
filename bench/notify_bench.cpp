// One notification through the listener engine, from connect to callback, against a bare thread
// that selects, accepts, reads and closes; and one start and stop of a service. Fails when the ratio is
// above the bound.
#include <semaphore.h>
#include <sys/select.h>
#include <vimbra/log.h>
#include <vimbra/stat.h>

#include <thread>
#include <vector>

#include "answerer.hpp"
#include "pairs.hpp"

namespace {

constexpr double kMostRatio = 1.05;
constexpr char kServicePath[] = "/tmp/ipc_stat";
constexpr char kBarePath[] = "/tmp/ipc_bare";
constexpr size_t kMessageSize = 84;

// A report of one interface.
struct Report {
    char bytes[kMessageSize] = {};

    Report() {
        const IpcMsgHead head = {0, kMessageSize - sizeof(IpcMsgHead), 0};
        memcpy(bytes, &head, sizeof(head));
        bytes[sizeof(head) + 16] = 1;
    }
};

sem_t g_called;

sockaddr_un Address(const char* path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    return address;
}

// Select, accept, read, close: a listener as one would write it down that can be told to stop.
void ServeBare(int server) {
    if (nice(-5) == -1) {  // As the library's threads do.
        perror("nice");
    }
    char message[kMessageSize];
    for (;;) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(server, &set);
        if (select(server + 1, &set, nullptr, nullptr, nullptr) != 1) {
            continue;
        }
        const int client = accept(server, nullptr, nullptr);
        if (read(client, message, sizeof(message)) == kMessageSize) {
            sem_post(&g_called);
        }
        close(client);
    }
}

void StartBare() {
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = Address(kBarePath);
    unlink(kBarePath);
    if (bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(server, 100) != 0) {
        perror(kBarePath);
        exit(1);
    }
    std::thread(ServeBare, server).detach();
}

// Connect, write, close; until the other side has dealt with it.
bool Notify(const char* path) {
    static const Report report;
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = Address(path);
    const bool sent =
        connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        write(fd, report.bytes, kMessageSize) == kMessageSize;
    close(fd);
    return sent && sem_wait(&g_called) == 0;
}

int Register() {
    return VimbraStatNotifyCallbackReg(1, [](TNetDevStat*, u32) { sem_post(&g_called); });
}

bool StartAndStop() {
    return Register() == VIMBRA_OK && VimbraStatStop() == VIMBRA_OK;
}

// What a service takes to start and to stop; the other process answers.
void MeasureStartAndStop() {
    std::vector<double> times;
    for (int i = 0; i < 1000; i++) {
        times.push_back(bench::Nanoseconds("start and stop", StartAndStop));
    }
    printf("%-14s %.0f ns\n", "start and stop", bench::Median(times));
}

// The sender is not interrupted between connect and write: whether the listener finds the message
// there or has to wait for it is else a matter of luck, and makes two different numbers.
void SendUninterrupted() {
    const sched_param first = {.sched_priority = 1};
    if (sched_setscheduler(0, SCHED_FIFO, &first) != 0) {
        perror("sched_setscheduler");
        exit(1);
    }
}

}  // namespace

int main() {
    bench::StayOnOneProcessor();
    const bench::Answerer answerer;
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    sem_init(&g_called, 0, 0);
    StartBare();
    MeasureStartAndStop();
    Register();
    SendUninterrupted();
    return bench::Compare(
               "notification", kMostRatio, [] { return Notify(kBarePath); },
               [] { return Notify(kServicePath); })
               ? 0
               : 1;
}
