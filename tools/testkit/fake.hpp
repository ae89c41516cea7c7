// The daemon by a script, as the C interface and the program have it.
#ifndef VIMBRA_TOOLS_TESTKIT_FAKE_HPP
#define VIMBRA_TOOLS_TESTKIT_FAKE_HPP

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "value.hpp"

namespace testkit {

using protocol::BadValue;
using protocol::Json;

// What becomes of one request.
struct Reaction {
    vimbra::bed::Bytes reply;
    bool silent = false;
    std::chrono::milliseconds delay{0};
    std::vector<Json> then;
};

// A script that was read: every message in it exists and can be written.
class Script {
 public:
    // Throws BadValue, with the name of the message that is wrong.
    explicit Script(const Json& told);
    Script() : Script(Json::object()) {}

    // The next reaction to this request.
    Reaction Next(const protocol::Request& request);

 private:
    struct Answers {
        std::vector<Reaction> list;
        size_t next = 0;
    };

    static Reaction Read(const protocol::Request& request, const Json& told);

    std::map<std::string, Answers> answers_;
    Json default_;
};

class Fake {
 public:
    using Seen = std::function<void(const Json&)>;

    // Throws std::runtime_error when the name cannot be served. `seen` is told of each request, on
    // the thread of its connection.
    explicit Fake(Script script, Seen seen = nullptr);
    ~Fake();
    Fake(const Fake&) = delete;
    Fake& operator=(const Fake&) = delete;

    void SetScript(Script script);
    // Throws BadValue when there is no such notification; false when nobody took it.
    bool Notify(const Json& told);
    std::vector<Json> Requests() const;

 private:
    vimbra::bed::Answer React(const vimbra::bed::Request& request);
    void Follow(std::vector<Json> then);

    mutable std::mutex mutex_;
    Script script_;
    Seen seen_;
    std::vector<Json> requests_;
    std::vector<std::thread> followers_;
    std::atomic<bool> over_ = false;
    std::optional<vimbra::bed::ScriptedDaemon> daemon_;
};

}  // namespace testkit

#endif
