// What the tests of inetd's services share: its configuration, the calls, and a device that has it.
#ifndef VIMBRA_TESTS_LOCAL_SERVICES_HPP
#define VIMBRA_TESTS_LOCAL_SERVICES_HPP

#include <gtest/gtest.h>
#include <vimbra/service.h>

#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "files.hpp"

namespace vimbra::tests {

inline constexpr char kPasswd[] = "/etc/passwd";
inline constexpr char kInetd[] = "/etc/inetd.conf";
inline constexpr char kInetdElsewhere[] = "/usr/config/system/inetd.conf";

inline constexpr char kTelnet[] =
    "telnet\tstream\ttcp\tnowait\tchief\t/sbin/telnetd\t/sbin/telnetd -i  \n";
inline constexpr char kSsh[] =
    "ssh\tstream\ttcp6\tnowait\tchief\t/sbin/dropbear\t/sbin/dropbear -i  \n";

inline s32 Start(std::string name, u16 port, std::optional<std::string> proto,
                 std::optional<std::string> path = std::nullopt) {
    TVimbraServInfo info = {name.data(), port, proto ? proto->data() : nullptr,
                            path ? path->data() : nullptr};
    return VimbraServiceStart(&info);
}

inline s32 Stop(std::string name) {
    return VimbraServiceStop(name.data());
}

// A device with an inetd and a root account called chief.
class Service : public testing::Test {
 protected:
    void SetUp() override {
        bed::WriteFile(kPasswd, "guest:x:5:5:::\nchief:x:0:0:::\nroot:x:0:0:::\n");
        bed::WriteFile(kInetd, "");
        RunInetd();
    }

    void RunInetd() { inetd_ = std::make_unique<FakeProcess>("inetd"); }

    // inetd has been told; a new one takes its place.
    void ExpectTold() {
        ASSERT_EQ(SIGHUP, inetd_->EndedBy());
        RunInetd();
    }

    bed::Capture log_;
    std::unique_ptr<FakeProcess> inetd_;
};

}  // namespace vimbra::tests

#endif
