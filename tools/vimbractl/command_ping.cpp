#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/ping.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "api/api_ping/ping_wire.hpp"
#include "commands.hpp"
#include "events.hpp"
#include "take_over.hpp"

namespace ctl {

namespace {

struct Probe {
    s32 result;
    TVimbraPingCBInfo info;
};

struct Arguments {
    TVimbraAddr host = {};
    u32 count = 0;
    u32 size = 0;
    u32 ttl = 0;
    u32 timeout = 0;
    bool takeOver = false;
};

// What the companion daemon takes; it says itself what it does not.
bool ParseOption(const std::string& text, u32& value) {
    return ParseNumber(text, value) && value <= INT32_MAX;
}

const Kind<u32> kOption = {"a number, 0 for the usual", ParseOption};

constexpr u32 kUsualSize = 56;
constexpr u32 kUsualTimeout = 1000;

// Words for a probe that was not answered, and for a script.
struct Reason {
    const char* text;
    const char* word;
};

Reason ReasonOf(s32 result) {
    switch (result) {
        case 1:
            return {"no answer in time", "timeout"};
        case 2:
            return {"destination unreachable", "unreachable"};
        case 3:
            return {"time to live exceeded", "ttl-exceeded"};
        default:
            return {"no answer", "unknown"};
    }
}

int OnProbe(s32 result, TVimbraPingCBInfo* info) {
    EventQueue<Probe>::Instance().Post({result, *info});
    return 0;
}

std::string Milliseconds(double microseconds) {
    char text[32];
    snprintf(text, sizeof(text), "%.3f", microseconds / 1000);
    return text;
}

class Summary {
 public:
    void Add(const Probe& probe) {
        probes_++;
        if (probe.result != 0) {
            return;
        }
        const double time = probe.info.nTripTime;
        least_ = answers_ == 0 ? time : std::min(least_, time);
        most_ = std::max(most_, time);
        sum_ += time;
        answers_++;
    }

    u32 Answers() const { return answers_; }

    bool Show(Tool& tool, const std::string& host) const {
        const u32 loss = probes_ == 0 ? 0 : 100 * (probes_ - answers_) / probes_;
        std::string text = "\n--- " + host + " ping statistics ---\n" + std::to_string(probes_) +
                           " packets transmitted, " + std::to_string(answers_) + " received, " +
                           std::to_string(loss) + "% packet loss";
        Json record = {{"host", host},         {"transmitted", probes_}, {"received", answers_},
                       {"loss_percent", loss}, {"min_ms", nullptr},      {"avg_ms", nullptr},
                       {"max_ms", nullptr}};
        if (answers_ != 0) {
            text += "\nrtt min/avg/max = " + Milliseconds(least_) + "/" +
                    Milliseconds(sum_ / answers_) + "/" + Milliseconds(most_) + " ms";
            record.Set("min_ms", least_ / 1000);
            record.Set("avg_ms", sum_ / answers_ / 1000);
            record.Set("max_ms", most_ / 1000);
        }
        return tool.ShowLine(text, Json{{"summary", record}});
    }

 private:
    u32 probes_ = 0;
    u32 answers_ = 0;
    double least_ = 0;
    double most_ = 0;
    double sum_ = 0;
};

bool ShowProbe(Tool& tool, const Arguments& arguments, const Probe& probe) {
    const std::string host = AddressText(arguments.host);
    const std::string number = "icmp_seq=" + std::to_string(probe.info.nSeq);
    if (probe.result != 0) {
        const Reason reason = ReasonOf(probe.result);
        return tool.ShowLine(host + ": " + number + " " + reason.text,
                             Json{{"seq", probe.info.nSeq}, {"result", reason.word}});
    }
    const u32 bytes = 8 + (arguments.size == 0 ? kUsualSize : arguments.size);
    return tool.ShowLine(std::to_string(bytes) + " bytes from " + host + ": " + number +
                             " ttl=" + std::to_string(probe.info.nTtl) +
                             " time=" + Milliseconds(probe.info.nTripTime) + " ms",
                         Json{{"seq", probe.info.nSeq},
                              {"result", "reply"},
                              {"ttl", probe.info.nTtl},
                              {"ms", probe.info.nTripTime / 1000.0}});
}

// Every probe is told of, a second after the one before or when its time is up.
std::chrono::milliseconds Patience(const Arguments& arguments) {
    return std::chrono::milliseconds(arguments.timeout == 0 ? kUsualTimeout : arguments.timeout) +
           std::chrono::seconds(10);
}

void Run(Tool& tool, const Arguments& arguments) {
    ExpectFree(vimbra::wire::kPingSocket, arguments.takeOver);
    const EndWish wish(tool.OutputDescriptor());
    tool.Call(VimbraInit);
    const std::string host = AddressText(arguments.host);
    // No two processes have the same.
    const s32 id = getpid();
    TVimbraPingOpt options = {static_cast<s32>(arguments.size), static_cast<s32>(arguments.timeout),
                              static_cast<s32>(arguments.ttl), static_cast<s32>(arguments.count)};
    if (!tool.json) {
        tool.ShowText("PING " + host + ": " +
                      std::to_string(arguments.size == 0 ? kUsualSize : arguments.size) +
                      " data bytes\n");
    }
    tool.Call([&] { return VimbraPingStart(arguments.host, &options, id, OnProbe); });

    Summary summary;
    const auto show = [&](const Probe& probe) {
        const bool isWritten = ShowProbe(tool, arguments, probe);
        if (isWritten) {
            summary.Add(probe);
        }
        return isWritten;
    };
    const Shown shown = ShowEach<Probe>(wish, arguments.count, show, Patience(arguments));
    // A test that has run to its end is stopped already.
    if (arguments.count == 0 || shown.count < arguments.count) {
        tool.Try([id] { return VimbraPingStop(id); });
    }
    summary.Show(tool, host);
    ExpectMore(shown.woken);
    if (summary.Answers() == 0) {
        throw CommandFailed(ExitStatus::kNotSo, host + ": no answer");
    }
}

}  // namespace

void AddPingCommand(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(root, tool);
    CLI::App& command = commands.Add(
        {"ping", "Ask a host for answers, one a second, until Ctrl-C; with --json a line each.",
         "ping 192.0.2.1\nping 2001:db8::1 --count 3 --size 1000 --json"},
        Run);
    AddArgument(command, "host", commands->host, kAddress, "Whom to ask").Required();
    AddArgument(command, "--count", commands->count, kOption, "How often, without end by default");
    AddArgument(command, "--size", commands->size, kOption, "Bytes of payload, usually 56");
    AddArgument(command, "--ttl", commands->ttl, kOption, "Time to live of the probes");
    AddArgument(command, "--timeout", commands->timeout, kOption,
                "How long to wait for each answer in milliseconds, usually 1000");
    AddTakeOverFlag(command, commands->takeOver);
}

}  // namespace ctl
