#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <sstream>
#include <system_error>

#include "internal.hpp"
#include "vimbra/bed.hpp"

namespace vimbra::bed {
namespace {

constexpr const char* kLogSocket = "/dev/log";

bool Matches(const LogLine& line, Kind kind, std::string_view function, std::string_view text) {
    return line.kind == kind && (function == kAny || line.function == function) &&
           (text == kAny || line.text == text);
}

int CountIn(const std::vector<LogLine>& lines, Kind kind, std::string_view function,
            std::string_view text) {
    int count = 0;
    for (const LogLine& line : lines) {
        count += Matches(line, kind, function, text) ? 1 : 0;
    }
    return count;
}

}  // namespace

class Capture::Sink {
 public:
    Sink() : log_(internal::BindSocket(SOCK_DGRAM, kLogSocket)) {
        // The C library connects at the first message and keeps the descriptor: that happens here,
        // so that it does not look like a leak of what is tested.
        syslog(LOG_LOCAL6 | LOG_DEBUG, "capture");
        Clear();
        RedirectStdout();
        reader_ = internal::StartThread([this] { ReadLoop(); });
    }

    ~Sink() {
        stop_.Stop();
        reader_.join();
        fflush(stdout);
        dup2(real_.Get(), STDOUT_FILENO);
        const std::string all = ReadStdout(0);
        for (size_t done = 0; done < all.size();) {
            const ssize_t written = write(STDOUT_FILENO, all.data() + done, all.size() - done);
            if (written <= 0) {
                break;
            }
            done += static_cast<size_t>(written);
        }
        unlink(kLogSocket);
    }

    std::string Stdout() const {
        fflush(stdout);
        return ReadStdout(start_);
    }

    std::vector<LogLine> Syslog() const {
        const std::lock_guard guard(lock_);
        Drain();
        return lines_;
    }

    void Clear() {
        {
            const std::lock_guard guard(lock_);
            Drain();
            lines_.clear();
        }
        if (file_.Get() >= 0) {
            fflush(stdout);
            start_ = lseek(file_.Get(), 0, SEEK_END);
        }
    }

 private:
    void RedirectStdout() {
        fflush(stdout);
        char name[] = "/tmp/.bed-stdout-XXXXXX";
        file_ = Descriptor(mkostemp(name, O_APPEND | O_CLOEXEC));
        real_ = Descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
        if (file_.Get() < 0 || real_.Get() < 0) {
            throw std::system_error(errno, std::generic_category(), "cannot capture the output");
        }
        unlink(name);
        dup2(file_.Get(), STDOUT_FILENO);
    }

    std::string ReadStdout(off_t from) const {
        std::string text;
        char block[16384];
        for (;;) {
            const ssize_t got =
                pread(file_.Get(), block, sizeof block, from + static_cast<off_t>(text.size()));
            if (got <= 0) {
                return text;
            }
            text.append(block, static_cast<size_t>(got));
        }
    }

    // A sender waits when the queue is full, so it is emptied all the time; who asks empties it
    // himself first, so that what was sent before is there.
    void ReadLoop() const {
        for (;;) {
            pollfd watched[2] = {{log_.Get(), POLLIN, 0}, {stop_.Waiter(), POLLIN, 0}};
            poll(watched, 2, -1);
            if (watched[1].revents != 0) {
                return;
            }
            const std::lock_guard guard(lock_);
            Drain();
        }
    }

    void Drain() const {
        for (;;) {
            const ssize_t size = recv(log_.Get(), nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
            if (size < 0) {
                return;
            }
            std::string datagram(static_cast<size_t>(size), '\0');
            if (recv(log_.Get(), datagram.data(), datagram.size(), MSG_DONTWAIT) != size) {
                return;
            }
            lines_.push_back(ParseSyslog(datagram));
        }
    }

    using Descriptor = internal::Descriptor;
    Descriptor log_;
    Descriptor file_;
    Descriptor real_;
    internal::StopPipe stop_;
    off_t start_ = 0;
    mutable std::mutex lock_;
    mutable std::vector<LogLine> lines_;
    std::thread reader_;
};

Capture::Capture() : sink_(std::make_unique<Sink>()) {}

Capture::~Capture() = default;

std::vector<LogLine> Capture::Stdout() const {
    return ParseLog(StdoutText());
}
std::vector<LogLine> Capture::Syslog() const {
    return sink_->Syslog();
}
std::string Capture::StdoutText() const {
    return sink_->Stdout();
}

Finding Capture::Has(Kind kind, std::string_view function, std::string_view text,
                     Where where) const {
    std::ostringstream missing;
    if (where != Where::kSyslog && CountIn(Stdout(), kind, function, text) == 0) {
        missing << "not on standard output; ";
    }
    if (where != Where::kStdout) {
        std::vector<LogLine> lines = Syslog();
        if (CountIn(lines, kind, function, text) == 0) {
            missing << "not in the system log; ";
        } else {
            std::erase_if(lines, [&](const LogLine& line) {
                return kind != Kind::kOther && line.priority != PriorityOf(kind);
            });
            if (CountIn(lines, kind, function, text) == 0) {
                missing << "in the system log at a wrong priority; ";
            }
        }
    }
    if (missing.str().empty()) {
        return Finding(true, Describe());
    }
    std::ostringstream seen;
    seen << "looking for " << kind << ' ' << function << ": \"" << text << "\": " << missing.str()
         << Describe();
    return Finding(false, seen.str());
}

Finding Capture::WaitFor(Kind kind, std::string_view function, std::string_view text, Where where,
                         std::chrono::milliseconds patience) const {
    bed::WaitFor([&] { return static_cast<bool>(Has(kind, function, text, where)); }, patience);
    return Has(kind, function, text, where);
}

int Capture::Count(Kind kind, std::string_view function, std::string_view text, Where where) const {
    const int onStdout = CountIn(Stdout(), kind, function, text);
    const int inSyslog = CountIn(Syslog(), kind, function, text);
    switch (where) {
        case Where::kStdout:
            return onStdout;
        case Where::kSyslog:
            return inSyslog;
        case Where::kBoth:
            break;
    }
    return onStdout == inSyslog ? inSyslog : -1;
}

Finding Capture::IsSilent() const {
    return Finding(StdoutText().empty() && Syslog().empty(), Describe());
}

Finding Capture::HasNoTrouble() const {
    bool trouble = false;
    for (const Kind kind : {Kind::kError, Kind::kPerror, Kind::kWarn}) {
        trouble = trouble || CountIn(Stdout(), kind, kAny, kAny) != 0 ||
                  CountIn(Syslog(), kind, kAny, kAny) != 0;
    }
    return Finding(!trouble, Describe());
}

void Capture::Clear() {
    sink_->Clear();
}

std::string Capture::Describe() const {
    std::ostringstream text;
    text << "standard output:";
    for (const LogLine& line : Stdout()) {
        text << "\n  " << line;
    }
    text << "\nsystem log:";
    for (const LogLine& line : Syslog()) {
        text << "\n  " << line;
    }
    text << '\n';
    return text.str();
}

}  // namespace vimbra::bed
