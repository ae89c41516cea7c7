// Values of JSON, for what a command shows. What writes them as text takes long to compile: one
// file of the tool sees it.
#ifndef VIMBRA_TOOLS_VIMBRACTL_JSON_HPP
#define VIMBRA_TOOLS_VIMBRACTL_JSON_HPP

#include <vimbra/types.h>

#include <concepts>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace ctl {

// How fields are named, in all commands alike: words of small letters and digits, joined by
// underscores. The compiler refuses any other name.
class FieldName {
 public:
    consteval FieldName(const char* text) : text_(text) {
        if (*text < 'a' || *text > 'z') {
            throw "a field's name begins with a small letter";
        }
        for (; *text != '\0'; text++) {
            const bool isLetter = *text >= 'a' && *text <= 'z';
            const bool isDigit = *text >= '0' && *text <= '9';
            if (!isLetter && !isDigit && *text != '_') {
                throw "a field's name is written like_this";
            }
        }
    }

    constexpr const char* Text() const { return text_; }

 private:
    const char* text_;
};

struct JsonField;

class Json {
 public:
    Json(std::nullptr_t);
    Json(bool value);
    Json(double value);
    Json(const char* text);
    Json(const std::string& text);
    template <std::signed_integral Number>
    Json(Number value) : Json(Signed{value}) {}
    template <std::unsigned_integral Number>
    Json(Number value) : Json(Unsigned{value}) {}
    // An object; its fields stay in this order.
    Json(std::initializer_list<JsonField> fields);
    static Json Array();

    Json(const Json& other);
    Json(Json&& other) noexcept;
    Json& operator=(Json other) noexcept;
    ~Json();

    // A field of an object, added behind the others or replaced.
    void Set(FieldName name, const Json& value);
    // The next element of an array.
    void Append(const Json& value);

    // What somebody else has written; null where it is no JSON.
    static Json Parse(const std::string& text);
    bool IsNull() const;
    bool IsList() const;
    bool IsObject() const;
    // A field; null where there is none.
    Json At(const char* name) const;
    // The names of an object's fields, in their order.
    std::vector<std::string> Names() const;
    // The elements of a list, none of anything else.
    std::vector<Json> Items() const;
    // A text as it is, nothing for null, anything else as JSON has it.
    std::string Plain() const;

    // On one line, and on many.
    std::string Line() const;
    std::string Text() const;

 private:
    struct Signed {
        s64 value;
    };
    struct Unsigned {
        u64 value;
    };
    struct Value;

    explicit Json(Signed number);
    explicit Json(Unsigned number);
    explicit Json(Value value);

    std::unique_ptr<Value> value_;
};

struct JsonField {
    FieldName name;
    Json value;
};

}  // namespace ctl

#endif
