// Interface ioctls and socket options, with the kernel's answers and failures.
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <netinet/in.h>
#include <vimbra/common.h>
#include <vimbra/iface_check.h>
#include <vimbra/ipc.h>

#include <cerrno>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/injector.hpp"
#include "expect_log.hpp"
#include "fault.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

struct Ioctl {
    unsigned long request;
    Bytes name;
    s16 flags;
};

// Stands for the kernel: keeps the requests, answers with these flags.
class Kernel {
 public:
    explicit Kernel(Injector& injector, s16 flags = 0) {
        injector.onIoctl = [this, flags](int, unsigned long request, void* argument) {
            auto* record = static_cast<ifreq*>(argument);
            requests.push_back({request, Bytes(AsBytes(*record)).Slice(0, 16), record->ifr_flags});
            if (request == SIOCGIFFLAGS) {
                record->ifr_flags = flags;
            }
            return 0;
        };
    }

    std::vector<Ioctl> requests;
};

TEST(FaultOfIoctl, SixteenCharactersGoToGetFlagsWholeAndToSetFlagsCut) {
    char name[] = "abcdefghijklmnopq";
    Capture log;
    Injector injector;
    Kernel kernel(injector);
    u32 value = 0;
    u8 mac[6];
    EXPECT_EQ(0, IfethGetFlags(name, &value));
    EXPECT_EQ(0, IfethSetFlags(name, 0));
    EXPECT_EQ(0, IfethGetHwAddr(name, mac, nullptr));
    injector.Stop();
    ASSERT_EQ(3u, kernel.requests.size());
    EXPECT_EQ(0x8913ul, kernel.requests[0].request);
    EXPECT_EQ(Pack().Text("abcdefghijklmnop", 16), kernel.requests[0].name);
    EXPECT_EQ(0x8914ul, kernel.requests[1].request);
    EXPECT_EQ(Pack().Text("abcdefghijklmno", 16), kernel.requests[1].name);
    EXPECT_EQ(0x8927ul, kernel.requests[2].request);
    EXPECT_EQ(Pack().Text("abcdefghijklmnop", 16), kernel.requests[2].name);
    EXPECT_TRUE(log.IsSilent());
}

TEST(FaultOfIoctl, GetIpAddrTakesSixteenBytesWhateverTheLength) {
    char name[16] = {'l', 'o', '\0', 'x', 'y', 'z'};
    name[15] = '!';
    Injector injector;
    in_addr address = {};
    Bytes seen;
    injector.onIoctl = [&](int, unsigned long request, void* argument) {
        auto* record = static_cast<ifreq*>(argument);
        EXPECT_EQ(0x8915ul, request);
        seen = Bytes(AsBytes(*record)).Slice(0, 16);
        EXPECT_EQ(AF_INET, record->ifr_addr.sa_family);
        auto* in = reinterpret_cast<sockaddr_in*>(&record->ifr_addr);
        in->sin_addr.s_addr = htonl(0x0a0b0c0d);
        return 0;
    };
    EXPECT_EQ(0, IfethGetIpAddr(name, &address));
    injector.Stop();
    EXPECT_EQ(AsBytes(name), seen);
    EXPECT_EQ(htonl(0x0a0b0c0d), address.s_addr);
}

TEST(FaultOfIoctl, LineStatusIsAskedForAndHandedOver) {
    char name[] = "abcdefghijklmnop";
    for (const u32 link : {0u, 1u, 7u}) {
        Capture log;
        Injector injector;
        u32 status = 77;
        injector.onIoctl = [=](int, unsigned long request, void* argument) {
            auto* record = static_cast<ifreq*>(argument);
            EXPECT_EQ(0x8946ul, request);
            EXPECT_EQ(Pack().Text("abcdefghijklmno", 16), Bytes(AsBytes(*record)).Slice(0, 16));
            auto* value = reinterpret_cast<ethtool_value*>(record->ifr_data);
            EXPECT_EQ(10u, value->cmd);
            EXPECT_EQ(0u, value->data);
            value->data = link;
            return 0;
        };
        EXPECT_EQ(0, IfethGetLineStatus(name, &status));
        injector.Stop();
        EXPECT_EQ((Calls{"socket", "ioctl", "close"}), injector.Calls());
        EXPECT_EQ(link, status);
        EXPECT_TRUE(log.IsSilent());
    }
}

