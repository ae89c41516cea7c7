// Interfaces: MAC address, MTU, state, checks of addresses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vimbra/bed.hpp>

#include "ctl_daemon.hpp"
#include "ctl_run.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::StartsWith;

namespace {

TEST(CtlMac, ShowsTheMacAddress) {
    ScriptedDaemon daemon;
    daemon.On(kMacGet,
              Answer::Body(Pack().S32(0).U8(2).U8(0).U8(0xab).U8(1).U8(0xff).U8(0x10).Zeros(2)));
    EXPECT_EQ("02:00:ab:01:ff:10\n", Ctl("mac show eth0").out);
    EXPECT_EQ((Expected{{"interface", "eth0"}, {"mac", "02:00:ab:01:ff:10"}}),
              Ctl("mac show eth0 --json").Json());
    EXPECT_EQ(Pack().Text("eth0", 16), daemon.Requests(kMacGet)[0].body);
}

TEST(CtlMac, SetsTheMacAddress) {
    ScriptedDaemon daemon;
    const Bytes body = Pack().Text("eth0", 16).U8(2).U8(0xab).U8(0xcd).U8(0xef).U8(0).U8(1);
    for (const char* mac : {"02:ab:cd:ef:00:01", "02-AB-CD-EF-00-01"}) {
        daemon.Forget();
        const Outcome done = Ctl(std::string("mac set eth0 ") + mac);
        EXPECT_EQ(0, done.status);
        EXPECT_EQ("", done.out + done.err);
        ASSERT_EQ(1U, daemon.Requests(kMacSet).size());
        EXPECT_EQ(body, daemon.Requests(kMacSet)[0].body);
    }
    EXPECT_EQ((Expected{{"result", 0}}), Ctl("mac set eth0 02:ab:cd:ef:00:01 --json").Json());
}

TEST(CtlMtu, ShowsAndSetsTheMtu) {
    ScriptedDaemon daemon;
    daemon.On(kMtuGet, Answer::Body(Pack().S32(0).U32(9000)));
    EXPECT_EQ("9000\n", Ctl("mtu show eth0").out);
    EXPECT_EQ(0, Ctl("mtu set eth0 1400").status);
    ASSERT_EQ(1U, daemon.Requests(kMtuSet).size());
    EXPECT_EQ(Pack().Text("eth0", 16).U32(1400), daemon.Requests(kMtuSet)[0].body);
    EXPECT_EQ(0, Ctl("mtu set eth0 4294967295").status);
}

TEST(CtlLink, ShowsAndChangesTheState) {
    EXPECT_EQ(0, Ctl("link up lo").status);
    EXPECT_THAT(Ctl("link show lo").out, StartsWith("lo: up"));
    EXPECT_EQ(0, Ctl("link down lo").status);
    EXPECT_THAT(Ctl("link show lo").out, StartsWith("lo: down"));
    const nlohmann::json one = Ctl("link show lo --json").Json();
    ASSERT_EQ(1U, one.at("links").size());
    EXPECT_EQ("lo", one["links"][0]["interface"]);
    EXPECT_EQ("down", one["links"][0]["state"]);
    EXPECT_EQ("00:00:00:00:00:00", one["links"][0]["mac"]);
    EXPECT_TRUE(one["links"][0].contains("link"));
}

TEST(CtlCheck, SameNetTellsByTheExitStatus) {
    EXPECT_EQ(0, Ctl("check same-net 192.168.1.10/16 192.168.2.1").status);
    const Outcome no = Ctl("check same-net 192.168.1.10/24 192.168.2.1");
    EXPECT_EQ(5, no.status);
    EXPECT_EQ(
        "vimbractl check same-net: 1111 (address and gateway are not in the same subnet): not "
        "the same subnet\n",
        no.err);
    EXPECT_EQ(0, Ctl("check same-net 2001:db8::1/64 2001:db8::2").status);
    EXPECT_EQ(5, Ctl("check same-net 2001:db8::1/64 2001:db8:0:1::2").status);
    EXPECT_EQ(2, Ctl("check same-net 192.168.1.10/24 2001:db8::1").status);
    EXPECT_EQ(2, Ctl("check same-net 192.168.1.10/0 192.168.1.1").status);
    EXPECT_EQ((Expected{{"result", 0}, {"meaning", "the same subnet"}}),
              Ctl("check same-net 192.0.2.10/24 192.0.2.1 --json").Json());
}

TEST(CtlCheck, HostMaskAndClass) {
    EXPECT_EQ(0, Ctl("check host 192.168.1.1/24").status);
    EXPECT_EQ(5, Ctl("check host 192.168.1.255/24").status);
    EXPECT_EQ(5, Ctl("check host 192.168.1.1/32").status);
    EXPECT_EQ(0, Ctl("check mask 255.255.255.0").status);
    EXPECT_EQ(5, Ctl("check mask 255.0.255.0").status);
    EXPECT_EQ("C (1303)\n", Ctl("check class 192.0.2.1").out);
    EXPECT_EQ((Expected{{"class", "none"}, {"code", 1305}}),
              Ctl("check class 127.0.0.1 --json").Json());
    EXPECT_EQ(2, Ctl("check class 2001:db8::1").status);
}

TEST(CtlLink, ShowsAllInterfacesWithoutAName) {
    const nlohmann::json all = Ctl("link show --json").Json();
    EXPECT_THAT(all.at("links"),
                testing::Contains(testing::ResultOf(
                    [](const nlohmann::json& link) { return link.value("interface", ""); }, "lo")));
}

}  // namespace
}  // namespace vimbra::tests
