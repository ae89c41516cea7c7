// A directory that is read entry by entry. The thread cannot be cancelled meanwhile.
#ifndef VIMBRA_LIB_BASE_DIRECTORY_HPP
#define VIMBRA_LIB_BASE_DIRECTORY_HPP

#include <dirent.h>

#include "lib/base/cancel.hpp"

namespace vimbra {

class Directory {
 public:
    explicit Directory(const char* path) : dir_(opendir(path)) {}
    ~Directory() {
        if (dir_ != nullptr) {
            closedir(dir_);
        }
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    explicit operator bool() const { return dir_ != nullptr; }
    int Fd() const { return dirfd(dir_); }

    // Null at the end.
    const dirent* Next() { return readdir(dir_); }

 private:
    const CancelGuard guard_;
    DIR* dir_;
};

}  // namespace vimbra

#endif
