// PPPoE: several links, and their end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "e2e.hpp"
#include "messages.hpp"
#include "pppd.hpp"
#include "pppoe_link.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// ---- Several links

TEST_F(VimbradPppoe, EachFamilyHasAPppdOfItsOwn) {
    ASSERT_EQ(0, Start(2));
    ASSERT_TRUE(Pppd::WaitDial(1));
    ASSERT_EQ(0, Start(10));
    ASSERT_TRUE(Pppd::WaitDial(2));
    EXPECT_EQ(0, Stop(2));
    EXPECT_FALSE(Pppd::Runs(1));
    EXPECT_TRUE(Pppd::Runs(2));
    EXPECT_EQ(0, Stop(10));
    EXPECT_FALSE(Pppd::Runs(2));
}

TEST_F(VimbradPppoe, AStartOfWhatRunsReplacesIt) {
    ASSERT_EQ(0, Start(2));
    ASSERT_TRUE(Pppd::WaitDial(1));
    ASSERT_EQ(0, Start(2, {.user = "another"}));
    EXPECT_FALSE(Pppd::Runs(1));
    ASSERT_TRUE(Pppd::WaitDial(2));
    EXPECT_THAT(Pppd::Options(2), HasSubstr("user \"another\"\n"));
    EXPECT_TRUE(Pppd::Runs(2));
}

TEST_F(VimbradPppoe, CommonLinkReplacesBoth) {
    ASSERT_EQ(0, Start(2));
    ASSERT_EQ(0, Start(10));
    ASSERT_TRUE(Pppd::WaitDial(1));
    ASSERT_TRUE(Pppd::WaitDial(2));
    ASSERT_EQ(0, Start(11));
    EXPECT_FALSE(Pppd::Runs(1));
    EXPECT_FALSE(Pppd::Runs(2));
    ASSERT_TRUE(Pppd::WaitDial(3));
    EXPECT_EQ(0, Stop(11));
    EXPECT_FALSE(Pppd::Runs(3));
    EXPECT_EQ(3, Pppd::Dials());
}

// The library stops a common link so when the application stops one family after the other.
TEST_F(VimbradPppoe, StopOfOneHalfLeavesTheOther) {
    for (const auto& [first, second, option] :
         {std::tuple{2, 10, "noip\n"}, std::tuple{10, 2, "noipv6\n"}}) {
        const int dials = Pppd::Dials();
        ASSERT_EQ(0, Start(11, {.user = "both"}));
        ASSERT_TRUE(Pppd::WaitDial(dials + 1));
        ASSERT_EQ(0, Stop(static_cast<u16>(first)));
        EXPECT_FALSE(Pppd::Runs(dials + 1));
        ASSERT_TRUE(Pppd::WaitDial(dials + 2));
        EXPECT_THAT(Pppd::Options(dials + 2),
                    AllOf(HasSubstr("user \"both\"\n"), HasSubstr(option)));
        ASSERT_EQ(0, Stop(static_cast<u16>(first)));
        EXPECT_TRUE(Pppd::Runs(dials + 2));
        ASSERT_EQ(0, Stop(static_cast<u16>(second)));
        EXPECT_FALSE(Pppd::Runs(dials + 2));
        EXPECT_EQ(dials + 2, Pppd::Dials());
    }
}

TEST_F(VimbradPppoe, StartOfOneHalfLeavesTheOther) {
    ASSERT_EQ(0, Start(11, {.user = "both"}));
    ASSERT_TRUE(Pppd::WaitDial(1));
    ASSERT_EQ(0, Start(2, {.user = "half"}));
    ASSERT_TRUE(Pppd::WaitDial(2));
    ASSERT_TRUE(Pppd::WaitDial(3));
    EXPECT_FALSE(Pppd::Runs(1));
    // They are run at the same time: which of them comes first is not known.
    const std::string options[] = {Pppd::Options(2), Pppd::Options(3)};
    EXPECT_THAT(options, testing::UnorderedElementsAre(
                             AllOf(HasSubstr("user \"both\"\n"), HasSubstr("\nnoip\n")),
                             AllOf(HasSubstr("user \"half\"\n"), HasSubstr("\nnoipv6\n"))));
}

