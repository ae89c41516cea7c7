#include "lib/line_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>

namespace vimbra {

namespace {

int Flags(Open how) {
    switch (how) {
        case Open::kRead:
            return O_RDONLY;
        case Open::kUpdate:
            return O_RDWR;
        case Open::kRewrite:
            return O_RDWR | O_CREAT;
        case Open::kAppend:
            return O_RDWR | O_CREAT | O_APPEND;
        case Open::kAppendExisting:
            return O_RDWR | O_APPEND;
    }
    return O_RDONLY;
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

// Takes the room for a longer content before any of the old one is touched.
bool Reserve(const Fd& fd, size_t oldSize, size_t newSize) {
    if (newSize <= oldSize) {
        return true;
    }
    const int error = posix_fallocate(fd.Get(), 0, static_cast<off_t>(newSize));
    if (error == 0 || error == EOPNOTSUPP || error == EINVAL || error == ENOSYS) {
        return true;  // Some file systems of flash memory cannot tell beforehand.
    }
    [[maybe_unused]] const int undone = ftruncate(fd.Get(), static_cast<off_t>(oldSize));
    errno = error;
    return false;
}

// From the front of the file, or at its end if it was opened so.
bool WriteWhole(const Fd& fd, const u8* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t count = write(fd.Get(), data + done, size - done);
        if (count <= 0) {
            return false;
        }
        done += static_cast<size_t>(count);
    }
    return true;
}

size_t Length(std::initializer_list<std::string_view> parts) {
    size_t length = 0;
    for (const std::string_view part : parts) {
        length += part.size();
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

}  // namespace

Fd OpenLines(std::span<const char* const> paths, Open how) {
    Fd fd;
    for (const char* path : paths) {
        // Not to wait for a pipe's other end: a pipe is refused later.
        fd.Reset(open(path, Flags(how) | O_CLOEXEC | O_NONBLOCK, 0666));
        if (fd) {
            break;
        }
    }
    return fd;
}

Fd OpenLines(const char* path, Open how) {
    return OpenLines(std::span(&path, 1), how);
}

bool LineReader::Load(const Fd& fd) {
    rest_ = {};
    size_t size;
    if (!SizeOf(fd, size) || !content_.Allocate(size + 1)) {
        return false;
    }
    // A file that grows meanwhile is read to the length it had, one that shrinks to its new end.
    size_t done = 0;
    while (done < size) {
        const ssize_t count =
            pread(fd.Get(), content_.Get() + done, size - done, static_cast<off_t>(done));
        if (count < 0) {
            return false;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    rest_ = {reinterpret_cast<const char*>(content_.Get()), done};
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

bool RewriteLines(const Fd& fd, const LineNode* first) {
    size_t oldSize;
    if (!SizeOf(fd, oldSize)) {
        return false;
    }
    size_t size = 0;
    for (const LineNode* node = first; node != nullptr; node = node->next) {
        size += node->length;
    }
    if (size > kLineFileMax) {
        errno = EFBIG;
        return false;
    }
    const Buffer content(size + 1);
    if (!content || !Reserve(fd, oldSize, size)) {
        return false;
    }
    u8* to = content.Get();
    for (const LineNode* node = first; node != nullptr; node = node->next) {
        Join(to, {node->Text()});
        to += node->length;
    }
    // Cut last: a process that is killed in the middle leaves no empty password file behind.
    return WriteWhole(fd, content.Get(), size) &&
           ftruncate(fd.Get(), static_cast<off_t>(size)) == 0;
}

bool AppendLine(const Fd& fd, std::initializer_list<std::string_view> parts) {
    size_t oldSize;
    if (!SizeOf(fd, oldSize)) {
        return false;
    }
    char last = '\n';
    if (oldSize > 0 && pread(fd.Get(), &last, 1, static_cast<off_t>(oldSize - 1)) != 1) {
        return false;
    }
    const size_t newline = last == '\n' ? 0 : 1;
    const size_t size = newline + Length(parts);
    const Buffer line(size + 1);
    if (!line) {
        return false;
    }
    if (newline != 0) {
        line.Get()[0] = '\n';
    }
    Join(line.Get() + newline, parts);
    if (WriteWhole(fd, line.Get(), size)) {
        return true;
    }
    // Half a line would mean something else.
    const int error = errno;
    [[maybe_unused]] const int undone = ftruncate(fd.Get(), static_cast<off_t>(oldSize));
    errno = error;
    return false;
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
