// The DHCP server's requests, and the watch of its leases.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/dhcps.h>
#include <vimbra/log.h>
#include <vimbra/net_dhcps.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "files.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr u32 kGetIp = 277;
constexpr u32 kStart = 0x801;
constexpr u32 kStop = 0x802;
constexpr u32 kState = 0x804;
constexpr u32 kStopAll = 0x805;
constexpr char kLeases[] = "/usr/etc/udhcpd.leases";

TVimbraAddr Address(u16 family, const char* text) {
    TVimbraAddr address = {};
    memcpy(&address, Pack().Address(family, text).Get().data(), sizeof(address));
    return address;
}

TVimbraDhcpsInfo Pool() {
    TVimbraDhcpsInfo pool = {};
    pool.tIpPoolStart = Address(2, "192.168.1.10");
    pool.tIpPoolEnd = Address(2, "192.168.1.99");
    pool.dwIpPoolPrefix = 24;
    pool.tRoutes = Address(2, "192.168.1.1");
    pool.tIfaceIp = Address(2, "192.168.1.2");
    pool.dwIfacePrefix = 23;
    pool.tDnsServerInfo.dwDnsNum = 64;
    for (u32 i = 0; i < 64; i++) {
        pool.tDnsServerInfo.tDnsIp[i] = Address(2, ("10.0.0." + std::to_string(i + 1)).c_str());
    }
    return pool;
}

TVimbraDhcpsInfo Pool6() {
    TVimbraDhcpsInfo pool = {};
    pool.tIpPoolStart = Address(10, "2001:db8::10");
    pool.tIpPoolEnd = Address(10, "2001:db8::99");
    pool.dwIpPoolPrefix = 64;
    pool.tRoutes = Address(10, "2001:db8::1");
    pool.tIfaceIp = Address(10, "2001:db8::2");
    pool.dwIfacePrefix = 64;
    return pool;
}

s32 Start(std::string name, u16 family, TVimbraDhcpsInfo pool) {
    return VimbraDhcpsStart(name.data(), family, &pool);
}

s32 Stop(std::string name, u16 family) {
    return VimbraDhcpsStop(name.data(), family);
}

class Dhcps : public testing::Test {
 protected:
    void SetUp() override { daemon_.On(kGetIp, Answer::Body(Bytes(456))); }

    Capture log_;
    ScriptedDaemon daemon_;
};

// ---- Requests
// ------------------------------------------------------------------------------------

TEST_F(Dhcps, StartAsksForTheAddressesAndSendsThePool) {
    EXPECT_EQ(0, Start("eth0", 2, Pool()));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kGetIp, Pack().U16(2).Text("eth0", 16)), daemon_.Requests()[0].raw);
    Pack body;
    body.Text("eth0", 16).U16(2);
    body.Address(2, "192.168.1.10").Address(2, "192.168.1.99").U32(24);
    body.Address(2, "192.168.1.1").Address(2, "192.168.1.2").U32(23).U32(64);
    for (int i = 1; i <= 64; i++) {
        body.Address(2, ("10.0.0." + std::to_string(i)).c_str());
    }
    EXPECT_EQ(1390u, body.Get().size());
    EXPECT_EQ(Message(kStart, body), daemon_.Requests()[1].raw);
    EXPECT_EQ(1u, daemon_.Requests()[1].reads);
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Dhcps, StartForIpv6) {
    EXPECT_EQ(0, Start("a-16-characters-", 10, Pool6()));
    ASSERT_EQ(1u, daemon_.Requests(kStart).size());
    const Bytes body = daemon_.Requests(kStart)[0].body;
    EXPECT_EQ(Pack().Text("a-16-characters-", 16).U16(10).Get(), body.Slice(0, 18));
    EXPECT_EQ(AsBytes(Pool6()), body.Slice(18, 1372));
}

