// The PPPoE link of one family, from its start until it has been stopped, whether it is up or not:
// one pppd for each dial, since nothing but its exit status tells why a dial has ended. The
// addresses of IPv4 come from a hook that pppd runs, those of IPv6 from its log: it has no option
// for a hook of ours there.
#ifndef VIMBRA_TOOLS_VIMBRAD_PPPOE_LINK_HPP
#define VIMBRA_TOOLS_VIMBRAD_PPPOE_LINK_HPP

#include <vimbra/pppoe.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kept_program.hpp"
#include "notifier.hpp"
#include "private_dir.hpp"
#include "service.hpp"
#include "uv.hpp"

namespace vimbrad {

class PppoeLink {
 public:
    using Stopped = std::function<void()>;

    // Dials. Throws Refusal.
    PppoeLink(const Context& context, u16 family, const PppoeConfig& config);
    // Goes on with what Save() told of a link that was let live. Throws Refusal when it has ended.
    PppoeLink(const Context& context, const Json& saved);
    PppoeLink(const PppoeLink&) = delete;
    PppoeLink& operator=(const PppoeLink&) = delete;

    u16 Family() const { return family_; }
    const PppoeConfig& Config() const { return config_; }
    // Nothing will be dialled any more.
    bool IsOver() const { return over_; }
    bool IsUp() const { return !up_.empty(); }
    bool Stopping() const { return stopped_ != nullptr; }

    // For a later life of the daemon.
    Json Save() const;
    static bool WasLetLive(const Json& saved);
    Json Show() const;

    // To an application that did not ask for it.
    void TellLost();
    void TellStopped();

    // A link that is up stays so when the daemon goes, until a later one has it.
    void LetLive();
    // Calls when pppd has ended, which may be at once; that may destroy the link.
    void Stop(Stopped stopped);

 private:
    const char* StateName() const;
    KeptProgram::Events Events();
    void Dial();
    void TakeLine(std::string_view line);
    void TakeAddresses(const TVimbraPppoeAddr& addresses);
    void Ended(const ChildEnd& end);
    void DialAgain();
    void Redial();
    void Finish();

    Context context_;
    u16 family_;
    PppoeConfig config_;
    PrivateDir files_;
    Notifier notifier_;
    UvHandle<uv_timer_t> timer_;
    std::unique_ptr<KeptProgram> pppd_;
    std::string ourIpv6_;
    // Of each family that is up.
    std::vector<TVimbraPppoeAddr> up_;
    bool refused_ = false;
    bool letLive_ = false;
    u32 failures_ = 0;
    bool over_ = false;
    Stopped stopped_;
};

}  // namespace vimbrad

#endif
