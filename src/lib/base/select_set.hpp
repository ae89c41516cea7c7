// A select(2) set for one descriptor, as large as that descriptor needs: an application may well
// hold more descriptors than an fd_set has bits.
#ifndef VIMBRA_LIB_BASE_SELECT_SET_HPP
#define VIMBRA_LIB_BASE_SELECT_SET_HPP

#include <sys/select.h>

#include <cerrno>
#include <cstring>

#include "lib/base/memory.hpp"

namespace vimbra {

class SelectSet {
 public:
    SelectSet() = default;
    explicit SelectSet(int fd) { Watch(fd); }
    SelectSet(const SelectSet&) = delete;
    SelectSet& operator=(const SelectSet&) = delete;

    // False when a large set found no memory.
    explicit operator bool() const { return bits_ != nullptr; }

    // Turns to another descriptor; false when a large set found no memory.
    bool Watch(int fd) {
        fd_ = fd;
        if (IsNumber() && Words() > words_) {
            large_.Allocate(Words() * sizeof(fd_mask));
            bits_ = reinterpret_cast<fd_mask*>(large_.Get());
            words_ = bits_ != nullptr ? Words() : 0;
        }
        return bits_ != nullptr;
    }

    // Both return what select(2) does; the time that is left is written back where the system does.
    // A descriptor that was closed meanwhile may be -1; one that is to be written is the caller's own.
    int WaitReadable(timeval* timeout) {
        return IsNumber() ? select(fd_ + 1, Only(), nullptr, nullptr, timeout) : NoSuchDescriptor();
    }
    int WaitWritable(timeval* timeout) {
        return select(fd_ + 1, nullptr, Only(), nullptr, timeout);
    }

 private:
    static constexpr int kBits = 8 * sizeof(fd_mask);

    // A set has a bit for numbers from 0 on.
    bool IsNumber() const { return fd_ >= 0; }

    static int NoSuchDescriptor() {
        errno = EBADF;
        return -1;
    }

    size_t Words() const { return static_cast<size_t>(fd_) / kBits + 1; }

    // FD_SET would stop the process at a descriptor past FD_SETSIZE.
    fd_set* Only() {
        memset(bits_, 0, Words() * sizeof(fd_mask));
        bits_[fd_ / kBits] = static_cast<fd_mask>(1UL << (fd_ % kBits));
        return reinterpret_cast<fd_set*>(bits_);
    }

    int fd_ = -1;
    size_t words_ = FD_SETSIZE / kBits;
    fd_set small_;
    Buffer large_;
    fd_mask* bits_ = reinterpret_cast<fd_mask*>(&small_);
};

}  // namespace vimbra

#endif
