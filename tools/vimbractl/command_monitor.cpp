#include <vimbra/ipc.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <mutex>
#include <span>
#include <thread>

#include "commands.hpp"
#include "proxy.hpp"
#include "record_text.hpp"
#include "status_socket.hpp"
#include "value.hpp"
#include "watch.hpp"

namespace ctl {

namespace {

struct Arguments {
    std::string runDir;
    bool proxy = false;
    std::string capture;
};

// "{}" says less than nothing.
std::string Fields(const Json& record) {
    const std::string text = RecordText(record);
    return text.empty() ? "" : " " + text;
}

// "12:00:00.123 vimbractl[42] mtu-get achIfaceName eth0 -> nErrid 0, dwMtu 1500"
std::string LineOf(const Json& seen) {
    const std::string kind = seen.At("kind").Plain();
    const std::string time = seen.At("time").Plain();
    const std::string clock = time.substr(std::min(time.size(), sizeof("2026-01-31")));
    if (kind == "request") {
        return clock + " " + seen.At("process").Plain() + "[" + seen.At("pid").Plain() + "] " +
               seen.At("name").Plain() + Fields(seen.At("body")) + " ->" + Fields(seen.At("reply"));
    }
    if (kind == "notification") {
        return clock + " " + seen.At("socket").Plain() + " <- " + seen.At("name").Plain() + " " +
               seen.At("type").Plain() + Fields(seen.At("body"));
    }
    return kind == "lost" ? "(" + seen.At("lines").Plain() + " lost)" : "";
}

void TellOne(const Json& seen) {
    Watch::Tell([seen](Tool& tool) {
        const std::string line = LineOf(seen);
        if (tool.json || !line.empty()) {
            tool.ShowLine(line, seen);
        }
    });
}

// What the companion daemon tells, requests and notifications.
void FollowDaemon(Tool& tool, const Arguments& arguments) {
    Watch watch(tool);
    std::thread([socket = StatusSocket(arguments.runDir)] {
        try {
            socket.Follow("monitor", TellOne);
            throw CommandFailed(ExitStatus::kUnreachable, "the network daemon has ended");
        } catch (const CommandFailed& failed) {
            Watch::Tell([failed](Tool&) { throw failed; });
        }
    }).detach();
    watch.ShowAll();
}

std::string Now() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm local = {};
    localtime_r(&seconds, &local);
    char text[40];
    const size_t length = std::strftime(text, sizeof(text), "%F %T", &local);
    const auto rest = now - std::chrono::system_clock::from_time_t(seconds);
    std::snprintf(
        text + length, sizeof(text) - length, ".%03d",
        static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(rest).count()));
    return text;
}

// A capture of messages, each after a byte with its direction, for the dissector that
// vimbra-protocol writes. See pcap-savefile(5).
class Capture {
 public:
    explicit Capture(const std::string& path) : file_(path, std::ios::binary) {
        constexpr u32 kUser0 = 147;
        constexpr u32 kHead[] = {0xa1b2c3d4, 2 | 4 << 16, 0, 0, 65535 + 64, kUser0};
        Put(kHead, sizeof(kHead));
    }

    bool IsGood() const { return file_.good(); }

    void Add(char direction, std::span<const std::byte> message) {
        if (message.size() < sizeof(IpcMsgHead)) {
            return;
        }
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        const auto micro = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
        const u32 length = static_cast<u32>(message.size()) + 1;
        const u32 head[] = {static_cast<u32>(micro / 1000000), static_cast<u32>(micro % 1000000),
                            length, length};
        Put(head, sizeof(head));
        file_.put(direction);
        Put(message.data(), message.size());
        file_.flush();
    }

 private:
    void Put(const void* data, size_t size) {
        file_.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    }

    std::ofstream file_;
};

std::span<const std::byte> BodyOf(const std::vector<std::byte>& message) {
    const size_t head = std::min(message.size(), sizeof(IpcMsgHead));
    return std::span(message).subspan(head);
}

// Whatever bytes somebody calls himself by.
Json Plain(const protocol::Json& seen) {
    return Json::Parse(seen.dump(-1, ' ', false, protocol::Json::error_handler_t::replace));
}

Json SeenIn(const Passed& passed) {
    IpcMsgHead head = {};
    std::memcpy(&head, passed.request.data(), std::min(passed.request.size(), sizeof(head)));
    protocol::Json seen = {{"time", Now()},
                           {"kind", "request"},
                           {"process", passed.process},
                           {"pid", passed.pid},
                           {"uid", passed.uid}};
    seen.update(protocol::TellRequest(head.type, BodyOf(passed.request), BodyOf(passed.reply)));
    if (passed.reply.empty()) {
        seen["reply"] = nullptr;
    }
    return Plain(seen);
}

Json ToldIn(const std::string& socket, const std::vector<std::byte>& message) {
    IpcMsgHead head = {};
    std::memcpy(&head, message.data(), std::min(message.size(), sizeof(head)));
    protocol::Json seen = {{"time", Now()}, {"kind", "notification"}};
    seen.update(protocol::TellNotification(socket, head.type, BodyOf(message)));
    return Plain(seen);
}

// Of any daemon.
void FollowProxy(Tool& tool, const Arguments& arguments) {
    Watch watch(tool);
    // Threads of the proxy may still see something when the command ends.
    static std::mutex mutex;
    static std::unique_ptr<Capture> capture;
    if (!arguments.capture.empty()) {
        capture = std::make_unique<Capture>(arguments.capture);
        if (!capture->IsGood()) {
            throw CommandFailed(ExitStatus::kFailed, arguments.capture + " cannot be written");
        }
    }
    static const auto see = [](const Passed& passed) {
        const std::lock_guard lock(mutex);
        if (capture) {
            capture->Add(0, passed.request);
            capture->Add(1, passed.reply);
        }
        TellOne(SeenIn(passed));
    };
    static const auto hear = [](const std::string& socket, const std::vector<std::byte>& message) {
        const std::lock_guard lock(mutex);
        if (capture) {
            capture->Add(2, message);
        }
        TellOne(ToldIn(socket, message));
    };
    const Proxy proxy(see, hear);
    TellOne(Json{{"kind", "watching"}});
    watch.ShowAll();
}

void Follow(Tool& tool, Arguments& arguments) {
    if (arguments.proxy) {
        FollowProxy(tool, arguments);
    } else {
        FollowDaemon(tool, arguments);
    }
}

bool ParsePath(const std::string& text, std::string& path) {
    path = text;
    return !text.empty();
}

const Kind<std::string> kPathKind = {"a file's name", ParsePath};

}  // namespace

void AddMonitorCommand(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(root, tool);
    CLI::App& monitor = commands.Add(
        {"monitor",
         "Show what passes between applications and the network daemon, until Ctrl-C; with --json "
         "a line each. The companion daemon tells root; --proxy stands in front of any daemon, and "
         "of the listeners that it tells, whose sockets it may rename.",
         "monitor\nmonitor --proxy --pcap messages.pcap"},
        Follow);
    AddRunDirArgument(monitor, commands->runDir);
    AddFlag(monitor, "--proxy", commands->proxy, "Stand in front of the daemon at /tmp/api_daemon");
    AddArgument(monitor, "--pcap", commands->capture, kPathKind,
                "With --proxy: also write what passes into this file, for a packet analyser");
}

}  // namespace ctl
