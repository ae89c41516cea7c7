#include "pppd_options.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <string_view>

#include "family.hpp"
#include "netlink.hpp"
#include "refusal.hpp"

namespace vimbrad {
namespace {

constexpr u32 kEchoMax = 255;

// A word of an options file, whatever it holds.
std::string Quoted(std::string_view word) {
    std::string text = "\"";
    for (const char each : word) {
        if (each == '"' || each == '\\') {
            text += '\\';
        }
        text += each;
    }
    return text + '"';
}

// A text field. No name and no password has control characters.
template <size_t N>
std::string FieldOf(const char (&field)[N], const char* what) {
    const std::string text(field, strnlen(field, N));
    if (text.empty() ||
        std::ranges::any_of(text, [](unsigned char each) { return iscntrl(each); })) {
        throw Refusal(EINVAL, std::string("no such ") + what);
    }
    return text;
}

void CheckEcho(const PppoeConfig& config) {
    if (config.lcp_echo_interval > kEchoMax || config.lcp_echo_failure > kEchoMax) {
        throw Refusal(EINVAL, "no such echo interval or count");
    }
}

class Options {
 public:
    void Add(const std::string& option) { text_ += option + "\n"; }
    void Add(const char* option, const std::string& value) { Add(option + (" " + value)); }
    const std::string& Text() const { return text_; }

 private:
    std::string text_;
};

void AddFamilies(Options& options, u16 family, const PppoeConfig& config) {
    const std::string no = config.default_route_enable != 0 ? "" : "no";
    if (Covers(family, VIMBRA_FAMILY_IPV4)) {
        options.Add("noipdefault");
        options.Add("usepeerdns");
        options.Add(no + "defaultroute");
    } else {
        options.Add("noip");
    }
    if (Covers(family, VIMBRA_FAMILY_IPV6)) {
        options.Add("+ipv6");
        options.Add(no + "defaultroute6");
    } else {
        options.Add("noipv6");
    }
}

}  // namespace

// The plug-in comes first: it knows what the interface is.
std::string PppdOptions(u16 family, const PppoeConfig& config, const std::string& hook,
                        const std::string& noHook) {
    CheckEcho(config);
    Options options;
    options.Add("plugin pppoe.so");
    options.Add(Quoted("nic-" + NameOf(config.devname)));
    options.Add("user", Quoted(UserOf(config)));
    options.Add("password", Quoted(FieldOf(config.password, "password")));
    for (const char* each : {"hide-password", "noauth", "nodetach", "nopersist", "logfd 1"}) {
        options.Add(each);
    }
    options.Add("ip-up-script", Quoted(hook));
    options.Add("ip-down-script", Quoted(noHook));
    options.Add("lcp-echo-interval", std::to_string(config.lcp_echo_interval));
    options.Add("lcp-echo-failure", std::to_string(config.lcp_echo_failure));
    AddFamilies(options, family, config);
    if (config.debug != 0) {
        options.Add("debug");
    }
    return options.Text();
}

std::string UserOf(const PppoeConfig& config) {
    return FieldOf(config.username, "user name");
}

}  // namespace vimbrad
