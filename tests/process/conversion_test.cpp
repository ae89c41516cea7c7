// Splitting command lines, finding values, MAC texts and masks.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vimbra/process.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

// A text in exactly its own memory, so that a sanitizer sees every byte too much.
struct Text {
    explicit Text(const std::string& text) : size(text.size() + 1), bytes(new char[size]) {
        memcpy(bytes.get(), text.c_str(), size);
    }
    char* Get() { return bytes.get(); }
    s32 Size() const { return static_cast<s32>(size); }

    size_t size;
    std::unique_ptr<char[]> bytes;
};

// ---- VimbraBufToArgv ---------------------------------------------------------------------------

struct Split {
    s32 result;
    std::vector<std::string> words;
};

// Splits with exactly max + 1 slots.
Split SplitText(Text& text, s32 max, char separator = ' ', s32 length = 0) {
    const std::unique_ptr<char*[]> argv(new char*[static_cast<size_t>(max) + 1]);
    argv[0] = nullptr;
    Split split;
    split.result =
        VimbraBufToArgv(text.Get(), argv.get(), max, length != 0 ? length : text.Size(), separator);
    for (char** word = argv.get(); *word != nullptr; word++) {
        split.words.emplace_back(*word);
    }
    return split;
}

using Words = std::vector<std::string>;

TEST(BufToArgv, ARunOfSeparatorsCountsAsOne) {
    Capture log;
    Text text("ip  link show");
    const Split split = SplitText(text, 64);
    EXPECT_EQ(0, split.result);
    EXPECT_EQ((Words{"ip", "link", "show"}), split.words);
    EXPECT_TRUE(log.IsSilent());
    EXPECT_EQ(std::string("ip\0\0link\0show", 13), std::string(text.Get(), 13));
}

TEST(BufToArgv, SeparatorsAtTheEnds) {
    Text leading(" ip");
    EXPECT_EQ((Words{"", "ip"}), SplitText(leading, 64).words);
    Text several("   ip");
    EXPECT_EQ((Words{"", "ip"}), SplitText(several, 64).words);
    Text trailing("ip link  ");
    const Split split = SplitText(trailing, 64);
    EXPECT_EQ(0, split.result);
    EXPECT_EQ((Words{"ip", "link"}), split.words);
    Text blank(" ");
    EXPECT_EQ((Words{""}), SplitText(blank, 64).words);
}

TEST(BufToArgv, AnEmptyTextHasNoWords) {
    Text text("");
    const Split split = SplitText(text, 64);
    EXPECT_EQ(0, split.result);
    EXPECT_TRUE(split.words.empty());
}

TEST(BufToArgv, OtherSeparators) {
    Text text("a,b c,,d");
    EXPECT_EQ((Words{"a", "b c", "d"}), SplitText(text, 8, ',').words);
    Text whole("a b");
    EXPECT_EQ((Words{"a b"}), SplitText(whole, 8, '\0').words);
}

TEST(BufToArgv, LengthOfTheText) {
    Capture log;
    Text text("0123456789");
    EXPECT_EQ(0, SplitText(text, 4, ' ', 11).result);
    EXPECT_TRUE(log.IsSilent());
    for (s32 length : {10, 3, -1, INT_MIN}) {
        EXPECT_EQ(-1, SplitText(text, 4, ' ', length).result);
        EXPECT_TRUE(log.Has(Kind::kError, "VimbraBufToArgv",
                            "cmd length=10,the max length is " + std::to_string(length)));
        log.Clear();
    }
    Text empty("");
    EXPECT_EQ(0, SplitText(empty, 4, ' ', 1).result);
    char* slot[2] = {};
    EXPECT_EQ(-1, VimbraBufToArgv(empty.Get(), slot, 1, 0, ' '));
}

