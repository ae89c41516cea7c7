// Leases over the ends of the daemon that took them: what a server says of them to a later life.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "address_watch.hpp"
#include "dhcp_server.hpp"
#include "e2e.hpp"
#include "lives.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr u32 kStart = 0x501;
constexpr u32 kStop = 0x502;
constexpr u32 kLease = 0x505;
constexpr u32 kFail = 0x506;

Bytes Client(u16 family) {
    return Pack().U16(family).Text("eth0", 16);
}

class VimbradLeaseRestart : public testing::Test {
 protected:
    void SetUp() override {
        Connect("eth0", host_);
        host_.Shell("ip address add 192.0.2.1/25 dev eth0");
    }

    Host host_;
};

TEST_F(VimbradLeaseRestart, LeaseThatTheServerConfirmsStays) {
    const DhcpServer server(host_);
    Lives daemon;
    const Listener listener("ipc_dhcpc_eth0");
    ASSERT_EQ(0, Ask(kStart, Client(2)));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    const AddressWatch watch;
    daemon.KillAndBegin();
    EXPECT_EQ(kLease, listener.Wait(2).at(1).type);
    EXPECT_EQ("", AddressWatch::DeletedOn("eth0"));
    EXPECT_THAT(KernelAddresses("eth0", 2), Contains("192.0.2.100/25 global"));
}

TEST_F(VimbradLeaseRestart, LeaseThatTheServerRefusesIsToldLostAndGoes) {
    DhcpServer server(host_);
    Lives daemon;
    const Listener listener("ipc_dhcpc_eth0");
    ASSERT_EQ(0, Ask(kStart, Client(2)));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    ASSERT_THAT(ReadFile("/etc/resolv.conf"), HasSubstr("nameserver 192.0.2.53"));
    daemon.Kill();
    server.Refuse();
    EXPECT_THAT(KernelAddresses("eth0", 2), Contains("192.0.2.100/25 global"));
    daemon.Begin();
    EXPECT_EQ(kFail, listener.Wait(2).at(1).type);
    EXPECT_LE(1, server.Refused());
    EXPECT_TRUE(WaitFor([] { return KernelAddresses("eth0", 2).empty(); })) << daemon.Log();
    EXPECT_THAT(Shell("ip -4 route show default"), IsEmpty());
    EXPECT_THAT(ReadFile("/etc/resolv.conf"), Not(HasSubstr("nameserver 192.0.2.53")));
    EXPECT_FALSE(Shown("dhcp_clients").at(0).contains("lease"));
}

// ---- IPv6

class VimbradLeaseRestart6 : public VimbradLeaseRestart {
 protected:
    void SetUp() override {
        VimbradLeaseRestart::SetUp();
        host_.Shell("ip address add 2001:db8::1/64 dev eth0 nodad");
        server_ = RunDnsmasq6(host_, "[2001:db8::53]");
    }

    static void ExpectLease(bool there) {
        const auto lease = Contains("2001:db8::100/128 global");
        const auto server = HasSubstr("nameserver 2001:db8::53");
        if (there) {
            EXPECT_THAT(KernelAddresses("eth0", 10), lease);
            EXPECT_THAT(ReadFile("/etc/resolv.conf"), server);
        } else {
            EXPECT_THAT(KernelAddresses("eth0", 10), Not(lease));
            EXPECT_THAT(ReadFile("/etc/resolv.conf"), Not(server));
        }
    }

    std::unique_ptr<Program> server_;
};

TEST_F(VimbradLeaseRestart6, LeaseStaysAndIsToldAnew) {
    Lives daemon;
    const Listener listener("ipc_dhcpcv6_eth0");
    ASSERT_EQ(0, Ask(kStart, Client(10)));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    const AddressWatch watch;
    daemon.KillAndBegin();
    const std::vector<Told> told = listener.Wait(2);
    EXPECT_EQ(kLease, told.at(1).type);
    EXPECT_EQ(told.at(0).body, told.at(1).body);
    ExpectLease(true);
    EXPECT_EQ("", AddressWatch::DeletedOn("eth0"));
    EXPECT_EQ("bound", Shown("dhcp_clients").at(0).at("state"));
    // It is ours again: it goes with the client, and back to the server.
    EXPECT_EQ(0, Ask(kStop, Client(10)));
    ExpectLease(false);
}

TEST_F(VimbradLeaseRestart6, KeepLeavesTheLeaseAlone) {
    Lives daemon({"--keep"});
    const Listener listener("ipc_dhcpcv6_eth0");
    ASSERT_EQ(0, Ask(kStart, Client(10)));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    const AddressWatch watch;
    daemon.End();
    ExpectLease(true);
    daemon.Begin();
    EXPECT_EQ(kLease, listener.Wait(2).at(1).type);
    EXPECT_EQ("", AddressWatch::DeletedOn("eth0"));
}

TEST_F(VimbradLeaseRestart6, LeaseStaysWhileNoServerAnswers) {
    Lives daemon;
    const Listener listener("ipc_dhcpcv6_eth0");
    ASSERT_EQ(0, Ask(kStart, Client(10)));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    daemon.Kill();
    server_.reset();
    daemon.Begin();
    EXPECT_TRUE(daemon.WaitLog("DHCPv6 client on eth0: started"));
    ExpectLease(true);
    EXPECT_EQ("bound", Shown("dhcp_clients").at(0).at("state"));
    EXPECT_EQ(1u, listener.Messages().size());
}

}  // namespace
}  // namespace vimbra::tests
