#include "support/Json.h"

#include "support/DateFormat.h"
#include "support/Errors.h"

namespace bc {

namespace json {

std::string encodeCompact(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string encodePretty(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace);
}

Json decode(std::string_view text) {
    try {
        return Json::parse(text.begin(), text.end());
    } catch (const Json::exception& e) {
        throw Error(std::string("Couldn't read JSON: ") + e.what());
    }
}

}  // namespace json

void to_json(Json& j, const Date& date) { j = dates::iso8601(date); }

void from_json(const Json& j, Date& date) {
    if (!j.is_string()) throw Error("Couldn't read a date: expected ISO 8601 text.");
    const auto parsed = dates::parseIso8601(j.get_ref<const std::string&>());
    if (!parsed) throw Error("Couldn't read the date " + j.get<std::string>() + ": not ISO 8601.");
    date = *parsed;
}

}  // namespace bc
