// The C interface: nothing may leave it but numbers and texts.
#include <vimbra-test/fake.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>

#include "fake.hpp"

struct TVimbraFake {
    std::optional<testkit::Fake> fake;
};

namespace {

using testkit::Json;

testkit::Script ScriptOf(const char* text) {
    return testkit::Script(text != nullptr ? Json::parse(text) : Json::object());
}

void Explain(const char* reason, char* why, size_t size) {
    if (why != nullptr && size > 0) {
        std::snprintf(why, size, "%s", reason);
    }
}

// What `act` returns, or `failed` with the reason in words.
template <class Act, class Result>
Result Guarded(char* why, size_t size, Result failed, Act act) {
    try {
        return act();
    } catch (const std::exception& error) {
        Explain(error.what(), why, size);
    }
    return failed;
}

}  // namespace

TVimbraFake* VimbraFakeStart(const char* pchScript, char* pchWhy, size_t size) {
    return Guarded(pchWhy, size, static_cast<TVimbraFake*>(nullptr), [&] {
        auto started = std::make_unique<TVimbraFake>();
        started->fake.emplace(ScriptOf(pchScript));
        return started.release();
    });
}

int VimbraFakeScript(TVimbraFake* ptFake, const char* pchScript, char* pchWhy, size_t size) {
    return Guarded(pchWhy, size, -1, [&] {
        ptFake->fake->SetScript(ScriptOf(pchScript));
        return 0;
    });
}

int VimbraFakeNotify(TVimbraFake* ptFake, const char* pchNotification, char* pchWhy, size_t size) {
    return Guarded(pchWhy, size, -1, [&] {
        if (ptFake->fake->Notify(Json::parse(pchNotification))) {
            return 0;
        }
        Explain("nobody has taken it", pchWhy, size);
        return -1;
    });
}

int VimbraFakeWait(TVimbraFake* ptFake, size_t count, int milliseconds) {
    return Guarded(nullptr, 0, -1, [&] {
        const bool have =
            vimbra::bed::WaitFor([&] { return ptFake->fake->Requests().size() >= count; },
                                 std::chrono::milliseconds(milliseconds));
        return have ? 0 : -1;
    });
}

char* VimbraFakeRequests(TVimbraFake* ptFake) {
    return Guarded(nullptr, 0, static_cast<char*>(nullptr), [&] {
        std::string lines;
        for (const Json& each : ptFake->fake->Requests()) {
            lines += each.dump() + '\n';
        }
        return strdup(lines.c_str());
    });
}

void VimbraFakeStop(TVimbraFake* ptFake) {
    delete ptFake;
}