TEST_F(Dhcps, RefusedParametersSendNothing) {
    char name[] = "eth0";
    TVimbraDhcpsInfo pool = Pool();
    EXPECT_EQ(1105, VimbraDhcpsStart(nullptr, 2, &pool));
    EXPECT_EQ(1105, VimbraDhcpsStart(name, 2, nullptr));
    EXPECT_EQ(1105, VimbraDhcpsStart(nullptr, 99, nullptr));
    EXPECT_EQ(
        3, log_.Count(Kind::kError, "CheckDhcpsParam", "ptDhcpsConfInfo || pchIfaceName is NULL!"));
    EXPECT_EQ(3, log_.Count(Kind::kError, "VimbraDhcpsStart", "CheckDhcpsParam error!"));
    for (const u16 family : {u16{0}, u16{1}, u16{3}, u16{11}, u16{0xffff}}) {
        EXPECT_EQ(1105, Start("eth0", family, pool));
        EXPECT_TRUE(log_.Has(Kind::kError, "CheckDhcpsParam",
                             "wSinFamily " + std::to_string(family) + " is invalid!"));
    }
    EXPECT_EQ(0u, daemon_.Connections());
}

// Which one does not matter: what the others are is found out, or not, by the comparisons that follow.
TEST_F(Dhcps, FamilyMayBeThatOfAnyAddress) {
    constexpr char kPool[] = "the pool start and the pool end ip not the same net!";
    constexpr char kRoute[] = "the pool start and the route ip not the same net!";
    struct {
        TVimbraAddr TVimbraDhcpsInfo::*address;
        const char* text;
    } const kCases[] = {{&TVimbraDhcpsInfo::tIfaceIp, nullptr},
                        {&TVimbraDhcpsInfo::tIpPoolStart, kPool},
                        {&TVimbraDhcpsInfo::tIpPoolEnd, kPool},
                        {&TVimbraDhcpsInfo::tRoutes, kRoute}};
    for (const auto& one : kCases) {
        log_.Clear();
        TVimbraDhcpsInfo pool = Pool();
        pool.*one.address = Address(10, "2001:db8::5");
        EXPECT_EQ(one.text != nullptr ? 1105 : 0, Start("eth0", 10, pool));
        EXPECT_EQ(one.text != nullptr ? 1 : 0, log_.Count(Kind::kError, "CheckDhcpsParam"));
        EXPECT_TRUE(one.text == nullptr || log_.Has(Kind::kError, "CheckDhcpsParam", one.text));
    }
}

TEST_F(Dhcps, FamilyMustBeThatOfOneAddress) {
    EXPECT_EQ(1105, Start("eth0", 10, Pool()));
    EXPECT_EQ(1105, Start("eth0", 2, Pool6()));
    EXPECT_EQ(2, log_.Count(Kind::kError, "CheckDhcpsParam",
                            "the wSinFamily is differern TVimbraDhcpsInfo wSinFamily!"));
    EXPECT_EQ(0u, daemon_.Connections());
    TVimbraDhcpsInfo pool = Pool();
    pool.tIfaceIp = Address(10, "::1");
    EXPECT_EQ(0, Start("eth0", 10, pool)) << "one is enough";
}

TEST_F(Dhcps, EndAndRouterLieInThePoolsNetwork) {
    TVimbraDhcpsInfo pool = Pool();
    pool.tIpPoolEnd = Address(2, "192.168.2.10");
    pool.tRoutes = Address(2, "192.168.2.1");
    EXPECT_EQ(1105, Start("eth0", 2, pool));
    EXPECT_TRUE(log_.Has(Kind::kError, "CheckDhcpsParam",
                         "the pool start and the pool end ip not the same net!"));
    pool = Pool();
    pool.tRoutes = Address(2, "192.168.2.1");
    EXPECT_EQ(1105, Start("eth0", 2, pool));
    EXPECT_TRUE(log_.Has(Kind::kError, "CheckDhcpsParam",
                         "the pool start and the route ip not the same net!"));
    pool.dwIpPoolPrefix = 22;
    EXPECT_EQ(0, Start("eth0", 2, pool));
    for (const u32 prefix : {0u, 33u, 0xffffffu}) {
        pool.dwIpPoolPrefix = prefix;
        EXPECT_EQ(1105, Start("eth0", 2, pool));
    }
    EXPECT_EQ(4, log_.Count(Kind::kError, "CheckDhcpsParam",
                            "the pool start and the pool end ip not the same net!"));
    EXPECT_EQ(1u, daemon_.Requests(kStart).size());
}

