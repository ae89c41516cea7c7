// What a program writes, line by line.
#ifndef VIMBRA_TOOLS_VIMBRAD_LINES_HPP
#define VIMBRA_TOOLS_VIMBRAD_LINES_HPP

#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace vimbrad {

class Lines {
 public:
    // A line without its end; empty ones are left out, and long ones come in pieces.
    using Report = std::function<void(std::string_view line)>;

    explicit Lines(Report report) : report_(std::move(report)) {}

    void Append(std::string_view text) {
        for (const char each : text) {
            if (each != '\n') {
                line_ += each;
            }
            if (each == '\n' || line_.size() == kLineMax) {
                Flush();
            }
        }
    }

    // What has no end yet is a line, too.
    void Flush() {
        const std::string line = std::exchange(line_, {});
        if (!line.empty()) {
            report_(line);
        }
    }

 private:
    static constexpr size_t kLineMax = 1024;

    Report report_;
    std::string line_;
};

}  // namespace vimbrad

#endif
