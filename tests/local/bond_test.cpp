// Bonding.
#include <gtest/gtest.h>
#include <vimbra/bond.h>
#include <vimbra/net_bond.h>

#include <string>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr u32 kStart = 3841;
constexpr u32 kStop = 3842;

// 20 characters.
constexpr char kPath[] = "/tmp/bonding_masters";

// A record and the texts that it points to.
struct Param {
    explicit Param(std::vector<std::string> members, std::string active = "eth0",
                   std::string path = kPath)
        : members_(std::move(members)), active_(std::move(active)), path_(std::move(path)) {
        for (size_t i = 0; i < members_.size(); i++) {
            record.achIface[i] = members_[i].data();
        }
        record.dwIfaceNum = static_cast<u32>(members_.size());
        record.pchActiveIface = active_.data();
        record.pchBondPath = path_.data();
    }
    Param(const Param&) = delete;

    TVimbraBondParam record = {};

 private:
    std::vector<std::string> members_;
    std::string active_;
    std::string path_;
};

void PackText(Pack& pack, const std::string& text) {
    pack.U32(static_cast<u32>(text.size()) + 1).Text(text, text.size() + 1);
}

Bytes Body(u32 mode, const std::vector<std::string>& members, const std::string& active,
           const std::string& path) {
    Pack rest;
    rest.U32(mode);
    PackText(rest, path);
    rest.U32(static_cast<u32>(members.size()));
    for (const std::string& member : members) {
        PackText(rest, member);
    }
    PackText(rest, active);
    return Pack().U32(static_cast<u32>(rest.Get().size()) + 4).Add(rest);
}

class Bond : public testing::Test {
 protected:
    void SetUp() override { WriteFile(kPath, ""); }

    Capture log_;
    ScriptedDaemon daemon_;
};

TEST_F(Bond, TwoMembersMakeABodyOf64Bytes) {
    Param param({"eth0", "eth1"});
    EXPECT_EQ(0u, g_dwBondIsStarted);
    EXPECT_EQ(0, VimbraBondStart(1, &param.record));
    ASSERT_EQ(1u, daemon_.Requests().size());
    const Request request = daemon_.Requests()[0];
    EXPECT_EQ(kStart, request.type);
    EXPECT_EQ(64u, request.size);
    EXPECT_EQ(0, request.flag);
    EXPECT_EQ(1u, request.reads);
    EXPECT_EQ(Pack()
                  .U32(64)
                  .U32(1)
                  .U32(21)
                  .Text("/tmp/bonding_masters", 21)
                  .U32(2)
                  .U32(5)
                  .Text("eth0", 5)
                  .U32(5)
                  .Text("eth1", 5)
                  .U32(5)
                  .Text("eth0", 5),
              request.body);
    EXPECT_EQ(1u, g_dwBondIsStarted);
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Bond, StartTellsWhatItSends) {
    Param param({"eth0", "bond-member"}, "bond-member");
    EXPECT_EQ(0, VimbraBondStart(6, &param.record));
    for (const char* text :
         {"nSendLen : 78", "dwBondMode : 6", "ptBondParam->pchBondPath : 21",
          "ptBondParam->pchBondPath : /tmp/bonding_masters", "ptBondParam->dwIfaceNum : 2",
          "0 len : 5", "0 iface : eth0", "1 len : 12", "1 iface : bond-member",
          "active iface len : 12", "active iface : bond-member"}) {
        EXPECT_TRUE(log_.Has(Kind::kPrint, "ApicBondStart", text));
    }
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraBondStart", "NetBondStart successfully!"));
    EXPECT_EQ(12, log_.Count(Kind::kPrint));
    EXPECT_EQ(78u, daemon_.Requests()[0].size);
}

TEST_F(Bond, EveryModeAndCountIsSent) {
    const std::vector<std::string> names = {"eth0", "", "a-name-of-some-more-than-16-characters",
                                            "e"};
    for (u32 mode = 0; mode <= 6; mode++) {
        for (size_t count = 0; count <= 4; count++) {
            const std::vector<std::string> members(names.begin(), names.begin() + count);
            Param param(members, "x");
            daemon_.Forget();
            EXPECT_EQ(0, VimbraBondStart(mode, &param.record));
            ASSERT_EQ(1u, daemon_.Requests().size());
            EXPECT_EQ(Body(mode, members, "x", kPath), daemon_.Requests()[0].body);
        }
    }
}