TEST_F(Dhcps, ZeroStandsForNoRouter) {
    TVimbraDhcpsInfo pool = Pool();
    pool.tRoutes = Address(2, "0.0.0.0");
    EXPECT_EQ(0, Start("eth0", 2, pool));
    pool.tRoutes.wSinFamily = 0;
    EXPECT_EQ(1105, Start("eth0", 2, pool)) << "but it has to be an IPv4 one";
}

TEST_F(Dhcps, InterfaceMustBeReadable) {
    daemon_.On(kGetIp, Answer::Body(Pack().S32(19).Zeros(452)));
    EXPECT_EQ(1105, Start("eth0", 2, Pool()));
    EXPECT_TRUE(log_.Has(Kind::kError, "CheckDhcpsParam", "VimbraIfaceGetIp error!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpsStart", "CheckDhcpsParam error!"));
    EXPECT_EQ(0u, daemon_.Requests(kStart).size());
}

TEST_F(Dhcps, NameOf17CharactersFailsWhereTheInterfaceIsAskedFor) {
    EXPECT_EQ(1105, Start("seventeen-letters", 99, Pool()));
    EXPECT_TRUE(log_.Has(Kind::kError, "CheckDhcpsParam", "wSinFamily 99 is invalid!"));
    log_.Clear();
    EXPECT_EQ(1105, Start("seventeen-letters", 2, Pool()));
    EXPECT_EQ(3, log_.Count(Kind::kError));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraIfaceGetIp", "pchIfaceName is invalid!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "CheckDhcpsParam", "VimbraIfaceGetIp error!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpsStart", "CheckDhcpsParam error!"));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(Dhcps, RefusedStartIs1109) {
    daemon_.On(kStart, Answer::Code(17));
    EXPECT_EQ(1109, Start("eth0", 2, Pool()));
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error, nErrid : 17!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpsStart", "DHCPS client start error!"));
    daemon_.On(kStart, Answer::Code(0).Size(9));
    EXPECT_EQ(1109, Start("eth0", 2, Pool()));
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error, nRet : 16!"));
}

TEST_F(Dhcps, StopSendsNameAndFamily) {
    EXPECT_EQ(0, Stop("eth0", 2));
    EXPECT_EQ(0, Stop("a-16-characters-", 10));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStop, Pack().Text("eth0", 16).U16(2)), daemon_.Requests()[0].raw);
    EXPECT_EQ(Message(kStop, Pack().Text("a-16-characters-", 16).U16(10)),
              daemon_.Requests()[1].raw);
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(Dhcps, StopRefusals) {
    EXPECT_EQ(1105, VimbraDhcpsStop(nullptr, 2));
    EXPECT_EQ(1105, VimbraDhcpsStop(nullptr, 3));
    EXPECT_EQ(1105, Stop("seventeen-letters", 2));
    EXPECT_EQ(3, log_.Count(Kind::kError, "VimbraDhcpsStop", "pchIfaceName is NULL!"));
    EXPECT_EQ(1105, Stop("eth0", 11));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpsStop", "wSinFamily 11 is invalid!"));
    EXPECT_EQ(0u, daemon_.Connections());
    daemon_.Next(Answer::Code(3));
    EXPECT_EQ(-1, Stop("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error, nErrid : 3!"));
    daemon_.Next(Answer::Code(0).Size(0));
    EXPECT_EQ(-1, Stop("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error, nRet : 16!"));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraDhcpsStop", "DHCPS client stop all eth error!"));
}

