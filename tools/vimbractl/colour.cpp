#include "colour.hpp"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "arguments.hpp"

namespace ctl {

namespace {

std::string_view Environment(const char* name) {
    const char* const value = getenv(name);
    return value != nullptr ? value : "";
}

}  // namespace

bool ShowsColours(int descriptor) {
    const std::string_view terminal = Environment("TERM");
    return isatty(descriptor) != 0 && Environment("NO_COLOR").empty() && !terminal.empty() &&
           terminal != "dumb";
}

const char* Painter::Code(Colour colour) {
    switch (colour) {
        case Colour::kCyan:
            return "\033[36m";
        case Colour::kYellow:
            return "\033[33m";
        case Colour::kMagenta:
            return "\033[35m";
        case Colour::kBlue:
            return "\033[34m";
        case Colour::kGreen:
            return "\033[32m";
        case Colour::kRed:
            return "\033[31m";
    }
    return "";
}

std::string Painter::Paint(Colour colour, const std::string& text) const {
    return paints_ ? Code(colour) + text + "\033[0m" : text;
}

std::string Painter::Address(const TVimbraAddr& address) const {
    return Paint(address.wSinFamily == VIMBRA_FAMILY_IPV6 ? Colour::kBlue : Colour::kMagenta,
                 AddressText(address));
}

}  // namespace ctl
