// The editor of line files. Linked with -Wl,--wrap=pread.
#include "lib/files/line_file.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <vector>
#include <vimbra/bed.hpp>

#include "files.hpp"

namespace vimbra::tests {

using namespace std::string_literals;
using bed::ReadFile;
using bed::WriteFile;

namespace {

constexpr char kFile[] = "/tmp/file";

// How long the file is from its next read on.
std::optional<off_t> g_shrinksTo;

}  // namespace

extern "C" {
ssize_t __real_pread(int fd, void* data, size_t size, off_t offset);
ssize_t __wrap_pread(int fd, void* data, size_t size, off_t offset) {
    if (g_shrinksTo) {
        EXPECT_EQ(0, truncate(kFile, *g_shrinksTo));
        g_shrinksTo.reset();
    }
    return __real_pread(fd, data, size, offset);
}
}

namespace {

std::vector<std::string> Lines(std::string_view content, size_t most = LineReader::kWhole) {
    LineReader reader;
    reader.Set(content);
    std::vector<std::string> lines;
    std::string_view line;
    while (reader.Next(line, most)) {
        lines.emplace_back(line);
    }
    return lines;
}

std::vector<std::string> Tokens(std::string_view text, std::string_view separators) {
    std::vector<std::string> tokens;
    for (std::string_view token = NextToken(text, separators); !token.empty();
         token = NextToken(text, separators)) {
        tokens.emplace_back(token);
    }
    return tokens;
}

bool Loads(const char* path) {
    LineReader reader;
    const Fd fd = OpenLines(path, Open::kRead);
    return fd && reader.Load(fd);
}

using Texts = std::vector<std::string>;

TEST(LineFile, LinesWithTheirNewlines) {
    EXPECT_EQ(Texts{}, Lines(""));
    EXPECT_EQ((Texts{"\n"}), Lines("\n"));
    EXPECT_EQ((Texts{"a\n", "\n", "b"}), Lines("a\n\nb"));
    EXPECT_EQ((Texts{"a\0b\n"s, "\0"s}), Lines("a\0b\n\0"s));
}

TEST(LineFile, LongLinesInPieces) {
    EXPECT_EQ((Texts{"abc", "de\n", "f\n"}), Lines("abcde\nf\n", 3));
    EXPECT_EQ((Texts{"ab\n", "abc", "\n"}), Lines("ab\nabc\n", 3));
}

TEST(LineFile, TokensAreSeparatedByRuns) {
    EXPECT_EQ((Texts{"a", "b", "c"}), Tokens(" \ta \tb c\t", " \t"));
    EXPECT_EQ(Texts{}, Tokens("   ", " "));
    EXPECT_EQ(Texts{}, Tokens("", " "));
    std::string_view text = "a  b";
    EXPECT_EQ("a", NextToken(text, " "));
    EXPECT_EQ(" b", text) << "one separator goes with the piece";
}

TEST(LineFile, OnlyFilesOfASensibleSizeAreRead) {
    WriteFile(kFile, std::string(kLineFileMax, 'x'));
    EXPECT_TRUE(Loads(kFile));
    WriteFile(kFile, std::string(kLineFileMax + 1, 'x'));
    EXPECT_FALSE(Loads(kFile));
    EXPECT_EQ(EFBIG, errno);
    EXPECT_FALSE(Loads("/tmp"));
    EXPECT_EQ(EISDIR, errno);
    EXPECT_FALSE(Loads("/dev/zero"));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_FALSE(Loads("/tmp/missing"));
    EXPECT_EQ(ENOENT, errno);
}

TEST(LineFile, AFileThatShrinksMeanwhileIsReadToItsNewEnd) {
    WriteFile(kFile, "one\ntwo\n");
    for (const off_t length : {4, 0}) {
        g_shrinksTo = length;
        LineReader reader;
        ASSERT_TRUE(reader.Load(OpenLines(kFile, Open::kRead)));
        Texts lines;
        for (std::string_view line; reader.Next(line);) {
            lines.emplace_back(line);
        }
        EXPECT_EQ(length > 0 ? Texts{"one\n"} : Texts{}, lines);
    }
}

bool Rewrites(const char* path, const LineNode* first, Filler filler = Filler::kComment) {
    LineFile file(path, LineFile::How::kRewrite);
    return file.Rewrite(first, filler);
}

bool Appends(const char* path, std::initializer_list<std::string_view> parts,
             LineFile::How how = LineFile::How::kAppend) {
    LineFile file(path, how);
    return file.Append(parts);
}

TEST(LineFile, RewriteReplacesTheWholeContent) {
    WriteFile(kFile, "a much longer content than the new one\n");
    LineList lines;
    ASSERT_TRUE(lines.Add(NewLine({"a", "b", "\n"})));
    ASSERT_TRUE(lines.Add(NewLine({"c"})));
    EXPECT_TRUE(Rewrites(kFile, lines.First()));
    EXPECT_EQ("ab\nc", ReadFile(kFile));
    EXPECT_TRUE(Rewrites(kFile, nullptr));
    EXPECT_EQ("", ReadFile(kFile));
    EXPECT_TRUE(Rewrites(kFile, lines.First(), Filler::kEmptyLines));
    EXPECT_EQ("ab\nc", ReadFile(kFile));
    EXPECT_FALSE(lines.Add(nullptr));
}

TEST(LineFile, RewriteThatWouldNotBeReadAgainIsRefused) {
    WriteFile(kFile, "old");
    LineList lines;
    const std::string half(kLineFileMax / 2, 'x');
    ASSERT_TRUE(lines.Add(NewLine({half, half, "y"})));
    EXPECT_FALSE(Rewrites(kFile, lines.First()));
    EXPECT_EQ(EFBIG, errno);
    EXPECT_EQ("old", ReadFile(kFile));
    EXPECT_FALSE(Rewrites("/tmp/other", lines.First()));
    EXPECT_NE(0, access("/tmp/other", F_OK));
}

TEST(LineFile, RewriteOfWhatIsNoFile) {
    EXPECT_FALSE(Rewrites("/dev/full", nullptr));
    EXPECT_FALSE(Appends("/dev/null", {"x\n"}));
    EXPECT_FALSE(Rewrites("/tmp", nullptr));
    EXPECT_FALSE(Appends("/tmp/none/file", {"x\n"}));
    EXPECT_FALSE(Appends("/tmp/none", {"x\n"}, LineFile::How::kAppendExisting));
    EXPECT_NE(0, access("/tmp/none", F_OK));
}

TEST(LineFile, WhatIsMadeHasTheUsualMode) {
    umask(027);
    EXPECT_TRUE(Appends(kFile, {"x\n"}));
    EXPECT_EQ("x\n", ReadFile(kFile));
    EXPECT_EQ(static_cast<mode_t>(S_IFREG | 0640), std::get<1>(Identity(kFile)));
}

TEST(LineFile, AFileIsMadeWhereALinkLeads) {
    ASSERT_EQ(0, symlink("/tmp/target", kFile));
    EXPECT_TRUE(Appends(kFile, {"x\n"}));
    EXPECT_EQ("x\n", ReadFile("/tmp/target"));
    struct stat status {};
    ASSERT_EQ(0, lstat(kFile, &status));
    EXPECT_TRUE(S_ISLNK(status.st_mode));
}

TEST(LineFile, WhatGetsNoContentIsNotThere) {
    { const LineFile file(kFile, LineFile::How::kRewrite); }
    EXPECT_NE(0, access(kFile, F_OK));
}

TEST(LineFile, AppendMendsAMissingNewline) {
    const struct {
        const char* before;
        const char* after;
    } kFiles[] = {{"", "x\n"}, {"a\n", "a\nx\n"}, {"a", "a\nx\n"}, {"\n", "\nx\n"}};
    for (const auto& [before, after] : kFiles) {
        WriteFile(kFile, before);
        EXPECT_TRUE(Appends(kFile, {"x", "\n"}));
        EXPECT_EQ(after, ReadFile(kFile));
    }
}

TEST(LineFile, FirstPlaceThatOpens) {
    constexpr const char* kPlaces[] = {"/tmp/none/a", "/tmp/b", "/tmp/c"};
    EXPECT_FALSE(OpenLines(kPlaces, Open::kRead));
    EXPECT_EQ(ENOENT, errno);
    WriteFile("/tmp/c", "c");
    LineReader reader;
    std::string_view line;
    ASSERT_TRUE(reader.Load(OpenLines(kPlaces, Open::kRead)));
    ASSERT_TRUE(reader.Next(line));
    EXPECT_EQ("c", line);
    LineFile file(kPlaces, LineFile::How::kRewrite);
    EXPECT_TRUE(file.Rewrite(nullptr, Filler::kComment));
    EXPECT_EQ(0, access("/tmp/b", F_OK));
}

TEST(LineFile, AbsenceTellsOfNothingElse) {
    constexpr const char* kPlaces[] = {"/tmp/a", "/tmp/loop", "/tmp/b"};
    ASSERT_EQ(0, symlink("loop", "/tmp/loop"));
    EXPECT_FALSE(OpenLines(kPlaces, Open::kRead));
    EXPECT_EQ(ELOOP, errno);
}

}  // namespace
}  // namespace vimbra::tests
