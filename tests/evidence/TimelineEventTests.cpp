#include <gtest/gtest.h>

#include "evidence/Timeline.h"
#include "evidence/TimelineEventStore.h"
#include "evidence/UserEventRows.h"
#include "support/DateFormat.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using testing::ScopedOverride;
using testing::TempDir;

Date at(const char* iso) {
    return *dates::parseIso8601(iso);
}

TimelineEvent event(const char* id, const char* iso, const char* title) {
    return {id,
            "chat:+15550100",
            at(iso),
            title,
            "",
            at("2024-01-01T00:00:00Z"),
            at("2024-01-02T00:00:00Z")};
}

Message message(int64_t id, const char* iso) {
    Message m;
    m.id = id;
    m.date = at(iso);
    return m;
}

const char* const firstID = "0F8FAD5B-D9CB-469F-A165-70867728950E";
const char* const secondID = "7C9E6679-7425-40DE-944B-E07FC1F90AE7";
const char* const thirdID = "16FD2706-8BAF-433B-82EB-8C7FADA847DA";

class TimelineEventStoreTest : public ::testing::Test {
  protected:
    TempDir dir;
    ScopedOverride location{TimelineEventStore::location(), dir / "Kestrove" / "events.json"};
};

TEST_F(TimelineEventStoreTest, SavesSortedByDateAndLoadsBack) {
    EXPECT_EQ(TimelineEventStore::url(), dir / "Kestrove" / "events.json");
    EXPECT_TRUE(TimelineEventStore::load().empty());
    const std::vector<TimelineEvent> events{event(firstID, "2024-05-01T09:00:00Z", "hearing"),
                                            event(secondID, "2024-02-01T09:00:00Z", "move"),
                                            event(thirdID, "2024-05-01T09:00:00Z", "call")};
    TimelineEventStore::save(events);

    const auto loaded = TimelineEventStore::load();
    EXPECT_EQ(loaded, (std::vector{events[1], events[0], events[2]}));
    const auto written = json::decode(files::readFile(TimelineEventStore::url()));
    EXPECT_EQ(written[0]["date"], "2024-02-01T09:00:00Z");
    EXPECT_EQ(written[0]["conversation"], "chat:+15550100");
    EXPECT_EQ(written[0].size(), 7u);
}

TEST_F(TimelineEventStoreTest, AcceptsLowerCaseIdsButSetsAsideAFileWithABadOne) {
    Json file = Json::array({event(firstID, "2024-05-01T09:00:00Z", "hearing")});
    file[0]["id"] = "0f8fad5b-d9cb-469f-a165-70867728950e";
    testing::writeText(TimelineEventStore::url(), file.dump());
    EXPECT_EQ(TimelineEventStore::load().at(0).id, firstID);

    file[0]["id"] = "not-a-uuid";
    testing::writeText(TimelineEventStore::url(), file.dump());
    TimelineEventStore::loadError().set(std::nullopt);
    EXPECT_TRUE(TimelineEventStore::load().empty());
    ASSERT_TRUE(TimelineEventStore::loadError().get());
    EXPECT_NE(TimelineEventStore::loadError().get()->find("not-a-uuid is not a UUID"),
              std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(TimelineEventStore::url()));
    TimelineEventStore::loadError().set(std::nullopt);
}

TEST(UserEventRows, EventsBecomeMarkedRowsOutsideTheStoredIds) {
    const std::vector<TimelineEvent> events{event(firstID, "2024-05-01T09:00:00Z", "hearing"),
                                            event(secondID, "2024-02-01T09:00:00Z", "move")};
    const auto rows = userEvents::rows(events);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].id, -1'000'000'000'000);
    EXPECT_EQ(rows[1].id, -1'000'000'000'001);
    EXPECT_EQ(rows[1].guid, std::string("event:") + secondID);
    EXPECT_EQ(rows[1].date, events[1].date);
    EXPECT_TRUE(rows[1].isFromMe);
    EXPECT_EQ(rows[1].userEvent, events[1]);
    EXPECT_FALSE(isRecordedMessage(rows[0]));
}

TEST(UserEventRows, MergeInterleavesByTimeWithMessagesFirstAtEqualTimes) {
    const std::vector<Message> messages{message(1, "2024-05-01T08:00:00Z"),
                                        message(2, "2024-05-01T09:00:00Z"),
                                        message(3, "2024-05-01T10:00:00Z")};
    const std::vector<TimelineEvent> events{event(firstID, "2024-05-01T09:00:00Z", "hearing"),
                                            event(secondID, "2024-04-01T00:00:00Z", "move"),
                                            event(thirdID, "2024-05-01T09:00:00Z", "call")};
    const auto merged = userEvents::merge(events, messages);

    std::vector<int64_t> ids;
    for (const Message& row : merged) ids.push_back(row.id);
    EXPECT_EQ(ids, (std::vector<int64_t>{-1'000'000'000'001, 1, 2, -1'000'000'000'000,
                                         -1'000'000'000'002, 3}));

    // What an export of the messages receives is exactly the messages.
    EXPECT_EQ(userEvents::withoutUserEvents(merged), messages);
    // And the timeline built from the shown rows counts only the messages.
    EXPECT_EQ(Timeline(merged).roots.at(0).count, 3);
}

}  // namespace
}  // namespace bc
