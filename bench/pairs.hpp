// Compares two ways of doing the same thing on a machine that has other things to do.
#ifndef VIMBRA_BENCH_PAIRS_HPP
#define VIMBRA_BENCH_PAIRS_HPP

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace bench {

inline double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// One processor for this process and its children, so that no wake-up of a sleeping one is
// measured.
inline void StayOnOneProcessor() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof(one), &one);
}

// The nanoseconds of one run; one that fails ends the program.
template <typename Run>
double Nanoseconds(const char* what, Run& run) {
    const auto begin = std::chrono::steady_clock::now();
    if (!run()) {
        fprintf(stderr, "%s failed\n", what);
        exit(1);
    }
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin)
        .count();
}

// Runs both in turns, each timed by itself and each as often the first of a pair: what else the
// machine does hits both alike, and does not get into the medians. A round gives the ratio of its
// medians; the middle one of many rounds counts. True when that is at most the bound.
template <typename Bare, typename Library>
bool Compare(const char* what, double most, Bare bare, Library library) {
    constexpr int kRounds = 31;
    constexpr int kPairs = 1000;
    std::vector<double> ratios;
    std::vector<double> bareMedians;
    std::vector<double> libraryMedians;
    for (int round = 0; round < kRounds; round++) {
        std::vector<double> bareTimes;
        std::vector<double> libraryTimes;
        for (int pair = 0; pair < kPairs; pair++) {
            if (pair % 2 == 0) {
                bareTimes.push_back(Nanoseconds(what, bare));
                libraryTimes.push_back(Nanoseconds(what, library));
            } else {
                libraryTimes.push_back(Nanoseconds(what, library));
                bareTimes.push_back(Nanoseconds(what, bare));
            }
        }
        bareMedians.push_back(Median(bareTimes));
        libraryMedians.push_back(Median(libraryTimes));
        ratios.push_back(libraryMedians.back() / bareMedians.back());
    }
    const double ratio = Median(ratios);
    printf("%-14s bare %6.0f ns, library %6.0f ns, ratio %.3f (at most %.2f)%s\n", what,
           Median(bareMedians), Median(libraryMedians), ratio, most,
           ratio <= most ? "" : "  TOO SLOW");
    return ratio <= most;
}

}  // namespace bench

#endif
