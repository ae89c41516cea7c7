// Files that are edited line by line: read whole, changed as a list of lines, written back in
// place. Name, mode, owner and inode stay, a symbolic link stays one, and what a line means is the
// service's affair.
#ifndef VIMBRA_LIB_FILES_LINE_FILE_HPP
#define VIMBRA_LIB_FILES_LINE_FILE_HPP

#include <vimbra/types.h>

#include <initializer_list>
#include <span>
#include <string_view>

#include "lib/base/fd.hpp"
#include "lib/base/memory.hpp"

namespace vimbra {

// A larger file is refused: it is none of those that a device keeps.
inline constexpr size_t kLineFileMax = 256 * 1024;

enum class Open {
    kRead,    // as "r"
    kUpdate,  // as "r+"
};

// The first of the paths that can be opened, to be read. errno is ENOENT only if none of them is
// there, else what keeps the first that is from being opened.
Fd OpenLines(std::span<const char* const> paths, Open how);
Fd OpenLines(const char* path, Open how);

// The content of a file, line by line. A line may hold any byte, zero included.
class LineReader {
 public:
    static constexpr size_t kWhole = kLineFileMax;

    // False, with errno, for what cannot be read, for a directory or a device, and for a file of
    // more than kLineFileMax bytes.
    bool Load(const Fd& fd);

    // For a content that is in memory.
    void Set(std::string_view content) { rest_ = content; }

    // The next line with its newline, which the last one may lack. A line longer than most bytes
    // comes in pieces. False at the end.
    bool Next(std::string_view& line, size_t most = kWhole);

 private:
    Buffer content_;
    std::string_view rest_;
};

// One line of a list; the text follows in the same block and ends with a zero byte of its own.
struct LineNode {
    LineNode* next;
    u32 flag;  // the service's
    u32 length;

    std::string_view Text() const { return {reinterpret_cast<const char*>(this + 1), length}; }
};

// A line made of the parts. Null when memory is out.
LineNode* NewLine(std::initializer_list<std::string_view> parts, u32 flag = 0);
void FreeLines(LineNode* first);

// Lines in the order in which they were added.
class LineList {
 public:
    // Takes the line; false for none.
    bool Add(LineNode* line) {
        *end_ = line;
        if (line == nullptr) {
            return false;
        }
        end_ = &line->next;
        return true;
    }

    const LineNode* First() const { return lines_.Get(); }

 private:
    OwnedList<LineNode, FreeLines> lines_;
    LineNode** end_ = &lines_.First();
};

// What stands behind a content that is shorter than the one before it, until the file is cut: lines
// that every reader of the file passes over.
enum class Filler : char {
    kEmptyLines = '\n',
    kComment = '#',  // where an empty line is an error
};

// A file that is going to be changed. Whoever reads it finds the old content or the new one, also
// when this process is killed between two calls. A file that is not there is made without a name,
// which it gets with its content, so that an empty one never hides another that is looked for
// later.
class LineFile {
 public:
    enum class How {
        kRewrite,  // as "w+", but the old content stays until the new one is written
        kAppend,   // as "a+"
        kAppendExisting,
    };

    // The first of the paths that can be opened or made; errno is as for OpenLines().
    LineFile(std::span<const char* const> paths, How how);
    LineFile(const char* path, How how) : LineFile(std::span(&path, 1), how) {}
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;
    ~LineFile();

    explicit operator bool() const { return static_cast<bool>(fd_); }

    // Replaces the content by the lines. False with errno, the file as it was. One change to an
    // object.
    bool Rewrite(const LineNode* first, Filler filler);

    // Appends a line, after a newline where the file lacks its last one. False with errno, the file
    // as it was.
    bool Append(std::initializer_list<std::string_view> parts);

 private:
    bool Make(const char* path, int flags);
    bool Publish();

    Fd fd_;
    const char* path_ = nullptr;  // of a file that is made here, until it has its content
    bool isNameless_ = false;
};

// The text's first count characters, or all of it. (substr() would need the C++ library.)
inline std::string_view Front(std::string_view text, size_t count) {
    return {text.data(), count < text.size() ? count : text.size()};
}

// Cuts the next piece off the text, as strtok(3) does: separators before it are skipped, the one
// after it goes. Empty when there is none.
std::string_view NextToken(std::string_view& text, std::string_view separators);

// A byte that ends a line, or that no field of one should hold.
inline bool IsControl(char character) {
    return static_cast<unsigned char>(character) < ' ' || character == 0x7f;
}
bool HasControl(std::string_view text);

}  // namespace vimbra

#endif
