// A program that ends with the daemon, however that happens, unless the daemon lets it live for the
// next one, which takes it up.
#ifndef VIMBRA_TOOLS_VIMBRAD_KEPT_PROGRAM_HPP
#define VIMBRA_TOOLS_VIMBRAD_KEPT_PROGRAM_HPP

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "child.hpp"
#include "lib/base/fd.hpp"
#include "lines.hpp"
#include "private_dir.hpp"
#include "service.hpp"
#include "uv.hpp"

namespace vimbrad {

// Between the two stands a keeper (keeper.hpp), spoken to over named pipes in the program's
// directory: a later life is to it what the first one was.
class KeptProgram {
 public:
    struct Events {
        // A line of standard output or standard error.
        std::function<void(std::string_view line)> line;
        // The last report; only it may destroy the program.
        std::function<void(const ChildEnd& end)> end;
    };

    // Runs it. Throws Refusal; that it cannot be run may also be told as its end.
    KeptProgram(const Context& context, PrivateDir& directory,
                const std::vector<std::string>& command, Events events);
    // Takes up what an earlier life has let live. Throws Refusal when it has ended.
    KeptProgram(const Context& context, PrivateDir& directory, pid_t pid, Events events);
    // It ends, if it was not let live; its directory stays until it has.
    ~KeptProgram();
    KeptProgram(const KeptProgram&) = delete;
    KeptProgram& operator=(const KeptProgram&) = delete;

    // 0 as long as nobody knows.
    pid_t Pid() const { return pid_; }
    // Asked to by SIGTERM, killed some seconds later.
    void End();
    void LetLive();

    // Ends those of earlier lives that nobody has taken up, and removes what they leave.
    static void EndOthers(const RunDirectory& runDir);

 private:
    KeptProgram(const Context& context, PrivateDir& directory, Events events);

    void OpenOutput();
    void BeginKeeper(const Context& context, const std::vector<std::string>& command);
    void Write(char order) const;
    void TakeBytes(ssize_t count, const char* bytes);
    void TakeLine(std::string_view line);
    void Finish(ChildEnd end);

    uv_loop_t* loop_;
    PrivateDir& directory_;
    Events events_;
    Lines lines_;
    std::array<char, 4096> buffer_{};
    vimbra::Fd control_;
    UvHandle<uv_pipe_t> output_;
    std::unique_ptr<Child> starter_;
    pid_t pid_ = 0;
    std::optional<ChildEnd> end_;
};

}  // namespace vimbrad

#endif
