// Every editor of a file where the file cannot be written: a file system of 64 KiB that is full, a
// read-only /etc, a read-only file, an immutable one. The call tells, the old content stays, and
// the same call works when there is room.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>
#include <vimbra/account.h>
#include <vimbra/common.h>
#include <vimbra/dns.h>
#include <vimbra/log.h>
#include <vimbra/service.h>

#include <array>
#include <memory>
#include <string>
#include <tuple>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"

namespace vimbra::tests {
namespace {

using bed::ReadFile;
using bed::WriteFile;

constexpr char kPasswd[] = "/etc/passwd";
constexpr char kInetd[] = "/etc/inetd.conf";
constexpr char kResolv[] = "/etc/resolv.conf";

// ---- The editors -------------------------------------------------------------------------------

char g_guest[] = "guest";
char g_new[] = "new";
char g_word[] = "a-password";
char g_hash[] = "$1$abcdefgh$0123456789012345678901";
char g_owner[] = "administrator";
char g_eth0[] = "eth0";
char g_telnetd[] = "telnetd";
char g_tcp[] = "tcp";

s32 SetServers(u16 family) {
    std::array<TVimbraAddr, 3> servers = {};
    for (TVimbraAddr& server : servers) {
        server.wSinFamily = family;
    }
    return VimbraDNSSet(g_eth0, family, servers.data(), servers.size());
}

s32 StartTelnetd() {
    TVimbraServInfo info = {g_telnetd, 23, g_tcp, nullptr};
    return VimbraServiceStart(&info);
}

struct Edit {
    const char* name;
    const char* path;
    const char* line;  // of the file, among others
    s32 (*call)();
    bool grows = true;
    // Without an inetd that could be told of it a service's start fails although the line is there.
    bool isTold = true;
};

void PrintTo(const Edit& edit, std::ostream* out) {
    *out << edit.name;
}

constexpr char kGuestLine[] = "guest:hash:5:5:G:/g:/s\n";
constexpr char kServiceLine[] = "a stream tcp nowait e /f g\n";
constexpr char kServers[] = "####eth0\nnameserver 1.1.1.1\n";

const Edit kEdits[] = {
    {"AddNetUser", kPasswd, kGuestLine, [] { return VimbraAddNetUser(g_new, g_word); }},
    {"ModifyNetPwd", kPasswd, kGuestLine, [] { return VimbraModifyNetPwd(g_guest, g_word); }},
    {"DelNetUser", kPasswd, kGuestLine, [] { return VimbraDelNetUser(g_guest); }, false},
    {"AddUser", kPasswd, kGuestLine, [] { return add_user_to_pwd_file(g_new, g_hash); }},
    {"AddCommonUser", kPasswd, kGuestLine,
     [] { return add_common_user_to_pwd_file(g_new, g_hash); }},
    {"ModifyUser", kPasswd, kGuestLine, [] { return modify_user_in_pwd_file(g_guest, g_hash); }},
    {"DeleteUser", kPasswd, kGuestLine, [] { return del_user_from_pwd_file(g_guest); }, false},
    {"ChangeOwner", kInetd, kServiceLine, [] { return ChangeNetServiceOwner(g_owner); }},
    {"StartService", kInetd, kServiceLine, StartTelnetd, true, false},
    {"SetServers", kResolv, kServers, [] { return SetServers(2); }},
    {"SetServersOfIpv6", kResolv, kServers, [] { return SetServers(10); }},
    {"ClearServers", kResolv, kServers, [] { return VimbraDNSSet(g_eth0, 2, nullptr, 0); }, false},
};

// ---- What stands in their way ------------------------------------------------------------------

// A file system of 64 KiB, all of it taken.
class FullDisk {
 public:
    explicit FullDisk(const char*) {
        const std::string filling(256 * 1024, 'x');
        const int file = open(kFilling, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_GE(file, 0);
        while (write(file, filling.data(), filling.size()) > 0) {
        }
        EXPECT_EQ(ENOSPC, errno);
        close(file);
    }
    ~FullDisk() { unlink(kFilling); }

 private:
    static constexpr char kFilling[] = "/etc/filling";
};

class ReadOnlyEtc {
 public:
    explicit ReadOnlyEtc(const char*) {
        EXPECT_EQ(0, mount(nullptr, "/etc", nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
    }
    ~ReadOnlyEtc() { EXPECT_EQ(0, mount(nullptr, "/etc", nullptr, MS_REMOUNT, nullptr)); }
};

class ReadOnlyFile {
 public:
    explicit ReadOnlyFile(const char* path) : path_(path) {
        EXPECT_EQ(0, mount(path, path, nullptr, MS_BIND, nullptr));
        EXPECT_EQ(0, mount(nullptr, path, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr));
    }
    ~ReadOnlyFile() { EXPECT_EQ(0, umount2(path_, MNT_DETACH)); }

 private:
    const char* const path_;
};

class ImmutableFile {
 public:
    explicit ImmutableFile(const char* path) : path_(path) { Set(FS_IMMUTABLE_FL); }
    ~ImmutableFile() { Set(0); }

 private:
    void Set(int flags) const {
        const int file = open(path_, O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(0, ioctl(file, FS_IOC_SETFLAGS, &flags)) << strerror(errno);
        close(file);
    }
    const char* const path_;
};

enum class Obstacle : u8 { kFullDisk, kReadOnlyEtc, kReadOnlyFile, kImmutableFile };
constexpr const char* kObstacles[] = {"FullDisk", "ReadOnlyEtc", "ReadOnlyFile", "ImmutableFile"};

template <typename Wall>
void Against(const char* path, const std::function<void()>& body) {
    const Wall wall(path);
    body();
}

void Behind(Obstacle obstacle, const char* path, const std::function<void()>& body) {
    switch (obstacle) {
        case Obstacle::kFullDisk:
            return Against<FullDisk>(path, body);
        case Obstacle::kReadOnlyEtc:
            return Against<ReadOnlyEtc>(path, body);
        case Obstacle::kReadOnlyFile:
            return Against<ReadOnlyFile>(path, body);
        case Obstacle::kImmutableFile:
            return Against<ImmutableFile>(path, body);
    }
}

// ------------------------------------------------------------------------------------------------

class EditLimit : public testing::TestWithParam<std::tuple<Edit, Obstacle>> {
 protected:
    void SetUp() override {
        ASSERT_EQ(0, mount("limit", "/etc", "tmpfs", 0, "size=64k,mode=0755"));
        PrepareSilently();
        WriteFile("/etc/services", "telnet 23/tcp\n");
        const std::string accounts = "root:x:0:0:::\nadmin:x:0:0:A:/a:/s\n";
        WriteFile(kPasswd, accounts);
        WriteFile(TheEdit().path,
                  FullPage(TheEdit().path,
                           TheEdit().path == kPasswd ? accounts + kGuestLine : TheEdit().line));
    }

    // Nearly a page, of lines that every editor keeps: what grows needs another page.
    static std::string FullPage(const std::string& path, std::string text) {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        for (int i = 100;; i++) {
            const std::string number = std::to_string(i);
            const std::string line = path == kPasswd  ? "u" + number + ":x:1:1:::\n"
                                     : path == kInetd ? "a" + number + " b c d e /f g\n"
                                                      : "####e" + number + "\nnameserver 1.1.1.1\n";
            if (text.size() + line.size() > page) {
                return text;
            }
            text += line;
        }
    }

    [[nodiscard]] static const Edit& TheEdit() { return std::get<0>(GetParam()); }
};

TEST_P(EditLimit, OldContentStaysAndTheNextCallWorks) {
    const Edit& edit = TheEdit();
    const auto descriptors = bed::OpenDescriptors();
    const std::string before = ReadFile(edit.path);
    const bool fits = std::get<1>(GetParam()) == Obstacle::kFullDisk && !edit.grows;
    Behind(std::get<1>(GetParam()), edit.path, [&] {
        if (!fits) {
            EXPECT_EQ(-1, edit.call());
            EXPECT_EQ(before, ReadFile(edit.path));
        } else {
            EXPECT_EQ(0, edit.call());
            EXPECT_NE(before, ReadFile(edit.path));
        }
    });
    if (!fits) {
        EXPECT_EQ(edit.isTold ? 0 : -1, edit.call());
        EXPECT_NE(before, ReadFile(edit.path));
    }
    EXPECT_EQ(descriptors, bed::OpenDescriptors());
}

INSTANTIATE_TEST_SUITE_P(
    Files, EditLimit,
    testing::Combine(testing::ValuesIn(kEdits),
                     testing::Values(Obstacle::kFullDisk, Obstacle::kReadOnlyEtc,
                                     Obstacle::kReadOnlyFile, Obstacle::kImmutableFile)),
    [](const auto& which) {
        return std::string(std::get<0>(which.param).name) + "On" +
               kObstacles[static_cast<int>(std::get<1>(which.param))];
    });

}  // namespace
}  // namespace vimbra::tests
