#include <gtest/gtest.h>

#include "custody/SnapshotTaking.h"
#include "support/Errors.h"
#include "support/Machine.h"

namespace bc::testing {
namespace {

TEST(SnapshotLines, SealedCountsOnlyWhatWasNotPreservedAndAFailedLogSaysBothFacts) {
    TakenSnapshot taken{.info = {.id = "Snapshot 2024-03-05T140709", .attachmentsCopied = 3}};
    EXPECT_EQ(taken.statusLine(),
              "Snapshot sealed: Snapshot 2024-03-05T140709: 3 attachments preserved and verified. "
              "Logged in the custody log.");
    taken.info.attachmentsMissing = 1;
    taken.info.attachmentsFailed = 2;
    EXPECT_EQ(taken.statusLine(),
              "Snapshot sealed: Snapshot 2024-03-05T140709: 3 attachments preserved and verified, "
              "1 not on " +
                  std::string(thisMachine) + ", 2 could not be read. Logged in the custody log.");
    taken.custodyFailure = "Permission denied";
    EXPECT_EQ(taken.statusLine(),
              "WARNING: the snapshot WAS sealed (Snapshot 2024-03-05T140709), but it could NOT be "
              "recorded in the custody log: Permission denied");

    EXPECT_EQ(snapshotNotTakenLine(std::make_exception_ptr(CancelledError())),
              "Snapshot cancelled. Nothing was kept.");
    EXPECT_EQ(snapshotNotTakenLine(std::make_exception_ptr(Error("the disk is full"))),
              "Snapshot failed, nothing was kept: the disk is full");
}

}  // namespace
}  // namespace bc::testing
