// Where log lines go. None of them waits: a line that is not taken at once is lost.
#ifndef VIMBRA_TOOLS_VIMBRAD_LOG_SINK_HPP
#define VIMBRA_TOOLS_VIMBRAD_LOG_SINK_HPP

#include <memory>
#include <string_view>

namespace vimbrad {

class LogSink {
 public:
    virtual ~LogSink() = default;

    // False when the line was not taken. `priority` is syslog's, `text` ends without a newline.
    virtual bool Write(int priority, const char* word, std::string_view text) = 0;
};

std::unique_ptr<LogSink> MakeStandardErrorSink();
std::unique_ptr<LogSink> MakeSyslogSink();

}  // namespace vimbrad

#endif
