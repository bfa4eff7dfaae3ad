#include <gtest/gtest.h>

#include "support/Errors.h"
#include "support/Json.h"

namespace bc {
namespace {

TEST(JsonEncoders, CompactSortsKeysAtEveryLevelAndKeepsSlashes) {
    Json record;
    record["zeta"] = "a/b/c";
    record["Alpha"] = 1;
    record["alpha"] = Json{{"outputs", Json::array({Json{{"sha256", "x"}, {"path", "/tmp/f"}}})},
                           {"kind", "live"}};
    record["\xC3\xA9t\xC3\xA9"] = true;  // "été": bytes above ASCII sort after every ASCII key
    EXPECT_EQ(json::encodeCompact(record),
              R"({"Alpha":1,"alpha":{"kind":"live","outputs":[{"path":"/tmp/f","sha256":"x"}]},)"
              R"("zeta":"a/b/c","été":true})");
}

TEST(JsonEncoders, PrettyIsTheSameDataIndented) {
    const Json record = {{"b", "/x"}, {"a", Json{{"d", 1}, {"c", 2}}}};
    EXPECT_EQ(json::encodePretty(record),
              "{\n  \"a\": {\n    \"c\": 2,\n    \"d\": 1\n  },\n  \"b\": \"/x\"\n}");
    EXPECT_EQ(json::decode(json::encodePretty(record)), record);
}

TEST(JsonEncoders, InvalidUtf8IsRepairedNotFatal) {
    const Json value = std::string("ok\xFF");
    EXPECT_EQ(json::encodeCompact(value), "\"ok\xEF\xBF\xBD\"");
}

TEST(JsonOptionals, AbsentValuesAreOmittedAndReadBackAsAbsent) {
    Json object = Json::object();
    json::setOptional(object, "pageCount", std::optional<int64_t>{});
    json::setOptional(object, "note", std::optional<std::string>{"kept"});
    EXPECT_EQ(json::encodeCompact(object), R"({"note":"kept"})");
    EXPECT_FALSE(json::getOptional<int64_t>(object, "pageCount").has_value());
    EXPECT_EQ(json::getOptional<std::string>(object, "note"), "kept");
}

TEST(JsonIntegers, OnlyWholeNumbersInRangeRead) {
    EXPECT_EQ(json::integer(Json(-7), "an id"), -7);
    EXPECT_EQ(json::integer(Json(INT64_MAX), "an id"), INT64_MAX);
    for (const Json& other : {Json(2.5), Json("3"), Json(uint64_t(INT64_MAX) + 1), Json()}) {
        try {
            json::integer(other, "an id");
            ADD_FAILURE() << other.dump();
        } catch (const Error& error) {
            EXPECT_EQ(std::string(error.what()),
                      "Couldn't read an id: " + other.dump() + " is not a whole number.");
        }
    }
}

TEST(JsonDecoder, MalformedInputIsOneSentence) {
    try {
        json::decode("{\"a\": ");
        FAIL() << "expected an error";
    } catch (const Error& e) {
        EXPECT_TRUE(std::string(e.what()).starts_with("Couldn't read JSON: "));
    }
}

}  // namespace
}  // namespace bc
