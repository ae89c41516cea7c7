// Records of others as text.
#ifndef VIMBRA_TOOLS_VIMBRACTL_RECORD_TEXT_HPP
#define VIMBRA_TOOLS_VIMBRACTL_RECORD_TEXT_HPP

#include <string>

#include "json.hpp"

namespace ctl {

// A field's name with blanks for its underscores.
std::string WordsOf(std::string name);

// "interface eth0, state bound": whatever a daemon of another version tells has a place here.
std::string RecordText(const Json& record);

}  // namespace ctl

#endif
