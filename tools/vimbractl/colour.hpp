// Colours for people at a terminal, the same as those of ip.
#ifndef VIMBRA_TOOLS_VIMBRACTL_COLOUR_HPP
#define VIMBRA_TOOLS_VIMBRACTL_COLOUR_HPP

#include <vimbra/addr.h>

#include <string>

namespace ctl {

// Is the descriptor a terminal that shows colours, and does its user want them? NO_COLOR in the
// environment says that he does not.
bool ShowsColours(int descriptor);

// Writes texts in colours, or as they are.
class Painter {
 public:
    explicit Painter(bool paints) : paints_(paints) {}

    std::string Interface(const std::string& name) const { return Paint(Colour::kCyan, name); }
    std::string Mac(const std::string& mac) const { return Paint(Colour::kYellow, mac); }
    std::string Good(const std::string& text) const { return Paint(Colour::kGreen, text); }
    std::string Bad(const std::string& text) const { return Paint(Colour::kRed, text); }
    // Addresses have a colour for each family.
    std::string Address(const TVimbraAddr& address) const;

 private:
    enum class Colour { kCyan, kYellow, kMagenta, kBlue, kGreen, kRed };

    static const char* Code(Colour colour);
    std::string Paint(Colour colour, const std::string& text) const;

    bool paints_;
};

}  // namespace ctl

#endif
