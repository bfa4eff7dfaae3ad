#include "custody/PreservationTesting.h"
#include "custody/SnapshotTaking.h"
#include "sources/MessageDatabase.h"
#include "support/Errors.h"

namespace bc::testing {
namespace {

TEST_F(PreservationTest, ATakenSnapshotIsLoggedAndItsLineCountsWhatWasNotPreserved) {
    MessageDatabase database(sourcePath());
    TakenSnapshot taken = takeSnapshot(database, std::vector<int64_t>{1}, "Sam", nullptr, {});
    EXPECT_FALSE(taken.custodyFailure);
    const auto records = CustodyLog::readAll();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].chatIDs, std::vector<int64_t>{1});
    EXPECT_EQ(records[0].outputs, Preservation::custodyOutputs(taken.info));
    EXPECT_EQ(taken.statusLine(),
              "Snapshot sealed: Snapshot 2024-03-05T140709: 3 attachments preserved and verified, "
              "1 not on this Mac. Logged in the custody log.");

    taken.info.attachmentsMissing = 0;
    taken.info.attachmentsFailed = 2;
    EXPECT_EQ(taken.statusLine(),
              "Snapshot sealed: Snapshot 2024-03-05T140709: 3 attachments preserved and verified, "
              "2 could not be read. Logged in the custody log.");
}

TEST_F(PreservationTest, AFailedAppendKeepsTheSnapshotAndSaysSo) {
    writeText(dir_ / "blocker", "a file where the log's folder should be");
    CustodyLog::setOverrideURL(dir_ / "blocker" / "custody-log.jsonl");
    MessageDatabase database(sourcePath());
    const TakenSnapshot taken = takeSnapshot(database, std::nullopt, "All", nullptr, {});
    ASSERT_TRUE(taken.custodyFailure);
    EXPECT_EQ(taken.statusLine(),
              "WARNING: the snapshot WAS sealed (Snapshot 2024-03-05T140709), but it could NOT be "
              "recorded in the custody log: " +
                  *taken.custodyFailure);
    EXPECT_EQ(rootEntries(), std::vector<std::string>{"Snapshot 2024-03-05T140709"});
}

TEST(SnapshotNotTaken, CancelAndFailureHaveTheirOwnLines) {
    EXPECT_EQ(snapshotNotTakenLine(std::make_exception_ptr(CancelledError())),
              "Snapshot cancelled. Nothing was kept.");
    EXPECT_EQ(snapshotNotTakenLine(std::make_exception_ptr(Error("the disk is full"))),
              "Snapshot failed, nothing was kept: the disk is full");
}

}  // namespace
}  // namespace bc::testing
