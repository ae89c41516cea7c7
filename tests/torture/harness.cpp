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

#include <cstring>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <vimbra/bed.hpp>

#include "answers.hpp"
#include "injector.hpp"

namespace vimbra::tests::torture {

namespace {

using bed::ScriptedDaemon;

// ---- What the headers say -----------------------------------------------------------------------

struct Told {
    const char* function;
    const char* header;
    const char* results;
};

const Told kTold[] = {
#include "results.inc"
};

const Told* Find(const std::string& function) {
    for (const Told& told : kTold) {
        if (function == told.function) {
            return &told;
        }
    }
    return nullptr;
}

// "other" is told in the head of its header: what the transport gives.
bool Fits(long result, const std::string& told) {
    if (told == ">0") {
        return result > 0;
    }
    if (told == "0..255") {
        return result >= 0 && result <= 255;
    }
    if (told == "other") {
        return result == -1 || result == VIMBRA_ERR_SEND || result == VIMBRA_ERR_RECV_TIMEOUT ||
               result > 0;
    }
    return std::to_string(result) == told;
}

bool IsListed(const Operation& operation, long result) {
    for (const long other : operation.others) {
        if (result == other) {
            return true;
        }
    }
    const Told* told = Find(operation.name);
    std::istringstream results(told != nullptr ? told->results : "");
    for (std::string one; results >> one;) {
        if (Fits(result, one)) {
            return true;
        }
    }
    return result == operation.good;
}

// ---- What the child tells its parent ------------------------------------------------------------

constexpr size_t kTextMax = 1 << 16;

struct Shared {
    size_t position;  // the injection at hand
    bool again;       // go on with the next one in a new process
    size_t beats;
    size_t calls;
    size_t runs;
    size_t failures;
    size_t faults;
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

// ---- Files --------------------------------------------------------------------------------------

constexpr const char* kFiles[] = {"/etc/passwd", "/etc/inetd.conf", "/etc/resolv.conf",
                                  "/usr/config/system/inetd.conf"};

using Contents = std::map<std::string, std::string>;

// A hash has a salt of its own each time.
std::string WithoutSalt(const std::string& text) {
    static const std::regex kHash("\\$1\\$[^$:]*\\$[^:]*");
    return text.find("$1$") != std::string::npos ? std::regex_replace(text, kHash, "$$1$$") : text;
}

Contents Files() {
    Contents contents;
    for (const char* path : kFiles) {
        const bool isThere = access(path, F_OK) == 0;
        contents[path] = isThere ? "=" + WithoutSalt(bed::ReadFile(path)) : "none";
    }
    return contents;
}

// The new content before a longer old one has been cut off.
std::string Uncut(const std::string& path, const std::string& before, const std::string& after) {
    if (before.size() <= after.size() || before == "none") {
        return after;
    }
    std::string filler(before.size() - after.size(), path == kFiles[2] ? '\n' : '#');
    if (after.size() > 1 && after.back() != '\n') {
        filler.front() = '\n';
    }
    return after + filler;
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
        LearnWhatIsGood();
        const std::vector<Job> jobs = Jobs();
        for (size_t i = first; i < jobs.size() && shared_.faults < settings_.enough;
             i += settings_.stride) {
            shared_.position = i;
            Tell(jobs[i]);
            if (jobs[i].injection.outcome == kKill) {
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

    // Twice: what is made once for the process is there then.
    void LearnWhatIsGood() {
        snprintf(shared_.now, sizeof(shared_.now), "%s, untouched", operation_.name.c_str());
        for (int round = 0; round < 3; round++) {
            Prepare();
            before_ = Files();
            daemon_.Forget();
            Injector::Arm();
            Expect(Call(), operation_.good, "the call");
            Injector::WaitQuiet();
            Injector::Disarm();
            points_ = Injector::Points();
            requests_ = CountRequests(0);
            after_ = Files();
            Prove();
            Undo();
        }
        shared_.calls = points_.size();
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
        for (const Point& point : points_) {
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

    size_t CountRequests(size_t atLeast) const {
        bed::WaitFor([&] { return daemon_.Requests().size() >= atLeast; },
                     std::chrono::seconds(settings_.patience));
        static_cast<void>(daemon_.WaitIdle());
        return daemon_.Requests().size();
    }

    // False when this process is no good for another run.
    bool Fail(const Injection& injection) {
        const Level before = Injector::Held();
        Level after = before;
        for (int round = 0; round < 4; round++) {
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
        daemon_.Forget();
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
        Judge(result, failures);
        if (!Undo() && operation_.spoils != nullptr) {
            return false;
        }
        Next();
        return true;
    }

    void Judge(long result, size_t failures) {
        if (result != kExit && !IsListed(operation_, result)) {
            Complain(shared_, "the header does not list " + std::to_string(result));
        }
        if (failures == 0) {
            Expect(result, operation_.good, "the untouched call");
        }
        const size_t requests = CountRequests(0);
        if (requests > requests_) {
            Complain(shared_, "the daemon saw " + std::to_string(requests) + " requests and not " +
                                  std::to_string(requests_));
        }
        const bool isGood = result == operation_.good && operation_.lenient == nullptr;
        if (isGood && !operation_.isEvent && CountRequests(requests_) != requests_) {
            Complain(shared_, "called good without the daemon's knowing");
        }
        JudgeFiles(isGood);
        // A thread that cannot listen ends; that it was started is good all the same.
        if (isGood && !Injector::HasFailedElsewhere()) {
            Prove();
        }
        if (Injector::SparedTime() > kPatience) {
            Complain(shared_, "waits for " + std::to_string(Injector::SparedTime()) + " ms");
        }
    }

    void JudgeFiles(bool isGood) const {
        for (const auto& [path, content] : Files()) {
            const bool isNew = content == after_.at(path);
            if (!isNew && (isGood || content != before_.at(path))) {
                Complain(shared_,
                         path + (isGood ? " has not the new content: " : " has neither content: ") +
                             content);
            }
        }
    }

    void Next() const {
        Prepare();
        Expect(Call(), operation_.good, "the next call");
        Prove();
        Undo();
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
        for (const auto& [path, content] : Files()) {
            const std::string& before = before_.at(path);
            const std::string& after = after_.at(path);
            if (content != before && content != after && content != Uncut(path, before, after)) {
                Complain(shared_, path + " has neither content: " + content);
            }
        }
        Undo();
    }

    // Two requests of a minute, and a little.
    static constexpr s64 kPatience = 125000;

    const Operation& operation_;
    const Settings& settings_;
    Shared& shared_;
    ScriptedDaemon daemon_;
    std::vector<Point> points_;
    size_t requests_ = 0;
    Contents before_;
    Contents after_;
};

// ---- The parent ---------------------------------------------------------------------------------

[[noreturn]] void BeChild(const Operation& operation, const Settings& settings, Shared& shared,
                          size_t first) {
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null, STDOUT_FILENO);
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
    if (how.empty() && WIFSIGNALED(status)) {
        how = std::string("ends by ") + strsignal(WTERMSIG(status));
    } else if (how.empty() && WEXITSTATUS(status) != 0) {
        how = "exits with " + std::to_string(WEXITSTATUS(status));
    }
    return how;
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

std::string HeaderOf(const std::string& function) {
    const Told* told = Find(function);
    return told != nullptr ? told->header : "";
}

}  // namespace vimbra::tests::torture
