// Messages as JSON and back.
#include "value.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vimbra/bed.hpp>

namespace vimbra::tests {
namespace {

using protocol::Bytes;
using protocol::Json;

const protocol::Body& BodyOf(const char* request) {
    return protocol::FindRequest(request)->body;
}

Bytes BytesOf(const bed::Pack& pack) {
    const bed::Bytes packed = pack;
    const auto bytes = std::as_bytes(std::span(packed));
    return {bytes.begin(), bytes.end()};
}

TEST(ProtocolMessages, HaveNamesOfTheirOwnAndAreFound) {
    std::set<std::string> names;
    for (const protocol::Request& request : protocol::Requests()) {
        EXPECT_TRUE(names.insert(request.name).second) << request.name;
        EXPECT_EQ(&request, protocol::FindRequest(request.type, request.body.size));
        EXPECT_EQ(&request, protocol::FindRequest(request.name));
    }
    EXPECT_EQ(55u, names.size());
    EXPECT_EQ(nullptr, protocol::FindRequest("no-such-request"));
    EXPECT_EQ(nullptr, protocol::FindRequest(1, 0));
    EXPECT_STREQ("lease", protocol::FindNotification("ipc_dhcpc_eth0", 1285)->name);
    EXPECT_STREQ("lease", protocol::FindNotification("ipc_dhcpcv6_eth0", 1285)->name);
    EXPECT_EQ(nullptr, protocol::FindNotification("ipc_dhcpc_eth0", 1284));
    EXPECT_EQ(nullptr, protocol::FindNotification("ipc_nothing", 0));
}

// Zeros are a message of every kind, and what is read is written again.
TEST(ProtocolValues, OfEveryRecordComeBack) {
    for (const protocol::Request& request : protocol::Requests()) {
        for (const protocol::Body* body : {&request.body, &request.reply}) {
            if (body->form == protocol::Body::Form::kRecord) {
                const Bytes zeros(body->size);
                EXPECT_EQ(zeros, Encode(*body, Decode(*body, zeros))) << request.name;
                EXPECT_EQ(Decode(*body, zeros), Decode(*body, Encode(*body, Json::object())));
            }
        }
    }
}

TEST(ProtocolValues, AreReadByTheNamesOfTheirFields) {
    const Json value =
        Decode(BodyOf("address-add"),
               BytesOf(bed::Pack().Text("eth0", 16).U32(4).Address(2, "192.0.2.1").U32(24)));
    EXPECT_EQ((Json{{"achIfaceName", "eth0"},
                    {"tIfaceIp", {{"eScopeType", 4}, {"tIpAddr", "192.0.2.1"}, {"dwPrefix", 24}}}}),
              value);
}

TEST(ProtocolValues, OfAListAreThoseThatCount) {
    const Json value = {
        {"wSinFamily", 10},
        {"achIfaceName", "eth1"},
        {"tIfaceAllIp",
         {{"atNetIfaceIp", {{{"eScopeType", 0}, {"tIpAddr", "2001:db8::1"}, {"dwPrefix", 64}}}}}}};
    const Bytes bytes = Encode(BodyOf("address-set"), value);
    EXPECT_EQ(BytesOf(bed::Pack()
                          .U16(10)
                          .Text("eth1", 16)
                          .U32(1)
                          .U32(0)
                          .Address(10, "2001:db8::1")
                          .U32(64)
                          .FillTo(470)),
              bytes);
    const Json read = Decode(BodyOf("address-set"), bytes);
    EXPECT_EQ(1u, read["tIfaceAllIp"]["dwIpNum"]);
    EXPECT_EQ(1u, read["tIfaceAllIp"]["atNetIfaceIp"].size());
}

TEST(ProtocolValues, CountsBeyondTheListAreNotBelieved) {
    Bytes bytes(470);
    std::memset(bytes.data(), 0xff, bytes.size());
    EXPECT_EQ(16u, Decode(BodyOf("address-set"), bytes)["tIfaceAllIp"]["atNetIfaceIp"].size());
}

TEST(ProtocolValues, PasswordsAreNeverShown) {
    const Bytes bytes =
        Encode(BodyOf("pppoe-start"),
               {{"wSinFamily", 2}, {"tConfig", {{"username", "me"}, {"password", "open sesame"}}}});
    EXPECT_EQ(811u, bytes.size());
    EXPECT_EQ(0, std::memcmp("open sesame", bytes.data() + 2 + 255, 12));
    const std::string shown = Decode(BodyOf("pppoe-start"), bytes).dump();
    EXPECT_EQ(std::string::npos, shown.find("sesame"));
    EXPECT_NE(std::string::npos, shown.find("***"));
}

TEST(ProtocolValues, OfAnotherSizeAreBytes) {
    const Bytes bytes = {std::byte{1}, std::byte{0xff}};
    EXPECT_EQ((Json{{"bytes", "01 ff"}}), Decode(BodyOf("mtu-set"), bytes));
    EXPECT_EQ(bytes, Encode(BodyOf("mtu-set"), {{"bytes", "01 ff"}}));
    EXPECT_EQ(bytes, Encode(BodyOf("bond-stop"), {{"bytes", "01ff"}}));
}

TEST(ProtocolValues, OfABondAreWordsAndTexts) {
    const Bytes bytes = BytesOf(
        bed::Pack().U32(46).U32(1).U32(2).Text("p", 2).U32(1).U32(5).Text("eth0", 5).U32(5).Text(
            "eth0", 5));
    EXPECT_EQ((Json{{"mode", 1}, {"path", "p"}, {"members", {"eth0"}}, {"active", "eth0"}}),
              Decode(BodyOf("bond-start"), bytes));
    // As many members as the word says there are, but not more than came.
    Bytes many = bytes;
    std::memset(many.data() + 14, 0xff, 4);
    EXPECT_LT(Decode(BodyOf("bond-start"), many)["members"].size(), 8u);
}

TEST(ProtocolValues, TextsOfAnyBytesCanBeShown) {
    Bytes name(16, std::byte{0xc3});
    const Json value = Decode(BodyOf("mac-get"), name);
    EXPECT_NO_THROW(value.dump());
    EXPECT_EQ(64u, value["achIfaceName"].get<std::string>().size());
}

TEST(ProtocolValues, ThatCannotBeAreRefusedWithTheReason) {
    const auto why = [](const char* request, const Json& value) {
        try {
            Encode(BodyOf(request), value);
        } catch (const protocol::BadValue& error) {
            return std::string(error.what());
        }
        return std::string("none");
    };
    EXPECT_EQ("IfaceMtuBody has no mtu", why("mtu-set", {{"mtu", 1500}}));
    EXPECT_EQ("dwMtu is a number", why("mtu-set", {{"dwMtu", "1500"}}));
    EXPECT_EQ("dwMtu is a number of 32 bits", why("mtu-set", {{"dwMtu", 4294967296}}));
    EXPECT_EQ("none", why("mtu-set", {{"dwMtu", 4294967295}}));
    EXPECT_EQ("achIfaceName is of 16 bytes",
              why("mtu-get", {{"achIfaceName", "12345678901234567"}}));
    EXPECT_EQ("none", why("mtu-get", {{"achIfaceName", "1234567890123456"}}));
    EXPECT_EQ("tGateWay is an address such as 192.0.2.1 or 2001:db8::1",
              why("gateway-set", {{"tGateWay", "192.0.2"}}));
    EXPECT_EQ("tIfaceMac is of 6 bytes", why("mac-set", {{"tIfaceMac", "00:11"}}));
    EXPECT_EQ("\"xy\" is not made of bytes", why("mac-set", {{"bytes", "xy"}}));
    EXPECT_EQ("IfaceMtuBody is an object", why("mtu-set", Json::array()));
}

}  // namespace
}  // namespace vimbra::tests
