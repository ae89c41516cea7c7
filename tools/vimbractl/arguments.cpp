#include "arguments.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

namespace ctl {

namespace {

// What the kernel would refuse as a name of an interface; the library takes one character more than
// the kernel, and would reach another interface with it.
bool ParseInterface(const std::string& text, InterfaceName& name) {
    constexpr size_t kLongest = VIMBRA_IFACE_NAME_LEN - 1;
    // What begins with a hyphen is a mistaken option.
    const bool valid =
        !text.empty() && text.size() <= kLongest && text != "." && text != ".." && text[0] != '-' &&
        std::none_of(text.begin(), text.end(),
                     [](unsigned char c) { return c <= ' ' || c == '/' || c == ':' || c == 0x7f; });
    if (valid) {
        memcpy(name.text, text.data(), text.size());
    }
    return valid;
}

bool ParseInterfaceOrAny(const std::string& text, InterfaceName& name) {
    return text == "-" || ParseInterface(text, name);
}

bool ParseMac(const std::string& text, TVimbraIfaceMac& mac) {
    constexpr size_t kLength = 17;
    if (text.size() != kLength || (text[2] != ':' && text[2] != '-')) {
        return false;
    }
    for (size_t i = 0; i < sizeof(mac.abyMacAddr); i++) {
        const char* digits = text.data() + 3 * i;
        const auto [end, error] = std::from_chars(digits, digits + 2, mac.abyMacAddr[i], 16);
        const bool isLast = i + 1 == sizeof(mac.abyMacAddr);
        if (error != std::errc() || end != digits + 2 || (!isLast && *end != text[2])) {
            return false;
        }
    }
    return true;
}

bool ParseAddress(const std::string& text, TVimbraAddr& address) {
    address = {};
    if (inet_pton(AF_INET, text.c_str(), &address.tV4Addr) == 1) {
        address.wSinFamily = VIMBRA_FAMILY_IPV4;
        return true;
    }
    if (inet_pton(AF_INET6, text.c_str(), &address.tV6Addr) == 1) {
        address.wSinFamily = VIMBRA_FAMILY_IPV6;
        return true;
    }
    return false;
}

bool ParseIpv4Address(const std::string& text, TVimbraAddr& address) {
    return ParseAddress(text, address) && address.wSinFamily == VIMBRA_FAMILY_IPV4;
}

bool ParsePrefixed(const std::string& text, Prefixed& prefixed) {
    const size_t slash = text.find('/');
    if (slash == std::string::npos || !ParseAddress(text.substr(0, slash), prefixed.address) ||
        !ParseNumber(text.substr(slash + 1), prefixed.prefix)) {
        return false;
    }
    return prefixed.prefix <= (prefixed.address.wSinFamily == VIMBRA_FAMILY_IPV4 ? 32U : 128U);
}

bool ParseNetwork(const std::string& text, Prefixed& prefixed) {
    if (text == "default") {
        prefixed = {};
        return true;
    }
    return ParsePrefixed(text, prefixed);
}

bool ParseIpv4Network(const std::string& text, Prefixed& prefixed) {
    return ParsePrefixed(text, prefixed) && prefixed.address.wSinFamily == VIMBRA_FAMILY_IPV4;
}

constexpr std::array<std::pair<const char*, u16>, 3> kFamilies = {{
    {"ipv4", VIMBRA_FAMILY_IPV4},
    {"ipv6", VIMBRA_FAMILY_IPV6},
    {"both", VIMBRA_FAMILY_BOTH},
}};

constexpr std::array<std::pair<const char*, EVimbraScopeType>, 5> kScopes = {{
    {"default", VIMBRA_SCOPE_TYPE_DEF},
    {"host", VIMBRA_SCOPE_TYPE_HOST},
    {"link", VIMBRA_SCOPE_TYPE_LINK},
    {"site", VIMBRA_SCOPE_TYPE_SITE},
    {"global", VIMBRA_SCOPE_TYPE_GLOBAL},
}};

template <typename Names, typename Value>
bool ParseName(const Names& names, const std::string& text, Value& value) {
    for (const auto& [name, named] : names) {
        if (text == name) {
            value = named;
            return true;
        }
    }
    return false;
}

bool ParseFamilyOrBoth(const std::string& text, u16& family) {
    return ParseName(kFamilies, text, family);
}

bool ParseFamily(const std::string& text, u16& family) {
    return ParseFamilyOrBoth(text, family) && family != VIMBRA_FAMILY_BOTH;
}

bool ParseScope(const std::string& text, EVimbraScopeType& scope) {
    return ParseName(kScopes, text, scope);
}

}  // namespace

const Kind<InterfaceName> kInterface = {"a name of 1 to 15 characters such as eth0", ParseInterface,
                                        kInterfaceType};
const Kind<InterfaceName> kInterfaceOrAny = {
    "a name of 1 to 15 characters such as eth0, or - to leave it to the daemon",
    ParseInterfaceOrAny, kInterfaceType};
const Kind<TVimbraIfaceMac> kMac = {"six hexadecimal pairs such as 02:00:00:00:00:01", ParseMac};
const Kind<TVimbraAddr> kAddress = {"an address such as 192.0.2.1 or 2001:db8::1", ParseAddress};
const Kind<TVimbraAddr> kIpv4Address = {"an IPv4 address such as 192.0.2.1", ParseIpv4Address};
const Kind<Prefixed> kPrefixed = {
    "an address and its prefix length such as 192.0.2.1/24 or 2001:db8::1/64", ParsePrefixed};
const Kind<Prefixed> kNetwork = {"a network such as 198.51.100.0/24 or 2001:db8:1::/48, or default",
                                 ParseNetwork, "{default}"};
const Kind<Prefixed> kIpv4Network = {"IPv4 with a prefix length such as 192.0.2.0/24",
                                     ParseIpv4Network};
const Kind<u16> kFamily = {"ipv4 or ipv6", ParseFamily, "{ipv4,ipv6}"};
const Kind<u16> kFamilyOrBoth = {"ipv4, ipv6 or both", ParseFamilyOrBoth, "{ipv4,ipv6,both}"};
const Kind<EVimbraScopeType> kScopeOfOne = {"default or global", ParseScope, "{default,global}"};
const Kind<EVimbraScopeType> kScopeOfSet = {"default, link or global", ParseScope,
                                            "{default,link,global}"};
const Kind<u32> kNumber = {"a number from 0 to 4294967295", ParseNumber};

bool ParseNumber(const std::string& text, u32& value) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end;
}

