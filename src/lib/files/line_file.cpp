#include "lib/files/line_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "lib/base/text.hpp"

namespace vimbra {

namespace {

constexpr mode_t kMode = 0666;  // less the process's mask

// A signal may interrupt a call before it has done anything; then it is made again.
template <typename Call>
auto Repeat(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) {
            return result;
        }
    }
}

int OpenPath(const char* path, int flags) {
    return Repeat([=] { return open(path, flags | O_CLOEXEC, kMode); });
}

// Opens the first path that can be opened. That a later one is not there must not hide what keeps
// an earlier one from being opened.
template <typename Opens>
bool OpenFirst(std::span<const char* const> paths, Opens opens) {
    int error = ENOENT;
    for (const char* path : paths) {
        if (opens(path)) {
            return true;
        }
        if (error == ENOENT) {
            error = errno;
        }
    }
    errno = error;
    return false;
}

bool SizeOf(const Fd& fd, size_t& size) {
    struct stat status;
    if (fstat(fd.Get(), &status) != 0) {
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return false;
    }
    if (status.st_size > static_cast<off_t>(kLineFileMax)) {
        errno = EFBIG;
        return false;
    }
    size = static_cast<size_t>(status.st_size);
    return true;
}

// A file that grows meanwhile is read to the length it had, one that shrinks to its new end.
bool ReadWhole(const Fd& fd, u8* to, size_t& size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t count = Repeat(
            [&] { return pread(fd.Get(), to + done, size - done, static_cast<off_t>(done)); });
        if (count < 0) {
            return false;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    size = done;
    return true;
}

// In one call, unless the system takes less.
template <typename Write>
bool WriteWhole(const u8* data, size_t size, Write write) {
    size_t done = 0;
    while (done < size) {
        const ssize_t count = Repeat([&] { return write(data + done, size - done, done); });
        if (count <= 0) {
            errno = count == 0 ? EIO : errno;
            return false;
        }
        done += static_cast<size_t>(count);
    }
    return true;
}

bool WriteFront(const Fd& fd, const u8* data, size_t size) {
    return WriteWhole(data, size, [&](const u8* from, size_t count, size_t done) {
        return pwrite(fd.Get(), from, count, static_cast<off_t>(done));
    });
}

// Of a file that was opened so.
bool WriteEnd(const Fd& fd, const u8* data, size_t size) {
    return WriteWhole(data, size, [&](const u8* from, size_t count, size_t) {
        return write(fd.Get(), from, count);
    });
}

bool Truncate(const Fd& fd, size_t size) {
    return Repeat([&] { return ftruncate(fd.Get(), static_cast<off_t>(size)); }) == 0;
}

// Also what another editor has put behind it meanwhile.
bool CutBehind(const Fd& fd, size_t size) {
    size_t now;
    return SizeOf(fd, now) && (now == size || Truncate(fd, size));
}

// Takes the room for a longer content before any of the old one is touched, and leaves the size:
// nobody reads zeros.
bool Reserve(const Fd& fd, size_t oldSize, size_t newSize) {
    if (newSize <= oldSize) {
        return true;
    }
    const auto room = static_cast<off_t>(newSize);
    if (Repeat([&] { return fallocate(fd.Get(), FALLOC_FL_KEEP_SIZE, 0, room); }) == 0 ||
        errno == EOPNOTSUPP || errno == EINVAL || errno == ENOSYS) {
        return true;  // Some file systems of flash memory cannot tell beforehand.
    }
    const int error = errno;
    Truncate(fd, oldSize);  // gives back what was taken of it
    errno = error;
    return false;
}

// A content and behind it filler, so that one write covers the whole of a longer file.
class Image {
 public:
    // Room for size bytes.
    explicit Image(size_t size) : bytes_(size + 1), size_(size) {}

    explicit operator bool() const { return static_cast<bool>(bytes_); }
    u8* Get() const { return bytes_.Get(); }
    size_t Size() const { return size_; }

    void Fill(size_t length, Filler filler) {
        memset(Get() + length, static_cast<char>(filler), size_ - length);
        if (length > 0 && length < size_ && Get()[length - 1] != '\n') {
            Get()[length] = '\n';  // The filler must not become part of the last line.
        }
    }

 private:
    Buffer bytes_;
    size_t size_;
};

// Puts the old content back, as far as the file system still lets it. Keeps errno.
void Restore(const Fd& fd, const Image& old, size_t oldSize) {
    const int error = errno;
    size_t now;
    // Covers what is there and asks for no more room than that.
    if (SizeOf(fd, now)) {
        WriteFront(fd, old.Get(), std::min(std::max(now, oldSize), old.Size()));
    }
    Truncate(fd, oldSize);
    errno = error;
}

size_t Length(std::initializer_list<std::string_view> parts) {
    size_t length = 0;
    for (const std::string_view part : parts) {
        length += part.size();
    }
    return length;
}

size_t Length(const LineNode* first) {
    size_t length = 0;
    for (const LineNode* node = first; node != nullptr; node = node->next) {
        length += node->length;
    }
    return length;
}

void Join(u8* to, std::initializer_list<std::string_view> parts) {
    for (const std::string_view part : parts) {
        if (!part.empty()) {
            memcpy(to, part.data(), part.size());
            to += part.size();
        }
    }
}

void Join(u8* to, const LineNode* first) {
    for (const LineNode* node = first; node != nullptr; node = node->next) {
        Join(to, {node->Text()});
        to += node->length;
    }
}

bool Replace(const Fd& fd, const LineNode* first, Filler filler) {
    size_t oldSize;
    const size_t size = Length(first);
    if (!SizeOf(fd, oldSize)) {
        return false;
    }
    if (size > kLineFileMax) {
        errno = EFBIG;
        return false;
    }
    Image old(std::max(size, oldSize));
    Image content(old.Size());
    if (!old || !content || !ReadWhole(fd, old.Get(), oldSize) || !Reserve(fd, oldSize, size)) {
        return false;
    }
    old.Fill(oldSize, filler);
    Join(content.Get(), first);
    content.Fill(size, filler);
    // With the write a content is there that is not shorter; a shorter one has filler behind it.
    if (WriteFront(fd, content.Get(), content.Size()) && CutBehind(fd, size)) {
        return true;
    }
    Restore(fd, old, oldSize);
    return false;
}

bool AddToEnd(const Fd& fd, std::initializer_list<std::string_view> parts) {
    size_t oldSize;
    if (!SizeOf(fd, oldSize)) {
        return false;
    }
    char last = '\n';
    const auto end = static_cast<off_t>(oldSize);
    if (oldSize > 0 && Repeat([&] { return pread(fd.Get(), &last, 1, end - 1); }) != 1) {
        return false;
    }
    const size_t newline = last == '\n' ? 0 : 1;
    const size_t size = newline + Length(parts);
    const Buffer line(size + 1);
    if (!line || !Reserve(fd, oldSize, oldSize + size)) {
        return false;
    }
    if (newline != 0) {
        line.Get()[0] = '\n';
    }
    Join(line.Get() + newline, parts);
    if (WriteEnd(fd, line.Get(), size)) {
        return true;
    }
    const int error = errno;
    Truncate(fd, oldSize);  // Half a line would mean something else.
    errno = error;
    return false;
}

}  // namespace

