// DHCP server: the legacy start's watch over the lease file.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/log.h>
#include <vimbra/net_dhcps.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "dhcps.hpp"
#include "files.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

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
        u32 leases;
    } kSizes[] = {{8, 0},     {43, 0},    {44, 1},    {79, 1},   {80, 2},
                  {1015, 27}, {1016, 28}, {1023, 28}, {2000, 28}};
    for (const auto& [size, leases] : kSizes) {
        Write(LeaseFile(size));
        ASSERT_TRUE(WaitTold(++told)) << size;
        EXPECT_EQ(leases, g_told.Last().dhcps_index) << size;
        EXPECT_EQ(told, g_told.Count()) << size;
    }
    Modify([](int file) { EXPECT_EQ(0, ftruncate(file, 44)); });
    ASSERT_TRUE(WaitTold(++told));
    EXPECT_EQ(1u, g_told.Last().dhcps_index);
    // Not told, and the last: another change might be read for this one's event, too.
    Modify([](int file) { EXPECT_EQ(0, ftruncate(file, 7)); });
    Remove(kLeases);
    EXPECT_TRUE(WaitEnded());
    EXPECT_EQ(told, g_told.Count());
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
