#include "export/ManifestCsv.h"

#include <gtest/gtest.h>

#include <sstream>

#include "HTMLExporterSamples.h"
#include "demo/LargeSample.h"
#include "sources/MessageDatabase.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Sha256.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using testing::at;
using testing::message;

TEST(ManifestCsvWriter, bomQuotedFieldsAndCrLfAfterEveryRow) {
    testing::TempDir dir;
    manifest::writeCSV({{"a", "say \"hi\""}, {"line\nbreak", ""}}, dir / "x.csv");
    EXPECT_EQ(files::readFile(dir / "x.csv"),
              "\xEF\xBB\xBF\"a\",\"say \"\"hi\"\"\"\r\n\"line\nbreak\",\"\"\r\n");
    EXPECT_THROW(manifest::writeCSV({{"a"}}, dir / "x.csv" / "not-a-folder.csv"), Error);
}

// The streamed manifest is the one built whole, and every conversation of a generated database
// (bodies only in attributed text, edits, reactions, attachments, Recently Deleted) reads into
// the very bytes it did when this digest was taken: the reader's speed work changes nothing.
TEST(ManifestCsvMessages, everyConversationOfAGeneratedDatabaseExportsTheSameBytes) {
    testing::TempDir dir;
    const demo::LargeSample sample{.messages = 10'000};
    sample.write(dir / "large.db");
    MessageDatabase db(dir / "large.db");
    Sha256 digest;
    const manifest::NameFor nameFor = [](bool isFromMe, const std::string& handle) {
        return isFromMe ? std::string("Me") : "Name of " + handle;
    };
    size_t messages = 0;
    for (const auto& chat : db.fetchChats()) {
        const Transcript transcript = db.fetchTranscript({chat.id});
        std::vector<const Message*> rows;
        std::unordered_map<std::string, const Message*> byGUID;
        for (const auto& m : transcript.messages) {
            rows.push_back(&m);
            byGUID.emplace(m.guid, &m);
        }
        std::ostringstream streamed;
        manifest::CsvStream csv(streamed);
        manifest::messageRows(rows, nameFor, {}, [&](const manifest::Row& row) { csv.add(row); });
        const std::string whole = manifest::text(manifest::messageRows(rows, nameFor, {}));
        ASSERT_EQ(streamed.str(), whole) << chat.id;
        digest.update(whole);
        digest.update(
            manifest::text(manifest::reactionRows(transcript.reactionEvents, byGUID, nameFor)));
        messages += transcript.messages.size();
    }
    EXPECT_EQ(messages, 9'481u);
    EXPECT_EQ(digest.finishHex(),
              "76c9851c5a944637084b4477cd49abdd6c6adfb59a149bc1b29fc917ffe5d9a7");
}

TEST(ManifestCsvDates, utcWithMillisecondsOrEmpty) {
    EXPECT_EQ(manifest::date(at(0.25)), "2024-03-01T17:05:09.250Z");
    EXPECT_EQ(manifest::date(std::optional<Date>()), "");
}

TEST(ManifestCsvMessages, everyColumnInOrderAndCallsLeftOut) {
    Message m = message(3, at(), "Hi", true);
    m.textAsStored = "Hi (stored)";
    m.undecodedBody = std::string("\x01\x02\xff", 3);
    m.attachments = {testing::attachment(11, "/x", "x", ""),
                     testing::attachment(12, "/y", "y", "")};
    m.replyToGUID = "G1";
    m.isEdited = true;
    m.editHistory = {{.part = 0, .date = at(1), .text = "H"}, {.part = 0, .date = at(2)}};
    m.effect = "Slam";
    m.appLabel = "Poll";
    m.dateDelivered = at(5);
    m.isInRecentlyDeleted = true;
    m.recoveredParts = {{.index = 0, .text = "lost"}, {.index = 1, .deletedAt = at(9)}};
    const manifest::MachineText machineText{{12, {.text = "STOP sign"}}, {99, {.text = "other"}}};
    const Message call = testing::callRow(4, at(), true);
    Message dated = message(5, at(), "a");  // deleted_at: a date, "unknown" above, or empty
    dated.deletedAt = at(1);
    dated.isInRecentlyDeleted = true;
    const Message kept = message(6, at(), "b");
    const auto rows =
        manifest::messageRows({&m, &call, &dated, &kept}, testing::nameFor, machineText);
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[2][21], "2024-03-01T17:05:10.000Z");
    EXPECT_EQ(rows[3][21], "");
    EXPECT_EQ(rows[0].size(), 24u);
    EXPECT_EQ(rows[0][21], "deleted_at_utc");
    EXPECT_EQ(rows[1], (manifest::Row{
                           "3",
                           "G3",
                           "7",
                           "2024-03-01T17:05:09.000Z",
                           "Me",
                           "",
                           "1",
                           "Hi",
                           "Hi (stored)",
                           "AQL/",
                           "11;12",
                           "G1",
                           "1",
                           "[2024-03-01T17:05:10.000Z] H\n[2024-03-01T17:05:11.000Z] (unreadable)",
                           "0",
                           "0",
                           "Slam",
                           "Poll",
                           "",
                           "2024-03-01T17:05:14.000Z",
                           "",
                           "unknown",
                           "[part 1, deleted ?] lost\n[part 2, deleted 2024-03-01T17:05:18.000Z] "
                           "(unreadable)",
                           "[attachment 12, machine-generated] STOP sign"}));
}

TEST(ManifestCsvReactions, namesKindsAndMarksTargetsOutsideTheExport) {
    const Message target = message(8, at(), "x");
    const std::unordered_map<std::string, const Message*> byGUID{{target.guid, &target}};
    const std::vector<ReactionEvent> events{{.rowID = 20,
                                             .date = at(),
                                             .sender = "+15551234567",
                                             .targetGUID = "G8",
                                             .kind = 2003,
                                             .emoji = "😂"},
                                            {.rowID = 21,
                                             .date = at(),
                                             .isFromMe = true,
                                             .targetGUID = "elsewhere",
                                             .isRemoval = true,
                                             .kind = 3042}};
    const auto rows = manifest::reactionRows(events, byGUID, testing::nameFor);
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[1], (manifest::Row{"20", "2024-03-01T17:05:09.000Z", "Ann", "+15551234567", "0",
                                      "added", "Laughed at", "😂", "8", "G8"}));
    EXPECT_EQ(rows[2][5], "removed");
    EXPECT_EQ(rows[2][6], "type 3042");
    EXPECT_EQ(rows[2][8], "(target not in conversation)");
}

}  // namespace
}  // namespace bc
