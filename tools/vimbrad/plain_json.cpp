#include "plain_json.hpp"

#include <nlohmann/json.hpp>

namespace vimbrad {

nlohmann::json ParsePlainJson(std::string_view text) {
    using nlohmann::json;
    bool plain = true;
    const auto look = [&plain](int, json::parse_event_t, const json& parsed) {
        plain = plain && !parsed.is_number_float();
        return true;
    };
    json parsed = json::parse(text, look, false);
    return plain ? parsed : json(json::value_t::discarded);
}

}  // namespace vimbrad