TEST_F(Dhcps, StateIsTheReplyItself) {
    char name[] = "eth1";
    TVimbraDhcpsState state = {};
    for (const u32 told : {1u, 0u, 0xffffffffu}) {
        daemon_.Forget();
        daemon_.Next(kState, Answer::Body(Pack().U32(told)));
        EXPECT_EQ(0, VimbraDhcpsGetState(name, 2, &state));
        EXPECT_EQ(told, state.dwDhcpsIsRun);
        ASSERT_EQ(1u, daemon_.Requests().size());
        EXPECT_EQ(Message(kState, Pack().Text("eth1", 16).U16(2)), daemon_.Requests()[0].raw);
    }
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(Dhcps, StateRefusals) {
    char name[] = "eth1";
    char longName[] = "seventeen-letters";
    TVimbraDhcpsState state = {7};
    EXPECT_EQ(1105, VimbraDhcpsGetState(nullptr, 2, &state));
    EXPECT_EQ(1105, VimbraDhcpsGetState(name, 2, nullptr));
    EXPECT_EQ(1105, VimbraDhcpsGetState(longName, 2, &state));
    EXPECT_EQ(3, log_.Count(Kind::kError, "VimbraDhcpsGetState",
                            "pchIfaceName or ptNetdhcpsState is NULL!"));
    EXPECT_EQ(1105, VimbraDhcpsGetState(name, 0, &state));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpsGetState", "wSinFamily 0 is invalid!"));
    EXPECT_EQ(0u, daemon_.Connections());
    daemon_.On(kState, Answer::Code(1).Size(8));
    EXPECT_EQ(-1, VimbraDhcpsGetState(name, 2, &state));
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error:16!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpsGetState",
                         "DHCPS client get interface eth1 state error!"));
    EXPECT_EQ(7u, state.dwDhcpsIsRun);
}

TEST(DhcpsAlone, WithoutDaemon) {
    Capture log;
    char name[] = "eth0";
    TVimbraDhcpsState state = {};
    EXPECT_EQ(1105, Start("eth0", 2, Pool()));
    EXPECT_TRUE(log.Has(Kind::kError, "CheckDhcpsParam", "VimbraIfaceGetIp error!"));
    EXPECT_EQ(-1, Stop("eth0", 2));
    EXPECT_EQ(-1, VimbraDhcpsGetState(name, 2, &state));
    EXPECT_EQ(-1, NetDhcpsStop());
    EXPECT_TRUE(log.Has(Kind::kError, kAny, "send and recv msg error:-1!\u00a5n"));
}

// ---- Legacy requests
// -----------------------------------------------------------------------------

TEST_F(Dhcps, LegacyStopAndState) {
    EXPECT_EQ(0, NetDhcpsStopOneEth(7));
    EXPECT_EQ(0, NetDhcpsStopOneEth(0xffffffff));
    TNetDhcpsState state = {};
    daemon_.Next(kState, Answer::Body(Pack().U32(1)));
    EXPECT_EQ(0, NetDhcpsGetState(2, &state));
    EXPECT_EQ(1u, state.dwDhcpsIsRun);
    ASSERT_EQ(3u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStop, Pack().Text("eth7", 16).U16(2)), daemon_.Requests()[0].raw);
    EXPECT_EQ(Message(kStop, Pack().Text("eth-1", 16).U16(2)), daemon_.Requests()[1].raw);
    EXPECT_EQ(Message(kState, Pack().Text("eth2", 16).U16(2)), daemon_.Requests()[2].raw);
    EXPECT_EQ(1201, NetDhcpsGetState(3, &state));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetDhcpsGetState", "interface_name failed"));
    EXPECT_EQ(1105, NetDhcpsGetState(0, nullptr));
    daemon_.Next(kState, Answer::Code(9).Size(8));
    EXPECT_EQ(-1, NetDhcpsGetState(0, &state));
    EXPECT_EQ(1u, state.dwDhcpsIsRun);
}

TEST_F(Dhcps, LegacyStopAll) {
    EXPECT_EQ(0, NetDhcpsStop());
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStopAll, {}), daemon_.Requests()[0].raw);
    EXPECT_TRUE(log_.IsSilent());
    daemon_.On(kStopAll, Answer::Code(5));
    EXPECT_EQ(-1, NetDhcpsStop());
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error:5!\u00a5n"));
    daemon_.On(kStopAll, Answer::Code(0).Size(5));
    EXPECT_EQ(-1, NetDhcpsStop());
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error:16!\u00a5n"));
    EXPECT_EQ(2,
              log_.Count(Kind::kError, "NetDhcpsStop", "DHCPS client stop all eth error!\u00a5n"));
}

// ---- The watch
// -----------------------------------------------------------------------------------

// What the callback was told.
struct Told {
    std::mutex mutex;
    std::vector<TNetDhcpsNotify> all;
    std::vector<u32> events;
    std::atomic<int> other{0};

