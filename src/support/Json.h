#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "support/Date.h"

namespace bc {

// nlohmann's default object is a std::map, so keys come out sorted byte-wise at every level,
// and it never escapes "/". Both encoders below rely on that.
using Json = nlohmann::json;

namespace json {

// One line, the form custody records are hashed in.
std::string encodeCompact(const Json& value);
// Indented by two, for manifests and stores.
std::string encodePretty(const Json& value);
// Throws Error("Couldn't read JSON: …") on malformed input.
Json decode(std::string_view text);

// Absent optionals are omitted, never written as null.
template <class T>
void setOptional(Json& object, const char* key, const std::optional<T>& value) {
    if (value) object[key] = *value;
}

template <class T>
std::optional<T> getOptional(const Json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    return it->template get<T>();
}

// A stored whole number: a fraction, text or a value out of range is damage, never rounded.
// `what` names the value in the error.
int64_t integer(const Json& value, std::string_view what);

}  // namespace json

// Dates travel as ISO 8601 with whole seconds and "Z"; floats stay out of hashed text. Reading
// takes only that form: anything else was not written here.
void to_json(Json& j, const Date& date);
void from_json(const Json& j, Date& date);

}  // namespace bc
