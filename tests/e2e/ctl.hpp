// The command line under test, with the daemon and real hosts behind it.
#ifndef VIMBRA_TESTS_E2E_CTL_HPP
#define VIMBRA_TESTS_E2E_CTL_HPP

#include <signal.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "e2e.hpp"

namespace vimbra::tests {

// The tool, at work in the background. Several may be at work at once.
class Ctl {
 public:
    explicit Ctl(const std::string& words) : Ctl(words, NewPath()) {}

    std::string Out() const { return program_.Output(); }
    std::string Err() const { return bed::ReadFile(error_); }
    bool WaitOut(const std::string& text) const { return program_.WaitOutput(text); }
    void Interrupt(int number = SIGINT) { program_.Signal(number); }
    int Wait() { return program_.Wait(); }

    // Its output as JSON lines.
    std::vector<Json> Lines() const {
        std::vector<Json> lines;
        std::istringstream text(Out());
        for (std::string line; std::getline(text, line);) {
            lines.push_back(Json::parse(line, nullptr, false));
        }
        return lines;
    }

 private:
    Ctl(const std::string& words, const std::string& path)
        : error_(path + ".err"),
          program_({"sh", "-c", "exec " VIMBRACTL_PATH " " + words + " 2>" + error_},
                   path + ".out") {}

    static std::string NewPath() {
        static int count = 0;
        return "/tmp/ctl." + std::to_string(++count);
    }

    std::string error_;
    Program program_;
};

// What is left when it has done.
struct Done {
    int status;
    std::string out;
    std::string err;
    std::vector<Json> lines;
};

inline Done RunCtl(const std::string& words) {
    Ctl ctl(words);
    const int status = ctl.Wait();
    return {status, ctl.Out(), ctl.Err(), ctl.Lines()};
}

}  // namespace vimbra::tests

#endif
