// Directories whose file system does not tell what its entries are. Linked with -Wl,--wrap=readdir.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vimbra/process.h>

#include <string>
#include <string_view>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

namespace {

bool g_isUnknown = false;

}  // namespace

extern "C" {
dirent* __real_readdir(DIR* directory);
dirent* __wrap_readdir(DIR* directory) {
    dirent* const entry = __real_readdir(directory);
    if (g_isUnknown && entry != nullptr) {
        entry->d_type = DT_UNKNOWN;
        // One that goes before it is looked at.
        if (std::string_view(entry->d_name) == "7") {
            unlink("/tmp/proc/7/cmdline");
            rmdir("/tmp/proc/7");
        }
    }
    return entry;
}
}

namespace {

TEST(UnknownEntries, AreLookedAtOneByOne) {
    char path[] = "/tmp/proc/";
    char service[] = "udhcpc";
    bed::WriteFile("/tmp/proc/7/cmdline", "udhcpc");
    EXPECT_EQ(7, GetServicePidFromCmdline(path, service, nullptr));
    g_isUnknown = true;
    EXPECT_EQ(0, GetServicePidFromCmdline(path, service, nullptr));
    bed::WriteFile("/tmp/proc/8", "udhcpc");  // no directory
    bed::WriteFile("/tmp/proc/9/cmdline", "udhcpc");
    EXPECT_EQ(9, GetServicePidFromCmdline(path, service, nullptr));
}

}  // namespace
}  // namespace vimbra::tests
