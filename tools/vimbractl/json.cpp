#include "json.hpp"

#include <nlohmann/json.hpp>
#include <utility>

namespace ctl {

// Keeps the order in which a command names its fields.
struct Json::Value {
    nlohmann::ordered_json json;
};

Json::Json(Value value) : value_(std::make_unique<Value>(std::move(value))) {}
Json::Json(std::nullptr_t) : Json(Value{nullptr}) {}
Json::Json(bool value) : Json(Value{value}) {}
Json::Json(double value) : Json(Value{value}) {}
Json::Json(const char* text) : Json(Value{text}) {}
Json::Json(const std::string& text) : Json(Value{text}) {}
Json::Json(Signed number) : Json(Value{number.value}) {}
Json::Json(Unsigned number) : Json(Value{number.value}) {}

Json::Json(std::initializer_list<JsonField> fields)
    : Json(Value{nlohmann::ordered_json::object()}) {
    for (const JsonField& field : fields) {
        Set(field.name, field.value);
    }
}

Json Json::Array() {
    return Json(Value{nlohmann::ordered_json::array()});
}

Json::Json(const Json& other) : Json(Value(*other.value_)) {}
Json::Json(Json&& other) noexcept = default;
Json::~Json() = default;

Json& Json::operator=(Json other) noexcept {
    value_.swap(other.value_);
    return *this;
}

void Json::Set(FieldName name, const Json& value) {
    value_->json[name.Text()] = value.value_->json;
}

void Json::Append(const Json& value) {
    value_->json.push_back(value.value_->json);
}

Json Json::Parse(const std::string& text) {
    nlohmann::ordered_json json = nlohmann::ordered_json::parse(text, nullptr, false);
    return Json(Value{json.is_discarded() ? nullptr : std::move(json)});
}

bool Json::IsNull() const {
    return value_->json.is_null();
}

bool Json::IsList() const {
    return value_->json.is_array();
}

bool Json::IsObject() const {
    return value_->json.is_object();
}

Json Json::At(const char* name) const {
    const auto& json = value_->json;
    const bool has = json.is_object() && json.contains(name);
    return Json(Value{has ? json.at(name) : nlohmann::ordered_json()});
}

std::vector<std::string> Json::Names() const {
    std::vector<std::string> names;
    if (IsObject()) {
        for (const auto& field : value_->json.items()) {
            names.push_back(field.key());
        }
    }
    return names;
}

std::vector<Json> Json::Items() const {
    std::vector<Json> items;
    if (IsList()) {
        for (const auto& item : value_->json) {
            items.push_back(Json(Value{item}));
        }
    }
    return items;
}

std::string Json::Plain() const {
    if (value_->json.is_string()) {
        return value_->json.get<std::string>();
    }
    return IsNull() ? "" : Line();
}

// What the system calls something need not be UTF-8.
std::string Json::Line() const {
    return value_->json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string Json::Text() const {
    return value_->json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace ctl
