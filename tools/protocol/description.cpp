// The protocol as JSON, for programs of other languages.
#include <string>

#include "value.hpp"
#include "writers.hpp"

namespace protocol {
namespace {

Json Told(const Record& record) {
    Json fields = Json::array();
    for (const Field& field : record.fields) {
        Json told = {{"name", field.name},         {"offset", field.offset},
                     {"size", field.size},         {"count", field.count},
                     {"kind", NameOf(field.kind)}, {"meaning", field.meaning}};
        if (field.record != nullptr) {
            told["record"] = Told(field.record());
        }
        fields.push_back(told);
    }
    return {{"name", record.name}, {"size", record.size}, {"fields", fields}};
}

Json Told(const Body& body) {
    if (body.form == Body::Form::kNone) {
        return nullptr;
    }
    Json told = {{"size", body.size}, {"exact", body.form == Body::Form::kRecord}};
    if (body.record != nullptr) {
        told["record"] = Told(*body.record);
    }
    return told;
}

}  // namespace

const char* NameOf(Kind kind) {
    switch (kind) {
        case Kind::kUnsigned:
            return "unsigned";
        case Kind::kSigned:
            return "signed";
        case Kind::kText:
            return "text";
        case Kind::kSecret:
            return "secret";
        case Kind::kBytes:
            return "bytes";
        case Kind::kAddress:
            return "address";
        case Kind::kMac:
            return "mac";
        case Kind::kRecord:
            return "record";
    }
    return "";
}

void WriteJson(std::ostream& out) {
    Json requests = Json::array();
    for (const Request& each : Requests()) {
        requests.push_back({{"type", each.type},
                            {"name", each.name},
                            {"meaning", each.meaning},
                            {"changes", each.changes},
                            {"body", Told(each.body)},
                            {"reply", Told(each.reply)}});
    }
    Json notifications = Json::array();
    for (const Notification& each : Notifications()) {
        notifications.push_back({{"socket", each.socket},
                                 {"types", {each.firstType, each.lastType}},
                                 {"name", each.name},
                                 {"meaning", each.meaning},
                                 {"request", each.request},
                                 {"body", Told(each.body)}});
    }
    out << Json{{"requests", requests}, {"notifications", notifications}}.dump(1) << '\n';
}

}  // namespace protocol
