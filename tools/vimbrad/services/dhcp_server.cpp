// DHCP servers: one busybox udhcpd for each interface, in the foreground, with a configuration that
// is written for it.
#include <fcntl.h>
#include <netlink/route/link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "address_text.hpp"
#include "api/api_dhcps/dhcps_wire.hpp"
#include "child.hpp"
#include "lib/base/fd.hpp"
#include "log.hpp"
#include "netlink.hpp"
#include "private_dir.hpp"
#include "record_text.hpp"
#include "services/services.hpp"
#include "udp_port.hpp"

namespace vimbrad {
namespace {

// What applications watch.
constexpr char kLeaseDir[] = "/usr/etc";
constexpr char kLeaseFile[] = "/usr/etc/udhcpd.leases";
// Of the seconds between two writings of the leases; new ones are written at once by most builds of
// udhcpd.
constexpr int kAutoTime = 2;
// What the file may grow to; readers of the lease file see fewer.
constexpr u32 kLeasesMax = 4096;
// A start is answered when the server has its port: one that cannot work ends before. The pauses
// between the looks at it grow.
constexpr u16 kServerPort = 67;
constexpr u64 kLookMs = 5;
constexpr u64 kLookMostMs = 80;
constexpr u64 kServeMs = 20'000;
constexpr u64 kKillMs = 2'000;

u32 HostOrder(const TVimbraAddr& address) {
    return ntohl(address.tV4Addr.s_addr);
}

// The library takes a router of 0.0.0.0 for none.
bool HasRouter(const TVimbraDhcpsInfo& pool) {
    return pool.tRoutes.wSinFamily == VIMBRA_FAMILY_IPV4 && !IsZero(pool.tRoutes);
}

void CheckPool(const TVimbraDhcpsInfo& pool) {
    if (pool.tIpPoolStart.wSinFamily != VIMBRA_FAMILY_IPV4 ||
        pool.tIpPoolEnd.wSinFamily != VIMBRA_FAMILY_IPV4) {
        throw Refusal(EINVAL, "a pool of another family");
    }
    if (pool.dwIpPoolPrefix == 0 || pool.dwIpPoolPrefix > 32) {
        throw Refusal(EINVAL, "no such prefix length");
    }
    if (HostOrder(pool.tIpPoolStart) > HostOrder(pool.tIpPoolEnd)) {
        throw Refusal(EINVAL, "a pool that ends before it starts");
    }
    if (pool.tDnsServerInfo.dwDnsNum > VIMBRA_DHCPS_DNS_MAX) {
        throw Refusal(EINVAL, "more DNS servers than the list can hold");
    }
}

std::string NetmaskOf(u32 prefix) {
    TVimbraAddr mask{};
    mask.wSinFamily = VIMBRA_FAMILY_IPV4;
    mask.tV4Addr.s_addr = htonl(~u32{0} << (32 - prefix));
    return TextOf(mask);
}

// Every value comes from an address: a name of an interface is one that the kernel has.
std::string ConfigurationOf(const std::string& name, const TVimbraDhcpsInfo& pool,
                            const std::string& leaseFile, const std::string& pidFile) {
    const u32 size = HostOrder(pool.tIpPoolEnd) - HostOrder(pool.tIpPoolStart);
    std::string text = "interface " + name + "\nstart " + TextOf(pool.tIpPoolStart) + "\nend " +
                       TextOf(pool.tIpPoolEnd) + "\nmax_leases " +
                       std::to_string(std::min(size, kLeasesMax - 1) + 1) + "\nlease_file " +
                       leaseFile + "\npidfile " + pidFile + "\nauto_time " +
                       std::to_string(kAutoTime) + "\noption subnet " +
                       NetmaskOf(pool.dwIpPoolPrefix) + "\n";
    if (HasRouter(pool)) {
        text += "option router " + TextOf(pool.tRoutes) + "\n";
    }
    // One line for each: udhcpd adds them up, and its lines are limited.
    const TVimbraDnsInfo& dns = pool.tDnsServerInfo;
    for (u32 i = 0; i < dns.dwDnsNum; ++i) {
        const TVimbraAddr server = dns.tDnsIp[i];
        if (server.wSinFamily == VIMBRA_FAMILY_IPV4) {
            text += "option dns " + TextOf(server) + "\n";
        }
    }
    return text;
}

// An application may watch the leases before there is a server.
void MakeLeaseFile(const std::string& path) {
    mkdir(kLeaseDir, 0755);
    const vimbra::Fd file(open, path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (!file) {
        throw Refusal(errno, path + ": " + std::strerror(errno));
    }
}

// The server of one interface, from its start to its end.
class DhcpServer {
 public:
    using Ended = std::function<void()>;

    // `ended` is told when the server has ended, asked to or not; that may destroy this.
    DhcpServer(uv_loop_t* loop, std::string name, const TVimbraDhcpsInfo& pool,
               std::string leaseFile, const std::string& configuration, Ended ended)
        : name_(std::move(name)),
          pool_(pool),
          leaseFile_(std::move(leaseFile)),
          ended_(std::move(ended)),
          timer_(MakeTimer(loop, this)),
          child_(loop, {{"busybox", "udhcpd", "-f", configuration}},
                 {[](std::string_view line) {
                      LogDebug("%.*s", static_cast<int>(line.size()), line.data());
                  },
                  [this](const ChildEnd& end) { HasEnded(end); }}) {}

    // Answers when the server serves, or has found out that it cannot.
    void AnswerStart(const std::optional<Answer<wire::PlainResult>>& answer) {
        if (answer) {
            starting_.push_back(*answer);
        }
        deadline_ = uv_now(timer_->loop) + kServeMs;
        LookAfter(kLookMs);
    }

    void Stop() {
        stopping_ = true;
        uv_timer_stop(timer_.get());
        child_.End(kKillMs);
    }

    bool Stopping() const { return stopping_; }
    const std::string& LeaseFile() const { return leaseFile_; }

    // What it was started with.
    wire::DhcpsStartBody Wish() const {
        wire::DhcpsStartBody body{};
        name_.copy(body.achIfaceName, sizeof(body.achIfaceName));
        body.wSinFamily = VIMBRA_FAMILY_IPV4;
        body.tDhcpsInfo = pool_;
        return body;
    }

    Json Show() const {
        Json shown{{"interface", name_},
                   {"family", FamilyKey(VIMBRA_FAMILY_IPV4)},
                   {"state", stopping_ ? "stopping" : "running"},
                   {"pid", child_.Pid()},
                   {"first", TextOf(pool_.tIpPoolStart)},
                   {"last", TextOf(pool_.tIpPoolEnd)},
                   {"prefix", pool_.dwIpPoolPrefix},
                   {"dns", Json::array()},
                   {"lease_file", leaseFile_}};
        if (HasRouter(pool_)) {
            shown["router"] = TextOf(pool_.tRoutes);
        }
        for (u32 i = 0; i < pool_.tDnsServerInfo.dwDnsNum; ++i) {
            shown["dns"].push_back(TextOf(pool_.tDnsServerInfo.tDnsIp[i]));
        }
        return shown;
    }

 private:
    void LookAfter(u64 pause) {
        pause_ = pause;
        uv_timer_start(
            timer_.get(), [](uv_timer_t* timer) { static_cast<DhcpServer*>(timer->data)->Look(); },
            pause, 0);
    }

    void Look() {
        if (HasUdpPort(child_.Pid(), kServerPort)) {
            LogInfo("DHCP server on %s: started", name_.c_str());
            for (const auto& each : std::exchange(starting_, {})) {
                each({0});
            }
        } else if (uv_now(timer_->loop) < deadline_) {
            LookAfter(std::min(2 * pause_, kLookMostMs));
        } else {
            LogWarning("DHCP server on %s: does not begin to serve", name_.c_str());
            Stop();
        }
    }

    void HasEnded(const ChildEnd& end) {
        if (!stopping_) {
            LogWarning("DHCP server on %s: ended with %s", name_.c_str(), end.Text().c_str());
        }
        for (const auto& each : std::exchange(starting_, {})) {
            each.Refuse(EIO, "the server ended before it served");
        }
        const Ended ended = std::move(ended_);
        ended();
    }

    std::string name_;
    TVimbraDhcpsInfo pool_;
    std::string leaseFile_;
    Ended ended_;
    UvHandle<uv_timer_t> timer_;
    Child child_;
    u64 pause_ = 0;
    u64 deadline_ = 0;
    std::vector<Answer<wire::PlainResult>> starting_;
    bool stopping_ = false;
};

class DhcpServerService : public Service {
 public:
    explicit DhcpServerService(const Context& context)
        : loop_(context.loop), runDir_(context.runDir), registry_(context.registry) {
        try {
            MakeLeaseFile(kLeaseFile);
        } catch (const Refusal& refusal) {
            LogInfo("no lease file to watch: %s", refusal.what());
        }
    }

    void Attach(Registry& registry) override {
        using wire::DhcpsIfaceBody, wire::DhcpsStartBody, wire::PlainResult;
        registry.ChangeLater<DhcpsStartBody, PlainResult>(
            wire::kDhcpsStart, "DHCP server start",
            [this](const DhcpsStartBody& body, const Answer<PlainResult>& answer) {
                Start(body, answer);
            });
        registry.ChangeLater<DhcpsIfaceBody, PlainResult>(
            wire::kDhcpsStop, "DHCP server stop",
            [this](const DhcpsIfaceBody& body, const Answer<PlainResult>& answer) {
                CheckIsIpv4(body.wSinFamily);
                StopThen([name = NameOf(body.achIfaceName)](
                             const std::string& each) { return each == name; },
                         [answer] { answer({0}); });
            });
        registry.ChangeLater<NoBody, PlainResult>(
            wire::kDhcpsStopAll, "DHCP servers stop",
            [this](const NoBody&, const Answer<PlainResult>& answer) {
                StopThen([](const std::string&) { return true; }, [answer] { answer({0}); });
            });
        registry.Query<DhcpsIfaceBody, TVimbraDhcpsState>(
            wire::kDhcpsState, "DHCP server state", [this](const DhcpsIfaceBody& body) {
                const auto found = servers_.find(NameOf(body.achIfaceName));
                return TVimbraDhcpsState{body.wSinFamily == VIMBRA_FAMILY_IPV4 &&
                                         found != servers_.end() && !found->second->Stopping()};
            });
    }

    // The one with the lease file that is watched comes first, so that it has it again.
    void Save(Json& state) const override {
        Json& list = state["dhcp_servers"] = Json::array();
        for (const auto& [_, server] : servers_) {
            if (!server->Stopping()) {
                const bool watched = server->LeaseFile() == kLeaseFile;
                list.insert(watched ? list.begin() : list.end(), TextOfRecord(server->Wish()));
            }
        }
    }
    void Restore(const Json& state) override {
        for (const Json& each : state.value("dhcp_servers", Json::array())) {
            const auto body = RecordFromText<wire::DhcpsStartBody>(each.get<std::string>());
            try {
                Run(NameOf(body.achIfaceName), PoolOf(body), std::nullopt);
            } catch (const Refusal& refusal) {
                LogWarning("DHCP server on %s: not taken up: %s", NameOf(body.achIfaceName).c_str(),
                           refusal.what());
            }
        }
    }
    void Show(Json& answer) const override {
        Json& list = answer["dhcp_servers"] = Json::array();
        for (const auto& [_, server] : servers_) {
            list.push_back(server->Show());
        }
    }
    void End(const Ending& ending) override {
        StopThen([](const std::string&) { return true; }, [ending] {});
    }

 private:
    using Then = std::function<void()>;

    static void CheckIsIpv4(u16 family) {
        CheckOneFamily(family);
        if (family == VIMBRA_FAMILY_IPV6) {
            throw Refusal(ENOTSUP, "no DHCP server for IPv6");
        }
    }

    static TVimbraDhcpsInfo PoolOf(const wire::DhcpsStartBody& body) {
        CheckIsIpv4(body.wSinFamily);
        const TVimbraDhcpsInfo pool = body.tDhcpsInfo;
        CheckPool(pool);
        Netlink().FindLink(NameOf(body.achIfaceName));
        return pool;
    }

    // A server that runs makes room for one with the new pool.
    void Start(const wire::DhcpsStartBody& body, const Answer<wire::PlainResult>& answer) {
        const TVimbraDhcpsInfo pool = PoolOf(body);
        const std::string name = NameOf(body.achIfaceName);
        StopThen([&name](const std::string& each) { return each == name; },
                 [this, name, pool, answer] {
                     try {
                         Run(name, pool, answer);
                     } catch (const Refusal& refusal) {
                         answer.Refuse(refusal.Error(), refusal.what());
                     }
                 });
    }

    void Run(const std::string& name, const TVimbraDhcpsInfo& pool,
             const std::optional<Answer<wire::PlainResult>>& answer) {
        if (servers_.contains(name)) {
            throw Refusal(EBUSY, "somebody else starts it");
        }
        const std::string leaseFile = LeaseFileFor(name);
        MakeLeaseFile(leaseFile);
        if (!files_) {
            files_.emplace(runDir_);
        }
        const std::string configuration = files_->Write(
            name, ConfigurationOf(name, pool, leaseFile, files_->PathOf(name + ".pid")), 0600);
        auto server = std::make_unique<DhcpServer>(loop_, name, pool, leaseFile, configuration,
                                                   [this, name] { HasEnded(name); });
        server->AnswerStart(answer);
        servers_.emplace(name, std::move(server));
    }

    // Servers must not write over each other's leases: the first has the file that applications
    // watch, others have one of their own beside it.
    std::string LeaseFileFor(const std::string& name) const {
        for (const auto& [_, server] : servers_) {
            if (server->LeaseFile() == kLeaseFile) {
                return std::string(kLeaseFile) + "." + name;
            }
        }
        return kLeaseFile;
    }

    void HasEnded(const std::string& name) {
        const auto ended = servers_.extract(name);
        std::vector<Then> ready;
        std::erase_if(waiting_, [&](Waiting& each) {
            std::erase(each.names, name);
            if (!each.names.empty()) {
                return false;
            }
            ready.push_back(std::move(each.then));
            return true;
        });
        for (const Then& each : ready) {
            each();
        }
        registry_.Changed();
    }

    // Stops servers, and goes on when all of them have ended.
    template <class Which>
    void StopThen(Which which, Then then) {
        Waiting waiting{{}, std::move(then)};
        for (const auto& [name, server] : servers_) {
            if (!which(name)) {
                continue;
            }
            waiting.names.push_back(name);
            if (!server->Stopping()) {
                server->Stop();
            }
        }
        if (waiting.names.empty()) {
            waiting.then();
        } else {
            waiting_.push_back(std::move(waiting));
        }
    }

    struct Waiting {
        std::vector<std::string> names;
        Then then;
    };

    uv_loop_t* loop_;
    const RunDirectory& runDir_;
    Registry& registry_;
    std::optional<PrivateDir> files_;
    std::vector<Waiting> waiting_;
    std::map<std::string, std::unique_ptr<DhcpServer>> servers_;
};

}  // namespace

std::unique_ptr<Service> MakeDhcpServerService(const Context& context) {
    return std::make_unique<DhcpServerService>(context);
}

}  // namespace vimbrad
