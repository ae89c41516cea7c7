#include <vimbra/stat.h>

#include <array>
#include <chrono>
#include <cstdio>

#include "api/api_network_common/stat_wire.hpp"
#include "commands.hpp"
#include "events.hpp"
#include "take_over.hpp"

namespace ctl {

namespace {

using Clock = std::chrono::steady_clock;

struct Report {
    Clock::time_point time;
    std::vector<TNetDevStat> interfaces;
};

struct Arguments {
    u32 interval = 1;
    u32 count = 0;
    bool takeOver = false;
};

bool ParseInterval(const std::string& text, u32& seconds) {
    return ParseNumber(text, seconds) && seconds >= 1 && seconds <= INT32_MAX;
}

const Kind<u32> kInterval = {"a number of seconds, 1 or more", ParseInterval};

void OnReport(TNetDevStat* stats, u32 count) {
    EventQueue<Report>::Instance().Post({Clock::now(), {stats, stats + count}});
}

// "1.5 k", in powers of 1000.
std::string Short(double value) {
    constexpr const char* kUnits[] = {"", "k", "M", "G", "T", "P"};
    size_t unit = 0;
    while (value >= 999.95 && unit + 1 < std::size(kUnits)) {
        value /= 1000;
        unit++;
    }
    char text[32];
    snprintf(text, sizeof(text), unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
    return text;
}

// What has gone by in a second; nothing before the second report, and when the counters have begun
// anew.
class Rates {
 public:
    explicit Rates(const Report& report) : report_(report) {}

    std::optional<double> Of(const TNetDevStat& now, Clock::time_point time,
                             u64 TNetDevStat::*counter) const {
        for (const TNetDevStat& before : report_.interfaces) {
            const std::chrono::duration<double> seconds = time - report_.time;
            if (before.byEthId == now.byEthId && now.*counter >= before.*counter &&
                seconds.count() > 0) {
                return static_cast<double>(now.*counter - before.*counter) / seconds.count();
            }
        }
        return std::nullopt;
    }

 private:
    const Report& report_;
};

std::string Cell(const std::string& text) {
    char cell[64];
    snprintf(cell, sizeof(cell), "%14s", text.c_str());
    return cell;
}

constexpr const char* kHeading =
    "INTERFACE         SENT/s    RECEIVED/s          SENT      RECEIVED";

// On a terminal a table that is drawn over the one before, elsewhere one that grows.
class Table {
 public:
    explicit Table(Tool& tool) : tool_(tool), redraws_(!tool.json && tool.OnTerminal()) {}

    bool Show(const Report& report, const Report& before) {
        const Rates rates(before);
        Json interfaces = Json::Array();
        std::vector<std::string> lines;
        for (const TNetDevStat& each : report.interfaces) {
            const auto sent = rates.Of(each, report.time, &TNetDevStat::dwBandSended);
            const auto received = rates.Of(each, report.time, &TNetDevStat::dwBandRecved);
            const std::string name = "eth" + std::to_string(each.byEthId);
            interfaces.Append({{"interface", name},
                               {"sent", each.dwBandSended},
                               {"received", each.dwBandRecved},
                               {"sent_per_second", OrNull(sent)},
                               {"received_per_second", OrNull(received)}});
            char start[16];
            snprintf(start, sizeof(start), "%-10s", name.c_str());
            lines.push_back(start + Cell(OrDash(sent)) + Cell(OrDash(received)) +
                            Cell(Short(static_cast<double>(each.dwBandSended)) + "B") +
                            Cell(Short(static_cast<double>(each.dwBandRecved)) + "B"));
        }
        return tool_.json ? tool_.ShowLine("", Json{{"interfaces", interfaces}})
                          : tool_.ShowText(Draw(lines));
    }

 private:
    static Json OrNull(const std::optional<double>& rate) {
        return rate ? Json(static_cast<u64>(*rate + 0.5)) : Json(nullptr);
    }
    static std::string OrDash(const std::optional<double>& rate) {
        return rate ? Short(*rate) + "B" : "-";
    }

    std::string Draw(const std::vector<std::string>& lines) {
        std::string text;
        if (redraws_ && drawn_ != 0) {
            text = "\033[" + std::to_string(drawn_) + "A";
        }
        if (redraws_ || drawn_ == 0) {
            text += Line(kHeading);
        }
        for (const std::string& line : lines) {
            text += Line(line);
        }
        // What is left of a longer table.
        text += redraws_ ? "\033[J" : "";
        drawn_ = lines.size() + 1;
        return text;
    }

    std::string Line(const std::string& text) const {
        return text + (redraws_ ? "\033[K" : "") + "\n";
    }

    Tool& tool_;
    bool redraws_;
    size_t drawn_ = 0;
};

void Watch(Tool& tool, const Arguments& arguments) {
    ExpectFree(vimbra::wire::kStatSocket, arguments.takeOver);
    const EndWish wish(tool.OutputDescriptor());
    tool.Call(
        [&] { return VimbraStatNotifyCallbackReg(static_cast<int>(arguments.interval), OnReport); },
        kInterval.accepted);
    Table table(tool);
    Report before;
    ShowEach<Report>(wish, arguments.count, [&](const Report& report) {
        return table.Show(report, std::exchange(before, report));
    });
    tool.Call(VimbraStatStop);
}

}  // namespace

void AddStatCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "stat", "Traffic of eth0, eth1 and eth2."), tool);
    CLI::App& watch =
        commands.Add({"watch", "Show the traffic until Ctrl-C; with --json a line each.",
                      "stat watch\nstat watch --interval 5 --count 12 --json"},
                     Watch);
    AddArgument(watch, "--interval", commands->interval, kInterval, "Between two reports");
    AddArgument(watch, "--count", commands->count, kNumber, "End after so many; 0 never");
    AddTakeOverFlag(watch, commands->takeOver);
}

}  // namespace ctl
