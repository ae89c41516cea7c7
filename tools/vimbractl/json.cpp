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

// What the system calls something need not be UTF-8.
std::string Json::Line() const {
    return value_->json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string Json::Text() const {
    return value_->json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace ctl
