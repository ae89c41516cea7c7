// What the tests of PPPoE share: a link's parameters as given and as sent, and what its callback takes.
#ifndef VIMBRA_TESTS_DYNAMIC_PPPOE_HPP
#define VIMBRA_TESTS_DYNAMIC_PPPOE_HPP

#include <gtest/gtest.h>
#include <vimbra/net_pppoe.h>
#include <vimbra/pppoe.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/pppoe_config.hpp"
#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"

namespace vimbra::tests {

inline constexpr u32 kStart = 0x601;
inline constexpr u32 kStop = 0x602;
inline constexpr char kSocket[] = "ipc_pppoe";
inline constexpr char kSocket6[] = "ipc_pppoe6";
inline constexpr char kThread[] = "PppoeCBThread";
inline constexpr char kThread6[] = "PppoeCBThread6";

struct Event {
    u32 event;
    bool hasData;
    bed::Bytes data;
    std::string thread;
};

// Never destroyed: listeners may outlive main().
inline Recorder<Event>& g_events = *new Recorder<Event>;

inline void Take(u32 event, void* data, u32 length) {
    const auto* bytes = static_cast<const u8*>(data);
    if (data == nullptr) {
        EXPECT_EQ(0u, length);
    }
    g_events.Add({event, data != nullptr,
                  bed::Bytes(std::span(bytes, data != nullptr ? length : 0)), ThisThread()});
}

inline void Never(u32, void*, u32) {
    ADD_FAILURE() << "the wrong callback";
}

template <size_t N>
void SetText(char (&field)[N], std::string_view text) {
    memset(field, 0, N);
    memcpy(field, text.data(), std::min(N, text.size()));
}

inline TVimbraPppoeParam Param() {
    TVimbraPppoeParam param = {};
    SetText(param.achUserName, "user");
    SetText(param.achPassword, "secret");
    SetText(param.achServerName, "server");
    SetText(param.achDevName, "eth0");
    param.bAutoDialEnable = 1;
    param.bDefaultRouteEnable = 2;
    param.dwAutoDialInterval = 30;
    param.wDialRetryTimes = 5;
    param.wLcpEchoSendInterval = 40;
    param.wLcpEchoRetryTimes = 6;
    return param;
}

// Param() as it is sent.
inline PppoeConfig Sent() {
    return {.user = "user",
            .autoDial = 1,
            .defaultRoute = 2,
            .retrySeconds = 30,
            .echoInterval = 40,
            .echoFailure = 6,
            .maxFail = 5};
}

inline bed::Bytes Addresses() {
    return bed::Pack()
        .Address(2, "192.0.2.1")
        .Address(2, "192.0.2.2")
        .Address(2, "192.0.2.53")
        .Address(2, "192.0.2.54");
}

inline std::vector<std::string> Started() {
    std::vector<std::string> started;
    for (const TPppoeInfo* info = g_ptApiPppoeInfo; info != nullptr; info = info->ptNext) {
        started.push_back(std::to_string(info->wSinFamily) + "=" +
                          std::to_string(__atomic_load_n(&info->bPppoeStarted, __ATOMIC_ACQUIRE)));
    }
    return started;
}

inline s32 Start(u16 family, TVimbraPppoeCallBack callback = Take) {
    TVimbraPppoeParam param = Param();
    return VimbraPppoeStart(&param, family, callback);
}

inline s32 Stop(u16 family) {
    return VimbraPppoeStop(nullptr, family);
}

using Pppoe = Prepared;

}  // namespace vimbra::tests

#endif
