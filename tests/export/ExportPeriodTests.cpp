#include "export/ExportPeriod.h"

#include <gtest/gtest.h>

#include "testing/Scoped.h"

namespace bc {
namespace {

using Kind = ExportPeriod::Kind;
using testing::utc;

// Wednesday 1 May 2024, late evening in New York (already 2 May in UTC).
const Date evening = utc("2024-05-02T02:30:00Z");

TEST(ExportPeriod, DayAndWeekInTheLocalesCalendar) {
    EXPECT_EQ(ExportPeriod::containing(evening, Kind::day),
              (ExportPeriod{utc("2024-05-01T04:00:00Z"), utc("2024-05-01T04:00:00Z"),
                            "Wednesday, May 1, 2024", "2024-05-01"}));
    EXPECT_EQ(ExportPeriod::containing(evening, Kind::week),
              (ExportPeriod{utc("2024-04-28T04:00:00Z"), utc("2024-05-04T04:00:00Z"),
                            "Week of Apr 28, 2024", "2024-04-28 to 2024-05-04"}));

    testing::ScopedLocale locale("de_DE");
    EXPECT_EQ(ExportPeriod::containing(evening, Kind::week),
              (ExportPeriod{utc("2024-04-29T04:00:00Z"), utc("2024-05-05T04:00:00Z"),
                            "Week of 29.04.2024", "2024-04-29 to 2024-05-05"}));
}

TEST(ExportPeriod, MonthAndYearEndOnTheStartOfTheirLastDayAcrossClockChanges) {
    // March 2024 in New York begins in winter time and ends in summer time.
    EXPECT_EQ(ExportPeriod::containing(utc("2024-03-15T12:00:00Z"), Kind::month),
              (ExportPeriod{utc("2024-03-01T05:00:00Z"), utc("2024-03-31T04:00:00Z"), "March 2024",
                            "2024-03"}));
    EXPECT_EQ(
        ExportPeriod::containing(evening, Kind::year),
        (ExportPeriod{utc("2024-01-01T05:00:00Z"), utc("2024-12-31T05:00:00Z"), "2024", "2024"}));
}

}  // namespace
}  // namespace bc
