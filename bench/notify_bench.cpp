// One notification through the listener engine, from connect to callback, against a bare thread
// that accepts, reads and closes; and one start and stop of a service. Prints the ratio of the
// medians and fails above the bound.
#include <benchmark/benchmark.h>
#include <sched.h>
#include <semaphore.h>
#include <vimbra/log.h>
#include <vimbra/stat.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "answerer.hpp"

namespace {

constexpr double kMostRatio = 1.10;
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

// What a listener costs at the very least.
void ServeBare(int server) {
    if (nice(-5) == -1) {  // As the library's threads do.
        perror("nice");
    }
    char message[kMessageSize];
    for (;;) {
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

void Notification(benchmark::State& state, const char* path) {
    for (auto _ : state) {
        if (!Notify(path)) {
            state.SkipWithError("the notification failed");
        }
    }
}

// A statistics service that runs over its own start and stop, answered by the other process.
void StartAndStop(benchmark::State& state) {
    VimbraStatStop();
    for (auto _ : state) {
        if (VimbraStatNotifyCallbackReg(1, [](TNetDevStat*, u32) { sem_post(&g_called); }) != 0 ||
            VimbraStatStop() != 0) {
            state.SkipWithError("the service failed");
        }
    }
}

void Library(benchmark::State& state) {
    VimbraStatNotifyCallbackReg(1, [](TNetDevStat*, u32) { sem_post(&g_called); });
    Notification(state, kServicePath);
}

void Bare(benchmark::State& state) {
    Notification(state, kBarePath);
}

BENCHMARK(Bare)->UseRealTime();
BENCHMARK(Library)->UseRealTime();
BENCHMARK(StartAndStop)->UseRealTime();

double Nanoseconds(const char* path) {
    const auto begin = std::chrono::steady_clock::now();
    if (!Notify(path)) {
        fprintf(stderr, "%s: the notification failed\n", path);
        exit(1);
    }
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin)
        .count();
}

double Median(std::vector<double>& values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

// The two in turns, each notification timed by itself: what else the machine does hits both alike
// and does not get into the medians.
double Ratio() {
    constexpr int kPairs = 30000;
    std::vector<double> bare;
    std::vector<double> library;
    for (int i = 0; i < kPairs; i++) {
        bare.push_back(Nanoseconds(kBarePath));
        library.push_back(Nanoseconds(kServicePath));
    }
    printf("medians in turns: bare %.0f ns, library %.0f ns\n", Median(bare), Median(library));
    return Median(library) / Median(bare);
}

// One processor for both sides, so that no wake-up of a sleeping one is measured.
void StayOnOneProcessor() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof(one), &one);
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Answerer answerer;
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    sem_init(&g_called, 0, 0);
    StayOnOneProcessor();
    StartBare();
    std::vector<char*> args(argv, argv + argc);
    std::string defaults[] = {"--benchmark_repetitions=5", "--benchmark_min_time=0.05",
                              "--benchmark_report_aggregates_only=true"};
    for (std::string& option : defaults) {
        args.insert(args.begin() + 1, option.data());
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    benchmark::RunSpecifiedBenchmarks();
    VimbraStatNotifyCallbackReg(1, [](TNetDevStat*, u32) { sem_post(&g_called); });
    const double ratio = Ratio();
    printf("notification library/bare %.3f (at most %.2f)%s\n", ratio, kMostRatio,
           ratio <= kMostRatio ? "" : "  TOO SLOW");
    return ratio <= kMostRatio ? 0 : 1;
}