// As far up as the system lets a program, where on 32 bits the text's address and the length make
// more than an address can say.
TEST(BufToArgv, LengthNearTheEndOfTheAddressSpace) {
    const long page = sysconf(_SC_PAGESIZE);
    const auto mapAt = [page](uintptr_t hint, int flags) {
        return mmap(reinterpret_cast<void*>(hint), static_cast<size_t>(page),
                    PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | flags, -1, 0);
    };
    void* map = sizeof(void*) > 4 ? mapAt(0, 0) : MAP_FAILED;
    for (uintptr_t hint = 0xf0000000; map == MAP_FAILED && hint > 0x80000000; hint -= 0x01000000) {
        map = mapAt(hint, MAP_FIXED_NOREPLACE);
    }
    ASSERT_NE(MAP_FAILED, map);
    for (const s32 length : {INT_MAX, INT_MAX - 1, 0x70000000, 8}) {
        auto* text = static_cast<char*>(map);
        strcpy(text, "ip  -4 ");
        char* argv[5] = {};
        EXPECT_EQ(0, VimbraBufToArgv(text, argv, 4, length, ' ')) << length;
        ASSERT_NE(nullptr, argv[0]);
        EXPECT_STREQ("ip", argv[0]);
        EXPECT_STREQ("-4", argv[1]);
        EXPECT_EQ(nullptr, argv[2]);
    }
    munmap(map, static_cast<size_t>(page));
}

TEST(BufToArgv, NumberOfWords) {
    Capture log;
    Text two("a b");
    const Split full = SplitText(two, 2);
    EXPECT_EQ(-1, full.result);
    EXPECT_EQ((Words{"a", "b"}), full.words);
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraBufToArgv", "argc=2,the max parame is 2"));
    Text three("a b c");
    EXPECT_EQ((Words{"a", "b"}), SplitText(three, 2).words);
    Text fits("a b c");
    EXPECT_EQ(0, SplitText(fits, 4).result);
    Text none("a");
    const Split nothing = SplitText(none, 0);
    EXPECT_EQ(-1, nothing.result);
    EXPECT_TRUE(nothing.words.empty());
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraBufToArgv", "argc=0,the max parame is 0"));
}

TEST(BufToArgv, NullArguments) {
    char* argv[3] = {};
    Text text("a");
    EXPECT_EQ(-1, VimbraBufToArgv(nullptr, argv, 2, 5, ' '));
    EXPECT_EQ(-1, VimbraBufToArgv(text.Get(), nullptr, 2, 5, ' '));
    EXPECT_EQ(-1, VimbraBufToArgv(text.Get(), argv, -1, 5, ' '));
    EXPECT_EQ(nullptr, argv[0]);
}

// ---- VimbraFindStrMatchHead --------------------------------------------------------------------

// The value in a buffer of size + 1 bytes, or "-".
std::string Find(const char* in, const char* head, char separator, s32 size) {
    Text text(in);
    Text key(head != nullptr ? head : "");
    const std::unique_ptr<char[]> value(new char[static_cast<size_t>(size) + 1]);
    const s32 result = VimbraFindStrMatchHead(text.Get(), head != nullptr ? key.Get() : nullptr,
                                              separator, value.get(), size);
    EXPECT_EQ(in, std::string(text.Get()));
    return result == 0 ? value.get() : "-";
}

TEST(FindStrMatchHead, TheValueRunsToTheNextSeparator) {
    EXPECT_EQ("10.0.0.1", Find("dev=eth0 ip 10.0.0.1 up", "ip", ' ', 20));
    EXPECT_EQ("10.0.0.1 up", Find("ip=10.0.0.1 up", "ip", '=', 20));
    EXPECT_EQ("x", Find("ipx", "ip", '=', 20));
    EXPECT_EQ("", Find("ip==1", "ip", '=', 20));  // One separator is skipped.
    EXPECT_EQ("", Find("ip=", "ip", '=', 20));
    EXPECT_EQ("", Find("ip", "ip", '=', 20));
    EXPECT_EQ("a=b", Find("ipa=b", "ip", '\0', 20));
}

