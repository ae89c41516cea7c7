// The addr commands against a scripted daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/types.h>

#include <vimbra/bed.hpp>

#include "ctl_daemon.hpp"
#include "ctl_run.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::HasSubstr;

namespace {

constexpr u32 kAdd = 257;
constexpr u32 kDel = 259;
constexpr u32 kFlush = 260;
constexpr u32 kSet = 261;
constexpr u32 kGet = 277;

constexpr size_t kAllSize = 452;

// One address as it travels.
Pack One(u32 scope, u16 family, const char* address, u32 prefix) {
    return Pack().U32(scope).Address(family, address).U32(prefix);
}

// The body of a set request.
Bytes SetBody(u16 family, const std::vector<Pack>& addresses) {
    Pack body = Pack().U16(family).Text("eth0", 16).U32(static_cast<u32>(addresses.size()));
    for (const Pack& address : addresses) {
        body.Add(address.Get());
    }
    return body.FillTo(2 + 16 + kAllSize);
}

using CtlAddr = CtlAtDaemon;

TEST_F(CtlAddr, ShowPrintsEveryAddress) {
    daemon_.On(kGet, Answer::Body(Pack()
                                      .S32(0)
                                      .U32(2)
                                      .Add(One(4, 2, "192.0.2.10", 24).Get())
                                      .Add(One(2, 10, "fe80::1", 64).Get())
                                      .FillTo(456)));
    EXPECT_EQ("ipv4  192.0.2.10/24  global\nipv6  fe80::1/64  link\n", Ctl("addr show eth0").out);
    EXPECT_EQ(Pack().U16(11).Text("eth0", 16), daemon_.Requests(kGet)[0].body);
    EXPECT_EQ(
        (Expected{
            {"interface", "eth0"},
            {"addresses",
             {{{"family", "ipv4"}, {"address", "192.0.2.10"}, {"prefix", 24}, {"scope", "global"}},
              {{"family", "ipv6"}, {"address", "fe80::1"}, {"prefix", 64}, {"scope", "link"}}}}}),
        Ctl("addr show eth0 --json").Json());
}

TEST_F(CtlAddr, ShowPrintsAnInterfaceWithoutAddresses) {
    daemon_.On(kGet, Answer::Body(Pack().FillTo(456)));
    EXPECT_EQ("no addresses\n", Ctl("addr show eth0").out);
    EXPECT_EQ((Expected{{"interface", "eth0"}, {"addresses", Expected::array()}}),
              Ctl("addr show eth0 --json").Json());
}

TEST_F(CtlAddr, ShowTakesAFamily) {
    daemon_.On(kGet, Answer::Body(Pack().FillTo(456)));
    for (const auto& [family, number] :
         {std::pair{"ipv4", 2}, std::pair{"ipv6", 10}, std::pair{"both", 11}}) {
        daemon_.Forget();
        EXPECT_EQ(0, Ctl(std::string("addr show eth0 --family ") + family).status);
        EXPECT_EQ(number, daemon_.Requests(kGet).at(0).body.U16(0));
    }
}

TEST_F(CtlAddr, ShowSurvivesACountBeyondTheListAndAnUnknownFamily) {
    daemon_.On(kGet, Answer::Body(Pack().S32(0).U32(0xffffffff).U32(9).U16(7).FillTo(456)));
    const Outcome shown = Ctl("addr show eth0 --json");
    EXPECT_EQ(0, shown.status);
    const nlohmann::json json = shown.Json();
    ASSERT_EQ(16U, json.at("addresses").size());
    EXPECT_EQ("family 7", json["addresses"][0]["address"]);
    EXPECT_EQ("9", json["addresses"][0]["scope"]);
}

TEST_F(CtlAddr, SetReplacesTheFamilyOfItsAddresses) {
    EXPECT_EQ(SetBody(2, {One(0, 2, "192.0.2.10", 24), One(0, 2, "192.0.2.11", 32)}),
              Sent("addr set eth0 192.0.2.10/24 192.0.2.11/32", kSet));
    EXPECT_EQ(SetBody(10, {One(0, 10, "2001:db8::1", 64)}),
              Sent("addr set eth0 2001:db8::1/64", kSet));
    EXPECT_EQ(SetBody(11, {One(0, 2, "192.0.2.10", 24), One(0, 10, "2001:db8::1", 128)}),
              Sent("addr set eth0 192.0.2.10/24 2001:db8::1/128", kSet));
}

TEST_F(CtlAddr, SetTakesAFamilyAndAScope) {
    EXPECT_EQ(SetBody(11, {One(2, 2, "192.0.2.10", 0)}),
              Sent("addr set eth0 192.0.2.10/0 --family both --scope link", kSet));
    EXPECT_EQ(SetBody(10, {}), Sent("addr set eth0 --family ipv6", kSet));
}

TEST_F(CtlAddr, SetWithoutAddressesNeedsAFamily) {
    ExpectRefused("addr set eth0", "--family has to say which ones are to go; accepted: ipv4");
}

TEST_F(CtlAddr, SetRefusesAnAddressOfAnotherFamily) {
    ExpectRefused("addr set eth0 192.0.2.10/24 --family ipv6",
                  "address: 192.0.2.10 is not ipv6, which --family asks for");
}

TEST_F(CtlAddr, SetTakes16AddressesAndRefuses17) {
    std::string words = "addr set eth0";
    for (int i = 1; i <= 16; i++) {
        words += " 192.0.2." + std::to_string(i) + "/24";
    }
    EXPECT_EQ(16U, Sent(words, kSet).U32(18));
    ExpectRefused(words + " 192.0.2.17/24", "accepted: up to 16 addresses");
}

TEST_F(CtlAddr, SetRefusesAScopeThatTheLibraryRefuses) {
    ExpectRefused("addr set eth0 192.0.2.1/24 --scope host",
                  "1105 (invalid argument): the eScopeType 1 is invalid!; accepted: up to 16 "
                  "addresses, a scope of default, link or global");
    ExpectRefused("addr set eth0 192.0.2.1/24 --scope wide",
                  "--scope: \"wide\" is refused; accepted: default, link or global");
}

TEST_F(CtlAddr, AddAndDelSendTheAddress) {
    const Bytes v4 = Pack().Text("eth0", 16).Add(One(0, 2, "192.0.2.10", 24).Get());
    const Bytes v6 = Pack().Text("eth0", 16).Add(One(4, 10, "2001:db8::1", 64).Get());
    EXPECT_EQ(v4, Sent("addr add eth0 192.0.2.10/24", kAdd));
    EXPECT_EQ(v6, Sent("addr add eth0 2001:db8::1/64 --scope global", kAdd));
    EXPECT_EQ(v4, Sent("addr del eth0 192.0.2.10/24", kDel));
    EXPECT_EQ(v6, Sent("addr del eth0 2001:db8::1/64 --scope global", kDel));
}

TEST_F(CtlAddr, AddRefusesWhatNoHostCanHave) {
    ExpectRefused("addr add eth0 224.0.0.1/24",
                  "addr add: address: 224.0.0.1: -1 (general failure): special ip!; accepted: an "
                  "address that a host can have");
    ExpectRefused("addr add eth0 10.255.255.255/8", "address: 10.255.255.255: ");
    ExpectRefused("addr add eth0 ::1/128", "Loopback ip!");
}

TEST_F(CtlAddr, AddRefusesALinkScope) {
    ExpectRefused("addr add eth0 192.0.2.1/24 --scope link", "accepted: a scope of default or");
}

TEST_F(CtlAddr, AddressesAreReadStrictly) {
    for (const char* address :
         {"192.0.2.1", "192.0.2.1/", "192.0.2.1/33", "192.0.2.1/-1", "192.0.2/24", "192.0.2.1/2 4",
          "2001:db8::1/129", "2001:db8::1", "/24", "eth0/24", "192.0.2.1/+24", "192.0.2.1/24/24"}) {
        daemon_.Forget();
        const Outcome refused = CtlWords({"addr", "add", "eth0", address});
        EXPECT_EQ(2, refused.status) << address;
        EXPECT_THAT(refused.err, HasSubstr("accepted: an address and its prefix length"))
            << address;
        EXPECT_TRUE(daemon_.Requests().empty()) << address;
    }
}

TEST_F(CtlAddr, FlushSendsTheFamily) {
    EXPECT_EQ(Pack().U16(11).Text("eth0", 16), Sent("addr flush eth0", kFlush));
    EXPECT_EQ(Pack().U16(2).Text("eth0", 16), Sent("addr flush eth0 --family ipv4", kFlush));
    EXPECT_EQ(Pack().U16(10).Text("eth0", 16), Sent("addr flush eth0 --family ipv6", kFlush));
}

TEST_F(CtlAddr, ARefusalIsToldWithTheDaemonsCode) {
    daemon_.On(kAdd, Answer::Code(17));
    const Outcome refused = Ctl("addr add lo 192.0.2.10/24");
    EXPECT_EQ(4, refused.status);
    EXPECT_EQ("vimbractl addr add: the network daemon refused: 17 (File exists)\n", refused.err);
}

}  // namespace
}  // namespace vimbra::tests
