#include "log_sink.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "lib/base/fd.hpp"

namespace vimbrad {
namespace {

constexpr char kSyslogPath[] = "/dev/log";

std::string TimeNow(const char* format) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[64];
    text[std::strftime(text, sizeof(text), format, &local)] = '\0';
    return text;
}

class StandardErrorSink : public LogSink {
 public:
    // Others may share what standard error is, and would be surprised if writing to it did not wait
    // any more: it is opened once more for us. A socket cannot be, but can be asked not to wait.
    StandardErrorSink() {
        struct stat status {};
        isSocket_ = fstat(STDERR_FILENO, &status) == 0 && S_ISSOCK(status.st_mode);
        if (!isSocket_) {
            own_.Reset(
                open("/proc/self/fd/2", O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        }
    }

    // One write for a line, so that lines of several processes in one file do not mix.
    bool Write(int, const char* word, std::string_view text) override {
        const std::string line = TimeNow("%F %T ") + "vimbrad[" + std::to_string(getpid()) + "] " +
                                 word + ": " + std::string(text) + "\n";
        return Send(line) == static_cast<ssize_t>(line.size());
    }

 private:
    ssize_t Send(const std::string& line) const {
        if (isSocket_) {
            return send(STDERR_FILENO, line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        }
        if (own_) {
            return write(own_.Get(), line.data(), line.size());
        }
        pollfd ready{STDERR_FILENO, POLLOUT, 0};
        return poll(&ready, 1, 0) == 1 ? write(STDERR_FILENO, line.data(), line.size()) : -1;
    }

    bool isSocket_ = false;
    vimbra::Fd own_;
};

class SyslogSink : public LogSink {
 public:
    // Not by syslog(3), which waits when the system's log is busy.
    bool Write(int priority, const char*, std::string_view text) override {
        const std::string line = "<" + std::to_string(LOG_DAEMON | priority) + ">" +
                                 TimeNow("%b %e %T ") + "vimbrad[" + std::to_string(getpid()) +
                                 "]: " + std::string(text);
        // The system's log may have been started again since the last line.
        return (socket_ && Send(line)) || (Connect() && Send(line));
    }

 private:
    bool Send(const std::string& line) const {
        return send(socket_.Get(), line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
               static_cast<ssize_t>(line.size());
    }

    bool Connect() {
        socket_.Reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, kSyslogPath, sizeof(kSyslogPath));
        return socket_ && connect(socket_.Get(), reinterpret_cast<const sockaddr*>(&address),
                                  sizeof(address)) == 0;
    }

    vimbra::Fd socket_;
};

}  // namespace

std::unique_ptr<LogSink> MakeStandardErrorSink() {
    return std::make_unique<StandardErrorSink>();
}

std::unique_ptr<LogSink> MakeSyslogSink() {
    return std::make_unique<SyslogSink>();
}

}  // namespace vimbrad
