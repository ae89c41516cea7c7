// The example of the document, run as a program.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

int RunExample() {
    const int status = system((std::string(EMULATOR) + " " + EXAMPLE + " 2>/tmp/errors").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Example, SetsTheAddress) {
    ScriptedDaemon daemon;
    EXPECT_EQ(0, RunExample());
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(261u, daemon.Requests()[0].type);
    EXPECT_EQ(
        Pack().U16(2).Text("eth0", 16).U32(1).U32(4).Address(2, "192.168.7.1").U32(24).FillTo(470),
        daemon.Requests()[0].body);
    EXPECT_EQ("", ReadFile("/tmp/errors"));
}

TEST(Example, TellsAFailure) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Code(22));
    EXPECT_EQ(1, RunExample());
    EXPECT_EQ("eth0 keeps its addresses: -1\n", ReadFile("/tmp/errors"));
}

}  // namespace
}  // namespace vimbra::tests
