// The editor of line files.
#include "lib/line_file.hpp"

#include <gtest/gtest.h>

#include <vector>
#include <vimbra/bed.hpp>

#include "files.hpp"

using namespace std::string_literals;
using namespace vimbra;
using vimbra::bed::ReadFile;
using vimbra::bed::WriteFile;

namespace {

constexpr char kFile[] = "/tmp/file";

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

TEST(LineFile, RewriteReplacesTheWholeContent) {
    WriteFile(kFile, "a much longer content than the new one\n");
    LineList lines;
    ASSERT_TRUE(lines.Add(NewLine({"a", "b", "\n"})));
    ASSERT_TRUE(lines.Add(NewLine({"c"})));
    EXPECT_TRUE(RewriteLines(OpenLines(kFile, Open::kRewrite), lines.First()));
    EXPECT_EQ("ab\nc", ReadFile(kFile));
    EXPECT_TRUE(RewriteLines(OpenLines(kFile, Open::kRewrite), nullptr));
    EXPECT_EQ("", ReadFile(kFile));
    EXPECT_FALSE(lines.Add(nullptr));
}

TEST(LineFile, RewriteThatWouldNotBeReadAgainIsRefused) {
    WriteFile(kFile, "old");
    LineList lines;
    const std::string half(kLineFileMax / 2, 'x');
    ASSERT_TRUE(lines.Add(NewLine({half, half, "y"})));
    EXPECT_FALSE(RewriteLines(OpenLines(kFile, Open::kRewrite), lines.First()));
    EXPECT_EQ(EFBIG, errno);
    EXPECT_EQ("old", ReadFile(kFile));
}

TEST(LineFile, RewriteOfWhatIsNoFile) {
    EXPECT_FALSE(RewriteLines(OpenLines("/dev/full", Open::kRewrite), nullptr));
    EXPECT_FALSE(AppendLine(OpenLines("/dev/null", Open::kAppend), {"x\n"}));
    EXPECT_FALSE(RewriteLines(Fd(), nullptr));
    EXPECT_FALSE(AppendLine(Fd(), {"x\n"}));
    WriteFile(kFile, "a\n");
    EXPECT_FALSE(AppendLine(OpenLines(kFile, Open::kRead), {"x\n"}));
    EXPECT_EQ("a\n", ReadFile(kFile));
}

TEST(LineFile, AppendMendsAMissingNewline) {
    const struct {
        const char* before;
        const char* after;
    } kFiles[] = {{"", "x\n"}, {"a\n", "a\nx\n"}, {"a", "a\nx\n"}, {"\n", "\nx\n"}};
    for (const auto& [before, after] : kFiles) {
        WriteFile(kFile, before);
        EXPECT_TRUE(AppendLine(OpenLines(kFile, Open::kAppend), {"x", "\n"}));
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
    EXPECT_TRUE(OpenLines(kPlaces, Open::kRewrite));
    EXPECT_EQ(0, access("/tmp/b", F_OK));
}

}  // namespace
