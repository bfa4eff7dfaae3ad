#include "custody/SafeStore.h"

#include <gtest/gtest.h>

#include <map>

#include "support/DateFormat.h"
#include "support/Files.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using testing::FixedClock;
using testing::TempDir;
using Numbers = std::map<std::string, int>;

const Date loadTime = *dates::parseIso8601("2024-03-05T14:07:09Z");

TEST(SafeStore, MissingFileIsNoValueAndNoError) {
    TempDir dir;
    const auto loaded = SafeStore::load<Numbers>(dir / "evidence.json");
    EXPECT_FALSE(loaded.value);
    EXPECT_FALSE(loaded.error);
}

TEST(SafeStore, DecodesAWellFormedFile) {
    TempDir dir;
    testing::writeText(dir / "evidence.json", R"({"a": 1, "b": 2})");
    const auto loaded = SafeStore::load<Numbers>(dir / "evidence.json");
    ASSERT_FALSE(loaded.error);
    EXPECT_EQ(loaded.value, (Numbers{{"a", 1}, {"b", 2}}));
}

TEST(SafeStore, DamagedFileIsKeptUnderAStampedNameAndReported) {
    TempDir dir;
    FixedClock clock(loadTime);
    const std::string damaged = R"({"a": 1,)";
    testing::writeText(dir / "evidence.json", damaged);

    const auto loaded = SafeStore::load<Numbers>(dir / "evidence.json");

    EXPECT_FALSE(loaded.value);
    ASSERT_TRUE(loaded.error);
    const std::string prefix =
        "evidence.json couldn't be read and was kept as evidence.corrupt-2024-03-05T140709Z.json: ";
    EXPECT_EQ(loaded.error->message.substr(0, prefix.size()), prefix);
    EXPECT_GT(loaded.error->message.size(), prefix.size());
    EXPECT_FALSE(std::filesystem::exists(dir / "evidence.json"));
    EXPECT_EQ(files::readFile(dir / "evidence.corrupt-2024-03-05T140709Z.json"), damaged);
}

TEST(SafeStore, WrongShapeCountsAsDamageAndSecondBackupDoesNotOverwriteFirst) {
    TempDir dir;
    FixedClock clock(loadTime);
    testing::writeText(dir / "events.json", R"({"a": "not a number"})");
    ASSERT_TRUE(SafeStore::load<Numbers>(dir / "events.json").error);
    testing::writeText(dir / "events.json", "[]");

    const auto second = SafeStore::load<Numbers>(dir / "events.json");

    ASSERT_TRUE(second.error);
    EXPECT_NE(second.error->message.find("kept as events.corrupt-2024-03-05T140709Z-2.json: "),
              std::string::npos);
    EXPECT_EQ(files::readFile(dir / "events.corrupt-2024-03-05T140709Z.json"),
              R"({"a": "not a number"})");
    EXPECT_EQ(files::readFile(dir / "events.corrupt-2024-03-05T140709Z-2.json"), "[]");
}

TEST(SafeStore, LoadOrEmptyRecordsTheProblemAndGivesAnEmptyStore) {
    TempDir dir;
    StoreLoadError loadError;
    testing::writeText(dir / "store.json", "garbage");
    EXPECT_TRUE(loadOrEmpty<Numbers>(dir / "store.json", loadError).empty());
    ASSERT_TRUE(loadError.get());
    EXPECT_EQ(
        loadError.get()->rfind("store.json couldn't be read and was kept as store.corrupt-", 0),
        0u);
}

}  // namespace
}  // namespace bc
