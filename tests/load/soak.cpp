// Very many requests, notifications, starts and stops, and what the process holds before and after:
// level is a pass, anything else fails.
//
//     soak [--short] [--daemon PID] [--only NAME]... [--rounds NUMBER]
//
// Without --daemon a process of its own answers every request at once. With it the daemon that
// serves is asked, and what that process holds is looked at too. --only picks "requests",
// "notifications" and services by the names that are printed, --rounds says how often each service
// is started and stopped. Run it under vimbra-sandbox.
#include <fcntl.h>
#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/log.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "answerer.hpp"
#include "reporting.hpp"

namespace vimbra::tests {
namespace {

struct Amounts {
    unsigned long requests = 1'000'000;
    unsigned long notifications = 1'000'000;
    unsigned long rounds = 10'000;
    // Of the services whose threads linger, so many at a time.
    unsigned long atOnce = 1000;
};
constexpr Amounts kShort = {40'000, 48'000, 400, 200};

constexpr char kRequests[] = "requests";
constexpr char kNotifications[] = "notifications";

struct Options {
    Amounts amounts;
    std::string daemon;          // its process id, if it is not a process of our own
    std::set<std::string> only;  // empty: everything
};

// What the C library may keep more of from one look to the next: a stack or two that threads which
// met by chance have left in its store.
constexpr long kSlack = 128;
// What it may keep of each thread that ran with others: the heap of all that ran at the same time
// stays, with small holes that the next ones fill, as long as the table of threads knows their
// handles.
constexpr long kLingererKb = 4;
// And of the first rounds of whatever kind: an arena for each of the threads that run at once.
constexpr long kFirstKb = 2048;

// ---- What a process holds ----------------------------------------------------------------------

struct Held {
    long descriptors;
    long threads;
    long privateKb;  // that nobody else has, written to
    // Of our own process, else 0: the most threads that were seen at once so far.
    long mostThreads;
};

long g_mostThreads = 0;

// Of our own process, as the kernel counts them: one number, however many there are.
long SeeThreads() {
    constexpr int kBetween = 17;
    std::ifstream file("/proc/self/stat");
    std::string text;
    std::getline(file, text);
    // Behind the name.
    std::istringstream words(text.substr(text.rfind(')') + 1));
    std::string word;
    for (int i = 0; i < kBetween; i++) {
        words >> word;
    }
    long threads = 0;
    words >> threads;
    g_mostThreads = std::max(g_mostThreads, threads);
    return threads;
}

long CountEntries(const std::string& path) {
    std::error_code gone;
    long count = 0;
    for (std::filesystem::directory_iterator entry(path, gone), end; entry != end;
         entry.increment(gone)) {
        count++;
    }
    return count;
}

Held HeldBy(const std::string& process) {
    const std::string root = "/proc/" + process;
    Held held = {CountEntries(root + "/fd"), CountEntries(root + "/task"), 0,
                 process == "self" ? g_mostThreads : 0};
    std::ifstream maps(root + "/smaps_rollup");
    for (std::string line; std::getline(maps, line);) {
        if (line.starts_with("Private_Dirty:")) {
            held.privateKb = std::stol(line.substr(line.find(':') + 1));
        }
    }
    return held;
}

// What the C library may have kept of threads that ran with more others than any did before.
long StoreBetween(const Held& before, const Held& after) {
    return (after.mostThreads - before.mostThreads) * kLingererKb;
}

bool IsLevelWith(const Held& before, const Held& after) {
    return after.descriptors <= before.descriptors && after.threads <= before.threads &&
           after.privateKb <= before.privateKb + kSlack + StoreBetween(before, after);
}

// ------------------------------------------------------------------------------------------------

class Soak {
 public:
    explicit Soak(Options options) : options_(std::move(options)), out_(fdopen(dup(1), "w")) {
        SeeThreads();
        // A watch of leases tells what it sees, and that its file has gone.
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        close(null);
        fprintf(out_, "%-45s %8s %7s %17s %14s %7s %18s\n", "", "times", "seconds", "descriptors",
                "threads", "at most", "private KB");
    }
    ~Soak() { fclose(out_); }
    Soak(const Soak&) = delete;
    Soak& operator=(const Soak&) = delete;

