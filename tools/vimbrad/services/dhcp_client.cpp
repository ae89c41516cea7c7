// DHCP clients: one program for each interface and family, udhcpc for IPv4 and dhclient for IPv6.
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "api/api_dhcpc/dhcpc_wire.hpp"
#include "lease_client.hpp"
#include "netlink.hpp"
#include "private_dir.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

class DhcpClientService : public Service {
 public:
    explicit DhcpClientService(const Context& context) : context_(context) {}

    void Attach(Registry& registry) override {
        using wire::FamilyIfaceBody, wire::PlainResult;
        registry.Change<FamilyIfaceBody, PlainResult>(wire::kDhcpcStart, "DHCP client start",
                                                      [this](const FamilyIfaceBody& body) {
                                                          Start(body);
                                                          return PlainResult{0};
                                                      });
        registry.ChangeLater<FamilyIfaceBody, PlainResult>(
            wire::kDhcpcStop, "DHCP client stop",
            [this](const FamilyIfaceBody& body, const Answer<PlainResult>& answer) {
                Stop(body, answer);
            });
        registry.Change<FamilyIfaceBody, PlainResult>(
            wire::kDhcpcRenew, "DHCP client renew", [this](const FamilyIfaceBody& body) {
                const auto found = clients_.find(KeyOf(body));
                if (found == clients_.end()) {
                    throw Refusal(ESRCH, "no client on this interface");
                }
                if (!found->second->HasProgram()) {
                    throw Refusal(ESRCH, "the client is about to be started again");
                }
                found->second->Renew();
                return PlainResult{0};
            });
    }

    void Save(Json& state) const override {
        Json& list = state["dhcp_clients"] = Json::array();
        for (const auto& [_, client] : clients_) {
            if (!client->Stopping()) {
                list.push_back(client->Save());
            }
        }
    }
    void Restore(const Json& state) override {
        for (const Json& each : state.value("dhcp_clients", Json::array())) {
            Revive(each);
        }
    }
    void Forget(const Json& state) override {
        for (const Json& each : state.value("dhcp_clients", Json::array())) {
            LeaseSettings settings(context_, each.at("interface").get<std::string>(),
                                   each.at("family").get<u16>());
            settings.Restore(each.at("settings"));
            settings.Remove();
        }
    }
    void Show(Json& answer) const override {
        Json& list = answer["dhcp_clients"] = Json::array();
        for (const auto& [_, client] : clients_) {
            list.push_back(client->Show());
        }
    }
    void End(const Ending& ending) override {
        for (const auto& [_, client] : clients_) {
            client->TellEnd();
            if (!client->Stopping()) {
                client->Stop([ending] {});
            }
        }
    }

 private:
    using Key = std::pair<std::string, u16>;

    static Key KeyOf(const wire::FamilyIfaceBody& body) {
        CheckOneFamily(body.wSinFamily);
        return {NameOf(body.achIfaceName), body.wSinFamily};
    }

    // An application that was restarted asks for what runs already: it is told the lease once that
    // is renewed.
    void Start(const wire::FamilyIfaceBody& body) {
        const Key key = KeyOf(body);
        if (const auto found = clients_.find(key); found != clients_.end()) {
            if (found->second->Stopping()) {
                throw Refusal(EBUSY, "the client is being stopped");
            }
            RenewIfItRuns(key);
            return;
        }
        if (!files_) {
            files_.emplace(context_.runDir);
        }
        auto client = MakeClient(key);
        client->Run();
        clients_.emplace(key, std::move(client));
    }

    std::unique_ptr<LeaseClient> MakeClient(const Key& key) {
        const auto& [name, family] = key;
        if (family == VIMBRA_FAMILY_IPV4) {
            return MakeUdhcpcClient(context_, name, *files_);
        }
        // Who looks for "udhcpc" finds "udhcpc6" as well: such a signal may be meant for the other.
        return MakeDhclientClient(context_, name, *files_, [this, name = name] {
            RenewIfItRuns({name, VIMBRA_FAMILY_IPV4});
        });
    }

    // The client of an earlier life, made anew. One that cannot know its lease is none.
    void Revive(const Json& state) {
        if (!files_) {
            files_.emplace(context_.runDir);
        }
        const Key key{state.at("interface").get<std::string>(), state.at("family").get<u16>()};
        CheckOneFamily(key.second);
        auto client = MakeClient(key);
        client->Restore(state);
        clients_[key] = std::move(client);
    }

    void RenewIfItRuns(const Key& key) {
        const auto found = clients_.find(key);
        if (found != clients_.end() && found->second->HasProgram() && !found->second->Stopping()) {
            found->second->Renew();
        }
    }

    void Stop(const wire::FamilyIfaceBody& body, const Answer<wire::PlainResult>& answer) {
        const Key key = KeyOf(body);
        const auto found = clients_.find(key);
        if (found == clients_.end()) {
            answer({0});
            return;
        }
        if (found->second->Stopping()) {
            throw Refusal(EBUSY, "the client is being stopped");
        }
        found->second->Stop([this, key, answer] {
            const auto ended = clients_.extract(key);
            answer({0});
        });
    }

    Context context_;
    std::optional<PrivateDir> files_;
    std::map<Key, std::unique_ptr<LeaseClient>> clients_;
};

}  // namespace

std::unique_ptr<Service> MakeDhcpClientService(const Context& context) {
    return std::make_unique<DhcpClientService>(context);
}

}  // namespace vimbrad
