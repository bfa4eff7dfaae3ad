#include "evidence/Timeline.h"

#include <gtest/gtest.h>

#include "testing/Scoped.h"

namespace bc {
namespace {

using testing::ScopedLocale;
using testing::utc;
using Unit = Timeline::Unit;

Message message(int64_t id, const char* iso) {
    Message m;
    m.id = id;
    m.date = utc(iso);
    return m;
}

const Timeline::Node& node(const Timeline& timeline, const std::string& id) {
    const auto it = timeline.nodesByID.find(id);
    if (it == timeline.nodesByID.end()) throw std::runtime_error("no node " + id);
    return it->second;
}

std::string seconds(const char* iso) {
    return std::to_string(static_cast<int64_t>(utc(iso).seconds));
}

std::vector<std::string> childIDs(const Timeline::Node& parent) {
    std::vector<std::string> ids;
    for (const auto& child : parent.children.value()) ids.push_back(child.id);
    return ids;
}

TEST(Timeline, EmptyTimelineAnswersNothing) {
    const Timeline timeline(std::vector<Message>{});
    EXPECT_TRUE(timeline.days.empty() && timeline.roots.empty());
    EXPECT_FALSE(timeline.dayIndex(utc("2024-01-01T00:00:00Z")));
    EXPECT_FALSE(timeline.jump(0, Unit::day, 1));
}

TEST(Timeline, DaysCountOnlyRecordedMessagesAndKeepMessageOrder) {
    Message call = message(3, "2024-03-06T15:00:00Z");
    call.call = CallInfo{};
    const Timeline timeline(
        {message(1, "2024-03-05T14:00:00Z"), message(2, "2024-03-05T20:00:00Z"), call,
         message(5, "2024-03-07T12:00:00Z"),
         message(6, "2024-03-05T21:00:00Z")});  // out of order: a day of its own

    EXPECT_EQ(timeline.days, (std::vector<Timeline::Day>{{utc("2024-03-05T05:00:00Z"), 1, 2},
                                                         {utc("2024-03-06T05:00:00Z"), 3, 0},
                                                         {utc("2024-03-07T05:00:00Z"), 5, 1},
                                                         {utc("2024-03-05T05:00:00Z"), 6, 1}}));
    EXPECT_EQ(timeline.dayIndex(std::optional<int64_t>{6}), 3u);
    EXPECT_FALSE(timeline.dayIndex(std::optional<int64_t>{99}));
    EXPECT_EQ(timeline.firstMessageIDs, (std::unordered_set<int64_t>{1, 3, 5, 6}));

    // The repeated date is one day node again.
    const auto& fifth = node(timeline, "d" + seconds("2024-03-05T05:00:00Z"));
    EXPECT_EQ(fifth.count, 3);
    EXPECT_EQ(fifth.label, "Tue 5");
    const auto& year = node(timeline, "y2024");
    EXPECT_EQ(year.count, 4);
    EXPECT_EQ(year.start, utc("2024-03-05T05:00:00Z"));
    EXPECT_EQ(year.end, utc("2024-03-08T05:00:00Z"));
    EXPECT_EQ(node(timeline, "m2024-3").label, "March");
    EXPECT_EQ(timeline.nodesByID.size(), 6u);
}

TEST(Timeline, UndatedRowsBelongToNoDay) {
    Message undated;
    undated.id = 7;
    const Timeline timeline({undated, message(8, "2024-03-05T14:00:00Z")});
    EXPECT_EQ(timeline.days, (std::vector<Timeline::Day>{{utc("2024-03-05T05:00:00Z"), 8, 1}}));
    EXPECT_FALSE(timeline.dayIndex(std::optional<int64_t>{7}));
    EXPECT_FALSE(timeline.nodesByID.contains("y2001"));
}

// Sunday 28 April to Sunday 5 May 2024.
const std::vector<Message> monthBoundary{
    message(1, "2024-04-28T16:00:00Z"), message(2, "2024-04-29T16:00:00Z"),
    message(3, "2024-04-30T16:00:00Z"), message(4, "2024-05-02T16:00:00Z"),
    message(5, "2024-05-05T16:00:00Z")};

TEST(Timeline, MondayFirstWeekCrossingAMonthIsSplitBetweenTheMonths) {
    ScopedLocale locale("en_GB");
    const Timeline timeline(monthBoundary);
    const auto& april = node(timeline, "w2024-4-" + seconds("2024-04-29T04:00:00Z"));
    const auto& may = node(timeline, "w2024-5-" + seconds("2024-04-29T04:00:00Z"));
    EXPECT_EQ(april.label, "Week of 29 Apr");
    EXPECT_EQ(may.label, "Week of 29 Apr");
    EXPECT_EQ(childIDs(april), (std::vector{"d" + seconds("2024-04-29T04:00:00Z"),
                                            "d" + seconds("2024-04-30T04:00:00Z")}));
    EXPECT_EQ(may.count, 2);
    EXPECT_EQ(may.firstMessageID, 4);
    EXPECT_EQ(node(timeline, "m2024-4").children->size(), 2u);  // 28 April ends the week before
}

TEST(Timeline, SundayFirstWeekStartsOnTheLocalesFirstWeekday) {
    const Timeline timeline(monthBoundary);  // en_US
    const std::string sunday = seconds("2024-04-28T04:00:00Z");
    EXPECT_EQ(childIDs(node(timeline, "m2024-4")), std::vector{"w2024-4-" + sunday});
    EXPECT_EQ(childIDs(node(timeline, "m2024-5")),
              (std::vector{"w2024-5-" + sunday, "w2024-5-" + seconds("2024-05-05T04:00:00Z")}));
    EXPECT_EQ(node(timeline, "w2024-5-" + sunday).label, "Week of 28 Apr");  // a fixed pattern
}

TEST(Timeline, DaysFollowClockChangesInTheTimeZone) {
    // New York springs forward on 10 March 2024 (a 23-hour day) and falls back on 3 November.
    const Timeline newYork({message(1, "2024-03-10T05:30:00Z"), message(2, "2024-03-11T03:30:00Z"),
                            message(3, "2024-11-03T04:30:00Z")});
    ASSERT_EQ(newYork.days.size(), 2u);
    const auto& spring = node(newYork, "d" + seconds("2024-03-10T05:00:00Z"));
    EXPECT_EQ(spring.end - spring.start, 23 * 3600.0);
    const auto& fall = node(newYork, "d" + seconds("2024-11-03T04:00:00Z"));
    EXPECT_EQ(fall.end - fall.start, 25 * 3600.0);

    // São Paulo skipped midnight on 4 November 2018: that day began at 01:00.
    ScopedLocale zone("pt_BR", "America/Sao_Paulo");
    EXPECT_EQ(Timeline({message(1, "2018-11-04T12:00:00Z")}).days.at(0).date,
              utc("2018-11-04T03:00:00Z"));
}

TEST(Timeline, JumpsCrossEmptyMonthsAndStopAtBothEnds) {
    // January, nothing in February and March, then April.
    const Timeline timeline({message(1, "2024-01-10T17:00:00Z"), message(2, "2024-01-20T17:00:00Z"),
                             message(3, "2024-04-05T16:00:00Z"),
                             message(4, "2024-04-06T16:00:00Z")});
    EXPECT_EQ(timeline.jump(0, Unit::month, 1), 2u);
    EXPECT_EQ(timeline.jump(2, Unit::month, -1), 1u);
    EXPECT_EQ(timeline.jump(0, Unit::day, 1), 1u);
    EXPECT_EQ(timeline.jump(1, Unit::week, -1), 0u);
    EXPECT_EQ(timeline.jump(2, Unit::day, 0), 1u);  // lands on itself, so one day back
    EXPECT_EQ(timeline.jump(3, Unit::day, 1), 3u);
    EXPECT_EQ(timeline.jump(3, Unit::year, 5), 3u);
    EXPECT_EQ(timeline.jump(0, Unit::day, -1), 0u);
    EXPECT_FALSE(timeline.jump(4, Unit::day, 1));

    EXPECT_EQ(timeline.dayIndex(utc("2023-06-01T00:00:00Z")), 0u);
    EXPECT_EQ(timeline.dayIndex(utc("2024-02-15T00:00:00Z")), 2u);
    EXPECT_EQ(timeline.dayIndex(utc("2025-01-01T00:00:00Z")), 3u);
}

}  // namespace
}  // namespace bc