    size_t Count() {
        const std::lock_guard lock(mutex);
        return all.size();
    }
    TNetDhcpsNotify Last() {
        const std::lock_guard lock(mutex);
        return all.back();
    }
} g_told;

int OnLeases(u32 event, TNetDhcpsNotify* notify) {
    const std::lock_guard lock(g_told.mutex);
    g_told.all.push_back(*notify);
    g_told.events.push_back(event);
    return -1;
}

int OnLeasesOther(u32, TNetDhcpsNotify*) {
    g_told.other++;
    return 0;
}

size_t Occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        count++;
    }
    return count;
}

// A lease file of so many bytes; every record has bytes of its own everywhere.
Bytes LeaseFile(size_t size) {
    Bytes bytes;
    for (size_t i = 0; i < size; i++) {
        bytes.push_back(static_cast<u8>(i < 8 ? 0xee : (i - 8) % 36 + (i - 8) / 36 * 3));
    }
    return bytes;
}

class DhcpsWatch : public Dhcps {
 protected:
    void SetUp() override {
        Dhcps::SetUp();
        WriteFile(kLeases, "");
        threads_ = Threads();
    }

    // One more watcher, ready.
    void Watch(NetDhcpsNotifyCallBack callback = OnLeases) {
        TDhcpServerConfInfo conf = {};
        TDhcpServerEthInfo& eth = conf.achTDhcpServerEthInfo[0];
        eth.dwIpPoolStart = htonl(0xc0a8010a);
        eth.dwIpPoolEnd = htonl(0xc0a80114);
        eth.dwNetMask = 24;
        const size_t before = Seen("Watching = 1 items\n");
        EXPECT_EQ(0, NetDhcpsStart(&conf, callback));
        EXPECT_TRUE(WaitFor([&] { return Seen("Watching = 1 items\n") == before + 1; }));
    }

    size_t Seen(const std::string& text) { return Occurrences(log_.StdoutText(), text); }

    // Changes the file with one system call and waits until every watcher has its event.
    void Modify(const std::function<void(int)>& change, size_t watchers = 1) {
        const size_t before = Seen("events queued\n");
        const int file = open(kLeases, O_WRONLY | O_CLOEXEC);
        ASSERT_GE(file, 0);
        change(file);
        close(file);
        EXPECT_TRUE(WaitFor([&] { return Seen("events queued\n") >= before + watchers; }));
    }

    void Write(const Bytes& bytes, size_t watchers = 1) {
        Modify(
            [&](int file) {
                EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                          pwrite(file, bytes.data(), bytes.size(), 0));
            },
            watchers);
    }

    bool WaitTold(size_t count) {
        return WaitFor([&] { return g_told.Count() >= count; });
    }

    bool WaitEnded() {
        return WaitFor([&] { return Threads() == threads_; });
    }

    size_t threads_ = 0;
};

TEST_F(DhcpsWatch, LegacyStartConvertsTheFirstEntry) {
    TDhcpServerConfInfo conf;
    memset(&conf, 0x5a, sizeof(conf));
    conf.achTDhcpServerEthInfo[0] = {
        24, 16, htonl(0x0a000010), htonl(0x0a000020), htonl(0x0a000001), htonl(0x0a000002), 5};
    conf.tTDhcpServerDnsInfo.IsAssignDns = 7;
    conf.tTDhcpServerDnsInfo.dwDnsIp = htonl(0x08080808);
    EXPECT_EQ(0, NetDhcpsStart(&conf, nullptr));
    Pack body;
    body.Text("eth5", 16).U16(2).Address(2, "10.0.0.16").Address(2, "10.0.0.32").U32(24);
    body.Address(2, "10.0.0.1").Address(2, "10.0.0.2").U32(16).U32(1).Address(2, "8.8.8.8");
    ASSERT_EQ(1u, daemon_.Requests(kStart).size());
    EXPECT_EQ(body.FillTo(1390).Get(), daemon_.Requests(kStart)[0].body);
    conf.tTDhcpServerDnsInfo.IsAssignDns = 0;
    EXPECT_EQ(0, NetDhcpsStart(&conf, nullptr));
    EXPECT_EQ(Bytes(1284), daemon_.Requests(kStart)[1].body.Slice(106, 1284));
}

