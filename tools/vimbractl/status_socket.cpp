#include "status_socket.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "commands.hpp"

namespace ctl {

namespace {

// It answers out of what it knows.
constexpr int kPatienceMs = 10'000;
// Many routes; no daemon has as much to say.
constexpr size_t kAnswerMax = 16U << 20;

bool ParseRunDir(const std::string& text, std::string& path) {
    path = text;
    return text.starts_with('/');
}

const Kind<std::string> kRunDirKind = {"an absolute path", ParseRunDir};

class Connection {
 public:
    // Throws CommandFailed.
    explicit Connection(const std::string& path);
    ~Connection() { close(socket_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // One line there and one back.
    std::string Exchange(const std::string& line);
    void Send(const std::string& line);
    // The next line, however long it takes; empty at the end.
    std::string NextLine();

 private:
    [[noreturn]] void Fail(const std::string& why) const;

    std::string path_;
    int socket_;
    std::string read_;
};

Connection::Connection(const std::string& path)
    : path_(path), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
    } else {
        path.copy(address.sun_path, path.size());
        if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
            return;
        }
    }
    const std::string why = strerror(errno);
    close(socket_);
    Fail(why);
}

void Connection::Fail(const std::string& why) const {
    throw CommandFailed(ExitStatus::kUnreachable,
                        "the network daemon cannot be asked at " + path_ + ": " + why);
}

void Connection::Send(const std::string& line) {
    if (send(socket_, line.data(), line.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(line.size())) {
        Fail(strerror(errno));
    }
}

std::string Connection::NextLine() {
    while (true) {
        const size_t end = read_.find('\n');
        if (end != std::string::npos) {
            std::string line = read_.substr(0, end);
            read_.erase(0, end + 1);
            return line;
        }
        char piece[4096];
        const ssize_t count = read(socket_, piece, sizeof(piece));
        if (count <= 0 || read_.size() > kAnswerMax) {
            return "";
        }
        read_.append(piece, static_cast<size_t>(count));
    }
}

std::string Connection::Exchange(const std::string& line) {
    Send(line);
    std::string answer;
    while (!answer.ends_with('\n') && answer.size() < kAnswerMax) {
        pollfd readable = {socket_, POLLIN, 0};
        char piece[4096];
        const ssize_t count =
            poll(&readable, 1, kPatienceMs) == 1 ? read(socket_, piece, sizeof(piece)) : 0;
        if (count <= 0) {
            Fail("no answer");
        }
        answer.append(piece, static_cast<size_t>(count));
    }
    return answer;
}

}  // namespace

void AddRunDirArgument(CLI::App& command, std::string& target) {
    AddArgument(command, "--run-dir", target, kRunDirKind,
                "The daemon's run directory, /run/vimbrad by default");
}

std::string StatusSocket::WhyRefused() const {
    try {
        const Json answer = AskAll(Json{{"ask", "refusal"}, {"pid", getpid()}});
        return answer.At("refusal").At("why").Plain();
    } catch (const CommandFailed&) {
        return "";
    }
}

Json StatusSocket::Ask(const std::string& question) const {
    return AskAll(Json{{"ask", question}});
}

void StatusSocket::Follow(const std::string& question,
                          const std::function<void(const Json&)>& take) const {
    Connection connection(path_);
    connection.Send(Json{{"ask", question}}.Line() + "\n");
    for (std::string line = connection.NextLine(); !line.empty(); line = connection.NextLine()) {
        take(Json::Parse(line));
    }
}

Json StatusSocket::AskAll(const Json& question) const {
    const std::string text = Connection(path_).Exchange(question.Line() + "\n");
    const Json answer = Json::Parse(text);
    const Json error = answer.At("error");
    if (!error.IsNull()) {
        throw CommandFailed(ExitStatus::kRefused, "the network daemon refused: " + error.Plain());
    }
    if (answer.IsNull()) {
        throw CommandFailed(ExitStatus::kUnreachable, "the network daemon's answer is no JSON");
    }
    return answer;
}

}  // namespace ctl