std::string FamilyText(u16 family) {
    for (const auto& [name, value] : kFamilies) {
        if (value == family) {
            return name;
        }
    }
    return std::to_string(family);
}

std::string ScopeText(u32 scope) {
    for (const auto& [name, value] : kScopes) {
        if (value == scope) {
            return name;
        }
    }
    return std::to_string(scope);
}

std::string AddressText(const TVimbraAddr& address) {
    char text[INET6_ADDRSTRLEN] = {};
    const int family = address.wSinFamily;
    if ((family != AF_INET && family != AF_INET6) ||
        inet_ntop(family, &address.tV6Addr, text, sizeof(text)) == nullptr) {
        return "family " + std::to_string(family);
    }
    return text;
}

bool IsZero(const TVimbraAddr& address) {
    return address.wSinFamily == VIMBRA_FAMILY_IPV4 ? address.tV4Addr.s_addr == INADDR_ANY
                                                    : IN6_IS_ADDR_UNSPECIFIED(&address.tV6Addr);
}

std::string FieldText(const char (&field)[VIMBRA_IFACE_NAME_LEN]) {
    return {field, strnlen(field, sizeof(field))};
}

std::string MacText(const TVimbraIfaceMac& mac) {
    char text[18];
    const u8* b = mac.abyMacAddr;
    snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4],
             b[5]);
    return text;
}

}  // namespace ctl
