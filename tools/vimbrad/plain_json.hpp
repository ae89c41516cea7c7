// JSON from outside the daemon: the state of an earlier life, operators' questions.
#ifndef VIMBRA_TOOLS_VIMBRAD_PLAIN_JSON_HPP
#define VIMBRA_TOOLS_VIMBRAD_PLAIN_JSON_HPP

#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace vimbrad {

// With whole numbers only. There is no use for others, and one that no integer can hold may become
// anything where an integer is asked for. What is not of this kind is discarded, which is no object.
nlohmann::json ParsePlainJson(std::string_view text);

}  // namespace vimbrad

#endif
