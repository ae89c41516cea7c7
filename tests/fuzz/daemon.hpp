// A whole life of vimbrad under a fuzzer, from its start to its end, in this process. Its kernel,
// its network and its programs are the fuzzer's (kernel.hpp, network.hpp, programs.hpp), the sockets
// of applications and its files are real.
#ifndef VIMBRA_TESTS_FUZZ_DAEMON_HPP
#define VIMBRA_TESTS_FUZZ_DAEMON_HPP

#include <uv.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "files.hpp"
#include "input.hpp"
#include "kernel.hpp"
#include "life.hpp"
#include "network.hpp"
#include "programs.hpp"

namespace vimbra::tests {

inline constexpr char kDaemonDir[] = "/tmp/vimbrad";

class Daemon {
 public:
    // With a state that an earlier life has left, unless it is empty.
    explicit Daemon(std::string_view state = "");
    // It ends by a signal where it is to take everything back, and otherwise at once.
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    // Sends bytes as they are, and reads the reply if there is one at once.
    std::string Send(std::string_view message);
    // A request under a header that fits it.
    std::string Request(u32 type, std::string_view body);
    // The answers of operators' questions, line by line.
    std::string Ask(std::string_view lines);
    // What is left to do before the daemon waits.
    void Run();
    void Pass(u64 milliseconds);
    // From the network; see Deliver().
    void Receive(Input& input);
    // By the signal that makes it take everything back.
    void End();
    // To links that a keeper keeps.
    void KeptProgramsWrite(std::string_view bytes);

    std::string SavedState() const;

 private:
    std::string Exchange(const char* path, std::string_view bytes);

    uv_loop_t loop_{};
    std::optional<vimbrad::Life> life_;
    // The keepers' ends, as long as this daemon lives.
    std::vector<int> outputs_;
};

// A text in which @BOOT@ stands for the number of this boot.
std::string WithBoot(std::string text);

}  // namespace vimbra::tests

#endif
