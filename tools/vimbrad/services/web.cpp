// The device's web server: busybox httpd on one port, one at a time.
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <optional>

#include "api/api_webs/webs_wire.hpp"
#include "child.hpp"
#include "lib/base/fd.hpp"
#include "log.hpp"
#include "services/services.hpp"
#include "uv.hpp"

namespace vimbrad {
namespace {

using wire::PlainResult;

constexpr u64 kLookMs = 10;
// For a server that was just ended to let go of the port.
constexpr u64 kFreeMs = 1'000;
constexpr u64 kListenMs = 5'000;

// Whether a server may listen there.
bool IsFree(s32 port) {
    const vimbra::Fd fd(socket, AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (!fd) {
        throw Refusal(errno);
    }
    const int yes = 1;
    setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u16>(port));
    return bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 ||
           errno != EADDRINUSE;
}

// In a namespace there may be one user only, and a small machine may know none but root.
std::optional<Child::User> UserOf(const std::string& name) {
    const passwd* const user = getpwnam(name.c_str());
    const uid_t self = geteuid();
    if (user == nullptr || seteuid(user->pw_uid) != 0 || seteuid(self) != 0) {
        return std::nullopt;
    }
    return Child::User{user->pw_uid, user->pw_gid};
}

class WebService : public Service {
 public:
    explicit WebService(const Context& context)
        : loop_(context.loop),
          registry_(context.registry),
          root_(context.webRoot),
          user_(context.webUser),
          timer_(MakeTimer(loop_, this)) {}

    void Attach(Registry& registry) override {
        registry.ChangeLater<wire::WebEnableBody, PlainResult>(
            wire::kWebEnable, "web server start",
            [this](const wire::WebEnableBody& body, const Answer<PlainResult>& answer) {
                Start(body.port, answer);
            });
        registry.Change<NoBody, PlainResult>(wire::kWebDisable, "web server stop",
                                             [this](const NoBody&) {
                                                 Stop();
                                                 return PlainResult{0};
                                             });
    }

    void Save(Json& state) const override {
        if (server_) {
            state["web_server"] = port_;
        }
    }
    void Restore(const Json& state) override {
        if (state.contains("web_server")) {
            Start(state.at("web_server").get<s32>(), std::nullopt);
        }
    }
    void Show(Json& answer) const override {
        Json& shown = answer["web_server"] = Json::object();
        if (server_) {
            shown = {{"port", port_}, {"root", root_}, {"pid", server_->Pid()}};
        }
    }
    void End(const Ending&) override { Stop(); }

 private:
    // A server on another port gives way. Nobody waits for one that is taken up again.
    void Start(s32 port, const std::optional<Answer<PlainResult>>& answer) {
        if (port < 1 || port > 65535) {
            throw Refusal(EINVAL, "no such port");
        }
        if (server_ && !starting_ && port == port_) {
            TellStarted(answer);
            return;
        }
        Stop();
        port_ = port;
        answer_ = answer;
        starting_ = true;
        deadline_ = uv_now(loop_) + kFreeMs;
        Look();
    }

    // Whoever still waits for an answer is told that it was cancelled.
    void Stop() {
        uv_timer_stop(timer_.get());
        server_.reset();
        answer_.reset();
        starting_ = false;
    }

    static void TellStarted(const std::optional<Answer<PlainResult>>& answer) {
        if (answer) {
            (*answer)({0});
        }
    }

    // First the port has to be free, then the server has to be there.
    void Look() {
        try {
            const bool taken = !IsFree(port_);
            if (server_ && taken) {
                LogInfo("web server on port %d", port_);
                starting_ = false;
                TellStarted(std::exchange(answer_, std::nullopt));
                return;
            }
            if (!server_ && !taken) {
                Run();
            } else if (uv_now(loop_) >= deadline_) {
                throw Refusal(server_ ? ETIMEDOUT : EADDRINUSE);
            }
        } catch (const Refusal& refusal) {
            Fail(refusal.Error(), refusal.what());
            return;
        }
        uv_timer_start(
            timer_.get(), [](uv_timer_t* timer) { static_cast<WebService*>(timer->data)->Look(); },
            kLookMs, 0);
    }

    Child::Program Program() const {
        Child::Program program{
            {"busybox", "httpd", "-f", "-p", std::to_string(port_), "-h", root_}};
        program.user = UserOf(user_);
        if (!program.user) {
            LogWarning("web server: cannot run as %s: runs as we do", user_.c_str());
        }
        return program;
    }

    void Run() {
        server_ = std::make_unique<Child>(
            loop_, Program(),
            Child::Events{[](std::string_view line) {
                              LogWarning("web server: %.*s", static_cast<int>(line.size()),
                                         line.data());
                          },
                          [this](const ChildEnd& end) { Ended(end); }});
        deadline_ = uv_now(loop_) + kListenMs;
    }

    void Ended(const ChildEnd& end) {
        const std::string text = "the web server ended: " + end.Text();
        Fail(EIO, text.c_str());
        registry_.Changed();
    }

    void Fail(int error, const char* why) {
        const auto answer = std::exchange(answer_, std::nullopt);
        Stop();
        if (answer) {
            answer->Refuse(error, why);
        } else {
            LogWarning("web server on port %d: %s", port_, why);
        }
    }

    uv_loop_t* loop_;
    Registry& registry_;
    std::string root_;
    std::string user_;
    s32 port_ = 0;
    u64 deadline_ = 0;
    UvHandle<uv_timer_t> timer_;
    std::unique_ptr<Child> server_;
    bool starting_ = false;
    // Of a start that is not done.
    std::optional<Answer<PlainResult>> answer_;
};

}  // namespace

std::unique_ptr<Service> MakeWebService(const Context& context) {
    return std::make_unique<WebService>(context);
}

}  // namespace vimbrad
