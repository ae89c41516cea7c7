#include "child.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <utility>

#include "lib/base/fd.hpp"
#include "refusal.hpp"

namespace vimbrad {

std::string ChildEnd::Text() const {
    return signal != 0 ? "killed by signal " + std::to_string(signal)
                       : "exit status " + std::to_string(status);
}

// Outlives its child until the program has been reaped.
class Child::Run : public std::enable_shared_from_this<Run> {
 public:
    explicit Run(Events events) : events_(std::move(events)) {}

    void Start(uv_loop_t* loop, const std::vector<std::string>& command,
               const std::string& called) {
        std::vector<char*> arguments;
        for (const std::string& each : command) {
            arguments.push_back(const_cast<char*>(each.c_str()));
        }
        arguments.push_back(nullptr);
        const char* const file = arguments.front();
        if (!called.empty()) {
            arguments.front() = const_cast<char*>(called.c_str());
        }

        const vimbra::Fd theirs = OpenOutput(loop);
        uv_stdio_container_t streams[3] = {};
        streams[0].flags = UV_IGNORE;
        for (uv_stdio_container_t* each : {&streams[1], &streams[2]}) {
            each->flags = UV_INHERIT_FD;
            each->data.fd = theirs.Get();
        }
        uv_process_options_t options{};
        options.file = file;
        options.args = arguments.data();
        options.stdio = streams;
        options.stdio_count = std::size(streams);
        options.exit_cb = [](uv_process_t* process, int64_t status, int signal) {
            static_cast<Run*>(process->data)->Ended({static_cast<int>(status), signal});
        };
        // The loop has to close it even when the program could not be run.
        process_.reset(new uv_process_t{});
        process_->data = this;
        if (const int result = uv_spawn(loop, process_.get(), &options); result < 0) {
            throw Refusal(-result, command.front() + ": " + uv_strerror(result));
        }
        self_ = shared_from_this();
    }

    void Kill(int signal) {
        if (self_) {
            uv_process_kill(process_.get(), signal);
        }
    }

    void EndsWithin(u64 milliseconds) {
        if (!patience_) {
            patience_ = MakeTimer(process_->loop, this);
        }
        uv_timer_start(
            patience_.get(),
            [](uv_timer_t* timer) { static_cast<Run*>(timer->data)->Kill(SIGKILL); }, milliseconds,
            0);
    }

    void Abandon() {
        events_ = {};
        output_.reset();
        patience_.reset();
        Kill(SIGKILL);
    }

 private:
    // The end of a pipe for the program to write to.
    vimbra::Fd OpenOutput(uv_loop_t* loop) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw Refusal(errno);
        }
        vimbra::Fd theirs;
        theirs.Reset(ends[1]);
        vimbra::Fd ours;
        ours.Reset(ends[0]);
        output_ = MakePipe(loop, this);
        UvCheck(uv_pipe_open(output_.get(), ours.Get()), "pipe");
        output_fd_ = ours.Release();
        UvCheck(uv_read_start(AsStream(output_), GiveBuffer, OnRead), "pipe");
        return theirs;
    }

    static void GiveBuffer(uv_handle_t* handle, size_t, uv_buf_t* buffer) {
        auto* self = static_cast<Run*>(handle->data);
        *buffer = uv_buf_init(self->buffer_.data(), static_cast<unsigned>(self->buffer_.size()));
    }

    static void OnRead(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
        const auto self = static_cast<Run*>(stream->data)->shared_from_this();
        if (count < 0) {
            self->output_.reset();
        } else {
            self->Append({buffer->base, static_cast<size_t>(count)});
        }
    }

    void Append(std::string_view text) {
        for (const char each : text) {
            if (each != '\n') {
                line_ += each;
            }
            if (each == '\n' || line_.size() == kLineMax) {
                ReportLine();
            }
        }
    }

    void ReportLine() {
        const std::string line = std::exchange(line_, {});
        // The receiver may let go of the child, and of the function with it.
        if (const auto report = events_.line; report && !line.empty()) {
            report(line);
        }
    }

    void Ended(const ChildEnd& end) {
        const auto self = std::exchange(self_, nullptr);
        // What the program wrote comes before its end; what it started may hold the pipe for ever.
        while (output_) {
            const ssize_t count = read(output_fd_, buffer_.data(), buffer_.size());
            if (count <= 0) {
                break;
            }
            Append({buffer_.data(), static_cast<size_t>(count)});
        }
        ReportLine();
        process_.reset();
        output_.reset();
        patience_.reset();
        if (const auto report = std::exchange(events_.end, nullptr)) {
            report(end);
        }
    }

    static constexpr size_t kLineMax = 1024;

    Events events_;
    std::array<char, 4096> buffer_{};
    std::string line_;
    UvHandle<uv_process_t> process_;
    UvHandle<uv_pipe_t> output_;
    UvHandle<uv_timer_t> patience_;
    int output_fd_ = -1;
    std::shared_ptr<Run> self_;
};

Child::Child(uv_loop_t* loop, const std::vector<std::string>& command, Events events,
             const std::string& called)
    : run_(std::make_shared<Run>(std::move(events))) {
    run_->Start(loop, command, called);
}

Child::~Child() {
    run_->Abandon();
}

void Child::Kill(int signal) {
    run_->Kill(signal);
}

void Child::End(u64 milliseconds) {
    run_->Kill(SIGTERM);
    run_->EndsWithin(milliseconds);
}

void Child::EndsWithin(u64 milliseconds) {
    run_->EndsWithin(milliseconds);
}

}  // namespace vimbrad