TEST_F(Bond, ModeIsCheckedBeforeEverythingElse) {
    Param param({"eth0"}, "eth0", "/nowhere");
    for (const u32 mode : {7u, 8u, 0x80000000u, 0xffffffffu}) {
        EXPECT_EQ(1105, VimbraBondStart(mode, &param.record));
    }
    EXPECT_EQ(1105, VimbraBondStart(7, nullptr));
    EXPECT_EQ(5, log_.Count(Kind::kError, "VimbraBondStart", "the bond mode is invalid!"));
    EXPECT_EQ(5, log_.Count(Kind::kError));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(Bond, NullsAreRefused) {
    EXPECT_EQ(1105, VimbraBondStart(0, nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraBondStart", "the bond param pointer is NULL!"));
    Param param({"eth0", "eth1"});
    param.record.pchBondPath = nullptr;
    EXPECT_EQ(1105, VimbraBondStart(0, &param.record));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraBondStart", "the bond param pchBondPath is NULL!"));
    EXPECT_EQ(0u, daemon_.Connections());
    EXPECT_EQ(0u, g_dwBondIsStarted);
}

TEST_F(Bond, MembersAreRefusedBeforeAnyCopy) {
    Param param({"eth0", "eth1", "eth2", "eth3"});
    for (const u32 count : {5u, 6u, 0x40000000u, 0xffffffffu}) {
        param.record.dwIfaceNum = count;
        EXPECT_EQ(1105, VimbraBondStart(0, &param.record));
    }
    EXPECT_EQ(4, log_.Count(Kind::kError, "VimbraBondStart"));
    for (u32 i = 0; i < 4; i++) {
        Param missing({"eth0", "eth1", "eth2", "eth3"});
        missing.record.achIface[i] = nullptr;
        EXPECT_EQ(1105, VimbraBondStart(0, &missing.record));
        missing.record.dwIfaceNum = i;
        EXPECT_EQ(0, VimbraBondStart(0, &missing.record)) << "a name past the count is not used";
    }
    EXPECT_EQ(4u, daemon_.Requests().size());
}

TEST_F(Bond, PathMustExist) {
    Param param({"eth0"}, "eth0", "/tmp/no_such_file");
    EXPECT_EQ(-1, VimbraBondStart(0, &param.record));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraBondStart",
                         "access /tmp/no_such_file error 2 : No such file or directory"));
    EXPECT_EQ(0u, daemon_.Connections());
    Param directory({"eth0"}, "eth0", "/tmp");
    EXPECT_EQ(0, VimbraBondStart(0, &directory.record));
}

TEST_F(Bond, WithoutActiveInterfaceNothingIsSent) {
    Param param({"eth5", "eth6"});
    param.record.pchActiveIface = nullptr;
    EXPECT_EQ(1109, VimbraBondStart(0, &param.record));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "ApicBondStart", "nSendLen : 59"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "ApicBondStart", "active iface [0] len : 5"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "ApicBondStart", "active iface [0] : eth5"));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "ApicBondStart", "the used len and the send len are diffent!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraBondStart", "ApicBondStart error"));
    EXPECT_EQ(0u, daemon_.Connections());
    EXPECT_EQ(0u, g_dwBondIsStarted);
    param.record.dwIfaceNum = 0;
    param.record.achIface[0] = nullptr;
    EXPECT_EQ(1109, VimbraBondStart(0, &param.record));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(Bond, BodyAboveTheTransportsLimitIsRefused) {
    // 20 bytes of words, three lengths, three texts.
    const std::string path = kPath;
    const size_t fixed = 4 + 4 + 4 + (path.size() + 1) + 4 + 4 + 1 + 4 + 1;
    Param fits({std::string(3072 - fixed, 'a')}, "");
    EXPECT_EQ(0, VimbraBondStart(0, &fits.record));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(3072u, daemon_.Requests()[0].size);
    daemon_.Forget();
    for (const size_t length : {3073 - fixed, size_t{3072}, size_t{5000}, size_t{100000}}) {
        Param large({std::string(length, 'a')}, "");
        EXPECT_EQ(1109, VimbraBondStart(0, &large.record));
    }
    EXPECT_EQ(4, log_.Count(Kind::kError, "ApicBondStart", "send and recv msg error, nRet : -1!"));
    EXPECT_EQ(0u, daemon_.Requests().size());
}

TEST_F(Bond, RefusedStartIs1109) {
    daemon_.Default(Answer::Code(19));
    Param param({"eth0"});
    EXPECT_EQ(1109, VimbraBondStart(0, &param.record));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicBondStart", "send and recv msg error, nRet : 19!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraBondStart", "ApicBondStart error"));
    daemon_.Default(Answer::Code(0).Size(5));
    EXPECT_EQ(1109, VimbraBondStart(0, &param.record));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicBondStart", "send and recv msg error, nRet : 16!"));
    EXPECT_EQ(0u, g_dwBondIsStarted);
}

