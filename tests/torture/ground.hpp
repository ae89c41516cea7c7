// What the operations share: arguments, callbacks that count, and the daemon's side of an event.
#ifndef VIMBRA_TESTS_TORTURE_GROUND_HPP
#define VIMBRA_TESTS_TORTURE_GROUND_HPP

#include <vimbra/vimbra.h>
// After the current interface.
#include <vimbra/net.h>

#include <atomic>
#include <string>
#include <string_view>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "injector.hpp"
#include "operation.hpp"

namespace vimbra::tests::torture {

inline char g_eth0[] = "eth0";
inline char g_lo[] = "lo";

// How often the library has called back.
inline std::atomic<long> g_events = 0;

// Sends one message to the listener on /tmp/<name> and waits until it has been dealt with, or the
// listener is gone; how often the library has called back by then.
long Post(const char* name, u32 type, const bed::Bytes& body);

// For a service that is to run: an event of its arrives.
std::string Arrives(const char* name, u32 type, const bed::Bytes& body);

// ---- A service with its start, its stop and an event of its -------------------------------------

struct Service {
    const char* start;
    const char* stop;
    std::function<long()> doStart;
    std::function<long()> doStop;
    const char* socket;
    u32 type;
    bed::Bytes body;
    const char* lenient = nullptr;  // of the start
    const char* spoils = nullptr;
    std::function<bool(long)> isStuck = {};  // for good, after a stop with this result
};

// Its start, its stop and its event.
void AddService(std::vector<Operation>& all, const Service& service);

// A process that can be found by its name, or by that and a word in its command line, and listens
// to SIGKILL only.
class Fake {
 public:
    explicit Fake(const std::string& name, const std::string& word = "");
    ~Fake();
    Fake(const Fake&) = delete;
    Fake& operator=(const Fake&) = delete;

    // Makes a new one if somebody has killed it.
    void Revive();

 private:
    const std::string name_;
    const std::string word_;
    int pid_ = -1;
};

// Is one.
[[noreturn]] void BeFake(const char* name);

}  // namespace vimbra::tests::torture

#endif
