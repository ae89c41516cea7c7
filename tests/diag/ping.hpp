// What the tests of ping share: its records, what its callback takes, and the fixture.
#ifndef VIMBRA_TESTS_DIAG_PING_HPP
#define VIMBRA_TESTS_DIAG_PING_HPP

#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/ping.h>

#include <array>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "slots.hpp"

namespace vimbra::tests {

inline constexpr u32 kStart = 3073;
inline constexpr u32 kStop = 3074;
inline constexpr char kSocket[] = "ipc_ping";

struct Report {
    s32 result;
    TVimbraPingCBInfo info;
};

inline Recorder<Report> g_reports;

inline int OnPing(s32 nResult, TVimbraPingCBInfo* ptInfo) {
    g_reports.Add({nResult, *ptInfo});
    return 0;
}

inline int OtherCallback(s32, TVimbraPingCBInfo*) {
    return 7;
}

inline Recorder<std::array<s32, 7>> g_legacyReports;

inline void OnLegacyPing(s32 nResult, s32 nTtl, s32 nTripTime, s32 nSeq, s32 nUserID, s32 nErrType,
                         s32 nErrCode) {
    g_legacyReports.Add({nResult, nTtl, nTripTime, nSeq, nUserID, nErrType, nErrCode});
}

inline TVimbraAddr Destination() {
    return Address("10.0.0.1");
}

inline bed::Bytes Record(u32 user, u32 ttl, u32 time, s32 seq, s32 over) {
    return bed::Pack().U32(user).U32(ttl).U32(time).S32(seq).S32(over);
}

inline u32 BusySlots() {
    return CountBusy(g_ptApiPingInfo);
}

class PingBeforeInit : public AtDaemon {
 protected:
    s32 Start(s32 user, TVimbraPingCallBack callback = OnPing) {
        return VimbraPingStart(Destination(), &option_, user, callback);
    }

    TVimbraPingOpt option_ = {56, 1000, 64, 4};
};

using Ping = AfterInit<PingBeforeInit, BusySlots>;

}  // namespace vimbra::tests

#endif
