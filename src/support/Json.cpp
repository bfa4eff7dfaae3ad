#include "support/Json.h"

#include <limits>

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

int64_t integer(const Json& value, std::string_view what) {
    const bool fits = value.is_number_integer() &&
                      !(value.is_number_unsigned() &&
                        value.get<uint64_t>() > uint64_t(std::numeric_limits<int64_t>::max()));
    if (!fits)
        throw Error("Couldn't read " + std::string(what) + ": " + value.dump() +
                    " is not a whole number.");
    return value.get<int64_t>();
}

}  // namespace json

void to_json(Json& j, const Date& date) {
    j = dates::iso8601(date);
}

void from_json(const Json& j, Date& date) {
    if (!j.is_string()) throw Error("Couldn't read a date: expected ISO 8601 text.");
    const auto& text = j.get_ref<const std::string&>();
    const auto parsed = dates::parseIso8601(text);
    if (!parsed || dates::iso8601(*parsed) != text)
        throw Error("Couldn't read the date " + text +
                    ": not a whole-second UTC time such as 2024-03-05T14:07:09Z.");
    date = *parsed;
}

}  // namespace bc
