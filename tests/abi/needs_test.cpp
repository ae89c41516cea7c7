// A device may have the C library and crypt, and nothing else.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

int RunProgram(const std::string& command) {
    const int status = system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Where the program's kind of machine keeps the library that unwinds stacks, of which this test has
// mapped its own.
std::set<std::string> Unwinders() {
    std::set<std::string> files;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        const size_t path = line.find('/');
        if (path != std::string::npos && line.find("/libgcc_s.so") != std::string::npos) {
            files.insert(line.substr(path));
        }
    }
    return files;
}

TEST(Needs, NoLibraryThatUnwindsStacks) {
    const ScriptedDaemon daemon;
    const std::string program = std::string(EMULATOR) + " " + PROGRAM + " >/tmp/out 2>&1";
    ASSERT_EQ(0, RunProgram(program)) << ReadFile("/tmp/out");
    const std::set<std::string> unwinders = Unwinders();
    ASSERT_FALSE(unwinders.empty());
    for (const std::string& file : unwinders) {
        ASSERT_EQ(0, mount("/dev/null", file.c_str(), nullptr, MS_BIND, nullptr)) << file;
    }
    ASSERT_NE(0, RunProgram(std::string(EMULATOR) + " " + CANCELLER + " >/tmp/out 2>&1"))
        << "the library can still be found, so this test shows nothing";
    EXPECT_EQ(0, RunProgram(program)) << ReadFile("/tmp/out");
}

}  // namespace
}  // namespace vimbra::tests
