#include "harness.hpp"

#include <fcntl.h>
#include <poll.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/types.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <sstream>
#include <vimbra/bed.hpp>

#include "answers.hpp"
#include "injector.hpp"
#include "results.hpp"
#include "traces.hpp"

namespace vimbra::tests::torture {

namespace {

using bed::ScriptedDaemon;

// ---- What the child tells its parent ------------------------------------------------------------

constexpr size_t kTextMax = 1 << 16;
constexpr size_t kPointsMax = 4096;

struct Shared {
    size_t position;  // the injection at hand
    bool again;       // go on with the next one in a new process
    size_t beats;
    size_t calls;
    size_t runs;
    size_t failures;
    size_t faults;
    size_t pointCount;
    Point points[kPointsMax];
    char now[256];
    char complaints[kTextMax];
};

void Complain(Shared& shared, const std::string& what) {
    shared.faults++;
    const std::string line = std::string(shared.now) + ": " + what + "\n";
    if (strlen(shared.complaints) + line.size() < kTextMax) {
        strcat(shared.complaints, line.c_str());
    }
}

// Of a process; nothing for a good end.
std::string HowItEnded(int status) {
    if (WIFSIGNALED(status)) {
        return std::string("ends by ") + strsignal(WTERMSIG(status));
    }
    return status != 0 ? "exits with " + std::to_string(WEXITSTATUS(status)) : "";
}

// ---- One operation, in its process --------------------------------------------------------------

struct Job {
    Injection injection;
    Call call;
};

class Bench {
 public:
    Bench(const Operation& operation, const Settings& settings, Shared& shared)
        : operation_(operation), settings_(settings), shared_(shared) {
        SetAnswers(daemon_);
        if (operation.initialised) {
            VimbraInit();
        }
    }

    // Everything from this injection on.
    void Work(size_t first) {
        if (operation_.isOnce) {
            InChild([this] { LearnWhatIsGood(1); });
            before_ = after_ = FilesNow();
        } else {
            LearnWhatIsGood(3);
        }
        const std::vector<Job> jobs = Jobs();
        for (size_t i = first; i < jobs.size() && shared_.faults < settings_.enough;
             i += settings_.stride) {
            shared_.position = i;
            Tell(jobs[i]);
            if (operation_.isOnce) {
                InChild([&] { FailOnce(jobs[i].injection); });
            } else if (jobs[i].injection.outcome == kKill) {
                Kill(jobs[i].injection);
            } else if (!Fail(jobs[i].injection)) {
                shared_.again = true;
                return;
            }
        }
    }

 private:
    void Prepare() const {
        if (operation_.prepare) {
            operation_.prepare();
        }
    }

    void Forget() {
        CountRequests();
        daemon_.Forget();
        connections_ = daemon_.Connections();
    }

    // exit(3) is a result like any other, out of range.
    static constexpr long kExit = 1000000;
    long Call() const {
        static sigjmp_buf place;
        if (sigsetjmp(place, 0) != 0) {
            return kExit;
        }
        Injector::SetExit(&place);
        const long result = operation_.call();
        Injector::SetExit(nullptr);
        return result;
    }

    void Tell(const Job& job) const {
        const Injection& injection = job.injection;
        snprintf(shared_.now, sizeof(shared_.now), "%s, thread %d, call %d (%s): %s%s",
                 operation_.name.c_str(), injection.thread, injection.number, NameOf(job.call),
                 NameOfOutcome(injection.outcome).c_str(),
                 injection.forGood ? " from there on" : "");
        shared_.beats++;
    }

    // The same call, untouched.
    void Expect(long result, long wanted, const char* what) const {
        if (result != wanted) {
            Complain(shared_, std::string(what) + " gives " + std::to_string(result) + " and not " +
                                  std::to_string(wanted));
        }
    }

