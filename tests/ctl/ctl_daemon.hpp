// The command line at a scripted daemon.
#ifndef VIMBRA_TESTS_CTL_DAEMON_HPP
#define VIMBRA_TESTS_CTL_DAEMON_HPP

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/types.h>

#include <string>
#include <vimbra/bed.hpp>

#include "ctl_run.hpp"

namespace vimbra::tests {

inline constexpr u32 kMacSet = 262;
inline constexpr u32 kMacGet = 263;
inline constexpr u32 kMtuSet = 273;
inline constexpr u32 kMtuGet = 274;
inline constexpr u32 kLogSwitch = 0x0702;

class CtlAtDaemon : public testing::Test {
 protected:
    // Runs a command that succeeds, says nothing and sends one request, which this is.
    bed::Bytes Sent(const std::string& words, u32 type) {
        daemon_.Forget();
        const Outcome done = Ctl(words);
        EXPECT_EQ(0, done.status) << words << "\n" << done;
        EXPECT_EQ("", done.out + done.err);
        EXPECT_EQ(1U, daemon_.Requests().size());
        const auto requests = daemon_.Requests(type);
        return requests.size() == 1 ? requests[0].body : bed::Bytes();
    }

    // Runs a command that is refused before anything is sent.
    void ExpectRefused(const std::string& words, const std::string& message) {
        daemon_.Forget();
        const Outcome refused = Ctl(words);
        EXPECT_EQ(2, refused.status) << words;
        EXPECT_THAT(refused.err, testing::HasSubstr(message)) << words;
        EXPECT_TRUE(daemon_.Requests().empty()) << words;
    }

    bed::ScriptedDaemon daemon_;
};

}  // namespace vimbra::tests

#endif
