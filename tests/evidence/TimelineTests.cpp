#include "evidence/Timeline.h"

#include <gtest/gtest.h>

#include "support/DateFormat.h"
#include "testing/Scoped.h"

namespace bc {
namespace {

using testing::ScopedLocale;
using Level = Timeline::Node::Level;
using Unit = Timeline::Unit;

Date at(const char* iso) {
    return *dates::parseIso8601(iso);
}

Message message(int64_t id, const char* iso) {
    Message m;
    m.id = id;
    m.guid = "guid-" + std::to_string(id);
    m.date = at(iso);
    return m;
}

const Timeline::Node& node(const Timeline& timeline, const std::string& id) {
    const auto it = timeline.nodesByID.find(id);
    if (it == timeline.nodesByID.end()) throw std::runtime_error("no node " + id);
    return it->second;
}

std::vector<std::string> childIDs(const Timeline::Node& parent) {
    std::vector<std::string> ids;
    for (const auto& child : parent.children.value()) ids.push_back(child.id);
    return ids;
}

std::string dayID(const char* iso) {
    return "d" + std::to_string(static_cast<int64_t>(at(iso).seconds));
}

TEST(Timeline, EmptyTimelineAnswersNothing) {
    const Timeline timeline(std::vector<Message>{});
    EXPECT_TRUE(timeline.days.empty());
    EXPECT_TRUE(timeline.roots.empty());
    EXPECT_FALSE(timeline.dayIndex(at("2024-01-01T00:00:00Z")));
    EXPECT_FALSE(timeline.jump(0, Unit::day, 1));
    EXPECT_FALSE(timeline.dayIndex(std::optional<int64_t>{1}));
    EXPECT_TRUE(Timeline().nodesByID.empty());
}

TEST(Timeline, DaysCountOnlyRecordedMessagesAndKeepMessageOrder) {
    Message call = message(3, "2024-03-06T15:00:00Z");
    call.call = CallInfo{};
    Message event = message(4, "2024-03-06T16:00:00Z");
    event.userEvent = TimelineEvent{};
    const std::vector<Message> messages{message(1, "2024-03-05T14:00:00Z"),
                                        message(2, "2024-03-05T20:00:00Z"), call, event,
                                        message(5, "2024-03-07T12:00:00Z"),
                                        // Out of date order: a day of its own, after the 7th.
                                        message(6, "2024-03-05T21:00:00Z")};
    const Timeline timeline(messages);

    ASSERT_EQ(timeline.days.size(), 4u);
    EXPECT_EQ(timeline.days[0], (Timeline::Day{at("2024-03-05T05:00:00Z"), 1, 2}));
    EXPECT_EQ(timeline.days[1], (Timeline::Day{at("2024-03-06T05:00:00Z"), 3, 0}));
    EXPECT_EQ(timeline.days[2], (Timeline::Day{at("2024-03-07T05:00:00Z"), 5, 1}));
    EXPECT_EQ(timeline.days[3], (Timeline::Day{at("2024-03-05T05:00:00Z"), 6, 1}));
    EXPECT_EQ(timeline.dayIndex(std::optional<int64_t>{4}), 1u);
    EXPECT_EQ(timeline.dayIndex(std::optional<int64_t>{6}), 3u);
    EXPECT_FALSE(timeline.dayIndex(std::optional<int64_t>{99}));
    EXPECT_FALSE(timeline.dayIndex(std::nullopt));
    EXPECT_EQ(timeline.firstMessageIDs, (std::unordered_set<int64_t>{1, 3, 5, 6}));

    // The repeated date is one day node again, counting both.
    const auto& fifth = node(timeline, dayID("2024-03-05T05:00:00Z"));
    EXPECT_EQ(fifth.count, 3);
    EXPECT_EQ(fifth.firstMessageID, 1);
    EXPECT_EQ(fifth.label, "Tue 5");
    EXPECT_FALSE(fifth.children);
    EXPECT_EQ(node(timeline, dayID("2024-03-06T05:00:00Z")).count, 0);
    const auto& year = node(timeline, "y2024");
    EXPECT_EQ(year.count, 4);
    EXPECT_EQ(year.label, "2024");
    EXPECT_EQ(year.start, at("2024-03-05T05:00:00Z"));
    EXPECT_EQ(year.end, at("2024-03-08T05:00:00Z"));
    EXPECT_EQ(node(timeline, "m2024-3").label, "March");
    EXPECT_EQ(timeline.nodesByID.size(), 1u + 1u + 1u + 3u);
}

// Monday 29 April to Sunday 5 May 2024: one calendar week, two months.
const std::vector<Message> monthBoundary{
    message(1, "2024-04-28T16:00:00Z"),  // Sunday 28 April
    message(2, "2024-04-29T16:00:00Z"),  // Monday 29 April
    message(3, "2024-04-30T16:00:00Z"), message(4, "2024-05-02T16:00:00Z"),
    message(5, "2024-05-05T16:00:00Z"),  // Sunday 5 May
};

TEST(Timeline, MondayFirstWeekCrossingAMonthIsSplitBetweenTheMonths) {
    ScopedLocale locale("en_GB");
    const Timeline timeline(monthBoundary);
    const std::string monday =
        std::to_string(static_cast<int64_t>(at("2024-04-29T04:00:00Z").seconds));

    const auto& aprilWeek = node(timeline, "w2024-4-" + monday);
    const auto& mayWeek = node(timeline, "w2024-5-" + monday);
    EXPECT_EQ(aprilWeek.label, "Week of 29 Apr");
    EXPECT_EQ(mayWeek.label, "Week of 29 Apr");
    EXPECT_EQ(childIDs(aprilWeek),
              (std::vector{dayID("2024-04-29T04:00:00Z"), dayID("2024-04-30T04:00:00Z")}));
    EXPECT_EQ(childIDs(mayWeek),
              (std::vector{dayID("2024-05-02T04:00:00Z"), dayID("2024-05-05T04:00:00Z")}));
    EXPECT_EQ(aprilWeek.count, 2);
    EXPECT_EQ(mayWeek.firstMessageID, 4);
    EXPECT_EQ(node(timeline, "m2024-4").children->size(),
              2u);  // Sunday 28 April ends the week before
    EXPECT_EQ(node(timeline, "m2024-5").children->size(), 1u);
    EXPECT_EQ(node(timeline, dayID("2024-04-29T04:00:00Z")).label, "Mon 29");
}

TEST(Timeline, SundayFirstWeekStartsOnTheLocalesFirstWeekday) {
    const Timeline timeline(monthBoundary);  // en_US
    const std::string sunday =
        std::to_string(static_cast<int64_t>(at("2024-04-28T04:00:00Z").seconds));
    const std::string nextSunday =
        std::to_string(static_cast<int64_t>(at("2024-05-05T04:00:00Z").seconds));

    EXPECT_EQ(childIDs(node(timeline, "m2024-4")), std::vector{"w2024-4-" + sunday});
    EXPECT_EQ(childIDs(node(timeline, "m2024-5")),
              (std::vector{"w2024-5-" + sunday, "w2024-5-" + nextSunday}));
    EXPECT_EQ(node(timeline, "w2024-5-" + sunday).label,
              "Week of 28 Apr");  // a fixed pattern, not the locale's order
    EXPECT_EQ(node(timeline, "w2024-4-" + sunday).count, 3);
}

TEST(Timeline, DaysFollowClockChangesInTheTimeZone) {
    // New York springs forward on 10 March 2024 (a 23-hour day) and falls back on 3 November.
    const Timeline newYork({message(1, "2024-03-10T05:30:00Z"), message(2, "2024-03-11T03:30:00Z"),
                            message(3, "2024-11-03T04:30:00Z"),
                            message(4, "2024-11-04T04:30:00Z")});
    ASSERT_EQ(newYork.days.size(), 2u);
    const auto& spring = node(newYork, dayID("2024-03-10T05:00:00Z"));
    EXPECT_EQ(spring.end - spring.start, 23 * 3600.0);
    EXPECT_EQ(spring.count, 2);
    const auto& fall = node(newYork, dayID("2024-11-03T04:00:00Z"));
    EXPECT_EQ(fall.end - fall.start, 25 * 3600.0);

    // São Paulo skipped midnight on 4 November 2018: that day began at 01:00.
    ScopedLocale zone("pt_BR", "America/Sao_Paulo");
    const Timeline saoPaulo({message(1, "2018-11-04T12:00:00Z")});
    EXPECT_EQ(saoPaulo.days.at(0).date, at("2018-11-04T03:00:00Z"));
}

class TimelineJump : public ::testing::Test {
  protected:
    // January, then nothing in February and March, then April.
    const Timeline timeline{{message(1, "2024-01-10T17:00:00Z"), message(2, "2024-01-20T17:00:00Z"),
                             message(3, "2024-04-05T16:00:00Z"),
                             message(4, "2024-04-06T16:00:00Z")}};
};

TEST_F(TimelineJump, CrossesEmptyMonthsInBothDirections) {
    EXPECT_EQ(timeline.jump(0, Unit::month, 1), 2u);
    EXPECT_EQ(timeline.jump(1, Unit::month, 1), 2u);
    EXPECT_EQ(timeline.jump(2, Unit::month, -1), 1u);
    EXPECT_EQ(timeline.jump(3, Unit::month, -2), 1u);
    EXPECT_EQ(timeline.jump(0, Unit::day, 1), 1u);
    EXPECT_EQ(timeline.jump(1, Unit::week, -1), 0u);
}

TEST_F(TimelineJump, StopsAtBothEnds) {
    EXPECT_EQ(timeline.jump(3, Unit::day, 1), 3u);
    EXPECT_EQ(timeline.jump(3, Unit::year, 5), 3u);
    EXPECT_EQ(timeline.jump(0, Unit::day, -1), 0u);
    EXPECT_EQ(timeline.jump(0, Unit::year, -1), 0u);
    EXPECT_EQ(timeline.jump(2, Unit::day, 0), 1u);  // lands on itself, so one day back
    EXPECT_FALSE(timeline.jump(4, Unit::day, 1));
}

TEST_F(TimelineJump, DayOnOrAfterADate) {
    EXPECT_EQ(timeline.dayIndex(at("2023-06-01T00:00:00Z")), 0u);
    EXPECT_EQ(timeline.dayIndex(at("2024-01-20T05:00:00Z")), 1u);
    EXPECT_EQ(timeline.dayIndex(at("2024-02-15T00:00:00Z")), 2u);
    EXPECT_EQ(timeline.dayIndex(at("2025-01-01T00:00:00Z")), 3u);
}

TEST(TimelineUnit, RawTextsRoundTrip) {
    for (const Unit unit : Timeline::units)
        EXPECT_EQ(Timeline::unitNamed(Timeline::unitName(unit)), unit);
    EXPECT_EQ(Timeline::unitName(Unit::month), "month");
    EXPECT_FALSE(Timeline::unitNamed("fortnight"));
}

}  // namespace
}  // namespace bc
