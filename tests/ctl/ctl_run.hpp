// Runs vimbractl as a script does.
#ifndef VIMBRA_TESTS_CTL_RUN_HPP
#define VIMBRA_TESTS_CTL_RUN_HPP

#include <iosfwd>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace vimbra::tests {

using Expected = nlohmann::json;

struct Outcome {
    int status = -1;  // exit status; 128 and the signal if one ended it
    std::string out;
    std::string err;

    // What it printed, as JSON; null when it is none.
    [[nodiscard]] nlohmann::json Json() const;
    // What it said went wrong, as JSON.
    [[nodiscard]] nlohmann::json Error() const;
};
std::ostream& operator<<(std::ostream& stream, const Outcome& outcome);

// The words of a command line, separated by single blanks; `stdoutPath` instead of the capture.
Outcome Ctl(const std::string& words, const char* stdoutPath = nullptr);
Outcome CtlWords(const std::vector<std::string>& arguments, const char* stdoutPath = nullptr);

}  // namespace vimbra::tests

#endif