TEST(FaultOfIoctl, LineStatusTellsEachFailure) {
    u32 status = 77;
    {
        Capture log;
        Injector injector;
        injector.FailAt(1);
        EXPECT_EQ(-1, IfethGetLineStatus(g_lo, &status));
        injector.Stop();
        EXPECT_TRUE(Wrote(log, {Perr("SocketIoctl", "socket error", EMFILE),
                                Perr("IfethGetLineStatus", "ioctl error", EMFILE)}));
    }
    Capture log;
    Injector injector;
    injector.FailAt(2);
    EXPECT_EQ(-1, IfethGetLineStatus(g_lo, &status));
    injector.Stop();
    EXPECT_TRUE(Wrote(log, {Perr("SocketIoctl", "ioctl error", EPERM),
                            Perr("IfethGetLineStatus", "ioctl error", EPERM)}));
    EXPECT_EQ(77u, status);
    EXPECT_TRUE(injector.Descriptors().empty());
}

TEST(FaultOfIoctl, ShutdownClearsOneFlagAndNoShutdownSetsTwo) {
    struct {
        s32 (*call)(char*);
        u16 before;
        u16 after;
    } const cases[] = {
        {VimbraIfaceShutdown, 0x1043, 0x1042},   {VimbraIfaceShutdown, 0x1002, 0x1002},
        {VimbraIfaceShutdown, 0xffff, 0xfffe},   {VimbraIfaceNoShutdown, 0x1002, 0x1043},
        {VimbraIfaceNoShutdown, 0x1043, 0x1043}, {VimbraIfaceNoShutdown, 0x8000, 0x8041},
    };
    Capture log;
    for (const auto& one : cases) {
        Injector injector;
        Kernel kernel(injector, static_cast<s16>(one.before));
        EXPECT_EQ(0, one.call(g_eth));
        injector.Stop();
        ASSERT_EQ(2u, kernel.requests.size());
        EXPECT_EQ(0x8914ul, kernel.requests[1].request);
        EXPECT_EQ(static_cast<s16>(one.after), kernel.requests[1].flags);
    }
}

TEST(FaultOfIoctl, FlagsAreHandedOverUnsigned) {
    Injector injector;
    Kernel kernel(injector, static_cast<s16>(0x9043));
    u32 flags = 0;
    EXPECT_EQ(0, IfethGetFlags(g_eth, &flags));
    injector.Stop();
    EXPECT_EQ(0x9043u, flags);
}

TEST(FaultOfIoctl, FlagsThatCannotBeWrittenAreTold) {
    for (s32 (*call)(char*) : {VimbraIfaceShutdown, VimbraIfaceNoShutdown}) {
        const char* function =
            call == VimbraIfaceShutdown ? "VimbraIfaceShutdown" : "VimbraIfaceNoShutdown";
        Capture log;
        Injector injector;
        injector.FailAt(5);
        EXPECT_EQ(-1, call(g_lo));
        injector.Stop();
        EXPECT_EQ("ioctl", injector.Failed());
        EXPECT_TRUE(Wrote(
            log, {Prt(function, "pchIfaceName : lo"), Perr("SocketIoctl", "ioctl error", EPERM),
                  Err(function, "set flag error!")}));
    }
}

TEST(FaultOfSetDscp, PassesOneByteForIpv4AndFourForIpv6) {
    Injector injector;
    int calls = 0;
    injector.onSetsockopt = [&](int fd, int level, int name, const void* value, socklen_t size) {
        EXPECT_EQ(7, fd);
        if (calls++ == 0) {
            EXPECT_EQ(IPPROTO_IP, level);
            EXPECT_EQ(IP_TOS, name);
            EXPECT_EQ(1u, size);
            EXPECT_EQ(184, *static_cast<const u8*>(value));
        } else {
            EXPECT_EQ(IPPROTO_IPV6, level);
            EXPECT_EQ(IPV6_TCLASS, name);
            EXPECT_EQ(4u, size);
            EXPECT_EQ(46, *static_cast<const int*>(value));
        }
        return 0;
    };
    EXPECT_EQ(0, VimbraSetDscp(AF_INET, 7, 46));
    EXPECT_EQ(0, VimbraSetDscp(AF_INET6, 7, 46));
    EXPECT_EQ(2, calls);
}

TEST(FaultOfSetDscp, FailureIsTold) {
    for (const u16 family : {u16{AF_INET}, u16{AF_INET6}}) {
        Capture log;
        Injector injector;
        injector.FailAt(1);
        EXPECT_EQ(-1, VimbraSetDscp(family, 7, 46));
        injector.Stop();
        EXPECT_TRUE(Wrote(
            log, {Perr("VimbraSetDscp", family == AF_INET ? "set dscp failed" : "set dscpv6 failed",
                       ENOPROTOOPT)}));
    }
}

}  // namespace
}  // namespace vimbra::tests
