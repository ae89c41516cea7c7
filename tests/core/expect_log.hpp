// Compares all that the library logged, on both destinations, with a list of lines.
#ifndef VIMBRA_TESTS_CORE_EXPECT_LOG_HPP
#define VIMBRA_TESTS_CORE_EXPECT_LOG_HPP

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using bed::Capture;
using bed::Kind;
using bed::LogLine;

struct Said {
    Kind kind;
    int priority;
    std::string function;
    std::string text;
    int error = 0;
    bool newline = false;
};

inline Said Err(std::string function, std::string text) {
    return {Kind::kError, 179, std::move(function), std::move(text)};
}
inline Said Prt(std::string function, std::string text) {
    return {Kind::kPrint, 182, std::move(function), std::move(text)};
}
// Debug lines carry the tag of information and differ in priority.
inline Said Dbg(std::string function, std::string text) {
    return {Kind::kPrint, 183, std::move(function), std::move(text)};
}
inline Said Perr(std::string function, std::string step, int error) {
    return {Kind::kPerror, 179, std::move(function), std::move(step), error, true};
}

inline bool Is(const LogLine& line, const Said& said, bool inSyslog) {
    const bool same = line.kind == said.kind && line.function == said.function &&
                      line.text == said.text && line.pid == getpid() && line.line > 0;
    const bool errors = said.kind != Kind::kPerror ||
                        (line.errnoValue == said.error && line.errnoText == strerror(said.error));
    // The system log ends its messages itself.
    const bool ends = inSyslog ? line.priority == said.priority : line.newline == said.newline;
    return same && errors && ends;
}

// These lines in this order, and nothing else, on standard output and in the system log, each with
// its tag, process id, priority and line end.
inline testing::AssertionResult Wrote(const Capture& log, const std::vector<Said>& lines) {
    const std::vector<LogLine> out = log.Stdout();
    const std::vector<LogLine> sys = log.Syslog();
    bool same = out.size() == lines.size() && sys.size() == lines.size();
    for (size_t i = 0; same && i < lines.size(); i++) {
        same = Is(out[i], lines[i], false) && Is(sys[i], lines[i], true);
    }
    if (same) {
        return testing::AssertionSuccess();
    }
    std::ostringstream expected;
    for (const Said& said : lines) {
        expected << "\n  <" << said.priority << "> " << said.kind << ' ' << said.function << ": \""
                 << said.text << '"';
        if (said.error != 0) {
            expected << " errno " << said.error;
        }
    }
    return testing::AssertionFailure()
           << "expected:" << expected.str() << "\nbut " << log.Describe();
}

}  // namespace vimbra::tests

#endif
