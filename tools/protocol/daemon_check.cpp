// vimbra-daemon-check: asks whatever daemon listens for everything that applications may ask, and says
// what it does not serve or serves wrongly.
//
// Unless --changes is given it changes nothing: what would change something is asked of an interface
// that does not exist, and a daemon has to refuse it.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vimbra/ipc.h>
#include <vimbra/version.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "value.hpp"

namespace {

using protocol::Bytes;
using protocol::Json;
using protocol::Request;

struct Options {
    std::string socket = "/tmp/api_daemon";
    std::string interface = "vimbra-no-if";
    bool changes = false;
    bool json = false;
    int seconds = 60;
};

class Descriptor {
 public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return fd_; }

 private:
    int fd_;
};

struct NoDaemon : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What came back on a connection, up to its end.
struct Received {
    Bytes bytes;
    size_t pieces = 0;
    bool timedOut = false;
};

enum class Verdict { kServed, kRefused, kNotServed, kWrong, kNotTried };

struct Outcome {
    Verdict verdict;
    std::string why = {};
};

Received Ask(const Options& options, const Bytes& message) {
    const Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (options.socket.size() >= sizeof(address.sun_path)) {
        throw NoDaemon(options.socket + " is too long for a socket's name");
    }
    std::memcpy(address.sun_path, options.socket.data(), options.socket.size());
    if (connect(connection.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
        0) {
        throw NoDaemon(options.socket + ": " + std::strerror(errno));
    }
    Received received;
    if (send(connection.Get(), message.data(), message.size(), MSG_NOSIGNAL) < 0) {
        return received;  // closed already: there may be a reply all the same
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(options.seconds);
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd waiting{connection.Get(), POLLIN, 0};
        const bool isIn = left.count() > 0 && poll(&waiting, 1, static_cast<int>(left.count())) > 0;
        if (!isIn) {
            received.timedOut = true;
            return received;
        }
        Bytes piece(65536);
        const ssize_t count = recv(connection.Get(), piece.data(), piece.size(), 0);
        if (count <= 0) {
            return received;
        }
        received.pieces++;
        received.bytes.insert(received.bytes.end(), piece.begin(), piece.begin() + count);
        // A reply that is whole ends the wait: the daemon may leave the closing to us.
        IpcMsgHead head{};
        if (received.bytes.size() >= sizeof(head)) {
            std::memcpy(&head, received.bytes.data(), sizeof(head));
            if (received.bytes.size() >= sizeof(head) + head.size) {
                return received;
            }
        }
    }
}

Bytes Message(u32 type, const Bytes& body) {
    const IpcMsgHead head{type, static_cast<u32>(body.size()), 0};
    Bytes message(sizeof(head));
    std::memcpy(message.data(), &head, sizeof(head));
    message.insert(message.end(), body.begin(), body.end());
    return message;
}

// The result that a reply begins with; none where the reply has none.
std::optional<s32> ResultOf(const Request& request, const Bytes& record) {
    const auto& fields = request.reply.record->fields;
    const std::string_view first = fields.empty() ? "" : fields.front().name;
    if (first != "nErrid" && first != "errid") {
        return std::nullopt;
    }
    s32 result = 0;
    std::memcpy(&result, record.data(), sizeof(result));
    return result;
}

// Whether what came is a reply at all, as an application would take it.
Outcome Judge(const Request& request, const Received& received, Bytes& record) {
    IpcMsgHead head{};
    if (received.bytes.empty()) {
        return {Verdict::kWrong, received.timedOut
                                     ? "no reply in time: applications wait a minute"
                                     : "closed without a reply: applications take it for success"};
    }
    if (received.bytes.size() < sizeof(head)) {
        return {Verdict::kWrong, "half a header"};
    }
    std::memcpy(&head, received.bytes.data(), sizeof(head));
    record.assign(received.bytes.begin() + sizeof(head), received.bytes.end());
    s32 code = 0;
    std::memcpy(&code, record.data(), std::min(record.size(), sizeof(code)));
    if (record.size() == sizeof(code) && request.reply.size != sizeof(code)) {
        return code == ENOSYS
                   ? Outcome{Verdict::kNotServed}
                   : Outcome{Verdict::kWrong, "a result alone, where a record of " +
                                                  std::to_string(request.reply.size) +
                                                  " bytes belongs: " + std::to_string(code)};
    }
    if (head.size != request.reply.size || record.size() != request.reply.size) {
        return {Verdict::kWrong, "a reply of " + std::to_string(record.size()) +
                                     " bytes whose header says " + std::to_string(head.size) +
                                     ", not " + std::to_string(request.reply.size)};
    }
    if (received.pieces != 1) {
        return {Verdict::kWrong, "a reply in pieces: applications read once"};
    }
    return {Verdict::kServed};
}

// Harmless values that a request is asked with.
Json ValuesOf(const Request& request, const std::string& interface) {
    Json value = Json::object();
    if (request.body.form != protocol::Body::Form::kRecord) {
        return value;
    }
    for (const protocol::Field& field : request.body.record->fields) {
        const std::string_view name = field.name;
        if (name == "achIfaceName") {
            value[field.name] = interface;
        } else if (name == "wSinFamily") {
            value[field.name] = 2;
        } else if (name == "tConfig") {
            value[field.name] = {{"username", "check"}, {"devname", interface}};
        }
    }
    return value;
}

// A request with its values, and what its reply has to hold if it is to hold anything.
struct Step {
    const char* request;
    Json values;
    Json holds = nullptr;
};

// Steps come with what takes them back, and between the two with what shows them.

Json Address() {
    return {{"eScopeType", 4}, {"tIpAddr", "192.0.2.77"}, {"dwPrefix", 24}};
}

std::vector<Step> AddressSteps(const std::string& interface) {
    const Json both = {{"wSinFamily", 2}, {"achIfaceName", interface}};
    const Json name = {{"achIfaceName", interface}};
    const Json all = {{"wSinFamily", 2},
                      {"achIfaceName", interface},
                      {"tIfaceAllIp", {{"atNetIfaceIp", Json::array({Address()})}}}};
    return {
        {"address-add", {{"achIfaceName", interface}, {"tIfaceIp", Address()}}},
        {"address-get", both, "192.0.2.77"},
        {"interface-report", name, "192.0.2.77"},
        {"address-set", all},
        {"mtu-set", {{"achIfaceName", interface}, {"dwMtu", 1400}}},
        {"mtu-get", name, 1400},
        {"mac-get", name},
        {"mac-set", {{"achIfaceName", interface}, {"tIfaceMac", "02:00:5e:00:53:01"}}},
        {"mac-get", name, "02:00:5e:00:53:01"},
    };
}

std::vector<Step> RouteSteps(const std::string& interface) {
    const Json both = {{"wSinFamily", 2}, {"achIfaceName", interface}};
    const Json route = {{"achIfaceName", interface},
                        {"tDestIpNet", "198.51.100.0"},
                        {"tDestGateWay", "192.0.2.78"},
                        {"dwPrefix", 24},
                        {"dwRoutePri", 5}};
    const Json bare = {{"achIfaceName", interface}, {"tRoute", route}};
    const Json gateway = {{"achIfaceName", interface}, {"tGateWay", "192.0.2.78"}};
    const Json rule = {
        {"tFromIpNet", "203.0.113.0"}, {"dwPrefix", 24}, {"dwPref", 7700}, {"dwTableId", 77}};
    const auto inTable = [](Json values) {
        values["dwTableId"] = 77;
        return values;
    };
    Json metric = route;
    metric["dwRoutePri"] = 6;
    return {
        {"route-add", bare},
        {"route-list", {{"wSinFamily", 2}}, "198.51.100.0"},
        {"route-metric", metric},
        {"route-delete", {{"achIfaceName", interface}, {"tRoute", metric}}},
        {"table-add", {{"dwTableId", 77}}},
        {"route-add-to-table", inTable(bare)},
        {"route-delete-from-table", inTable(bare)},
        {"gateway-set-in-table", inTable(gateway)},
        {"gateway-get-from-table", inTable(both), "192.0.2.78"},
        {"gateway-delete-from-table", inTable(both)},
        {"rule-add", rule},
        {"rule-delete", rule},
        {"table-delete", {{"dwTableId", 77}}},
        {"gateway-set", gateway},
        {"gateway-get", both, "192.0.2.78"},
        {"priority-set", {{"tNetPrioParam", {{{"achIfaceName", interface}, {"ePrio", 1}}}}}},
        {"priority-get", Json::object(), interface},
        {"priority-set", Json::object()},
        {"gateway-delete", both},
    };
}

std::vector<Step> WatchSteps(const std::string& interface) {
    return {
        {"advertisement-start", {{"achIfaceName", interface}, {"nUserId", 1}}},
        {"advertisement-stop", {{"achIfaceName", interface}}},
        {"conflict-start", {{"wSinFamily", 2}}},
        {"conflict-stop", {{"wSinFamily", 2}}},
        {"statistics-start", {{"nInterval", 60}}},
        {"statistics-stop", Json::object()},
        {"ping-start",
         {{"tDestIp", "127.0.0.1"}, {"tPingOpt", {{"nCount", 1}}}, {"nUserID", 7777}}},
        {"ping-stop", {{"nUserID", 7777}}},
        {"traceroute-start", {{"tDestIp", "127.0.0.1"}, {"dwTtl", 3}, {"nUserID", 7777}}},
        {"traceroute-stop", {{"nUserID", 7777}}},
    };
}

std::vector<Step> ServiceSteps(const std::string& interface) {
    const Json both = {{"wSinFamily", 2}, {"achIfaceName", interface}};
    const Json server = {{"achIfaceName", interface}, {"wSinFamily", 2}};
    return {
        {"dhcp-client-start", both},
        {"dhcp-client-renew", both},
        {"dhcp-client-stop", both},
        {"dhcp-server-start",
         {{"achIfaceName", interface},
          {"wSinFamily", 2},
          {"tDhcpsInfo",
           {{"tIpPoolStart", "192.0.2.100"},
            {"tIpPoolEnd", "192.0.2.110"},
            {"dwIpPoolPrefix", 24},
            {"tIfaceIp", "192.0.2.77"},
            {"dwIfacePrefix", 24}}}}},
        {"dhcp-server-state", server},
        {"dhcp-server-stop", server},
        {"dhcp-server-stop-all", Json::object()},
        {"pppoe-start",
         {{"wSinFamily", 2}, {"tConfig", {{"username", "check"}, {"devname", interface}}}}},
        {"pppoe-stop", {{"wSinFamily", 2}}},
        {"ntp-start", {{"wSinFamily", 2}, {"tServerIp", "127.0.0.1"}, {"dwSyncTimeInterval", 64}}},
        {"ntp-stop", {{"wSinFamily", 2}}},
        {"ntp-check", {{"tServerIp", "127.0.0.1"}}},
        {"bond-start", Json::object()},
        {"bond-stop", Json::object()},
        {"web-start", {{"port", 8077}}},
        {"web-stop", Json::object()},
        {"log-level", {{"dwSwitch", 4}}},
    };
}

std::vector<Step> StepsOn(const std::string& interface) {
    std::vector<Step> all;
    for (const auto& steps : {AddressSteps(interface), RouteSteps(interface), WatchSteps(interface),
                              ServiceSteps(interface)}) {
        all.insert(all.end(), steps.begin(), steps.end());
    }
    all.push_back({"address-delete", {{"achIfaceName", interface}, {"tIfaceIp", Address()}}});
    all.push_back({"address-flush", {{"wSinFamily", 2}, {"achIfaceName", interface}}});
    return all;
}

// Whether the value stands anywhere in the reply.
bool Holds(const Json& reply, const Json& value) {
    if (reply == value) {
        return true;
    }
    if (!reply.is_structured()) {
        return false;
    }
    return std::ranges::any_of(reply, [&](const Json& each) { return Holds(each, value); });
}

// Whether the request speaks of an interface, so that a name that nobody has makes it harmless.
bool NamesInterface(const Request& request) {
    if (request.body.form != protocol::Body::Form::kRecord) {
        return false;
    }
    for (const protocol::Field& field : request.body.record->fields) {
        const std::string_view name = field.name;
        if (name == "achIfaceName" || name == "tConfig") {
            return true;
        }
    }
    return false;
}

class Check {
 public:
    explicit Check(const Options& options) : options_(options) {}

    // Exit status: 0 all is served as it should be, 1 something is not.
    int Run() {
        if (options_.changes) {
            for (const Step& step : StepsOn(options_.interface)) {
                const Request& request = *protocol::FindRequest(step.request);
                Count(request, Try(request, step.values, step.holds));
            }
        } else {
            for (const Request& request : protocol::Requests()) {
                Count(request, TryHarmlessly(request));
            }
        }
        TellRest();
        return counts_[static_cast<size_t>(Verdict::kNotServed)] +
                           counts_[static_cast<size_t>(Verdict::kWrong)] ==
                       0
                   ? 0
                   : 1;
    }

 private:
    Outcome TryHarmlessly(const Request& request) const {
        if (request.changes && !NamesInterface(request)) {
            return {Verdict::kNotTried, "it would change this machine (--changes)"};
        }
        const Outcome outcome = Try(request, ValuesOf(request, options_.interface), nullptr);
        if (outcome.verdict == Verdict::kServed && request.changes && !IsAboutNothing(request)) {
            return {Verdict::kWrong, "done on " + options_.interface + ", which does not exist"};
        }
        return outcome;
    }

    Outcome Try(const Request& request, const Json& values, const Json& holds) const {
        Bytes record;
        const Bytes body = Encode(request.body, values);
        const Outcome outcome = Judge(request, Ask(options_, Message(request.type, body)), record);
        if (outcome.verdict != Verdict::kServed) {
            return outcome;
        }
        const s32 result = ResultOf(request, record).value_or(0);
        if (result != 0) {
            return result == ENOSYS ? Outcome{Verdict::kNotServed}
                                    : Outcome{Verdict::kRefused, "with " + std::to_string(result)};
        }
        if (!holds.is_null() && !Holds(Decode(request.reply, record), holds)) {
            return {Verdict::kWrong, "the reply does not hold " + holds.dump()};
        }
        return outcome;
    }

    // A stop of what is not there may succeed.
    static bool IsAboutNothing(const Request& request) {
        return std::string_view(request.name).find("-stop") != std::string_view::npos;
    }

    void Count(const Request& request, const Outcome& outcome) {
        counts_[static_cast<size_t>(outcome.verdict)]++;
        Tell(request.type, request.name, outcome);
    }

    void Tell(u32 type, const char* name, const Outcome& outcome) const {
        constexpr const char* kWords[] = {"served", "refused", "not served", "wrong", "not tried"};
        const char* const word = kWords[static_cast<size_t>(outcome.verdict)];
        if (options_.json) {
            std::cout << Json{{"request", name},
                              {"type", type},
                              {"outcome", word},
                              {"why", outcome.why}}
                             .dump()
                      << '\n';
            return;
        }
        std::printf("%5u  %-26s %s%s%s\n", type, name, word, outcome.why.empty() ? "" : ": ",
                    outcome.why.c_str());
    }

    // What is no request at all.
    void TellRest() {
        Expect("unknown-type", 0xFFFF, Bytes(4));
        Expect("wrong-size", 274, Bytes(15));
        Expect("too-long", 274, Bytes(4000));
        if (!options_.json) {
            std::printf("%zu served, %zu refused, %zu not served, %zu wrong, %zu not tried\n",
                        counts_[0], counts_[1], counts_[2], counts_[3], counts_[4]);
        }
    }

    void Expect(const char* name, u32 type, const Bytes& body) {
        const Received received = Ask(options_, Message(type, body));
        s32 code = 0;
        if (received.bytes.size() >= sizeof(IpcMsgHead) + sizeof(code)) {
            std::memcpy(&code, received.bytes.data() + sizeof(IpcMsgHead), sizeof(code));
        }
        const Outcome outcome =
            code != 0 ? Outcome{Verdict::kRefused, "with " + std::to_string(code)}
                      : Outcome{Verdict::kWrong, "it has to be refused with a number"};
        counts_[static_cast<size_t>(outcome.verdict)]++;
        Tell(type, name, outcome);
    }

    const Options& options_;
    size_t counts_[5] = {};
};

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(
        "Asks a network daemon for everything that applications may ask, and says what it "
        "does not serve or serves wrongly.");
    app.set_version_flag("-V,--version", VIMBRA_VERSION_TEXT);
    app.add_option("-s,--socket", options.socket, "Where it listens")->capture_default_str();
    app.add_option("-i,--interface", options.interface,
                   "The interface that is asked about; one that does not exist unless told")
        ->capture_default_str();
    app.add_flag("-c,--changes", options.changes,
                 "Ask for changes too, on an interface of this machine that may be changed; "
                 "each is taken back");
    app.add_option("-t,--seconds", options.seconds, "How long to wait for each reply")
        ->capture_default_str()
        ->check(CLI::Range(1, 3600));
    app.add_flag("-j,--json", options.json, "Print JSON, a line each");
    app.footer(
        "Exit status: 0 all is served, 1 something is not or wrongly, 2 a wrong command line, "
        "3 nobody listens.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        return Check(options).Run();
    } catch (const NoDaemon& error) {
        std::cerr << "vimbra-daemon-check: " << error.what() << '\n';
        return 3;
    }
}
