// What all nine calls for an interface's addresses, MAC address and MTU share.
#include "iface.hpp"

#include <gtest/gtest.h>
#include <vimbra/iface.h>
#include <vimbra/log.h>

#include <cerrno>
#include <functional>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "expect_log.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

struct Operation {
    const char* function;
    const char* request;  // the function that packs it
    const char* failed;   // begins the line of a failed call
    u32 type;
    std::function<Bytes(std::string_view name)> body;
    size_t replySize;
    std::vector<const char*> before;  // debug lines of a call for eth0
    // Calls it, checks that outputs are written on success and only then.
    std::function<s32(char* name)> call;
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.function;
}

template <typename Record>
s32 WithOutput(const std::function<s32(Record*)>& call) {
    auto record = Filled<Record>();
    const s32 result = call(&record);
    EXPECT_EQ(result != 0, IsUntouched(record));
    return result;
}

Bytes NameOnly(std::string_view name) {
    return Pack().Text(name, 16);
}

Bytes FamilyAndName(std::string_view name) {
    return Pack().U16(10).Text(name, 16);
}

Bytes NameAndIp(std::string_view name) {
    return Pack().Text(name, 16).U32(4).Address(2, "192.0.2.7").U32(24);
}

const Operation kOperations[] = {
    {"VimbraIfaceAddIp",
     "ApicIpaddrAdd",
     "ApicIpaddrAdd error : ",
     257,
     NameAndIp,
     4,
     {},
     [](char* name) {
         TVimbraIfaceIp ip = IfaceIp("192.0.2.7", 24);
         return VimbraIfaceAddIp(name, &ip);
     }},
    {"VimbraIfaceDelIp",
     "ApicIpaddrDel",
     "ApicIpaddrDel error : ",
     259,
     NameAndIp,
     4,
     {},
     [](char* name) {
         TVimbraIfaceIp ip = IfaceIp("192.0.2.7", 24);
         return VimbraIfaceDelIp(name, &ip);
     }},
    {"VimbraIfaceFlushIp",
     "ApicIpaddrFlush",
     "ApicIpaddrFlush error : ",
     260,
     FamilyAndName,
     4,
     {},
     [](char* name) { return VimbraIfaceFlushIp(name, 10); }},
    {"VimbraIfaceSetIp",
     "ApicIpaddrSet",
     "ApicIpaddrSet error : ",
     261,
     [](std::string_view name) {
         return Bytes(Pack()
                          .U16(11)
                          .Text(name, 16)
                          .U32(2)
                          .U32(4)
                          .Address(2, "192.0.2.7")
                          .U32(24)
                          .U32(2)
                          .Address(10, "fe80::1:2")
                          .U32(64)
                          .FillTo(470));
     },
     4,
     {},
     [](char* name) {
         TVimbraIfaceAllIp all =
             AllIp({IfaceIp("192.0.2.7", 24), IfaceIp("fe80::1:2", 64, VIMBRA_SCOPE_TYPE_LINK)});
         return VimbraIfaceSetIp(name, 11, &all);
     }},
    {"VimbraIfaceGetIp",
     "ApicIpaddrGet",
     "ApicIpaddrSet error : ",
     277,
     FamilyAndName,
     456,
     {},
     [](char* name) {
         return WithOutput<TVimbraIfaceAllIp>(
             [=](TVimbraIfaceAllIp* all) { return VimbraIfaceGetIp(name, 10, all); });
     }},
    {"VimbraIfaceSetMac",
     "ApicMacSet",
     "ApicMacSet error : ",
     262,
     [](std::string_view name) { return Bytes(Pack().Text(name, 16).Add(AsBytes(kMac))); },
     4,
     {"pchIfaceName : eth0", "mac to set : 2:11:22:33:44:5f"},
     [](char* name) {
         TVimbraIfaceMac mac = kMac;
         return VimbraIfaceSetMac(name, &mac);
     }},
    {"VimbraIfaceGetMac",
     "ApicMacGet",
     "ApicMacGet error : ",
     263,
     NameOnly,
     12,
     {},
     [](char* name) {
         return WithOutput<TVimbraIfaceMac>(
             [=](TVimbraIfaceMac* mac) { return VimbraIfaceGetMac(name, mac); });
     }},
    {"VimbraIfaceSetMtu",
     "ApicMtuSet",
     "ApicMtuSet error : ",
     273,
     [](std::string_view name) { return Bytes(Pack().Text(name, 16).U32(1400)); },
     4,
     {"VimbraIfaceSetMtu interface : eth0, mtu : 1400"},
     [](char* name) { return VimbraIfaceSetMtu(name, 2, 1400); }},
    {"VimbraIfaceGetMtu",
     "ApicMtuGet",
     "ApicMtuGet error : ",
     274,
     NameOnly,
     8,
     {},
     [](char* name) {
         return WithOutput<u32>([=](u32* mtu) { return VimbraIfaceGetMtu(name, mtu); });
     }},
};

