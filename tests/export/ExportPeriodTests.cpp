#include "export/ExportPeriod.h"

#include <gtest/gtest.h>

#include "support/DateFormat.h"
#include "testing/Scoped.h"

namespace bc {
namespace {

using Kind = ExportPeriod::Kind;
using testing::ScopedLocale;

Date at(const char* iso) {
    return *dates::parseIso8601(iso);
}

// Wednesday 1 May 2024, late evening in New York (already 2 May in UTC).
const Date evening = at("2024-05-02T02:30:00Z");

TEST(ExportPeriod, DayIsTheWholeLocalDay) {
    EXPECT_EQ(ExportPeriod::containing(evening, Kind::day),
              (ExportPeriod{at("2024-05-01T04:00:00Z"), at("2024-05-01T04:00:00Z"),
                            "Wednesday, May 1, 2024", "2024-05-01"}));
}

TEST(ExportPeriod, WeekFollowsTheLocalesFirstWeekday) {
    EXPECT_EQ(ExportPeriod::containing(evening, Kind::week),
              (ExportPeriod{at("2024-04-28T04:00:00Z"), at("2024-05-04T04:00:00Z"),
                            "Week of Apr 28, 2024", "2024-04-28 to 2024-05-04"}));

    ScopedLocale locale("de_DE");
    const auto monday = ExportPeriod::containing(evening, Kind::week);
    EXPECT_EQ(monday.from, at("2024-04-29T04:00:00Z"));
    EXPECT_EQ(monday.to, at("2024-05-05T04:00:00Z"));
    EXPECT_EQ(monday.label, "Week of 29.04.2024");
    EXPECT_EQ(monday.fileLabel, "2024-04-29 to 2024-05-05");
}

TEST(ExportPeriod, MonthAndYearEndOnTheStartOfTheirLastDayAcrossClockChanges) {
    // March 2024 in New York begins in winter time and ends in summer time.
    EXPECT_EQ(ExportPeriod::containing(at("2024-03-15T12:00:00Z"), Kind::month),
              (ExportPeriod{at("2024-03-01T05:00:00Z"), at("2024-03-31T04:00:00Z"), "March 2024",
                            "2024-03"}));
    EXPECT_EQ(
        ExportPeriod::containing(evening, Kind::year),
        (ExportPeriod{at("2024-01-01T05:00:00Z"), at("2024-12-31T05:00:00Z"), "2024", "2024"}));

    ScopedLocale locale("de_DE", "Europe/Berlin");
    const auto month = ExportPeriod::containing(evening, Kind::month);
    EXPECT_EQ(month.label, "Mai 2024");
    EXPECT_EQ(month.from, at("2024-04-30T22:00:00Z"));
}

}  // namespace
}  // namespace bc
