#include "evidence/EvidenceFlags.h"

#include <gtest/gtest.h>

#include "support/DateFormat.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using testing::FixedClock;
using testing::ScopedOverride;
using testing::TempDir;

Date at(const char* iso) {
    return *dates::parseIso8601(iso);
}

Message message(int64_t id, const std::string& guid, int64_t chatID = 7) {
    Message m;
    m.id = id;
    m.guid = guid;
    m.chatID = chatID;
    return m;
}

class EvidenceFlagsTest : public ::testing::Test {
  protected:
    std::filesystem::path file() const { return dir / "Kestrove" / "evidence.json"; }

    TempDir dir;
    ScopedOverride location{EvidenceStore::location(), file()};
    FixedClock clock{at("2024-03-05T14:07:09Z")};
};

TEST_F(EvidenceFlagsTest, TogglingTwiceRemovesTheFlagAndItsNote) {
    EvidenceFlags flags;
    const Message m = message(12, "G-12");
    EXPECT_FALSE(flags.toggleFlag(m));
    ASSERT_FALSE(flags.setNote("seen at the door", m));
    EXPECT_EQ(flags.flags().at("G-12"),
              (EvidenceFlag{"G-12", 12, 7, "seen at the door", at("2024-03-05T14:07:09Z"),
                            at("2024-03-05T14:07:09Z")}));

    EXPECT_FALSE(flags.toggleFlag(m));
    EXPECT_FALSE(flags.isFlagged(m));
    EXPECT_TRUE(EvidenceStore::load().empty());
    EXPECT_FALSE(flags.toggleFlag(m));
    EXPECT_EQ(flags.flags().at("G-12").note, "");
}

TEST_F(EvidenceFlagsTest, NoteFlagsAnUnflaggedMessageAndEditingKeepsFlaggedAt) {
    EvidenceFlags flags;
    const Message m = message(12, "G-12");
    EXPECT_FALSE(flags.setNote("", m));
    EXPECT_FALSE(flags.isFlagged(m));

    EXPECT_FALSE(flags.setNote("first", m));
    EXPECT_TRUE(flags.isFlagged(m));
    clock.set(at("2024-03-06T09:00:00Z"));
    EXPECT_FALSE(flags.setNote("second", m));

    const EvidenceFlag& flag = flags.flags().at("G-12");
    EXPECT_EQ(flag.note, "second");
    EXPECT_EQ(flag.flaggedAt, at("2024-03-05T14:07:09Z"));
    EXPECT_EQ(flag.updatedAt, at("2024-03-06T09:00:00Z"));
}

TEST_F(EvidenceFlagsTest, FlagsSurviveAReloadKeyedByGuid) {
    {
        EvidenceFlags flags;
        flags.toggleFlag(message(12, "G-12"));
        flags.setNote("threat", message(30, "G-30"));
    }
    const auto written = json::decode(files::readFile(file()));
    EXPECT_EQ(written["G-30"]["note"], "threat");
    EXPECT_EQ(written["G-30"]["flaggedAt"], "2024-03-05T14:07:09Z");

    // The same messages read again from a snapshot carry other row ids.
    const EvidenceFlags reloaded(EvidenceStore::load());
    const std::vector<Message> transcript{message(500, "G-30"), message(501, "G-other"),
                                          message(502, "G-12")};
    const auto flagged = reloaded.flaggedMessages(transcript);
    ASSERT_EQ(flagged.size(), 2u);
    EXPECT_EQ(flagged[0].id, 500);
    EXPECT_EQ(flagged[1].id, 502);
    EXPECT_EQ(reloaded.flags().at("G-30").messageID, 30);
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
    testing::writeText(file(), R"({"G-1": {"guid": "G-1"}})");
    EvidenceStore::loadError().set(std::nullopt);

    EvidenceFlags flags(EvidenceStore::load());
    EXPECT_TRUE(flags.flags().empty());
    ASSERT_TRUE(EvidenceStore::loadError().get());
    EXPECT_EQ(
        EvidenceStore::loadError().get()->rfind("evidence.json couldn't be read and was kept as "
                                                "evidence.corrupt-2024-03-05T140709Z.json: ",
                                                0),
        0u);

    flags.toggleFlag(message(2, "G-2"));
    EXPECT_EQ(EvidenceStore::load().size(), 1u);
    EXPECT_EQ(files::readFile(dir / "Kestrove" / "evidence.corrupt-2024-03-05T140709Z.json"),
              R"({"G-1": {"guid": "G-1"}})");
    EvidenceStore::loadError().set(std::nullopt);
}

}  // namespace
}  // namespace bc