TEST_F(DhcpsWatch, LegacyStartRefusals) {
    EXPECT_EQ(-1, NetDhcpsStart(nullptr, OnLeases));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetDhcpsStart", "ptDhcpServerConfInfo is NULL"));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads_; }));
    TDhcpServerConfInfo conf = {};
    EXPECT_EQ(1105, NetDhcpsStart(&conf, OnLeases)) << "a prefix of 0";
    EXPECT_TRUE(WaitFor([&] { return Seen("Watching = 1 items\n") == 1; }))
        << "the watch runs all the same";
}

TEST_F(DhcpsWatch, TellsTheLeases) {
    Watch();
    EXPECT_THAT(log_.StdoutText(),
                testing::HasSubstr("Watching /usr/etc/udhcpd.leases WD=1\nWatching = 1 items\n"));
    const Bytes file = LeaseFile(8 + 2 * 36);
    Write(file);
    ASSERT_TRUE(WaitTold(1));
    TNetDhcpsNotify expected = {};
    expected.dhcps_index = 2;
    for (size_t i = 0; i < 2; i++) {
        memcpy(&expected.dhcps_mac_ip[i].dhcps_ip, file.data() + 8 + i * 36 + 4, 4);
        memcpy(expected.dhcps_mac_ip[i].dhcps_mac, file.data() + 8 + i * 36 + 8, 6);
    }
    EXPECT_EQ(AsBytes(expected), AsBytes(g_told.Last()));
    EXPECT_EQ(0u, g_told.events[0]);
    EXPECT_THAT(log_.StdoutText(), testing::HasSubstr("\n1 events queued\n"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "deal_func_for_dhcps", "ip_total: 2"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "deal_func_for_dhcps", "ip: 7060504"));
    for (const char* text : {"mac: 8", "mac: 9", "mac: a", "mac: b", "mac: c", "mac: d"}) {
        EXPECT_TRUE(log_.Has(Kind::kPrint, "deal_func_for_dhcps", text));
    }
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(DhcpsWatch, SizesAroundTheBounds) {
    Watch();
    size_t told = 0;
    const struct {
        size_t size;
        int leases;  // -1: not told
    } kSizes[] = {{7, -1}, {8, 0},     {43, 0},    {44, 1},    {79, 1},
                  {80, 2}, {1015, 27}, {1016, 28}, {1023, 28}, {2000, 28}};
    for (const auto& [size, leases] : kSizes) {
        Write(LeaseFile(size));
        if (leases >= 0) {
            ASSERT_TRUE(WaitTold(++told)) << size;
            EXPECT_EQ(static_cast<u32>(leases), g_told.Last().dhcps_index) << size;
        }
        EXPECT_EQ(told, g_told.Count()) << size;
    }
    Modify([](int file) { EXPECT_EQ(0, ftruncate(file, 44)); });
    ASSERT_TRUE(WaitTold(++told));
    EXPECT_EQ(1u, g_told.Last().dhcps_index);
}

TEST_F(DhcpsWatch, DeletionEndsItForGood) {
    const auto before = OpenDescriptors();
    Watch();
    Write(LeaseFile(44));
    ASSERT_TRUE(WaitTold(1));
    Remove(kLeases);
    EXPECT_TRUE(WaitEnded());
    EXPECT_THAT(log_.StdoutText(), testing::HasSubstr("IGNORED: WD #1\nWatching = 0 items\n"));
    EXPECT_EQ(before, OpenDescriptors());
    WriteFile(kLeases, std::string(44, 'x'));
    Watch(nullptr);
    Write(LeaseFile(80));
    ASSERT_TRUE(WaitTold(2));
    EXPECT_EQ(2u, g_told.Count()) << "only the new watcher tells";
}

TEST_F(DhcpsWatch, ReplacementEndsIt) {
    Watch();
    WriteFile("/usr/etc/new", std::string(44, 'x'));
    ASSERT_EQ(0, rename("/usr/etc/new", kLeases));
    EXPECT_TRUE(WaitEnded());
    EXPECT_EQ(0u, g_told.Count());
}

TEST_F(DhcpsWatch, TwoStartsTellTwice) {
    Watch();
    Watch();
    Write(LeaseFile(44), 2);
    ASSERT_TRUE(WaitTold(2));
    Remove(kLeases);
    EXPECT_TRUE(WaitEnded()) << "each counts its own";
    EXPECT_EQ(2u, Seen("Watching = 0 items\n"));
    EXPECT_EQ(2u, g_told.Count());
}

TEST_F(DhcpsWatch, WithoutACallbackNobodyIsTold) {
    Watch(nullptr);
    Write(LeaseFile(44));
    EXPECT_TRUE(log_.WaitFor(Kind::kPrint, "deal_func_for_dhcps", "ip_total: 1"));
    Remove(kLeases);
    EXPECT_TRUE(WaitEnded());
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(DhcpsWatch, ANewCallbackReplacesTheOldForAll) {
    Watch(nullptr);
    Watch(OnLeases);
    Watch(nullptr);
    Write(LeaseFile(44), 3);
    ASSERT_TRUE(WaitTold(3));
    Watch(OnLeasesOther);
    Write(LeaseFile(44), 4);
    EXPECT_TRUE(WaitFor([] { return g_told.other == 4; }));
    EXPECT_EQ(3u, g_told.Count());
}

TEST_F(DhcpsWatch, WithoutAFileThereIsNoWatch) {
    Remove(kLeases);
    const auto before = OpenDescriptors();
    TDhcpServerConfInfo conf = {};
    testing::internal::CaptureStderr();
    EXPECT_EQ(1105, NetDhcpsStart(&conf, OnLeases));
    EXPECT_TRUE(WaitFor([&] { return Seen("Cannot add watch") == 1; }));
    EXPECT_TRUE(WaitEnded());
    EXPECT_EQ(" : No such file or directory\n", testing::internal::GetCapturedStderr());
    EXPECT_THAT(
        log_.StdoutText(),
        testing::HasSubstr("Cannot add watch for \"/usr/etc/udhcpd.leases\" with event mask 2"));
    EXPECT_TRUE(WaitFor([&] { return OpenDescriptors() == before; }));
}

TEST_F(DhcpsWatch, DirectoryInItsPlace) {
    AsDirectory(kLeases);
    Watch();
    WriteFile(std::string(kLeases) + "/file", "x");
    EXPECT_TRUE(WaitFor([&] { return Seen("events queued\n") >= 1; }));
    ASSERT_EQ(0, unlink((std::string(kLeases) + "/file").c_str()));
    ASSERT_EQ(0, rmdir(kLeases));
    EXPECT_TRUE(WaitEnded());
    EXPECT_EQ(0u, g_told.Count());
}

TEST_F(DhcpsWatch, FileThatGoesWhileItsEventsWait) {
    WriteFile("/usr/etc/other", "");
    Watch();
    // The watch is on the file, not on its name: what is read is whatever has the name then.
    ASSERT_EQ(0, rename(kLeases, "/usr/etc/moved"));
    const int file = open("/usr/etc/moved", O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(1, write(file, "x", 1));
    close(file);
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, "deal_func_for_dhcps", "fopen error"));
    EXPECT_EQ(0u, g_told.Count());
}

TEST_F(DhcpsWatch, FileThatChangesWhileItIsRead) {
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    Watch(OnLeasesOther);
    const int file = open(kLeases, O_WRONLY | O_CLOEXEC);
    const Bytes bytes = LeaseFile(5000);
    for (int i = 0; i < 2000; i++) {
        ASSERT_GE(pwrite(file, bytes.data(), static_cast<size_t>(i * 7 % 5000), 0), 0);
        ASSERT_EQ(0, ftruncate(file, i * 13 % 3000));
    }
    close(file);
    EXPECT_TRUE(WaitFor([] { return g_told.other > 0; }));
    Remove(kLeases);
    EXPECT_TRUE(WaitEnded());
}

TEST_F(DhcpsWatch, ManyWatchersLeaveNothingBehind) {
    const auto before = OpenDescriptors();
    for (int round = 0; round < 20; round++) {
        Watch(OnLeasesOther);
    }
    Remove(kLeases);
    EXPECT_TRUE(WaitEnded());
    EXPECT_EQ(before, OpenDescriptors());
}

}  // namespace
}  // namespace vimbra::tests
