#include "fake.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace testkit {
namespace {

using vimbra::bed::Answer;

constexpr char kName[] = "api_daemon";
constexpr char kHiddenName[] = "api_daemon.fake";

std::string PathOf(const char* name) {
    return std::string("/tmp/") + name;
}

vimbra::bed::Bytes BytesOf(const protocol::Bytes& bytes) {
    const auto* const begin = reinterpret_cast<const u8*>(bytes.data());
    return vimbra::bed::Bytes(std::span(begin, bytes.size()));
}

std::chrono::milliseconds DelayOf(const Json& told) {
    return std::chrono::milliseconds(told.value("delay", 0));
}

// Throws when the object has a member that means nothing: a word misspelt is no wish fulfilled.
void CheckMembers(const Json& told, std::initializer_list<const char*> known, const char* what) {
    if (!told.is_object()) {
        throw BadValue(std::string(what) + " is an object");
    }
    for (const auto& [name, value] : told.items()) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            throw BadValue(std::string(what) + " has no \"" + name + '"');
        }
    }
}

// The field that a reply's result stands in.
const char* ResultField(const protocol::Request& request) {
    const char* const first = request.reply.record->fields.front().name;
    const std::string_view name = first;
    if (name != "nErrid" && name != "errid") {
        throw BadValue("its reply has no code");
    }
    return first;
}

struct Message {
    std::string socket;
    u32 type;
    vimbra::bed::Bytes body;
};

Message MessageOf(const Json& told) {
    CheckMembers(told, {"notify", "socket", "type", "body", "delay"}, "a notification");
    const std::string name = told.value("notify", "");
    const protocol::Notification* const known = protocol::FindNotification(name);
    if (known == nullptr) {
        throw BadValue("there is no notification \"" + name + '"');
    }
    Message message{told.value("socket", known->socket), told.value("type", known->firstType), {}};
    if (message.socket.find("INTERFACE") != std::string::npos) {
        throw BadValue("\"" + name + "\" needs its socket, such as ipc_dhcpc_eth0");
    }
    if (message.type < known->firstType || message.type > known->lastType) {
        throw BadValue("\"" + name + "\" has no type " + std::to_string(message.type));
    }
    const Json body = told.value("body", Json::object());
    const bool isRecord = known->body.record != nullptr;
    message.body = BytesOf(isRecord ? Encode(known->body, body) : protocol::Bytes{});
    return message;
}

}  // namespace

Script::Script(const Json& told) : default_(Json::object()) {
    CheckMembers(told, {"answers", "default"}, "the script");
    default_ = told.value("default", default_);
    CheckMembers(default_, {"code", "silent", "delay"}, "the default");
    const Json answers = told.value("answers", Json::object());
    for (const auto& [name, each] : answers.items()) {
        const protocol::Request* const request = protocol::FindRequest(name);
        if (request == nullptr) {
            throw BadValue("there is no request \"" + name + '"');
        }
        try {
            const Json list = each.is_array() ? each : Json::array({each});
            for (const Json& one : list) {
                answers_[name].list.push_back(Read(*request, one));
            }
        } catch (const std::exception& error) {
            throw BadValue(name + ": " + error.what());
        }
    }
}

Reaction Script::Read(const protocol::Request& request, const Json& told) {
    CheckMembers(told, {"reply", "code", "silent", "delay", "then"}, "an answer");
    Json reply = told.value("reply", Json::object());
    if (told.contains("code")) {
        reply[ResultField(request)] = told["code"];
    }
    Reaction reaction;
    reaction.reply = BytesOf(Encode(request.reply, reply));
    reaction.silent = told.value("silent", false);
    reaction.delay = DelayOf(told);
    for (const Json& each : told.value("then", Json::array())) {
        MessageOf(each);
        reaction.then.push_back(each);
    }
    return reaction;
}

Reaction Script::Next(const protocol::Request& request) {
    const auto found = answers_.find(request.name);
    if (found != answers_.end() && !found->second.list.empty()) {
        Answers& answers = found->second;
        const size_t which = std::min(answers.next++, answers.list.size() - 1);
        return answers.list[which];
    }
    Json told = default_;
    const std::string_view first = request.reply.record->fields.front().name;
    if (first != "nErrid" && first != "errid") {
        told.erase("code");
    }
    return Read(request, told);
}

Fake::Fake(Script script, Seen seen) : script_(std::move(script)), seen_(std::move(seen)) {
    if (vimbra::bed::HasListener(kName)) {
        throw std::runtime_error(PathOf(kName) + " is served by somebody else");
    }
    // It knows its answers before anybody finds it.
    daemon_.emplace(kHiddenName);
    daemon_->Default(Answer::By([this](const auto& request) { return React(request); }));
    if (rename(PathOf(kHiddenName).c_str(), PathOf(kName).c_str()) != 0) {
        throw std::runtime_error(PathOf(kName) + ": " + std::strerror(errno));
    }
}

Fake::~Fake() {
    over_ = true;
    unlink(PathOf(kName).c_str());
    daemon_.reset();  // nobody follows from now on
    for (std::thread& each : followers_) {
        each.join();
    }
}

void Fake::SetScript(Script script) {
    const std::lock_guard lock(mutex_);
    script_ = std::move(script);
}

Answer Fake::React(const vimbra::bed::Request& request) {
    const auto bytes = std::as_bytes(std::span(request.body));
    const protocol::Request* const known = protocol::FindRequest(request.type, bytes.size());
    const std::lock_guard lock(mutex_);
    Json told = {{"request", known != nullptr ? known->name : "unknown"}, {"type", request.type}};
    told["body"] =
        known != nullptr ? Decode(known->body, bytes) : Json{{"bytes", protocol::Hex(bytes)}};
    requests_.push_back(told);
    if (seen_) {
        seen_(told);
    }
    if (known == nullptr) {
        return Answer::Code(38);
    }
    const Reaction reaction = script_.Next(*known);
    if (!reaction.then.empty()) {
        followers_.emplace_back([this, then = reaction.then] { Follow(then); });
    }
    const Answer answer = reaction.silent ? Answer::Close() : Answer::Body(reaction.reply);
    return answer.After(
        [delay = reaction.delay](const auto&) { std::this_thread::sleep_for(delay); });
}

void Fake::Follow(std::vector<Json> then) {
    for (const Json& each : then) {
        std::this_thread::sleep_for(DelayOf(each));
        if (!over_) {
            Notify(each);
        }
    }
}

// A listener stands before its start returns, so there is next to nothing to wait for.
bool Fake::Notify(const Json& told) {
    constexpr auto kPatience = std::chrono::seconds(5);
    const Message message = MessageOf(told);
    return vimbra::bed::WaitForListener(message.socket, kPatience) &&
           vimbra::bed::Notify(message.socket, message.type, message.body);
}

std::vector<Json> Fake::Requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

}  // namespace testkit
