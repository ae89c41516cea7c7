// A DHCP client of one interface and family, from its start until it has stopped: runs the program
// that speaks to servers, sets the lease as an application would set it, and tells the application.
#ifndef VIMBRA_TOOLS_VIMBRAD_LEASE_CLIENT_HPP
#define VIMBRA_TOOLS_VIMBRAD_LEASE_CLIENT_HPP

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "child.hpp"
#include "lease_report.hpp"
#include "lease_settings.hpp"
#include "notifier.hpp"
#include "private_dir.hpp"
#include "run_dir.hpp"
#include "service.hpp"
#include "uv.hpp"

namespace vimbrad {

// Its program renews its lease, or is started anew for it, at SIGUSR1, which applications send it
// too.
class LeaseClient {
 public:
    using Stopped = std::function<void()>;

    LeaseClient(const Context& context, std::string name, u16 family, const PrivateDir& files);
    virtual ~LeaseClient() = default;
    LeaseClient(const LeaseClient&) = delete;
    LeaseClient& operator=(const LeaseClient&) = delete;

    // Throws Refusal.
    virtual void Run() = 0;

    // A lease that is held is told again once it is renewed.
    virtual void Renew() { child_->Kill(SIGUSR1); }

    // Takes up what an earlier life had: the lease stays what it is until a server has confirmed
    // it, refused it, or its time is up.
    void Restore(const Json& state);
    Json Save() const;
    Json Show() const;
    // To an application that did not ask for it.
    void TellEnd();
    bool HasProgram() const { return child_ != nullptr; }
    bool Stopping() const { return stopped_ != nullptr; }

    // Calls when the program has ended and what it set is gone; that may destroy the client.
    void Stop(Stopped stopped);

 protected:
    // Applications find the program by the name that it is called.
    void RunProgram(const Child::Program& program);
    void EndsSoon();

    void RestartAfter(u64 milliseconds);
    void Restart();

    // Also told at the start, when there is nothing to lose.
    void Lose();
    void TellFailure();

    // Once a lease has been set.
    virtual void LeaseTaken(u32) {}
    // True when the program's end is a part of its work, and the work goes on.
    virtual bool Continues(const ChildEnd&) { return false; }

    std::string HookOf(const char* name) const { return context_.runDir.PathOf(name); }
    const std::string& Name() const { return name_; }
    const PrivateDir& Files() const { return files_; }
    const char* Title() const { return title_.c_str(); }
    bool HasLease() const { return hasLease_; }
    // The program that runs has told of an event.
    bool HasSpoken() const { return hasSpoken_; }
    const TVimbraDhcpcAddrInfo& Lease() const { return lease_; }

 private:
    void TakeLine(std::string_view line);
    void TakeReport();
    void TakeLease(const TVimbraDhcpcAddrInfo& lease);
    bool KeepsLease(const std::string& event);
    u64 SecondsLeft() const;
    void Ended(const ChildEnd& end);
    void Finish();

    const Context& context_;
    std::string name_;
    u16 family_;
    std::string title_;
    const PrivateDir& files_;
    LeaseSettings settings_;
    LeaseReport report_;
    Notifier notifier_;
    UvHandle<uv_timer_t> timer_;
    std::unique_ptr<Child> child_;
    bool hasSpoken_ = false;
    bool hasLease_ = false;
    TVimbraDhcpcAddrInfo lease_{};
    // When the lease ends, in seconds since the machine was started.
    u64 leaseEnd_ = 0;
    // The lease is an earlier life's, and no server has spoken of it in this one.
    bool takenUp_ = false;
    UvHandle<uv_timer_t> takenUpEnd_;
    Stopped stopped_;
};

// udhcpc, for IPv4.
std::unique_ptr<LeaseClient> MakeUdhcpcClient(const Context& context, const std::string& name,
                                              const PrivateDir& files);
// dhclient, for IPv6. `signalled` is told of a renewal that was not asked for here.
std::unique_ptr<LeaseClient> MakeDhclientClient(const Context& context, const std::string& name,
                                                const PrivateDir& files,
                                                std::function<void()> signalled);

}  // namespace vimbrad

#endif
