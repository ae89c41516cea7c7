// What the tests of the advertisement watch share: a change on the wire, and what the callback takes.
#ifndef VIMBRA_TESTS_NOTIFY_ROUTER_ADVERTISE_HPP
#define VIMBRA_TESTS_NOTIFY_ROUTER_ADVERTISE_HPP

#include <gtest/gtest.h>
#include <vimbra/router_advertise.h>

#include <list>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"

namespace vimbra::tests {

inline constexpr u32 kStart = 279;
inline constexpr u32 kStop = 280;
inline constexpr char kSocket[] = "ipc_router_notify";
inline constexpr char kFunction[] = "RouterNotifyCBThread";

inline Recorder<bed::Bytes> g_changes;

inline void TakeChange(TVimbraRouterAdCb* change) {
    g_changes.Add(bed::AsBytes(*change));
}

inline void OtherChange(TVimbraRouterAdCb*) {
    ADD_FAILURE() << "the wrong callback";
}

inline bed::Bytes Change(const char* name = "eth0") {
    return bed::Pack().Text(name, 16).U32(1).U32(4).Address(10, "2001:db8::1").U32(64).FillTo(468);
}

// Sends one notification and keeps the connection, as one who closes it later.
inline bool Post(std::list<bed::Connection>& kept, u32 type, const bed::Bytes& body) {
    bed::Connection& connection = kept.emplace_back(kSocket);
    return connection.Connected() && connection.Send(bed::Message(type, body)) &&
           connection.WaitRead();
}

// One notification as the daemon sends it, waiting until the callback has run.
inline bool Notified(const char* name = "eth0") {
    const size_t before = g_changes.Count();
    return bed::Notify(kSocket, 0, Change(name), {.size = {}, .wait = false}) &&
           bed::WaitFor([=] { return g_changes.Count() == before + 1; });
}

inline s32 Start(const char* name, TVimbraRouterAdvertiseCallBack callback = TakeChange) {
    return VimbraRouterAdvertiseStart(const_cast<char*>(name), callback);
}

inline s32 Stop(const char* name) {
    return VimbraRouterAdvertiseStop(const_cast<char*>(name));
}

class RouterAdvertise : public Prepared {
 protected:
    // Nothing is left of what ran.
    void ExpectLevel() const { level_.ExpectBack(); }

    const Level level_{};
};

}  // namespace vimbra::tests

#endif