class Iface : public testing::TestWithParam<Operation> {
 protected:
    s32 Call(std::string name = "eth0") const { return GetParam().call(name.data()); }
    std::string Function() const { return GetParam().function; }

    // A reply with this result code, the record behind it zero.
    Answer Result(s32 code) const {
        return Answer::Body(Bytes(Pack().S32(code).FillTo(GetParam().replySize)));
    }

    // All lines of a call for eth0, these among them.
    std::vector<Said> Lines(const std::vector<Said>& failures) const {
        std::vector<Said> lines;
        for (const char* text : GetParam().before) {
            lines.push_back(Dbg(Function(), text));
        }
        lines.insert(lines.end(), failures.begin(), failures.end());
        return lines;
    }
    // The lines that end a call which could not be carried out.
    std::vector<Said> Failures(std::vector<Said> first, const std::string& reason) const {
        first.push_back(Err(GetParam().request, reason));
        first.push_back(Err(Function(), GetParam().failed + std::string("-1!")));
        return first;
    }
};

INSTANTIATE_TEST_SUITE_P(All, Iface, testing::ValuesIn(kOperations),
                         [](const auto& param) { return std::string(param.param.function); });

TEST_P(Iface, SendsTheRequest) {
    ScriptedDaemon daemon;
    daemon.On(GetParam().type, Result(0));
    Capture log;
    EXPECT_EQ(0, Call());
    ASSERT_EQ(1u, daemon.Requests().size());
    const Bytes body = GetParam().body("eth0");
    const Request request = daemon.Requests()[0];
    EXPECT_EQ(Pack().U32(GetParam().type).U32(static_cast<u32>(body.size())).S32(0).Add(body),
              request.raw);
    EXPECT_EQ(1u, request.reads);
    EXPECT_TRUE(Wrote(log, Lines({})));
    EXPECT_TRUE(log.HasNoTrouble());
}

TEST_P(Iface, SixteenCharactersArriveWithoutTerminator) {
    ScriptedDaemon daemon;
    daemon.On(GetParam().type, Result(0));
    EXPECT_EQ(0, Call(kSixteen));
    EXPECT_EQ(0, Call(std::string(kSixteen, 15)));
    ASSERT_EQ(2u, daemon.Requests().size());
    EXPECT_EQ(GetParam().body(kSixteen), daemon.Requests()[0].body);
    EXPECT_EQ(GetParam().body("abcdefghijklmno"), daemon.Requests()[1].body);
}

TEST_P(Iface, EmptyNameIsAName) {
    ScriptedDaemon daemon;
    daemon.On(GetParam().type, Result(0));
    EXPECT_EQ(0, Call(""));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(GetParam().body(""), daemon.Requests()[0].body);
}

