// What a DHCP program tells through its hook: lines that start with a mark, one value each, since a
// line that is read has a limited length and a list of servers has not.
#ifndef VIMBRA_TOOLS_VIMBRAD_LEASE_REPORT_HPP
#define VIMBRA_TOOLS_VIMBRAD_LEASE_REPORT_HPP

#include <vimbra/dhcpc.h>

#include <string>
#include <string_view>

namespace vimbrad {

class LeaseReport {
 public:
    LeaseReport(std::string iface, u16 family) : iface_(std::move(iface)), family_(family) {
        Clear();
    }

    // Without the mark a line is the program's own.
    static bool Speaks(std::string_view line) { return line.starts_with('@'); }

    // Takes a line of the hook; true when it completes a report.
    bool Take(std::string_view line);

    const std::string& Event() const { return event_; }
    const TVimbraDhcpcAddrInfo& Lease() const { return lease_; }

 private:
    void Clear();

    std::string iface_;
    u16 family_;
    std::string event_;
    TVimbraDhcpcAddrInfo lease_{};
};

}  // namespace vimbrad

#endif
