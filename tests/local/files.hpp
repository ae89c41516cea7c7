// States of files that are hard to come by: full disks, read-only ones, links, and what must stay
// of a file that is rewritten.
#ifndef VIMBRA_TESTS_LOCAL_FILES_HPP
#define VIMBRA_TESTS_LOCAL_FILES_HPP

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <tuple>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

// What an edit must leave alone.
inline std::tuple<ino_t, mode_t, uid_t, gid_t> Identity(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(0, stat(path.c_str(), &status)) << path;
    return {status.st_ino, status.st_mode, status.st_uid, status.st_gid};
}

inline void Remove(const std::string& path) {
    ASSERT_TRUE(unlink(path.c_str()) == 0 || errno == ENOENT) << path;
}

// Puts the file on a disk of one page, which its content then fills up to `spare` bytes, and leaves
// a link in its place.
inline void OnFullDisk(const std::string& path, const std::string& content) {
    ASSERT_EQ(0, mkdir("/tmp/disk", 0755));
    ASSERT_EQ(0, mount("tmpfs", "/tmp/disk", "tmpfs", 0, "size=4096"));
    const std::string real = "/tmp/disk/file";
    bed::WriteFile(real, content);
    Remove(path);
    ASSERT_EQ(0, symlink(real.c_str(), path.c_str()));
}

// The same on a disk that can only be read.
inline void OnReadOnlyDisk(const std::string& path, const std::string& content) {
    OnFullDisk(path, content);
    ASSERT_EQ(0, mount("tmpfs", "/tmp/disk", "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr));
}

inline void AsDirectory(const std::string& path) {
    Remove(path);
    ASSERT_EQ(0, mkdir(path.c_str(), 0755));
}

}  // namespace vimbra::tests

#endif