    void Run();
    bool Passed() const { return passed_; }

 private:
    bool Wants(const std::string& name) const {
        return options_.only.empty() || options_.only.contains(name);
    }
    void Requests();
    void Notifications();
    void Rounds();
    void RoundsOf(const std::string& service);

    // Does the work once for the C library to fill its stores, then looks, works, looks again.
    void Watch(const std::string& what, unsigned long times, const std::function<void()>& work);
    void Print(const std::string& what, const std::string& times, const Held& before,
               const Held& after, const std::string& most);
    void Count(unsigned long failed);
    // How many rounds' threads there may be at once.
    unsigned long AtOnce(const Reporting& reporting) const;

    const Options options_;
    FILE* const out_;
    bool passed_ = true;
};

void Soak::Print(const std::string& what, const std::string& times, const Held& before,
                 const Held& after, const std::string& most) {
    const bool isLevel = IsLevelWith(before, after);
    passed_ = passed_ && isLevel;
    fprintf(out_, "%-45s %16s %8ld -> %5ld %5ld -> %5ld %7s %7ld -> %7ld  %s\n", what.c_str(),
            times.c_str(), before.descriptors, after.descriptors, before.threads, after.threads,
            most.c_str(), before.privateKb, after.privateKb, isLevel ? "level" : "NOT LEVEL");
    fflush(out_);
}

// Threads that were stopped end a moment later, some at their next time-out.
void WaitLevel(const std::string& process, const Held& before) {
    bed::WaitFor([&] {
        const Held now = HeldBy(process);
        return now.threads <= before.threads && now.descriptors <= before.descriptors;
    });
}

void Soak::Watch(const std::string& what, unsigned long times, const std::function<void()>& work) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    const Held first = HeldBy("self");
    work();
    WaitLevel("self", first);
    const Held before = HeldBy("self");
    if (before.privateKb > first.privateKb + kFirstKb + StoreBetween(first, before)) {
        fprintf(out_, "%s: %ld KB, and then %ld\n", what.c_str(), first.privateKb,
                before.privateKb);
        passed_ = false;
    }
    const std::string& daemon = options_.daemon;
    const Held daemonBefore = daemon.empty() ? before : HeldBy(daemon);
    work();
    WaitLevel("self", before);
    char amount[32];
    snprintf(amount, sizeof(amount), "%lu %7.1f", times,
             std::chrono::duration<double>(Clock::now() - begin).count());
    const Held after = HeldBy("self");
    Print(what, amount, before, after, std::to_string(after.mostThreads));
    if (!daemon.empty()) {
        WaitLevel(daemon, daemonBefore);
        Print("  the daemon", "", daemonBefore, HeldBy(daemon), "");
    }
}

void Soak::Count(unsigned long failed) {
    if (failed != 0) {
        fprintf(out_, "  %lu failed\n", failed);
        passed_ = false;
    }
}

unsigned long Soak::AtOnce(const Reporting& reporting) const {
    // A user has 128 inotify instances, all processes together.
    constexpr unsigned long kWatches = 40;
    if (!reporting.isDear) {
        return options_.amounts.rounds;
    }
    return reporting.lingers ? options_.amounts.atOnce : kWatches;
}

void Soak::Run() {
    if (Wants(kRequests)) {
        Requests();
    }
    if (Wants(kNotifications)) {
        Notifications();
    }
    Rounds();
}

void Soak::Requests() {
    const unsigned long requests = options_.amounts.requests;
    unsigned long failed = 0;
    Watch(kRequests, requests, [&] {
        for (unsigned long i = 0; i < requests / 2; i++) {
            failed += VimbraLogSwitch(0) != 0;
        }
    });
    Count(failed);
}

// Some keep the last connection until the next one.
bool IsToldOnce(const Reporting& reporting) {
    const unsigned long calls = g_callbacks;
    return Report(reporting) && bed::WaitFor([&] { return g_callbacks > calls; });
}

// What has come to its end meanwhile is begun again.
bool IsReported(const Reporting& reporting) {
    return Report(reporting) || (reporting.ends && reporting.start() == 0 && Report(reporting));
}

// A message that nobody had taken yet goes with a listener that comes to its end: another is sent.
bool AreToldUpTo(unsigned long goal, const Reporting& reporting) {
    if (g_callbacks < goal && reporting.ends) {
        IsReported(reporting);
    }
    return g_callbacks >= goal;
}

void Soak::Notifications() {
    std::vector<Reporting> all = AllReporting();
    std::erase_if(all, [](const Reporting& reporting) { return reporting.socket.empty(); });
    const unsigned long each = options_.amounts.notifications / all.size();
    for (const Reporting& reporting : all) {
        if (reporting.start() != 0) {
            fprintf(out_, "%-45s is not to be had from this daemon\n", reporting.name);
            continue;
        }
        unsigned long failed = !IsToldOnce(reporting);
        Watch(std::string("notifications of ") + reporting.name, each, [&] {
            const unsigned long goal = g_callbacks + each / 2;
            for (unsigned long i = 0; i < each / 2; i++) {
                failed += !IsReported(reporting);
            }
            failed += !bed::WaitFor([&] { return AreToldUpTo(goal, reporting); });
        });
        failed += reporting.stop() != 0 && !reporting.ends;
        Count(failed);
    }
}

void Soak::Rounds() {
    for (const std::string& service : ReportingServices()) {
        if (Wants(service)) {
            RoundsOf(service);
        }
    }
}

// A round starts and stops the service in each of its ways.
void Soak::RoundsOf(const std::string& service) {
    const std::vector<Reporting> ways = ReportingOf(service);
    if (ways[0].start() != 0 || ways[0].stop() != 0) {
        fprintf(out_, "%-45s is not to be had from this daemon\n", service.c_str());
        return;
    }
    const unsigned long rounds = options_.amounts.rounds;
    const unsigned long atOnce = AtOnce(ways[0]);
    unsigned long failed = 0;
    const auto work = [&] {
        const long most = SeeThreads() + static_cast<long>((atOnce - 1) * ways.size());
        for (unsigned long i = 1; i <= rounds / 2; i++) {
            for (const Reporting& way : ways) {
                failed += way.start() != 0;
                failed += way.stop() != 0;
            }
            bed::WaitFor([most] { return SeeThreads() <= most; });
        }
    };
    Watch("rounds of " + service, rounds, work);
    Count(failed);
}

// ---- The command line --------------------------------------------------------------------------

bool IsName(const std::string& name) {
    const std::vector<std::string> services = ReportingServices();
    return name == kRequests || name == kNotifications ||
           std::find(services.begin(), services.end(), name) != services.end();
}

bool ReadNumber(std::string_view text, unsigned long& number) {
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end && number > 0;
}

// A value goes with each option but --short.
bool ReadOption(std::string_view name, const char* value, Options& options) {
    if (value == nullptr) {
        return false;
    }
    if (name == "--daemon") {
        options.daemon = value;
        return true;
    }
    if (name == "--only" && IsName(value)) {
        options.only.insert(value);
        return true;
    }
    return name == "--rounds" && ReadNumber(value, options.amounts.rounds);
}

bool ReadOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; i++) {
        const std::string_view name = argv[i];
        if (name == "--short") {
            options.amounts = kShort;
        } else if (!ReadOption(name, argv[++i], options)) {
            return false;
        }
    }
    return true;
}

void PrintUsage() {
    fprintf(stderr,
            "usage: soak [--short] [--daemon PID] [--only NAME]... [--rounds NUMBER]\n"
            "names: %s %s",
            kRequests, kNotifications);
    for (const std::string& service : ReportingServices()) {
        fprintf(stderr, " %s", service.c_str());
    }
    fprintf(stderr, "\n");
}

}  // namespace

int RunSoak(int argc, char** argv) {
    Options options;
    if (!ReadOptions(argc, argv, options)) {
        PrintUsage();
        return 2;
    }
    VimbraDebugLevelSet(0);
    const std::unique_ptr<bench::Answerer> answerer =
        options.daemon.empty() ? std::make_unique<bench::Answerer>() : nullptr;
    if (VimbraInit() != 0) {
        return 1;
    }
    Soak soak(std::move(options));
    soak.Run();
    return soak.Passed() ? 0 : 1;
}

}  // namespace vimbra::tests

int main(int argc, char** argv) {
    return vimbra::tests::RunSoak(argc, argv);
}
