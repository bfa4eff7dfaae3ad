#include "custody/AttachmentWatch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/Errors.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using namespace std::chrono_literals;
using testing::utc;

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

    testing::TempDir dir;
    testing::ScopedOverride location{AttachmentWatch::location(), record()};
    testing::FixedClock clock{utc("2024-03-05T14:07:09Z")};
};

TEST_F(AttachmentWatchTest, ReportsEvictedFilesButNotDeletedRows) {
    auto attachments = listing();
    EXPECT_EQ(AttachmentWatch::check(attachments),
              (AttachmentWatch::Report{{}, std::nullopt, 1, 4}));
    EXPECT_EQ(json::decode(files::readFile(record())),
              Json::parse(R"({"checkedAt": "2024-03-05T14:07:09Z", "present": [10, 20, 30]})"));

    std::filesystem::remove(dir / "a.jpg");  // evicted: the row stays
    std::filesystem::remove(dir / "c.heic");
    std::erase_if(attachments, [](const auto& entry) { return entry.first == 30; });  // row deleted
    clock.set(utc("2024-03-05T14:17:09Z"));

    EXPECT_EQ(AttachmentWatch::check(attachments),
              (AttachmentWatch::Report{{10}, utc("2024-03-05T14:07:09Z"), 2, 3}));
    EXPECT_EQ(json::decode(files::readFile(record()))["present"], Json({20}));
}

TEST_F(AttachmentWatchTest, DamagedRecordIsSetAsideReportedAndAFreshOneWritten) {
    // Broken JSON, a rounded id and a date in a form this program never writes.
    for (const char* damaged :
         {"{\"present\": [", R"({"checkedAt": "2024-03-05T14:00:00Z", "present": [10, 20.5]})",
          R"({"checkedAt": "2024-03-05T15:00:00+01:00", "present": [10]})"}) {
        testing::writeText(record(), damaged);
        const auto report = AttachmentWatch::check(listing());
        EXPECT_TRUE(report.newlyMissing.empty()) << damaged;
        EXPECT_FALSE(report.previousCheck) << damaged;
        const auto problem = AttachmentWatch::loadError().get();
        AttachmentWatch::loadError().set(std::nullopt);
        ASSERT_TRUE(problem) << damaged;
        EXPECT_TRUE(
            problem->starts_with("attachment-presence.json couldn't be read and was kept as "
                                 "attachment-presence.corrupt-2024-03-05T140709Z"))
            << *problem;
        EXPECT_EQ(json::decode(files::readFile(record()))["present"], Json({10, 20, 30}));
        for (const auto& entry : std::filesystem::directory_iterator(dir / "Kestrove"))
            if (entry.path() != record()) std::filesystem::remove(entry.path());
    }
    AttachmentWatch::check(listing());
    EXPECT_FALSE(AttachmentWatch::loadError().get()) << "a sound record is no problem";
}

TEST_F(AttachmentWatchTest, UnwritableRecordFailsTheCheck) {
    testing::writeText(dir / "Kestrove", "a file where the folder should be");
    EXPECT_THROW(AttachmentWatch::check(listing()), Error);
}

// Rounds run on their own thread, so the tests poll.
bool eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 500 && !condition(); ++i) std::this_thread::sleep_for(10ms);
    return condition();
}

TEST(RepeatingRounds, TimeTheMachineSpentAsleepCountsTowardsTheNextRound) {
    // A timing clock that jumps an hour at once, as the suspend-counting clock does on waking,
    // while the clock the waits sleep on has hardly moved.
    std::atomic<int64_t> asleepHours{0};
    const RoundTiming timing{
        .now = [&] { return ContinuousClock::time_point(std::chrono::hours(asleepHours)); },
        .recheck = 5ms};
    std::atomic<int> rounds{0};
    RepeatingRounds schedule(
        1h, [] { return false; }, [&] { ++rounds; }, timing);
    ASSERT_TRUE(eventually([&] { return rounds == 1; }));
    std::this_thread::sleep_for(30ms);
    EXPECT_EQ(rounds, 1);
    asleepHours = 1;
    EXPECT_TRUE(eventually([&] { return rounds == 2; })) << "the hour asleep was not counted";
}

TEST(RepeatingRounds, RunsOnceAtStartSkipsRoundsWhileBusyButRunsWhenAsked) {
    std::atomic<int> rounds{0};
    {
        RepeatingRounds schedule(
            1h, [] { return false; }, [&] { ++rounds; });
        EXPECT_TRUE(eventually([&] { return rounds == 1; }));
        std::this_thread::sleep_for(50ms);
    }
    EXPECT_EQ(rounds, 1) << "the next round waits for the interval";

    std::atomic<bool> busy{true};
    rounds = 0;
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
