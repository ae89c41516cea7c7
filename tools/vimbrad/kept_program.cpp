#include "kept_program.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <set>
#include <sstream>
#include <thread>

#include "hooks.hpp"
#include "keeper.hpp"
#include "log.hpp"
#include "run_dir.hpp"

namespace vimbrad {
namespace {

// Longer than a keeper waits before it kills its program.
constexpr auto kOthersEnd = std::chrono::seconds(10);
constexpr auto kLook = std::chrono::milliseconds(20);

// Those that have a program of ours in them.
std::set<std::string>& DirectoriesInUse() {
    static std::set<std::string> inUse;
    return inUse;
}

[[noreturn]] void Refuse(const std::string& path) {
    throw Refusal(errno, path + ": " + std::strerror(errno));
}

std::string MakeFifo(const PrivateDir& directory, const char* name) {
    const std::string path = directory.PathOf(name);
    unlink(path.c_str());
    if (mkfifo(path.c_str(), 0600) != 0) {
        Refuse(path);
    }
    return path;
}

// Without a reader there is no keeper.
vimbra::Fd OpenControl(const std::string& path) {
    return vimbra::Fd(open, path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
}

void Order(const vimbra::Fd& control, char order) {
    static_cast<void>(write(control.Get(), &order, sizeof(order)) == sizeof(order));
}

std::vector<std::string> DirectoriesOfOthers(const RunDirectory& runDir) {
    std::vector<std::string> found;
    std::error_code ignored;
    for (const auto& each : std::filesystem::directory_iterator(runDir.Path(), ignored)) {
        if (std::filesystem::exists(each.path() / kControlName, ignored) &&
            !DirectoriesInUse().contains(each.path())) {
            found.push_back(each.path());
        }
    }
    return found;
}

}  // namespace

KeptProgram::KeptProgram(const Context& context, PrivateDir& directory, Events events)
    : loop_(context.loop),
      directory_(directory),
      events_(std::move(events)),
      lines_([this](std::string_view line) { TakeLine(line); }) {}

KeptProgram::KeptProgram(const Context& context, PrivateDir& directory,
                         const std::vector<std::string>& command, Events events)
    : KeptProgram(context, directory, std::move(events)) {
    MakeFifo(directory, kOutputName);
    OpenOutput();
    BeginKeeper(context, command);
    DirectoriesInUse().insert(directory_.Path());
}

KeptProgram::KeptProgram(const Context& context, PrivateDir& directory, pid_t pid, Events events)
    : KeptProgram(context, directory, std::move(events)) {
    const std::string path = directory.PathOf(kControlName);
    control_ = OpenControl(path);
    if (!control_) {
        Refuse(path);
    }
    OpenOutput();
    Write(kKeeperBound);
    pid_ = pid;
    DirectoriesInUse().insert(directory_.Path());
}

KeptProgram::~KeptProgram() {
    DirectoriesInUse().erase(directory_.Path());
    if (!end_ && OpenControl(directory_.PathOf(kControlName))) {
        directory_.Leave();
    }
}

void KeptProgram::OpenOutput() {
    const std::string path = directory_.PathOf(kOutputName);
    vimbra::Fd output(open, path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (!output) {
        Refuse(path);
    }
    output_ = MakePipe(loop_, this);
    UvCheck(uv_pipe_open(output_.get(), output.Get()), "pipe");
    output.Release();
    UvCheck(uv_read_start(
                AsStream(output_),
                [](uv_handle_t* handle, size_t, uv_buf_t* buffer) {
                    auto* self = static_cast<KeptProgram*>(handle->data);
                    *buffer = uv_buf_init(self->buffer_.data(),
                                          static_cast<unsigned>(self->buffer_.size()));
                },
                [](uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
                    static_cast<KeptProgram*>(stream->data)->TakeBytes(count, buffer->base);
                }),
            "pipe");
}

// The keeper inherits its end: one that had to open it could come after the daemon's death, and
// would not know of it.
void KeptProgram::BeginKeeper(const Context& context, const std::vector<std::string>& command) {
    const std::string path = MakeFifo(directory_, kControlName);
    const vimbra::Fd theirs(open, path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    control_ = OpenControl(path);
    if (!theirs || !control_) {
        Refuse(path);
    }
    Child::Program keeper{{context.runDir.PathOf(kLinkKeeper), std::to_string(theirs.Get()),
                           directory_.PathOf(kOutputName)}};
    keeper.command.insert(keeper.command.end(), command.begin(), command.end());
    keeper.inherited = theirs.Get();
    starter_ = std::make_unique<Child>(
        loop_, keeper,
        Child::Events{[](std::string_view line) {
                          LogWarning("keeper: %.*s", static_cast<int>(line.size()), line.data());
                      },
                      [this](const ChildEnd& end) {
                          starter_.reset();
                          if (end.status != 0 || end.signal != 0) {
                              Finish(end);
                          }
                      }});
}

void KeptProgram::Write(char order) const {
    Order(control_, order);
}

void KeptProgram::End() {
    Write(kKeeperEnd);
}

void KeptProgram::LetLive() {
    Write(kKeeperLive);
}

// The end comes last: it may destroy this.
void KeptProgram::TakeBytes(ssize_t count, const char* bytes) {
    if (count > 0) {
        lines_.Append({bytes, static_cast<size_t>(count)});
    } else if (count < 0 && !end_) {
        // The keeper itself was killed, and its program with it.
        lines_.Flush();
        end_ = ChildEnd{0, SIGKILL};
    }
    if (end_) {
        Finish(*end_);
    }
}

void KeptProgram::TakeLine(std::string_view line) {
    const auto wordsBehind = [line](std::string_view mark) {
        return std::istringstream(std::string(line.substr(mark.size())));
    };
    if (line.starts_with(kKeeperPid)) {
        wordsBehind(kKeeperPid) >> pid_;
    } else if (line.starts_with(kKeeperEnded)) {
        ChildEnd& end = end_.emplace();
        wordsBehind(kKeeperEnded) >> end.status >> end.signal;
    } else {
        events_.line(line);
    }
}

// Not by reference: the call may end this object, and the function and the end with it.
void KeptProgram::Finish(ChildEnd end) {
    end_ = end;
    output_.reset();
    const auto report = std::move(events_.end);
    report(end);
}

void KeptProgram::EndOthers(const RunDirectory& runDir) {
    const std::vector<std::string> directories = DirectoriesOfOthers(runDir);
    std::vector<vimbra::Fd> controls;
    for (const std::string& each : directories) {
        controls.push_back(OpenControl(each + "/" + kControlName));
        Order(controls.back(), kKeeperEnd);
    }
    const auto deadline = std::chrono::steady_clock::now() + kOthersEnd;
    const auto isKept = [](const std::string& each) {
        return static_cast<bool>(OpenControl(each + "/" + kControlName));
    };
    while (std::ranges::any_of(directories, isKept) &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(kLook);
    }
    for (const std::string& each : directories) {
        std::error_code ignored;
        std::filesystem::remove_all(each, ignored);
    }
}

}  // namespace vimbrad
