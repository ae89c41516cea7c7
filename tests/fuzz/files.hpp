// Files under a fuzzer, which must be throw-away ones.
#ifndef VIMBRA_TESTS_FUZZ_FILES_HPP
#define VIMBRA_TESTS_FUZZ_FILES_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vimbra/log.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace vimbra::tests {

// Ends everything where the files are the machine's own, and silences the library.
inline void Prepare() {
    static const bool done = [] {
        if (getenv("VIMBRA_SANDBOX") == nullptr) {
            fprintf(stderr, "run this under vimbra-sandbox: it overwrites files of the system\n");
            abort();
        }
        VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
        return true;
    }();
    static_cast<void>(done);
}

inline void Write(const char* path, const void* data, size_t size) {
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0 || write(file, data, size) != static_cast<ssize_t>(size)) {
        abort();
    }
    close(file);
}

inline std::string Read(const char* path) {
    std::string text;
    char block[4096];
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    ssize_t count;
    while ((count = read(file, block, sizeof(block))) > 0) {
        text.append(block, static_cast<size_t>(count));
    }
    close(file);
    return text;
}

// A truth that no input may break.
inline void Require(bool truth) {
    if (!truth) {
        abort();
    }
}

}  // namespace vimbra::tests

#endif