TEST(FindStrMatchHead, WithoutHeadItBeginsAtTheStart) {
    EXPECT_EQ("one", Find("one,two", nullptr, ',', 20));
    EXPECT_EQ("one", Find(",one,two", nullptr, ',', 20));
    EXPECT_EQ("one", Find("one,two", "", ',', 20));
    EXPECT_EQ("", Find("", nullptr, ',', 0));
}

TEST(FindStrMatchHead, AHeadThatIsNotThereIsSilent) {
    Capture log;
    EXPECT_EQ("-", Find("ip=1", "mac", '=', 20));
    EXPECT_TRUE(log.IsSilent());
}

TEST(FindStrMatchHead, TheValueMayFillItsSize) {
    Capture log;
    EXPECT_EQ("12345", Find("ip=12345", "ip", '=', 5));
    EXPECT_EQ("-", Find("ip=12345", "ip", '=', 4));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraFindStrMatchHead", "the buf is too long:4,5"));
    char text[] = "ip=";
    char value[1] = {'x'};
    EXPECT_EQ(-1, VimbraFindStrMatchHead(text, nullptr, '=', value, -1));
    EXPECT_EQ('x', value[0]);
}

TEST(FindStrMatchHead, ATerminatorSeparatesNothing) {
    char text[] = "key\0beyond";
    char head[] = "key";
    char value[8] = "#######";
    EXPECT_EQ(0, VimbraFindStrMatchHead(text, head, '\0', value, 7));
    EXPECT_STREQ("", value);
    EXPECT_EQ('#', value[1]);
}

TEST(FindStrMatchHead, NullArguments) {
    Capture log;
    char text[] = "ip=1";
    char value[8];
    EXPECT_EQ(-1, VimbraFindStrMatchHead(nullptr, text, '=', value, 7));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraFindStrMatchHead", "buf is null"));
    EXPECT_EQ(-1, VimbraFindStrMatchHead(text, nullptr, '=', nullptr, 7));
}

// ---- StrToU8WitchoutSepchar --------------------------------------------------------------------

struct Read {
    s32 result;
    Bytes bytes;
};

// Reads into exactly `size` bytes of 0xee.
Read ReadFields(const std::string& in, size_t size, char separator = ':') {
    Text text(in);
    const std::unique_ptr<char[]> dst(new char[size]);
    memset(dst.get(), 0xee, size);
    Read read;
    read.result = StrToU8WitchoutSepchar(text.Get(), separator, dst.get(), static_cast<s32>(size));
    read.bytes.assign(dst.get(), dst.get() + size);
    return read;
}

constexpr char kStrToU8[] = "StrToU8WitchoutSepchar";

TEST(StrToU8, AMacAddress) {
    Capture log;
    const Read read = ReadFields("00:11:22:33:44:55", 6);
    EXPECT_EQ(0, read.result);
    EXPECT_EQ((Bytes{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}), read.bytes);
    EXPECT_EQ((Bytes{0xab, 0xCD, 0xef, 0x1, 0x0, 0xff}), ReadFields("aB:CD:eF:1:0:fF", 6).bytes);
    EXPECT_TRUE(log.IsSilent());
}

TEST(StrToU8, NoRoomForTheLastField) {
    Capture log;
    const Read read = ReadFields("00:11:22:33:44:55", 5);
    EXPECT_EQ(-1, read.result);
    EXPECT_EQ((Bytes{0x00, 0x11, 0x22, 0x33, 0x44}), read.bytes);
    EXPECT_TRUE(log.Has(Kind::kError, kStrToU8, "dst is too small: size_dst=5,dst_count =5"));
    log.Clear();
    EXPECT_EQ(-1, ReadFields("00:11:22", 1).result);
    EXPECT_TRUE(log.Has(Kind::kError, kStrToU8, "dst is too small: size_dst=1,dst_count =1"));
    EXPECT_EQ(-1, ReadFields("1", 0).result);
}

