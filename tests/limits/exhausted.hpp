// What a process can run out of, while one of these lives.
#ifndef VIMBRA_TESTS_LIMITS_EXHAUSTED_HPP
#define VIMBRA_TESTS_LIMITS_EXHAUSTED_HPP

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vimbra::tests {

// Lowers a limit for a while.
class Limit {
 public:
    Limit(__rlimit_resource resource, rlim_t most) : resource_(resource) {
        EXPECT_EQ(0, getrlimit(resource_, &before_));
        const rlimit low = {most, before_.rlim_max};
        EXPECT_EQ(0, setrlimit(resource_, &low));
    }
    ~Limit() { EXPECT_EQ(0, setrlimit(resource_, &before_)); }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

 private:
    const __rlimit_resource resource_;
    rlimit before_ = {};
};

// Those that are open stay open.
class NoDescriptors {
    static rlim_t Lowest() {
        const int fd = open("/", O_PATH | O_CLOEXEC);
        close(fd);
        return static_cast<rlim_t>(fd);
    }
    const Limit limit_{RLIMIT_NOFILE, Lowest()};
};

// The limit is counted for each user and does not hold for root: the process becomes somebody whom
// no other test is.
class NoRoomForThreads {
 public:
    NoRoomForThreads() {
        struct stat space = {};
        EXPECT_EQ(0, stat("/proc/self/ns/pid", &space));
        const auto user = static_cast<uid_t>(100000 + space.st_ino % 1000000);
        EXPECT_EQ(0, setresuid(user, user, 0));
    }
    ~NoRoomForThreads() { EXPECT_EQ(0, setresuid(0, 0, 0)); }
    NoRoomForThreads(const NoRoomForThreads&) = delete;
    NoRoomForThreads& operator=(const NoRoomForThreads&) = delete;

 private:
    const Limit limit_{RLIMIT_NPROC, 0};
};

}  // namespace vimbra::tests

#endif
