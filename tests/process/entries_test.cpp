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
            unlink("/tmp/proc/7/status");
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
    bed::WriteFile("/tmp/proc/7/status", "Name:\tudhcpc\n");
    EXPECT_EQ(7, GetServicePid(path, service));
    g_isUnknown = true;
    bed::WriteFile("/tmp/proc/8", "udhcpc");  // no directory
    EXPECT_EQ(0, GetServicePid(path, service));
    bed::WriteFile("/tmp/proc/9/status", "Name:\tudhcpc\n");
    EXPECT_EQ(9, GetServicePid(path, service));
}

}  // namespace
}  // namespace vimbra::tests
