// What tests of a service stand on: the prepared library, its log, and a daemon that says yes.
#ifndef VIMBRA_TESTS_GROUND_PREPARED_HPP
#define VIMBRA_TESTS_GROUND_PREPARED_HPP

#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/log.h>

#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "level.hpp"

namespace vimbra::tests {

// The log and the daemon alone; what the library needs of VimbraInit is not there.
class AtDaemon : public testing::Test {
 protected:
    // The one request since the last question.
    bed::Request Only() {
        const std::vector<bed::Request> requests = daemon_.Requests();
        EXPECT_EQ(1u, requests.size()) << log_.Describe();
        daemon_.Forget();
        return requests.empty() ? bed::Request() : requests[0];
    }

    // It was this one, and came in one piece.
    void ExpectSent(u32 type, const bed::Bytes& body) {
        const bed::Request request = Only();
        EXPECT_EQ(type, request.type);
        EXPECT_EQ(body.size(), request.size);
        EXPECT_EQ(0, request.flag);
        EXPECT_EQ(1u, request.reads);
        EXPECT_EQ(body, request.body);
    }

    bed::Capture log_;
    bed::ScriptedDaemon daemon_;
};

class Prepared : public AtDaemon {
 protected:
    Prepared() {
        EXPECT_EQ(0, VimbraInit());
        log_.Clear();
    }
};

// For tests of many rounds, whose log nobody reads.
inline void PrepareSilently() {
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    ASSERT_EQ(0, VimbraInit());
}

}  // namespace vimbra::tests

#endif
