// One request and its reply through the library, against the bare system calls of the same exchange
// with the same answering process. Prints the ratio of the medians and fails above the bound.
#include <benchmark/benchmark.h>
#include <sys/select.h>
#include <vimbra/ipc.h>
#include <vimbra/log.h>

#include <map>
#include <string>
#include <vector>

#include "answerer.hpp"

namespace {

constexpr double kMostRatio = 1.05;

struct Exchange {
    u32 type;
    s32 requestSize;
    s32 replySize;
};

constexpr Exchange kRead = {bench::Answerer::kLongAnswer, 18, bench::Answerer::kLongSize};
constexpr Exchange kSet = {bench::Answerer::kShortAnswer, 470, bench::Answerer::kShortSize};

// Socket, connect, select, write, select, read, close: what the exchange costs at the very least.
bool BareExchange(const Exchange& exchange, char* request, char* reply) {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = bench::DaemonAddress();
    bool done = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval timeout = {60, 0};
    done = done && select(fd + 1, nullptr, &set, nullptr, &timeout) == 1;
    const ssize_t requestSize = static_cast<ssize_t>(sizeof(IpcMsgHead)) + exchange.requestSize;
    done = done && write(fd, request, static_cast<size_t>(requestSize)) == requestSize;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    done = done && select(fd + 1, &set, nullptr, nullptr, &timeout) == 1;
    const ssize_t replySize = static_cast<ssize_t>(sizeof(IpcMsgHead)) + exchange.replySize;
    done = done && read(fd, reply, static_cast<size_t>(replySize)) == replySize;
    close(fd);
    return done;
}

void Bare(benchmark::State& state, Exchange exchange) {
    char request[1024] = {};
    char reply[1024] = {};
    const IpcMsgHead head = {exchange.type, static_cast<u32>(exchange.requestSize), 0};
    memcpy(request, &head, sizeof(head));
    for (auto _ : state) {
        if (!BareExchange(exchange, request, reply)) {
            state.SkipWithError("the exchange failed");
        }
    }
}

void Library(benchmark::State& state, Exchange exchange) {
    const char request[1024] = {};
    char reply[1024] = {};
    for (auto _ : state) {
        if (IpcApiSendAndRecv(exchange.type, request, exchange.requestSize, reply,
                              exchange.replySize) != VIMBRA_OK) {
            state.SkipWithError("the exchange failed");
        }
    }
}

BENCHMARK_CAPTURE(Bare, read_18_456, kRead);
BENCHMARK_CAPTURE(Library, read_18_456, kRead);
BENCHMARK_CAPTURE(Bare, set_470_4, kSet);
BENCHMARK_CAPTURE(Library, set_470_4, kSet);

// The usual table, and the medians kept for the comparison.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                medians[run.run_name.function_name] = run.GetAdjustedRealTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    std::map<std::string, double> medians;
};

// For strace and allocation counters: so many exchanges and nothing else.
int RunPlain(int count) {
    const char request[18] = {};
    char reply[bench::Answerer::kLongSize];
    for (int i = 0; i < count; i++) {
        if (IpcApiSendAndRecv(kRead.type, request, kRead.requestSize, reply, kRead.replySize) !=
            0) {
            return 1;
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Answerer answerer;
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    if (argc == 3 && std::string(argv[1]) == "--plain") {
        return RunPlain(atoi(argv[2]));
    }
    // Interleaved, so that whatever else the machine does hits both alike.
    std::vector<char*> args(argv, argv + argc);
    std::string defaults[] = {"--benchmark_repetitions=21", "--benchmark_min_time=0.05",
                              "--benchmark_enable_random_interleaving=true",
                              "--benchmark_report_aggregates_only=true"};
    for (std::string& option : defaults) {
        args.insert(args.begin() + 1, option.data());
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    int status = 0;
    for (const char* exchange : {"read_18_456", "set_470_4"}) {
        const auto bare = reporter.medians.find(std::string("Bare/") + exchange);
        const auto library = reporter.medians.find(std::string("Library/") + exchange);
        if (bare == reporter.medians.end() || library == reporter.medians.end()) {
            continue;
        }
        const double ratio = library->second / bare->second;
        printf("%-12s library/bare %.3f (at most %.2f)%s\n", exchange, ratio, kMostRatio,
               ratio <= kMostRatio ? "" : "  TOO SLOW");
        if (ratio > kMostRatio) {
            status = 1;
        }
    }
    return status;
}
