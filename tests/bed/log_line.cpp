// Messages of the log, taken apart.
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ostream>

#include "vimbra/bed.hpp"

namespace vimbra::bed {
namespace {

struct Tag {
    Kind kind;
    std::string_view start;
    const char* name;
    int priority;
};

constexpr std::array<Tag, 4> kTags{{
    {Kind::kError, "[VIMBRA_ERR]:PID[", "error", LOG_LOCAL6 | LOG_ERR},
    {Kind::kPrint, "[VIMBRA_PRT]:PID[", "print", LOG_LOCAL6 | LOG_INFO},
    {Kind::kWarn, "[VIMBRA_WARN]:PID[", "warn", LOG_LOCAL6 | LOG_DEBUG},
    {Kind::kPerror, "[VIMBRA_PERROR]PID[", "perror", LOG_LOCAL6 | LOG_ERR},
}};

const Tag* TagOf(Kind kind) {
    for (const Tag& tag : kTags) {
        if (tag.kind == kind) {
            return &tag;
        }
    }
    return nullptr;
}

const Tag* TagAt(std::string_view text) {
    for (const Tag& tag : kTags) {
        if (text.starts_with(tag.start)) {
            return &tag;
        }
    }
    return nullptr;
}

// The first tag in the text; npos when there is none.
size_t FindTag(std::string_view text, size_t from) {
    for (size_t at = text.find("[VIMBRA_", from); at != std::string_view::npos;
         at = text.find("[VIMBRA_", at + 1)) {
        if (TagAt(text.substr(at)) != nullptr) {
            return at;
        }
    }
    return std::string_view::npos;
}

// Takes what stands before `end` off the text; nothing when there is no such end.
std::optional<std::string_view> Cut(std::string_view& text, std::string_view end) {
    const size_t at = text.find(end);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view piece = text.substr(0, at);
    text.remove_prefix(at + end.size());
    return piece;
}

int NumberIn(std::string_view text) {
    return std::atoi(std::string(text).c_str());
}

// "%s{errno(%d):%s}", the braces closing at the end.
bool ParseErrno(std::string_view text, LogLine& line) {
    constexpr std::string_view kStart = "{errno(";
    const size_t start = text.rfind(kStart);
    if (start == std::string_view::npos || !text.ends_with('}')) {
        return false;
    }
    line.text = text.substr(0, start);
    text = text.substr(start + kStart.size());
    text.remove_suffix(1);
    const auto number = Cut(text, "):");
    line.errnoValue = NumberIn(number.value_or(""));
    line.errnoText = text;
    return number.has_value();
}

bool ParseTagged(std::string_view text, const Tag& tag, LogLine& line) {
    text.remove_prefix(tag.start.size());
    const bool perror = tag.kind == Kind::kPerror;
    const auto pid = Cut(text, perror ? "]:" : "]:[");
    const auto function = Cut(text, perror ? "(" : "](");
    const auto number = Cut(text, perror ? "):" : "): ");
    if (!pid || !function || !number) {
        return false;
    }
    line.kind = tag.kind;
    line.pid = NumberIn(*pid);
    line.function = *function;
    line.line = NumberIn(*number);
    if (perror) {
        return ParseErrno(text, line);
    }
    line.text = text;
    return true;
}

// One message, with its newline if it has one.
LogLine ParseMessage(std::string_view message) {
    LogLine line;
    line.raw = message;
    line.newline = message.ends_with('\n');
    if (line.newline) {
        message.remove_suffix(1);
    }
    const Tag* tag = TagAt(message);
    if (tag == nullptr || !ParseTagged(message, *tag, line)) {
        line.kind = Kind::kOther;
        line.text = message;
    }
    return line;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, Kind kind) {
    const Tag* tag = TagOf(kind);
    return out << (tag != nullptr ? tag->name : "other");
}

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    if (line.priority >= 0) {
        out << '<' << line.priority << "> ";
    }
    out << line.kind;
    if (line.kind != Kind::kOther) {
        out << ' ' << line.function << '(' << line.line << ')';
    }
    out << ": \"" << line.text << '"';
    if (line.kind == Kind::kPerror) {
        out << " errno " << line.errnoValue << " (" << line.errnoText << ')';
    }
    return out;
}

std::vector<LogLine> ParseLog(std::string_view text) {
    std::vector<LogLine> lines;
    while (!text.empty()) {
        const size_t next = FindTag(text, 1);
        const size_t newline = text.find('\n');
        const size_t end = std::min(
            {next, newline == std::string_view::npos ? newline : newline + 1, text.size()});
        lines.push_back(ParseMessage(text.substr(0, end)));
        text.remove_prefix(end);
    }
    return lines;
}

LogLine ParseSyslog(std::string_view datagram) {
    int priority = -1;
    std::string_view text = datagram;
    if (text.starts_with('<')) {
        text.remove_prefix(1);
        priority = NumberIn(Cut(text, ">").value_or("-1"));
    }
    if (const size_t tag = FindTag(text, 0); tag != std::string_view::npos) {
        text.remove_prefix(tag);
    } else {
        // "Nov 21 09:00:00 program[pid]: "
        constexpr size_t kTime = 16;
        text.remove_prefix(std::min(kTime, text.size()));
        Cut(text, ": ");
    }
    LogLine line = ParseMessage(text);
    line.priority = priority;
    line.raw = datagram;
    return line;
}

int PriorityOf(Kind kind) {
    const Tag* tag = TagOf(kind);
    return tag != nullptr ? tag->priority : -1;
}

}  // namespace vimbra::bed
