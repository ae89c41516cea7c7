#include "address_text.hpp"

#include <arpa/inet.h>

namespace vimbrad {

std::string TextOf(const TVimbraAddr& address) {
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(address.wSinFamily, &address.tV6Addr, text, sizeof(text));
    return text;
}

std::string TextOf(const TVimbraAddr& address, u32 prefix) {
    return TextOf(address) + "/" + std::to_string(prefix);
}

TVimbraAddr AddressOf(u16 family, std::string_view text) {
    TVimbraAddr address{};
    address.wSinFamily = family;
    inet_pton(family, std::string(text).c_str(), &address.tV6Addr);
    return address;
}

}  // namespace vimbrad