TEST(StrToU8, FewerFieldsAreAccepted) {
    const Read read = ReadFields("0a-0b", 6, '-');
    EXPECT_EQ(0, read.result);
    EXPECT_EQ((Bytes{0x0a, 0x0b, 0xee, 0xee, 0xee, 0xee}), read.bytes);
    EXPECT_EQ((Bytes{0x7f, 0xee}), ReadFields("7f", 2).bytes);
    EXPECT_EQ((Bytes{0x7f, 0xee}), ReadFields("7f", 2, '\0').bytes);
}

TEST(StrToU8, EmptyFieldsAreZero) {
    EXPECT_EQ((Bytes{0, 0x11, 0}), ReadFields(":11:", 3).bytes);
    EXPECT_EQ((Bytes{0, 0xee}), ReadFields("", 2).bytes);
}

TEST(StrToU8, FieldsAreHexadecimal) {
    Capture log;
    EXPECT_EQ(-1, ReadFields("00:1g:22", 6).result);
    EXPECT_TRUE(log.Has(Kind::kError, kStrToU8, "is not an hex char: 1g:1:2"));
    EXPECT_EQ(-1, ReadFields("0x1:22", 6).result);
    EXPECT_EQ(-1, ReadFields(" 1:22", 6).result);
    EXPECT_EQ(-1, ReadFields("-1:22", 6).result);
    EXPECT_EQ(-1, ReadFields("\xe9:22", 6).result);
}

TEST(StrToU8, FieldsAreBytes) {
    Capture log;
    EXPECT_EQ(-1, ReadFields("00:100:22", 6).result);
    EXPECT_TRUE(log.Has(Kind::kError, kStrToU8, "is  not an hex char: 256"));
    EXPECT_EQ(-1, ReadFields("100000000:22", 6).result);
    EXPECT_EQ(-1, ReadFields("10000000000000000000000:22", 6).result);
    EXPECT_EQ(-1, ReadFields("100000001", 6).result);
    EXPECT_EQ(0, ReadFields("000000000000000000000000ff:22", 6).result);
}

TEST(StrToU8, DigitsThenValueThenRoom) {
    Capture log;
    EXPECT_EQ(-1, ReadFields("00:1000g:22", 1).result);
    EXPECT_TRUE(log.Has(Kind::kError, kStrToU8, "is not an hex char: 1000g:4:5"));
    log.Clear();
    EXPECT_EQ(-1, ReadFields("00:1000:22", 1).result);
    EXPECT_TRUE(log.Has(Kind::kError, kStrToU8, "is  not an hex char: 4096"));
    log.Clear();
    EXPECT_EQ(-1, ReadFields("00:100:22g", 6).result);  // The first bad field counts.
    EXPECT_EQ(1, log.Count(Kind::kError));
}

TEST(StrToU8, TheLastFieldIsLookedAtFromWhereTheOneBeforeEnded) {
    Capture log;
    // Its first two characters are not: strtoul takes nothing of them.
    EXPECT_EQ((Bytes{0x11, 0x00}), ReadFields("11:zz", 2).bytes);
    EXPECT_EQ((Bytes{0x11, 0x05}), ReadFields("11: 5", 2).bytes);
    EXPECT_EQ((Bytes{0x11, 0x05}), ReadFields("11:0x5", 2).bytes);
    EXPECT_EQ((Bytes{0x11, 0x02}), ReadFields("11:2z", 2).bytes);
    EXPECT_TRUE(log.IsSilent());
    EXPECT_EQ(-1, ReadFields("11:22z", 2).result);
    EXPECT_TRUE(log.Has(Kind::kError, kStrToU8, "is not an hex char: [22z]:2:3"));
    EXPECT_EQ(-1, ReadFields("zz", 2).result);
    EXPECT_TRUE(log.Has(Kind::kError, kStrToU8, "is not an hex char: [zz]:0:2"));
    EXPECT_EQ(-1, ReadFields("11:-1", 2).result);  // Beyond a byte.
    // A long field before a short last one: nothing behind the end is read.
    EXPECT_EQ((Bytes{0x11, 0x00}), ReadFields("000000000000000011:z", 2).bytes);
    EXPECT_EQ((Bytes{0x11, 0x00}), ReadFields("000000000000000011:", 2).bytes);
}