Fd OpenLines(std::span<const char* const> paths, Open how) {
    Fd fd;
    OpenFirst(paths, [&](const char* path) {
        // Not to wait for a pipe's other end: a pipe is refused later.
        fd.Reset(OpenPath(path, (how == Open::kUpdate ? O_RDWR : O_RDONLY) | O_NONBLOCK));
        return static_cast<bool>(fd);
    });
    return fd;
}

Fd OpenLines(const char* path, Open how) {
    return OpenLines(std::span(&path, 1), how);
}

bool LineReader::Load(const Fd& fd) {
    rest_ = {};
    size_t size;
    if (!SizeOf(fd, size) || !content_.Allocate(size + 1) || !ReadWhole(fd, content_.Get(), size)) {
        return false;
    }
    rest_ = {reinterpret_cast<const char*>(content_.Get()), size};
    return true;
}

bool LineReader::Next(std::string_view& line, size_t most) {
    if (rest_.empty()) {
        return false;
    }
    const size_t end = rest_.find('\n');
    const size_t length = end == std::string_view::npos ? rest_.size() : end + 1;
    line = Front(rest_, std::min(length, most));
    rest_.remove_prefix(line.size());
    return true;
}

LineNode* NewLine(std::initializer_list<std::string_view> parts, u32 flag) {
    const size_t length = Length(parts);
    auto* node = static_cast<LineNode*>(calloc(1, sizeof(LineNode) + length + 1));
    if (node != nullptr) {
        node->flag = flag;
        node->length = static_cast<u32>(length);
        Join(reinterpret_cast<u8*>(node + 1), parts);
    }
    return node;
}

