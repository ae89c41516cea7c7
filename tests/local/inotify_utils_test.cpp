// The watch's pieces, with events that a watch for changes alone does not bring.
#include "api/api_1x/api_dhcps/inotify_utils.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "api/api_1x/api_dhcps/leases.hpp"

namespace vimbra::tests {

using bed::Capture;

namespace {

// An event as the kernel gives it: the name in a field filled with zeros.
std::vector<u8> Event(u32 mask, const std::string& name = "", u32 cookie = 0, size_t field = 0) {
    inotify_event event = {};
    event.wd = 3;
    event.mask = mask;
    event.cookie = cookie;
    event.len = static_cast<u32>(field != 0 ? field : name.size());
    std::vector<u8> bytes(sizeof(event) + event.len);
    memcpy(bytes.data(), &event, sizeof(event));
    memcpy(bytes.data() + sizeof(event), name.data(), name.size());
    return bytes;
}

class Events : public testing::Test {
 protected:
    void SetUp() override {
        int ends[2];
        ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
        watcher_.fd.Reset(ends[0]);
        writing_.Reset(ends[1]);
        watcher_.queue = queue_create();
        watcher_.watched = 1;
    }
    void TearDown() override { queue_destroy(watcher_.queue); }

    void Send(const std::vector<u8>& bytes) {
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()),
                  write(writing_.Get(), bytes.data(), bytes.size()));
    }

    std::string Handle(const std::vector<u8>& event) {
        Capture log;
        Send(event);
        EXPECT_EQ(1, read_events(watcher_));
        handle_events(watcher_);
        const std::string text = log.StdoutText();
        constexpr char kQueued[] = "\n1 events queued\n";
        EXPECT_THAT(text, testing::StartsWith(kQueued));
        return text.substr(strlen(kQueued));
    }

    Watcher watcher_;
    Fd writing_;
};

TEST_F(Events, EachHasItsLine) {
    const struct {
        u32 mask;
        const char* name;
    } kEvents[] = {{IN_ACCESS, "ACCESS"},
                   {IN_ATTRIB, "ATTRIB"},
                   {IN_CLOSE_WRITE, "CLOSE_WRITE"},
                   {IN_CLOSE_NOWRITE, "CLOSE_NOWRITE"},
                   {IN_OPEN, "OPEN"},
                   {IN_CREATE, "CREATE"},
                   {IN_DELETE, "DELETE"},
                   {IN_DELETE_SELF, "DELETE_SELF"},
                   {IN_MOVE_SELF, "MOVE_SELF"},
                   {IN_UNMOUNT, "UNMOUNT"}};
    for (const auto& [mask, name] : kEvents) {
        EXPECT_EQ(std::string(name) + ": File \"some.file\" on WD #3\n",
                  Handle(Event(mask, "some.file", 9, 16)));
        EXPECT_EQ(std::string(name) + ": Dir \"\" on WD #3\n", Handle(Event(mask | IN_ISDIR)));
    }
    EXPECT_EQ("MOVED_FROM: File \"a\" on WD #3. Cookie=77\n",
              Handle(Event(IN_MOVED_FROM, "a", 77)));
    EXPECT_EQ("MOVED_TO: Dir \"a\" on WD #3. Cookie=-1\n",
              Handle(Event(IN_MOVED_TO | IN_ISDIR, "a", 0xffffffff)));
    EXPECT_EQ(1u, watcher_.watched);
}

TEST_F(Events, OverflowUnknownAndFlags) {
    EXPECT_EQ("Warning: AN OVERFLOW EVENT OCCURRED: ", Handle(Event(IN_Q_OVERFLOW)));
    EXPECT_EQ("UNKNOWN EVENT \"3\" OCCURRED for file \"x\" on WD #3\n", Handle(Event(3, "x")));
    EXPECT_EQ("UNKNOWN EVENT \"1000\" OCCURRED for file \"\" on WD #3\nFlags=1000\n",
              Handle(Event(0x1000)));
    EXPECT_EQ("OPEN: File \"\" on WD #3\nFlags=80000020\n", Handle(Event(0x80000020)));
    EXPECT_EQ("UNKNOWN EVENT \"40000000\" OCCURRED for file \"\" on WD #3\n",
              Handle(Event(IN_ISDIR)));
}

TEST_F(Events, IgnoredLowersTheCount) {
    EXPECT_EQ("IGNORED: WD #3\nWatching = 0 items\n", Handle(Event(IN_IGNORED)));
    EXPECT_EQ(0u, watcher_.watched);
}

TEST_F(Events, NameWithoutEndIsNotReadPast) {
    EXPECT_EQ("OPEN: File \"0123456789abcdef\" on WD #3\n",
              Handle(Event(IN_OPEN, "0123456789abcdef")));
}

TEST_F(Events, SeveralAtOnceInOrder) {
    Capture log;
    std::vector<u8> all;
    for (const char* name : {"one", "two", "three"}) {
        const std::vector<u8> event = Event(IN_OPEN, name, 0, 16);
        all.insert(all.end(), event.begin(), event.end());
    }
    Send(all);
    EXPECT_EQ(3, read_events(watcher_));
    handle_events(watcher_);
    EXPECT_EQ(
        "\n3 events queued\nOPEN: File \"one\" on WD #3\nOPEN: File \"two\" on WD #3\n"
        "OPEN: File \"three\" on WD #3\n",
        log.StdoutText());
}

TEST_F(Events, BrokenOnesAreDropped) {
    Capture log;
    std::vector<u8> cut = Event(IN_OPEN, "name", 0, 16);
    cut.pop_back();
    Send(cut);
    EXPECT_EQ(0, read_events(watcher_));
    std::vector<u8> lies = Event(IN_OPEN);
    const u32 length = 0xffffffff;
    memcpy(lies.data() + offsetof(inotify_event, len), &length, sizeof(length));
    Send(lies);
    EXPECT_EQ(0, read_events(watcher_));
    Send({1, 2, 3});
    EXPECT_EQ(0, read_events(watcher_));
    EXPECT_EQ(1, queue_empty(watcher_.queue));
}

TEST_F(Events, FailedReadEndsTheLoop) {
    watcher_.fd.Reset(open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(-1, read_events(watcher_));
    process_inotify_events(watcher_);  // select(2) calls a directory readable
    watcher_.fd.Reset();
    process_inotify_events(watcher_);
    EXPECT_EQ(1u, watcher_.watched);
}

TEST(Leases, TooShortForAFile) {
    TNetDhcpsNotify notify = {};
    const u8 content[8] = {};
    EXPECT_FALSE(ParseLeases(VIMBRA_HERE, std::span(content, 7), notify));
    EXPECT_FALSE(ParseLeases(VIMBRA_HERE, {}, notify));
    EXPECT_TRUE(ParseLeases(VIMBRA_HERE, content, notify));
    EXPECT_EQ(0u, notify.dhcps_index);
}

TEST(Leases, NeverMoreThanThereIsRoomFor) {
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    TNetDhcpsNotify notify = {};
    const std::vector<u8> content(8 + 36 * 200, 0xab);
    EXPECT_TRUE(ParseLeases(VIMBRA_HERE, content, notify));
    EXPECT_EQ(128u, notify.dhcps_index);
    EXPECT_EQ(0xabababab, notify.dhcps_mac_ip[127].dhcps_ip);
}

}  // namespace
}  // namespace vimbra::tests
