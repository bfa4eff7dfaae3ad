#include <gtest/gtest.h>

#include "evidence/Timeline.h"
#include "evidence/TimelineEventStore.h"
#include "evidence/UserEventRows.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using testing::utc;

TimelineEvent event(const char* id, const char* iso) {
    return {id,
            "chat:+15550100",
            utc(iso),
            "hearing",
            "",
            utc("2024-01-01T00:00:00Z"),
            utc("2024-01-02T00:00:00Z")};
}

const std::vector<TimelineEvent> events{
    event("0F8FAD5B-D9CB-469F-A165-70867728950E", "2024-05-01T09:00:00Z"),
    event("7C9E6679-7425-40DE-944B-E07FC1F90AE7", "2024-04-01T00:00:00Z"),
    event("16FD2706-8BAF-433B-82EB-8C7FADA847DA", "2024-05-01T09:00:00Z")};

TEST(TimelineEventStore, SavesSortedByDateAndSetsAsideABadFile) {
    testing::TempDir dir;
    testing::ScopedOverride location(TimelineEventStore::location(), dir / "events.json");
    EXPECT_TRUE(TimelineEventStore::load().empty());
    TimelineEventStore::save(events);
    EXPECT_EQ(TimelineEventStore::load(), (std::vector{events[1], events[0], events[2]}));
    EXPECT_EQ(json::decode(files::readFile(dir / "events.json"))[0].size(), 7u);

    Json file = Json::array({events[0]});
    file[0]["id"] = "0f8fad5b-d9cb-469f-a165-70867728950e";  // any case reads, upper case kept
    testing::writeText(dir / "events.json", file.dump());
    EXPECT_EQ(TimelineEventStore::load().at(0).id, events[0].id);

    file[0]["date"] = "2024-05-01T11:00:00+02:00";  // the right instant, not the stored form
    testing::writeText(dir / "events.json", file.dump());
    EXPECT_TRUE(TimelineEventStore::load().empty());
    EXPECT_NE(TimelineEventStore::loadError().get().value_or("").find("2024-05-01T11:00:00+02:00"),
              std::string::npos);

    file[0]["date"] = events[0].date;
    file[0]["id"] = "not-a-uuid";
    testing::writeText(dir / "events.json", file.dump());
    EXPECT_TRUE(TimelineEventStore::load().empty());
    EXPECT_NE(TimelineEventStore::loadError().get().value_or("").find("not-a-uuid is not a UUID"),
              std::string::npos);
    TimelineEventStore::loadError().set(std::nullopt);
}

TEST(UserEventRows, EventsInterleaveByTimeAndNeverReachAnExport) {
    std::vector<Message> messages(3);
    for (int i = 0; i < 3; ++i) {
        messages[i].id = i + 1;
        messages[i].date = utc("2024-05-01T08:00:00Z") + 3600.0 * i;
    }
    const auto merged = userEvents::merge(events, messages);

    std::vector<int64_t> ids;
    for (const Message& row : merged) ids.push_back(row.id);
    // At equal times the message comes first, and events keep their order.
    EXPECT_EQ(ids, (std::vector<int64_t>{-1'000'000'000'001, 1, 2, -1'000'000'000'000,
                                         -1'000'000'000'002, 3}));
    const Message& row = merged[0];
    EXPECT_EQ(row.guid, "event:7C9E6679-7425-40DE-944B-E07FC1F90AE7");
    EXPECT_TRUE(row.isFromMe);
    EXPECT_EQ(row.userEvent, events[1]);

    EXPECT_EQ(userEvents::withoutUserEvents(merged), messages);
    EXPECT_EQ(Timeline(merged).roots.at(0).count, 3);
}

}  // namespace
}  // namespace bc
