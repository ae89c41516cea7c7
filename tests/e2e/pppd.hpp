// Stands in for pppd, which a kernel without PPP does not let dial: a script that comes first in
// the daemon's path, notes how it was run, and does what the test says.
#ifndef VIMBRA_TESTS_E2E_PPPD_HPP
#define VIMBRA_TESTS_E2E_PPPD_HPP

#include <signal.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>
#include <vimbra/bed.hpp>

#include "e2e.hpp"

namespace vimbra::tests {

class Pppd {
 public:
    // What it does, in words of the shell: $run is the number of the dial, ip_up OUR PEER [DNS1
    // [DNS2]] and ipv6_up OUR PEER tell of a link, wait_for_test waits for LetGoOn(), hold runs
    // until it is ended.
    explicit Pppd(const std::string& plan) {
        bed::WriteFile("/tmp/bin/pppd", kScript);
        chmod("/tmp/bin/pppd", 0755);
        // Without the directory of the real one.
        setenv("PATH", "/tmp/bin:/usr/bin:/bin", 1);
        mkdir("/tmp/pppd", 0755);
        mkfifo("/tmp/pppd/go", 0600);
        // The daemon looks whether the kernel knows PPP; any device does.
        Shell("ln -s null /dev/ppp");
        Plan(plan);
    }

    static void Plan(const std::string& plan) { bed::WriteFile("/tmp/pppd/plan", plan + "\n"); }
    // Waits until somebody waits.
    static void LetGoOn() { Shell("echo > /tmp/pppd/go"); }

    static int Dials() { return std::atoi(Shell("ls -d /tmp/pppd/[0-9]* | wc -l").c_str()); }

    // Of one dial, counted from 1.
    static bool WaitDial(int dial) {
        return bed::WaitFor([dial] { return ReadOf(dial, "pid").ends_with("\n"); });
    }
    static std::string Arguments(int dial) { return ReadOf(dial, "arguments"); }
    static std::string Options(int dial) { return ReadOf(dial, "options"); }
    static std::string Output(int dial) { return ReadOf(dial, "output"); }
    static pid_t Pid(int dial) { return std::atoi(ReadOf(dial, "pid").c_str()); }
    // One that was ended before it noted its process does not.
    static bool Runs(int dial) { return Pid(dial) > 0 && kill(Pid(dial), 0) == 0; }

 private:
    static std::string ReadOf(int dial, const char* what) {
        return bed::ReadFile("/tmp/pppd/" + std::to_string(dial) + "/" + what);
    }

    // The hook is run as pppd runs it: with nothing open but /dev/null.
    static constexpr char kScript[] = R"(#!/bin/sh
run=1
until mkdir /tmp/pppd/$run 2>/dev/null; do run=$((run + 1)); done
echo "$*" >/tmp/pppd/$run/arguments
cp -p "$2" /tmp/pppd/$run/options
hook=$(sed -n 's/^ip-up-script //p' "$2" | tr -d '"')
ip_up() {
    (
        exec </dev/null >/dev/null 2>&1
        exec env -i DEVICE=eth0 IFNAME=ppp0 IPLOCAL="$1" IPREMOTE="$2" ${3:+DNS1="$3"} \
            ${4:+DNS2="$4"} PPPD_PID=$$ PPPLOGNAME=root ORIG_UID=0 SPEED=0 USEPEERDNS=1 \
            "$hook" ppp0 eth0 0 "$1" "$2" ""
    )
}
ipv6_up() {
    echo "local  LL address $1"
    echo "remote LL address $2"
}
wait_for_test() { read -r _ </tmp/pppd/go; }
hold() { exec sleep 1000; }
echo $$ >/tmp/pppd/$run/pid
. /tmp/pppd/plan
)";
};

}  // namespace vimbra::tests

#endif