void FreeLines(LineNode* first) {
    while (first != nullptr) {
        LineNode* next = first->next;
        free(first);
        first = next;
    }
}

LineFile::LineFile(std::span<const char* const> paths, How how) {
    const int flags = O_RDWR | O_NONBLOCK | (how == How::kRewrite ? 0 : O_APPEND);
    OpenFirst(paths, [&](const char* path) {
        fd_.Reset(OpenPath(path, flags));
        return fd_ || (errno == ENOENT && how != How::kAppendExisting && Make(path, flags));
    });
}

bool LineFile::Make(const char* path, int flags) {
    char directory[PATH_MAX];
    struct stat status;
    const size_t parent = std::string_view(path).rfind('/') + 1;
    // A link that leads nowhere stays one: the file is made where it leads.
    if (lstat(path, &status) != 0) {
        CopyText(directory, std::min(parent, sizeof(directory)), path);
        fd_.Reset(OpenPath(directory, (flags & ~O_NONBLOCK) | O_TMPFILE));
        isNameless_ = static_cast<bool>(fd_);
    }
    if (!fd_) {
        fd_.Reset(OpenPath(path, flags | O_CREAT | O_EXCL));
    }
    path_ = fd_ ? path : nullptr;
    if (!fd_) {
        fd_.Reset(OpenPath(path, flags | O_CREAT));
    }
    return static_cast<bool>(fd_);
}

LineFile::~LineFile() {
    if (path_ != nullptr && !isNameless_) {
        const int error = errno;
        unlink(path_);  // It was made here and has no content.
        errno = error;
    }
}

bool LineFile::Publish() {
    if (path_ == nullptr) {
        return true;
    }
    if (isNameless_) {
        char self[sizeof("/proc/self/fd/") + 3 * sizeof(int)];
        snprintf(self, sizeof(self), "/proc/self/fd/%d", fd_.Get());
        if (linkat(AT_FDCWD, self, AT_FDCWD, path_, AT_SYMLINK_FOLLOW) != 0) {
            return false;
        }
    }
    path_ = nullptr;
    return true;
}

bool LineFile::Rewrite(const LineNode* first, Filler filler) {
    return Replace(fd_, first, filler) && Publish();
}

bool LineFile::Append(std::initializer_list<std::string_view> parts) {
    return AddToEnd(fd_, parts) && Publish();
}

std::string_view NextToken(std::string_view& text, std::string_view separators) {
    text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
    const std::string_view token = Front(text, text.find_first_of(separators));
    text.remove_prefix(std::min(token.size() + 1, text.size()));
    return token;
}

bool HasControl(std::string_view text) {
    return std::any_of(text.begin(), text.end(), IsControl);
}

}  // namespace vimbra