// Nothing is left of a link that was given up.
TEST_F(VimbradPppoe, NoHalfIsMadeOfALinkThatIsOver) {
    const Listener listener(kSocket6);
    Pppd::Plan("exit 8");
    ASSERT_EQ(0, Start(11));
    listener.Wait(2);
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(1, Pppd::Dials());
    EXPECT_EQ("", Directories());
}

// ---- The end

TEST_F(VimbradPppoe, StopOfWhatIsNotOnSucceeds) {
    for (const u16 family : {2, 10, 11}) {
        EXPECT_EQ(0, Stop(family));
    }
    ASSERT_EQ(0, Start(2));
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Stop(2));
}

TEST_F(VimbradPppoe, NothingIsToldAfterTheStop) {
    const Listener listener(kSocket);
    Pppd::Plan(std::string("trap '") + kUp + "exit 5' TERM\n" + kUp +
               "while :; do sleep 0.01; done");
    ASSERT_EQ(0, Start(2));
    listener.Wait(1);
    EXPECT_EQ(0, Stop(2));
    ASSERT_EQ(0, Start(2));
    EXPECT_THAT(Types(listener.Wait(2)), ElementsAre(kConnected, kConnected));
    EXPECT_TRUE(daemon_.WaitLog("stopped"));
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(2u, listener.Messages().size());
}

TEST_F(VimbradPppoe, OneThatDoesNotHangUpIsKilled) {
    Pppd::Plan("trap '' TERM; echo ready; hold");
    ASSERT_EQ(0, Start(2));
    ASSERT_TRUE(daemon_.WaitLog("pppd: ready"));
    std::thread stop([] {
        EXPECT_EQ(0, Stop(2));
        EXPECT_FALSE(Pppd::Runs(1));
    });
    EXPECT_TRUE(daemon_.WaitLog("PPPoE stop"));
    // Requests that come meanwhile wait for their turn.
    std::thread other([] { EXPECT_EQ(0, Start(10)); });
    EXPECT_EQ(0, Start(2));
    EXPECT_FALSE(Pppd::Runs(1));
    stop.join();
    other.join();
    EXPECT_TRUE(Pppd::WaitDial(3));
}

TEST_F(VimbradPppoe, RepeatedStartsLeaveNothing) {
    ASSERT_EQ(0, Start(11));
    ASSERT_EQ(0, Stop(11));
    const size_t before = Descriptors(daemon_.Process().Pid());
    for (int i = 0; i < 10; ++i) {
        for (const u16 family : {2, 10, 11, 11}) {
            ASSERT_EQ(0, Start(family));
        }
        ASSERT_EQ(0, Stop(11));
    }
    // What the first left on its way out may have been counted, too.
    EXPECT_TRUE(WaitFor([&] { return Descriptors(daemon_.Process().Pid()) <= before; }));
    EXPECT_EQ("", Directories());
    // The last keeper is still on its way out when its descriptors are gone.
    const std::string children =
        "ps -o pid= --ppid " + std::to_string(daemon_.Process().Pid()) + " || true";
    EXPECT_TRUE(WaitFor([&] { return Shell(children).empty(); })) << Shell("ps -ef");
}

TEST_F(VimbradPppoe, EndOfTheDaemonEndsItsLinks) {
    ASSERT_EQ(0, Start(2));
    ASSERT_EQ(0, Start(10));
    ASSERT_TRUE(Pppd::WaitDial(1));
    ASSERT_TRUE(Pppd::WaitDial(2));
    EXPECT_EQ(0, daemon_.Stop());
    EXPECT_TRUE(WaitFor([] { return !Pppd::Runs(1) && !Pppd::Runs(2); }));
    EXPECT_EQ("", Directories());
}

}  // namespace
}  // namespace vimbra::tests
