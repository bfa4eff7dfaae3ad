#include "evidence/EvidenceFlags.h"

#include <gtest/gtest.h>

#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using testing::utc;

Message message(int64_t id, const std::string& guid) {
    Message m;
    m.id = id;
    m.guid = guid;
    m.chatID = 7;
    return m;
}

class EvidenceFlagsTest : public ::testing::Test {
protected:
    testing::TempDir dir;
    testing::ScopedOverride location{EvidenceStore::location(), dir / "Kestrove" / "evidence.json"};
    testing::FixedClock clock{utc("2024-03-05T14:07:09Z")};
};

TEST_F(EvidenceFlagsTest, NotesFlagAndTogglingOffDropsTheNote) {
    EvidenceFlags flags;
    const Message m = message(12, "G-12");
    EXPECT_FALSE(flags.setNote("", m));  // an empty note flags nothing
    EXPECT_FALSE(flags.isFlagged(m));
    EXPECT_FALSE(flags.setNote("first", m));
    clock.set(utc("2024-03-06T09:00:00Z"));
    EXPECT_FALSE(flags.setNote("second", m));
    EXPECT_EQ(flags.flags().at("G-12"),
              (EvidenceFlag{"G-12", 12, 7, "second", utc("2024-03-05T14:07:09Z"),
                            utc("2024-03-06T09:00:00Z")}));

    EXPECT_FALSE(flags.toggleFlag(m));
    EXPECT_TRUE(EvidenceStore::load().empty());
    EXPECT_FALSE(flags.toggleFlag(m));
    EXPECT_EQ(flags.flags().at("G-12").note, "");
}

TEST_F(EvidenceFlagsTest, FlagsSurviveAReloadKeyedByGuid) {
    EvidenceFlags flags;
    flags.toggleFlag(message(12, "G-12"));
    flags.setNote("threat", message(30, "G-30"));
    const auto written = json::decode(files::readFile(EvidenceStore::location().path()));
    EXPECT_EQ(written["G-30"]["flaggedAt"], "2024-03-05T14:07:09Z");

    // The same messages read again from a snapshot carry other row ids.
    const EvidenceFlags reloaded(EvidenceStore::load());
    const auto flagged = reloaded.flaggedMessages(
        {message(500, "G-30"), message(501, "G-other"), message(502, "G-12")});
    ASSERT_EQ(flagged.size(), 2u);
    EXPECT_EQ(flagged[0].id, 500);
    EXPECT_EQ(flagged[1].id, 502);
    EXPECT_EQ(reloaded.flags(), flags.flags());
}

TEST_F(EvidenceFlagsTest, FailedSaveIsReportedAndKeepsTheChange) {
    testing::writeText(dir / "Kestrove", "a file where the folder should be");
    EvidenceFlags flags;
    const auto status = flags.toggleFlag(message(12, "G-12"));
    ASSERT_TRUE(status);
    EXPECT_EQ(status->rfind("Couldn't save evidence flags: ", 0), 0u);
    EXPECT_TRUE(flags.isFlagged(message(12, "G-12")));
}

TEST_F(EvidenceFlagsTest, CorruptFileIsSetAsideAndTheNextSaveWritesAFreshOne) {
    testing::writeText(EvidenceStore::location().path(), R"({"G-1": {"guid": "G-1"}})");
    EvidenceFlags flags(EvidenceStore::load());
    EXPECT_TRUE(flags.flags().empty());
    EXPECT_EQ(EvidenceStore::loadError().get().value_or("").rfind(
                  "evidence.json couldn't be read and was kept as "
                  "evidence.corrupt-2024-03-05T140709Z.json: ",
                  0),
              0u);
    EvidenceStore::loadError().set(std::nullopt);

    flags.toggleFlag(message(2, "G-2"));
    EXPECT_EQ(EvidenceStore::load().size(), 1u);
    EXPECT_EQ(files::readFile(dir / "Kestrove" / "evidence.corrupt-2024-03-05T140709Z.json"),
              R"({"G-1": {"guid": "G-1"}})");
}

TEST_F(EvidenceFlagsTest, AFlagNotInTheStoresOwnFormIsDamageNeverRounded) {
    EvidenceFlags flags;
    flags.setNote("threat", message(12, "G-12"));
    const auto path = EvidenceStore::location().path();
    const Json written = json::decode(files::readFile(path));
    for (const auto& [key, value] : {std::pair<std::string, Json>{"messageID", 12.5},
                                     {"chatID", "7"},
                                     {"flaggedAt", "2024-03-05T14:07:09.000Z"},
                                     {"updatedAt", "2024-03-05T15:07:09+01:00"}}) {
        Json damaged = written;
        damaged["G-12"][key] = value;
        testing::writeText(path, damaged.dump());
        EXPECT_TRUE(EvidenceStore::load().empty()) << key;
        EXPECT_NE(EvidenceStore::loadError().get().value_or("").find(
                      "evidence.json couldn't be read and was kept as "),
                  std::string::npos)
            << key;
        EvidenceStore::loadError().set(std::nullopt);
    }
    testing::writeText(path, written.dump());
    EXPECT_EQ(EvidenceStore::load(), flags.flags()) << "the store's own form reads back";
}

}  // namespace
}  // namespace bc
