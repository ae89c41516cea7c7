#include "record_text.hpp"

namespace ctl {

std::string WordsOf(std::string name) {
    for (char& c : name) {
        c = c == '_' ? ' ' : c;
    }
    return name;
}

std::string RecordText(const Json& record) {
    if (!record.IsObject() && !record.IsList()) {
        return record.Plain();
    }
    std::string text;
    const char* separator = "";
    for (const std::string& name : record.Names()) {
        const Json field = record.At(name.c_str());
        const bool isRecord = field.IsObject() || field.IsList();
        text += separator + WordsOf(name) + " " +
                (isRecord ? "(" + RecordText(field) + ")" : RecordText(field));
        separator = ", ";
    }
    for (const Json& item : record.Items()) {
        text += separator + RecordText(item);
        separator = item.IsObject() ? "; " : ", ";
    }
    return text;
}

}  // namespace ctl
