// What the tests of the statistics share: a report on the wire, and what the callback takes.
#ifndef VIMBRA_TESTS_NOTIFY_STAT_HPP
#define VIMBRA_TESTS_NOTIFY_STAT_HPP

#include <gtest/gtest.h>
#include <vimbra/stat.h>

#include <vimbra/bed.hpp>

#include "../ground/recorder.hpp"

namespace vimbra::tests {

inline constexpr u32 kStart = 0x0703;
inline constexpr u32 kStop = 0x0704;
inline constexpr char kSocket[] = "ipc_stat";
inline constexpr char kFunction[] = "StatCBThread";

using Report = std::vector<TNetDevStat>;

inline Recorder<Report> g_reports;

inline void TakeStat(TNetDevStat* stats, u32 count) {
    g_reports.Add(Report(stats, stats + count));
}

inline void NoStat(TNetDevStat*, u32) {
    ADD_FAILURE() << "the wrong callback";
}

inline bed::Pack Stat(u64 sent, u64 received, u32 valid) {
    return bed::Pack().U64(sent).U64(received).U32(valid).U32(0);
}

inline bed::Bytes Body(const bed::Pack& first, const bed::Pack& second, const bed::Pack& third) {
    return bed::Pack().Add(first).Add(second).Add(third);
}

inline bed::Bytes GoodBody() {
    return Body(Stat(1, 2, 1), Stat(3, 4, 1), Stat(5, 6, 1));
}

}  // namespace vimbra::tests

#endif