TEST(StrToU8, NullArguments) {
    Capture log;
    char dst[2];
    char text[] = "00";
    EXPECT_EQ(-1, StrToU8WitchoutSepchar(nullptr, ':', dst, 2));
    EXPECT_TRUE(log.Has(Kind::kError, kStrToU8, "the source address is unvalid!"));
    EXPECT_EQ(-1, StrToU8WitchoutSepchar(text, ':', nullptr, 2));
    EXPECT_EQ(-1, StrToU8WitchoutSepchar(text, ':', dst, -1));
}

// ---- MaskConvertIpv4 ---------------------------------------------------------------------------

u32 ToPrefix(const char* dotted) {
    u32 mask = inet_addr(dotted);
    u32 prefix = 99;
    EXPECT_EQ(0, MaskConvertIpv4(&mask, &prefix, 0));
    EXPECT_EQ(inet_addr(dotted), mask);
    return prefix;
}

std::string ToMask(u32 prefix) {
    u32 mask = 0;
    EXPECT_EQ(0, MaskConvertIpv4(&mask, &prefix, 1));
    in_addr address = {mask};
    return inet_ntoa(address);
}

TEST(MaskConvert, FromMask) {
    EXPECT_EQ(16u, ToPrefix("255.255.0.0"));
    EXPECT_EQ(0u, ToPrefix("0.0.0.0"));
    EXPECT_EQ(1u, ToPrefix("128.0.0.0"));
    EXPECT_EQ(31u, ToPrefix("255.255.255.254"));
    EXPECT_EQ(32u, ToPrefix("255.255.255.255"));
    EXPECT_EQ(8u, ToPrefix("255.0.255.0"));  // Down to the first zero bit.
    EXPECT_EQ(0u, ToPrefix("127.255.255.255"));
}

TEST(MaskConvert, ToMask) {
    EXPECT_EQ("255.255.255.0", ToMask(24));
    EXPECT_EQ("0.0.0.0", ToMask(0));
    EXPECT_EQ("128.0.0.0", ToMask(1));
    EXPECT_EQ("255.255.255.254", ToMask(31));
    EXPECT_EQ("255.255.255.255", ToMask(32));
}

TEST(MaskConvert, PrefixesBeyondTheAddress) {
    Capture log;
    for (u32 prefix : {33u, 0xffffffffu}) {
        u32 mask = 4711;
        u32 count = prefix;
        EXPECT_EQ(-1, MaskConvertIpv4(&mask, &count, 1));
        EXPECT_EQ(4711u, mask);
        EXPECT_TRUE(log.Has(Kind::kError, "MaskConvertIpv4",
                            "the network mask(" + std::to_string(static_cast<int>(prefix)) +
                                ") must be less than 32"));
    }
}

TEST(MaskConvert, AFullMaskIs32WhateverTheFlag) {
    Capture log;
    for (u32 flag : {0u, 1u, 2u, 7u}) {
        u32 mask = 0xffffffff;
        u32 count = 40;
        EXPECT_EQ(0, MaskConvertIpv4(&mask, &count, flag));
        EXPECT_EQ(32u, count);
        EXPECT_EQ(0xffffffffu, mask);
    }
    EXPECT_TRUE(log.IsSilent());
}

TEST(MaskConvert, OtherFlags) {
    Capture log;
    u32 mask = inet_addr("255.0.0.0");
    u32 count = 40;
    EXPECT_EQ(-1, MaskConvertIpv4(&mask, &count, 2));
    EXPECT_TRUE(log.Has(Kind::kError, "MaskConvertIpv4", "don't support the flag(2)"));
    EXPECT_EQ(40u, count);
    EXPECT_EQ(-1, MaskConvertIpv4(nullptr, &count, 0));
    EXPECT_EQ(-1, MaskConvertIpv4(&mask, nullptr, 0));
}

}  // namespace
}  // namespace vimbra::tests