TEST_P(Iface, RefusesLongerNamesAndNone) {
    ScriptedDaemon daemon;
    Capture log;
    EXPECT_EQ(1105, Call(kSeventeen));
    EXPECT_EQ(1105, Call(std::string(5000, 'x')));
    EXPECT_EQ(1105, GetParam().call(nullptr));
    const Said said = Err(Function(), "pchIfaceName is invalid!");
    EXPECT_TRUE(Wrote(log, {said, said, said}));
    EXPECT_EQ(0u, daemon.Connections());
}

TEST_P(Iface, RefusalOfTheDaemonIsMinusOne) {
    ScriptedDaemon daemon;
    for (const s32 code : {5, 1, -1, -5, 1105}) {
        daemon.On(GetParam().type, Result(code));
        Capture log;
        EXPECT_EQ(-1, Call());
        EXPECT_TRUE(Wrote(
            log,
            Lines(Failures({}, "send and recv msg error num : " + std::to_string(code) + "!"))));
    }
}

TEST_P(Iface, MissingDaemonIsMinusOne) {
    Capture log;
    EXPECT_EQ(-1, Call());
    EXPECT_TRUE(Wrote(log, Lines(Failures({Perr("MakeAddrClient", "connect error", ENOENT),
                                           Err("IpcApiSendAndRecv", "MakeAddrClient error!")},
                                          "send and recv msg return num : -1!"))));
}

TEST_P(Iface, ReplyOfAnotherSizeIsMinusOne) {
    ScriptedDaemon daemon;
    daemon.On(GetParam().type, Answer::Body(Bytes(GetParam().replySize + 4, 0)));
    Capture log;
    EXPECT_EQ(-1, Call());
    const std::string size = std::to_string(GetParam().replySize + 12);
    EXPECT_TRUE(
        Wrote(log, Lines(Failures({Err("IpcApiSendAndRecv", "received message's head is error!")},
                                  "send and recv msg return num : " + size + "!"))));
}

TEST_P(Iface, ReplyInTwoPiecesIsMinusOne) {
    ScriptedDaemon daemon;
    daemon.On(GetParam().type, Result(0).InPieces({12}));
    Capture log;
    EXPECT_EQ(-1, Call());
    EXPECT_TRUE(Wrote(log, Lines(Failures({Err("IpcApiSendAndRecv", "fail to receive message!")},
                                          "send and recv msg return num : 12!"))));
}

TEST_P(Iface, DaemonThatClosesWithoutAnswerHasAgreed) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Close());
    Capture log;
    EXPECT_EQ(0, Call());
    EXPECT_TRUE(Wrote(log, Lines({Err("IpcApiSendAndRecv", "fail to receive message!")})));
}

TEST_P(Iface, IsSilentAtLevelsZeroAndOne) {
    Capture log;
    for (const u32 level : {0u, 1u}) {
        VimbraDebugLevelSet(level);
        EXPECT_EQ(-1, Call());
        EXPECT_EQ(1105, Call(kSeventeen));
    }
    EXPECT_TRUE(log.IsSilent());
}

TEST_P(Iface, LeavesNothingOpen) {
    ScriptedDaemon daemon;
    Capture log;
    const auto before = OpenDescriptors();
    for (const Answer& answer : {Result(0), Result(5), Answer::Close(), Result(0).InPieces({1})}) {
        daemon.On(GetParam().type, answer);
        Call();
        EXPECT_TRUE(daemon.WaitIdle());
        EXPECT_EQ(before, OpenDescriptors());
    }
}

TEST_P(Iface, MayBeCalledByManyThreads) {
    ScriptedDaemon daemon;
    daemon.On(GetParam().type, Result(0));
    VimbraDebugLevelSet(0);
    std::vector<std::thread> threads;
    std::atomic<int> failed{0};
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([&] {
            for (int round = 0; round < 10; round++) {
                failed += Call() != 0 ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failed);
    const Bytes body = GetParam().body("eth0");
    ASSERT_EQ(40u, daemon.Requests().size());
    for (const Request& request : daemon.Requests()) {
        EXPECT_EQ(body, request.body);
    }
}

}  // namespace
}  // namespace vimbra::tests