TEST_F(Bond, FailedStartLeavesTheFlag) {
    Param param({"eth0"});
    ASSERT_EQ(0, VimbraBondStart(0, &param.record));
    daemon_.Default(Answer::Code(19));
    EXPECT_EQ(1109, VimbraBondStart(0, &param.record));
    EXPECT_EQ(1u, g_dwBondIsStarted);
}

TEST_F(Bond, StopSendsNoBodyAndClearsTheFlag) {
    Param param({"eth0"});
    ASSERT_EQ(0, VimbraBondStart(0, &param.record));
    daemon_.Forget();
    EXPECT_EQ(0, VimbraBondStop());
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStop, {}), daemon_.Requests()[0].raw);
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraBondStop", "NetBondStop successfully!"));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0u, g_dwBondIsStarted);
}

TEST_F(Bond, RefusedStopIsMinusOne) {
    g_dwBondIsStarted = 1;
    daemon_.Default(Answer::Code(1109));
    EXPECT_EQ(-1, VimbraBondStop());
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicBondStop", "send and recv msg error:1109!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraBondStop", "ApicBondStop error"));
    EXPECT_EQ(1u, g_dwBondIsStarted);
}

// Kept: only -1 is a failure of the stop, so a transport's other results pass for success.
TEST_F(Bond, StopThatGoesWrongOnTheWayCountsAsDone) {
    g_dwBondIsStarted = 1;
    daemon_.Default(Answer::Code(0).Size(8));
    EXPECT_EQ(0, VimbraBondStop());
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicBondStop", "send and recv msg error:16!"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraBondStop", "NetBondStop successfully!"));
    EXPECT_EQ(0u, g_dwBondIsStarted);
}

TEST(BondAlone, WithoutDaemon) {
    WriteFile(kPath, "");
    Capture log;
    Param param({"eth0"});
    EXPECT_EQ(1109, VimbraBondStart(0, &param.record));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicBondStart", "send and recv msg error, nRet : -1!"));
    EXPECT_EQ(-1, VimbraBondStop());
    EXPECT_TRUE(log.Has(Kind::kError, "ApicBondStop", "send and recv msg error:-1!"));
}

TEST_F(Bond, LegacyNumbersBecomeNames) {
    std::string path = kPath;
    BondParam param = {{0, 12, 7}, 3, 12, path.data()};
    EXPECT_EQ(0, NetBondStart(4, &param));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Body(4, {"eth0", "eth12", "eth7"}, "eth12", kPath), daemon_.Requests()[0].body);
    EXPECT_EQ(0, NetBondStop());
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStop, {}), daemon_.Requests()[1].raw);
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Bond, LegacyNumbersAreSigned) {
    std::string path = kPath;
    BondParam param = {{0xffffffff, 0, 0}, 1, 0x80000000, path.data()};
    EXPECT_EQ(0, NetBondStart(0, &param));
    EXPECT_EQ(Body(0, {"eth-1"}, "eth-2147483648", kPath), daemon_.Requests()[0].body);
}

TEST_F(Bond, LegacyRefusals) {
    std::string path = kPath;
    BondParam param = {{0, 1, 2}, 4, 0, path.data()};
    for (const u32 count : {4u, 5u, 0xffffffffu}) {
        param.dwBondIdNum = count;
        EXPECT_EQ(1105, NetBondStart(0, &param));
    }
    EXPECT_EQ(1105, NetBondStart(0, nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraBondStart", "the bond param pointer is NULL!"));
    param.dwBondIdNum = 2;
    EXPECT_EQ(1105, NetBondStart(7, &param));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraBondStart", "the bond mode is invalid!"));
    param.pchBondPath = nullptr;
    EXPECT_EQ(1105, NetBondStart(0, &param));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraBondStart", "the bond param pchBondPath is NULL!"));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(Bond, LegacyPathEndsAfter127Characters) {
    const std::string path = "/tmp/" + std::string(122, 'p');
    WriteFile(path, "");
    std::string longer = path + "qqqq";
    BondParam param = {{0, 0, 0}, 1, 0, longer.data()};
    EXPECT_EQ(0, NetBondStart(0, &param));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Body(0, {"eth0"}, "eth0", path), daemon_.Requests()[0].body);
}

}  // namespace
}  // namespace vimbra::tests
