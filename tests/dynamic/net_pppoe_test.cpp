// PPPoE: the legacy calls.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/net_pppoe.h>
#include <vimbra/pppoe.h>

#include <cstring>
#include <string>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "pppoe.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using NetPppoe = Pppoe;

TPppoeInitParam InitParam() {
    TPppoeInitParam param = {};
    SetText(param.abyUserName, "user");
    SetText(param.abyPassword, "secret");
    SetText(param.abyServerName, "server");
    param.bAutoDialEnable = 1;
    param.bDefaultRouteEnable = 2;
    param.dwAutoDialInterval = 30;
    param.wDialRetryTimes = 5;
    param.wLcpEchoSendInterval = 40;
    param.wLcpEchoRetryTimes = 6;
    param.dwEthID = 1;
    return param;
}

TEST_F(NetPppoe, StartIsConverted) {
    TPppoeInitParam param = InitParam();
    param.bDebug = 1;
    EXPECT_EQ(0, NetPppoeStart(&param, Take));
    PppoeConfig config = Sent();
    config.device = "eth1";
    config.debug = 1;
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, config.Body(2)), daemon_.Requests()[0].raw);
    EXPECT_EQ(0, NetPppoeStop());
    EXPECT_EQ(Message(kStop, Pack().U16(2)), daemon_.Requests()[1].raw);
    EXPECT_TRUE(log_.HasNoTrouble());
    // Not told of its own stop.
    EXPECT_THAT(g_events.Kinds(), IsEmpty());
}

TEST_F(NetPppoe, EventsAreConverted) {
    TPppoeInitParam param = InitParam();
    EXPECT_EQ(0, NetPppoeStart(&param, Take));
    EXPECT_TRUE(Notify(kSocket, 1, Addresses()));
    for (const u32 type : {2u, 3u, 4u, 5u, 6u}) {
        EXPECT_TRUE(Notify(kSocket, type, {}));
    }
    ASSERT_THAT(g_events.Kinds(), ElementsAre(9003u, 9006u, 9002u, 9001u, 9004u));
    EXPECT_EQ(Pack().In4("192.0.2.1").In4("192.0.2.2").In4("192.0.2.53").In4("192.0.2.54"),
              g_events.Events()[0].data);
    EXPECT_FALSE(g_events.Events()[1].hasData);
    EXPECT_EQ(0, NetPppoeStop());
    EXPECT_EQ(5u, g_events.Count());
}

TEST_F(NetPppoe, StoppedByTheCurrentCallTheLegacyCallbackHearsIt) {
    TPppoeInitParam param = InitParam();
    EXPECT_EQ(0, NetPppoeStart(&param, Take));
    EXPECT_EQ(0, Stop(2));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(9004u));
}

TEST_F(NetPppoe, NullCallbackIsNobody) {
    TPppoeInitParam param = InitParam();
    EXPECT_EQ(0, NetPppoeStart(&param, nullptr));
    EXPECT_TRUE(Notify(kSocket, 1, Addresses()));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0, NetPppoeStop());
}

TEST_F(NetPppoe, NumberAbove2HasNoNameAndFails) {
    TPppoeInitParam param = InitParam();
    param.dwEthID = 3;
    EXPECT_EQ(-1, NetPppoeStart(&param, Take));
    EXPECT_TRUE(log_.Has(Kind::kError, "CheckPppoeParam", "the device name is invalid!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetPppoeStart", "VimbraPppoeStart error!"));
    param.dwEthID = 0xffffffff;
    EXPECT_EQ(-1, NetPppoeStart(&param, Take));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(NetPppoe, NullRecordsFail) {
    EXPECT_EQ(-1, NetPppoeStart(nullptr, Take));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetPppoeStart", "VimbraPppoeStart error!"));
    EXPECT_EQ(1105, NetPppoeVer(nullptr));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(NetPppoe, EveryFailureIsMinusOne) {
    TPppoeInitParam param = InitParam();
    daemon_.On(kStart, Answer::Code(1));
    EXPECT_EQ(-1, NetPppoeStart(&param, Take));
    SetText(param.abyUserName, "");
    EXPECT_EQ(-1, NetPppoeStart(&param, Take));
}

TEST_F(NetPppoe, TextsAreBounded) {
    TPppoeInitParam param = InitParam();
    memset(param.abyUserName, 'u', 255);
    memset(param.abyPassword, 'p', 255);
    memset(param.abyServerName, 's', 255);
    EXPECT_EQ(0, NetPppoeStart(&param, Take));
    PppoeConfig config = Sent();
    config.user = std::string(254, 'u');
    config.password = std::string(254, 'p');
    config.device = "eth1";
    EXPECT_EQ(config.Body(2), daemon_.Requests()[0].body);
    EXPECT_EQ(0, NetPppoeStop());
}

TEST_F(NetPppoe, VersionIsTheCurrentOne) {
    TVersion version;
    memset(&version, 'x', sizeof(version));
    EXPECT_EQ(0, NetPppoeVer(&version));
    EXPECT_STREQ("pppd version 2.4.5\nPPPoE Version 3.10", version.abyVersion);
}

TEST_F(NetPppoe, StopWhenStoppedIsDone) {
    EXPECT_EQ(0, NetPppoeStop());
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraPppoeStop", "pppoe already stopped!"));
    EXPECT_EQ(0u, daemon_.Connections());
}

}  // namespace
}  // namespace vimbra::tests
