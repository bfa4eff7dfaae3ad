#include "support/SafeStore.h"

#include <gtest/gtest.h>

#include <map>

#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using Numbers = std::map<std::string, int>;

TEST(SafeStore, GoodFilesDecodeAndDamagedOnesAreKeptUnderStampedNamesNeverOverwritten) {
    testing::TempDir dir;
    testing::FixedClock clock(testing::utc("2024-03-05T14:07:09Z"));
    const auto missing = SafeStore::load<Numbers>(dir / "evidence.json");
    EXPECT_FALSE(missing.value || missing.error);
    testing::writeText(dir / "evidence.json", R"({"a": 1, "b": 2})");
    EXPECT_EQ(SafeStore::load<Numbers>(dir / "evidence.json").value, (Numbers{{"a", 1}, {"b", 2}}));

    testing::writeText(dir / "evidence.json", R"({"a": 1,)");
    const auto first = SafeStore::load<Numbers>(dir / "evidence.json");
    EXPECT_FALSE(first.value);
    ASSERT_TRUE(first.error);
    const std::string prefix =
        "evidence.json couldn't be read and was kept as evidence.corrupt-2024-03-05T140709Z.json: ";
    EXPECT_EQ(first.error->message.rfind(prefix, 0), 0u);
    EXPECT_GT(first.error->message.size(), prefix.size());
    EXPECT_FALSE(std::filesystem::exists(dir / "evidence.json"));

    // Valid JSON of the wrong shape is damage too; the same second needs a second name.
    testing::writeText(dir / "evidence.json", "[]");
    const auto second = SafeStore::load<Numbers>(dir / "evidence.json");
    ASSERT_TRUE(second.error);
    EXPECT_NE(second.error->message.find("kept as evidence.corrupt-2024-03-05T140709Z-2.json: "),
              std::string::npos);
    EXPECT_EQ(files::readFile(dir / "evidence.corrupt-2024-03-05T140709Z.json"), R"({"a": 1,)");
    EXPECT_EQ(files::readFile(dir / "evidence.corrupt-2024-03-05T140709Z-2.json"), "[]");
}

}  // namespace
}  // namespace bc
