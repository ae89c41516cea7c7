// A daemon that may be killed, ended or exchanged, and the one after it.
#ifndef VIMBRA_TESTS_E2E_LIVES_HPP
#define VIMBRA_TESTS_E2E_LIVES_HPP

#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <string>
#include <vector>

#include "e2e.hpp"

namespace vimbra::tests {

// Begun when the constructor returns, and ended at the latest by the destructor.
class Lives {
 public:
    explicit Lives(const std::vector<std::string>& options = {}) : options_(options) { Begin(); }
    ~Lives() {
        if (daemon_) {
            End();
        }
    }
    Lives(const Lives&) = delete;
    Lives& operator=(const Lives&) = delete;

    void Begin(const std::vector<std::string>& more = {}) {
        std::vector<std::string> options = options_;
        options.insert(options.end(), more.begin(), more.end());
        daemon_ = std::make_unique<Program>(DaemonCommand(options),
                                            "/tmp/vimbrad." + std::to_string(++life_) + ".log");
        EXPECT_TRUE(daemon_->WaitOutput("listening on")) << daemon_->Output();
    }
    void Kill() {
        KillDaemon(*daemon_);
        daemon_.reset();
    }
    void KillAndBegin(const std::vector<std::string>& more = {}) {
        Kill();
        Begin(more);
    }
    void End() {
        daemon_->Signal(SIGTERM);
        EXPECT_EQ(0, daemon_->Wait()) << daemon_->Output();
        daemon_.reset();
    }
    void EndAndBegin() {
        End();
        Begin();
    }
    bool WaitLog(const std::string& text) const { return daemon_->WaitOutput(text); }
    std::string Log() const { return daemon_->Output(); }
    pid_t Pid() const { return daemon_->Pid(); }

 private:
    std::vector<std::string> options_;
    int life_ = 0;
    std::unique_ptr<Program> daemon_;
};

}  // namespace vimbra::tests

#endif
