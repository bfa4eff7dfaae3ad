#include "custody/AttachmentWatch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "support/DateFormat.h"
#include "support/Errors.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using namespace std::chrono_literals;
using testing::FixedClock;
using testing::ScopedOverride;
using testing::TempDir;

class AttachmentWatchTest : public ::testing::Test {
  protected:
    std::filesystem::path record() const { return dir / "Kestrove" / "attachment-presence.json"; }

    // Three attachments with files, one whose file never arrived.
    AttachmentWatch::AttachmentPaths listing() {
        for (const char* name : {"a.jpg", "b.mov", "c.heic"}) testing::writeText(dir / name, "x");
        return {{30, (dir / "c.heic").string()},
                {10, (dir / "a.jpg").string()},
                {20, (dir / "b.mov").string()},
                {40, (dir / "never.jpg").string()}};
    }

    TempDir dir;
    ScopedOverride location{AttachmentWatch::location(), record()};
    FixedClock clock{*dates::parseIso8601("2024-03-05T14:07:09Z")};
};

TEST_F(AttachmentWatchTest, FirstCheckReportsNothingNewAndRecordsWhatIsPresent) {
    const auto report = AttachmentWatch::check(listing());

    EXPECT_EQ(report, (AttachmentWatch::Report{{}, std::nullopt, 1, 4}));
    const auto written = json::decode(files::readFile(record()));
    EXPECT_EQ(written["checkedAt"], "2024-03-05T14:07:09Z");
    EXPECT_EQ(written["present"], Json({10, 20, 30}));
}

TEST_F(AttachmentWatchTest, ReportsEvictedFilesButNotDeletedRows) {
    auto attachments = listing();
    AttachmentWatch::check(attachments);
    std::filesystem::remove(dir / "a.jpg");  // evicted: the row stays
    std::filesystem::remove(dir / "c.heic");
    std::erase_if(attachments, [](const auto& entry) { return entry.first == 30; });  // row deleted
    clock.set(*dates::parseIso8601("2024-03-05T14:17:09Z"));

    const auto report = AttachmentWatch::check(attachments);

    EXPECT_EQ(report.newlyMissing, std::vector<int64_t>{10});
    EXPECT_EQ(report.previousCheck, dates::parseIso8601("2024-03-05T14:07:09Z"));
    EXPECT_EQ(report.total, 3);
    EXPECT_EQ(report.missingNow, 2);
    EXPECT_EQ(json::decode(files::readFile(record()))["present"], Json({20}));
}

TEST_F(AttachmentWatchTest, CorruptRecordIsSetAsideAndAFreshOneWritten) {
    testing::writeText(record(), "{\"present\": [");

    const auto report = AttachmentWatch::check(listing());

    EXPECT_TRUE(report.newlyMissing.empty());
    EXPECT_FALSE(report.previousCheck);
    EXPECT_EQ(
        files::readFile(dir / "Kestrove" / "attachment-presence.corrupt-2024-03-05T140709Z.json"),
        "{\"present\": [");
    EXPECT_EQ(json::decode(files::readFile(record())).get<AttachmentWatch::Record>().present,
              (std::vector<int64_t>{10, 20, 30}));
}

TEST_F(AttachmentWatchTest, UnwritableRecordFailsTheCheck) {
    testing::writeText(dir / "Kestrove", "a file where the folder should be");
    EXPECT_THROW(AttachmentWatch::check(listing()), Error);
}

// Polls until the condition holds; rounds run on their own thread.
bool eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 500; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(10ms);
    }
    return condition();
}

TEST(RepeatingRounds, RunsOnceAtStartThenWaitsForTheInterval) {
    std::atomic<int> rounds{0};
    {
        RepeatingRounds schedule(
            1h, [] { return false; }, [&] { ++rounds; });
        EXPECT_TRUE(eventually([&] { return rounds == 1; }));
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(rounds, 1);
    }
    EXPECT_EQ(rounds, 1);
}

TEST(RepeatingRounds, SkipsRoundsWhileBusyButRunsWhenAsked) {
    std::atomic<bool> busy{true};
    std::atomic<int> rounds{0};
    RepeatingRounds schedule(
        5ms, [&] { return busy.load(); }, [&] { ++rounds; });
    std::this_thread::sleep_for(60ms);
    EXPECT_EQ(rounds, 0);

    schedule.runNow();
    EXPECT_TRUE(eventually([&] { return rounds == 1; }));

    busy = false;
    EXPECT_TRUE(eventually([&] { return rounds >= 3; }));
}

}  // namespace
}  // namespace bc