    void InChild(const std::function<void()>& part) const {
        const pid_t child = fork();
        if (child == 0) {
            part();
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (status != 0) {
            Complain(shared_, HowItEnded(status));
        }
    }

    // More than once: what is made once for the process is there then.
    void LearnWhatIsGood(int rounds) {
        snprintf(shared_.now, sizeof(shared_.now), "%s, untouched", operation_.name.c_str());
        for (int round = 0; round < rounds; round++) {
            Prepare();
            before_ = FilesNow();
            Forget();
            Injector::Arm();
            Expect(Call(), operation_.good, "the call");
            Injector::WaitQuiet();
            Injector::Disarm();
            Keep(Injector::Points());
            requests_ = CountRequests();
            after_ = FilesNow();
            Prove();
            Undo();
        }
        shared_.calls = shared_.pointCount;
    }

    void Keep(const std::vector<Point>& points) const {
        shared_.pointCount = std::min(points.size(), kPointsMax);
        std::copy_n(points.begin(), shared_.pointCount, shared_.points);
    }

    void Prove() const {
        if (operation_.proof) {
            const std::string complaint = operation_.proof();
            if (!complaint.empty()) {
                Complain(shared_, complaint);
            }
        }
    }

    // False when something stays.
    bool Undo() const {
        const bool isUndone = !operation_.undo || operation_.undo();
        if (!isUndone && operation_.spoils == nullptr) {
            Complain(shared_, "cannot be undone");
        }
        if (isUndone && !Injector::WaitThreads(0)) {
            Complain(shared_, "a thread stays");
        }
        return isUndone;
    }

    std::vector<Job> Jobs() const {
        std::vector<Job> jobs;
        for (const Point& point : std::span(shared_.points, shared_.pointCount)) {
            for (const int outcome : OutcomesOf(point.call)) {
                for (const bool forGood : {false, true}) {
                    jobs.push_back({{point.thread, point.number, outcome, forGood}, point.call});
                }
            }
            if (before_ != after_ && point.thread == 0) {
                jobs.push_back({{point.thread, point.number, kKill, false}, point.call});
            }
        }
        return jobs;
    }

    // All that has come to the daemon, when it has read to the end what there was.
    size_t CountRequests() const {
        bed::WaitFor(
            [this] {
                return daemon_.Connections() >= connections_ + Injector::Connections() &&
                       daemon_.OpenConnections() == 0;
            },
            std::chrono::seconds(settings_.patience));
        return daemon_.Requests().size();
    }

    // False when this process is no good for another run.
    bool Fail(const Injection& injection) {
        const Level before = Injector::Held();
        Level after = before;
        for (int round = 0; round < kRounds; round++) {
            const Level start = Injector::Held();
            if (!FailOnce(injection)) {
                return false;
            }
            after = Injector::Held();
            // A record that is made once is no loss, one that is made each time is.
            if (after.blocks <= start.blocks && after.descriptors <= start.descriptors) {
                return true;
            }
        }
        Complain(shared_, "each time there are more: " + std::to_string(after.blocks) +
                              " blocks instead of " + std::to_string(before.blocks) + ", " +
                              std::to_string(after.descriptors) + " descriptors instead of " +
                              std::to_string(before.descriptors));
        return true;
    }

    bool FailOnce(const Injection& injection) {
        Prepare();
        Forget();
        Injector::Arm(injection);
        const long result = Call();
        if (!Injector::WaitQuiet()) {
            Complain(shared_, "a thread is never quiet");
        }
        Injector::Disarm();
        const size_t failures = Injector::Failures();
        shared_.runs += failures > 0 ? 1 : 0;
        shared_.failures += failures;
        Injector::WaitQuiet();
        Judge(result, failures, injection.forGood);
        if (!Undo() && operation_.spoils != nullptr) {
            return false;
        }
        Next();
        return true;
    }

    void Judge(long result, size_t failures, bool forGood) {
        if (result != kExit && !IsListed(operation_, result)) {
            Complain(shared_, "the header does not list " + std::to_string(result));
        }
        if (failures == 0) {
            Expect(result, operation_.good, "the untouched call");
        }
        const size_t requests = CountRequests();
        if (requests > requests_) {
            Complain(shared_, "the daemon saw " + std::to_string(requests) + " requests and not " +
                                  std::to_string(requests_));
        }
        const bool isGood = result == operation_.good && operation_.lenient == nullptr;
        if (isGood && !operation_.isEvent && requests != requests_) {
            Complain(shared_, "called good without the daemon's knowing");
        }
        JudgeFiles(isGood, forGood);
        // A thread that cannot listen ends; that it was started is good all the same.
        if (isGood && !Injector::HasFailedElsewhere()) {
            Prove();
        }
        if (Injector::SparedTime() > kPatience) {
            Complain(shared_, "waits for " + std::to_string(Injector::SparedTime()) + " ms");
        }
    }

    // Where all fails from some point on, nobody can cut what is too long.
    bool IsOldOrNew(const std::string& path, const std::string& content, bool forGood) const {
        const std::string& before = before_.at(path);
        const std::string& after = after_.at(path);
        return content == before || content == after ||
               (forGood && content == Uncut(path, before, after));
    }

    bool IsElsewhere(const Contents& now) const {
        Contents elsewhere = before_;
        for (const auto& [path, content] : operation_.elsewhere) {
            elsewhere[path] = "=" + content;
        }
        return !operation_.elsewhere.empty() && now == elsewhere;
    }

    void JudgeFiles(bool isGood, bool forGood) const {
        const Contents now = FilesNow();
        if (IsElsewhere(now)) {
            return;
        }
        for (const auto& [path, content] : now) {
            if (isGood && content != after_.at(path)) {
                Complain(shared_, path + " has not the new content: " + content);
            } else if (!IsOldOrNew(path, content, forGood)) {
                Complain(shared_, path + " has neither content: " + content);
            }
        }
    }

    void Next() const {
        Prepare();
        Expect(Call(), operation_.good, "the next call");
        Prove();
        Undo();
        const std::string wrong = WrongSemaphore();
        if (!wrong.empty()) {
            Complain(shared_, wrong);
        }
    }

    void Kill(const Injection& injection) const {
        Prepare();
        const pid_t child = fork();
        if (child == 0) {
            Injector::Arm(injection);
            operation_.call();
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
            Complain(shared_, "was not killed");
        }
        shared_.runs++;
        const Contents now = FilesNow();
        for (const auto& [path, content] : now) {
            if (!IsElsewhere(now) && !IsOldOrNew(path, content, true)) {
                Complain(shared_, path + " has neither content: " + content);
            }
        }
        Undo();
    }

    // Two requests of a minute, and a little.
    static constexpr s64 kPatience = 125000;

    // The library remembers a thread's handle until the C library gives it away again, and on a busy
    // machine a stack of another size finds new places several times over.
    static constexpr int kRounds = 16;

    const Operation& operation_;
    const Settings& settings_;
    Shared& shared_;
    ScriptedDaemon daemon_;
    size_t requests_ = 0;
    size_t connections_ = 0;  // before the run
    Contents before_;
    Contents after_;
};

// ---- The parent ---------------------------------------------------------------------------------

[[noreturn]] void BeChild(const Operation& operation, const Settings& settings, Shared& shared,
                          size_t first) {
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    Injector::SetPatience(settings.patience);
    {
        Bench bench(operation, settings, shared);
        bench.Work(first);
    }
    _exit(0);
}

// How the child ended; one in which nothing moves for so long hangs.
std::string WaitFor(pid_t child, const Settings& settings, const Shared& shared) {
    const int still = (settings.patience * 2 + 3) * 1000;
    const int watch = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    pollfd ended = {watch, POLLIN, 0};
    std::string how;
    for (size_t beats = ~size_t{0}; poll(&ended, 1, still) == 0; beats = shared.beats) {
        if (beats == shared.beats) {
            kill(child, SIGKILL);
            how = "hangs";
        }
    }
    close(watch);
    int status = 0;
    waitpid(child, &status, 0);
    return how.empty() ? HowItEnded(status) : how;
}

std::vector<std::string> Lines(const char* text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace

Outcome Torture(const Operation& operation, const Settings& settings) {
    void* const memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    Shared& shared = *static_cast<Shared*>(memory);
    for (size_t first = 0; shared.faults < settings.enough;) {
        shared.again = false;
        const pid_t child = fork();
        if (child == 0) {
            BeChild(operation, settings, shared, first);
        }
        const std::string how = WaitFor(child, settings, shared);
        if (how.empty() && !shared.again) {
            break;
        }
        if (!how.empty()) {
            Complain(shared, how);
        }
        first = shared.position + settings.stride;
    }
    const Outcome outcome = {shared.calls, shared.runs, shared.failures, Lines(shared.complaints)};
    munmap(memory, sizeof(Shared));
    return outcome;
}

}  // namespace vimbra::tests::torture
