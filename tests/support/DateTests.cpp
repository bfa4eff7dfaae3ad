#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <vector>

#include "support/Calendar.h"
#include "support/Date.h"
#include "support/DateFormat.h"
#include "support/Errors.h"
#include "support/Json.h"
#include "testing/Scoped.h"

namespace bc {
namespace {

TEST(AppleDate, ZeroIsNoDateAndTheSecondsLimitIsInclusive) {
    EXPECT_FALSE(appleDate(0).has_value());
    EXPECT_DOUBLE_EQ(appleDate(1'000'000'000'000)->seconds, 1e12);
    EXPECT_DOUBLE_EQ(appleDate(1'000'000'000'001)->seconds, 1000.000000001);
    EXPECT_DOUBLE_EQ(appleDate(731'000'000'000'000'000)->seconds, 731'000'000.0);
    EXPECT_DOUBLE_EQ(appleDate(-5)->seconds, -5.0);
}

TEST(Iso8601, WholeSecondFormDropsFractions) {
    const Date date = Date::fromUnix(1709647629.999);  // 2024-03-05T14:07:09.999Z
    EXPECT_EQ(dates::iso8601(date), "2024-03-05T14:07:09Z");
    EXPECT_EQ(dates::iso8601(Date{0}), "2001-01-01T00:00:00Z");
    EXPECT_EQ(dates::iso8601(Date{-0.5}), "2000-12-31T23:59:59Z");
}

TEST(Iso8601, MillisecondFormRoundsAndCarries) {
    EXPECT_EQ(dates::iso8601Millis(Date::fromUnix(1709312709.25)), "2024-03-01T17:05:09.250Z");
    EXPECT_EQ(dates::iso8601Millis(Date::fromUnix(1709312709.9996)), "2024-03-01T17:05:10.000Z");
}

TEST(Iso8601, ParsesWhatItWritesAndRejectsTheRest) {
    EXPECT_EQ(dates::parseIso8601("2024-03-05T14:07:09Z"), Date::fromUnix(1709647629));
    EXPECT_EQ(dates::parseIso8601("2024-03-05T15:07:09+01:00"), Date::fromUnix(1709647629));
    EXPECT_NEAR(dates::parseIso8601("2024-03-01T17:05:09.250Z")->toUnix(), 1709312709.25, 1e-6);
    for (const char* bad : {"", "2024-03-05", "2024-03-05T14:07:09", "2024-13-05T14:07:09Z",
                            "2024-03-05T14:07:09Zjunk", "2024-03-05 14:07:09Z"}) {
        EXPECT_FALSE(dates::parseIso8601(bad).has_value()) << bad;
    }
}

TEST(JsonDates, EncodeAsWholeSecondIsoAndRoundTrip) {
    const Json j = Date::fromUnix(1709647629.7);
    EXPECT_EQ(j.get<std::string>(), "2024-03-05T14:07:09Z");
    EXPECT_EQ(j.get<Date>(), Date::fromUnix(1709647629));
    EXPECT_THROW(Json(42).get<Date>(), Error);
    // Only the form written here reads back: an offset, a fraction or an impossible day was not.
    for (const char* other : {"2024-03-05T15:07:09+01:00", "2024-03-05T14:07:09.000Z",
                              "2024-02-30T14:07:09Z", "2024-03-05T14:07:60Z"})
        EXPECT_THROW(Json(other).get<Date>(), Error) << other;
}

TEST(LocaleFormatting, StylesPatternsAndFirstWeekdayFollowTheCurrentLocale) {
    const Date date = Date::fromUnix(1709647629);  // 09:07:09 in New York
    EXPECT_EQ(dates::formatPattern(date, "LLLL yyyy", "en_US_POSIX"), "March 2024");
    EXPECT_EQ(dates::formatPattern(date, "EEEE, d MMMM yyyy", "en_US_POSIX"),
              "Tuesday, 5 March 2024");
    EXPECT_EQ(dates::formatStyled(date, dates::Style::full, dates::Style::none),
              "Tuesday, March 5, 2024");
    EXPECT_NE(dates::formatStyled(date, dates::Style::none, dates::Style::full).find("9:07:09"),
              std::string::npos);
    EXPECT_EQ(dates::firstWeekday(), 1);

    dates::setCurrentLocale("de_DE");
    EXPECT_EQ(dates::firstWeekday(), 2);
    EXPECT_EQ(dates::formatPattern(date, "LLLL yyyy"), "März 2024");
    dates::setCurrentLocale("en_US");
}

// Sets the locale variables for one test; an empty value unsets one.
class ScopedLocaleEnvironment {
public:
    ScopedLocaleEnvironment(const char* lcTime, const char* lcAll, const char* lang) {
        for (const char* name : names) {
            const char* value = std::getenv(name);
            saved_.push_back(value ? std::optional<std::string>(value) : std::nullopt);
        }
        const char* values[] = {lcTime, lcAll, lang};
        for (size_t i = 0; i < std::size(names); ++i) set(names[i], values[i]);
    }
    ~ScopedLocaleEnvironment() {
        for (size_t i = 0; i < std::size(names); ++i)
            set(names[i], saved_[i] ? saved_[i]->c_str() : "");
    }

private:
    static void set(const char* name, const char* value) {
        if (*value)
            ::setenv(name, value, 1);
        else
            ::unsetenv(name);
    }
    static constexpr const char* names[] = {"LC_TIME", "LC_ALL", "LANG"};
    std::vector<std::optional<std::string>> saved_;
};

TEST(LocaleFormatting, DateFormatsComeFromTheTimeCategoryBeforeTheLanguage) {
    const Date tuesday = Date::fromUnix(1709647629);  // 5 March 2024, New York
    {
        ScopedLocaleEnvironment environment("en_GB.UTF-8", "", "en_US.UTF-8");
        testing::ScopedLocale restored("en_US");
        dates::useTimeFormatsOfTheUser();
        EXPECT_EQ(dates::firstWeekday(), 2) << "British weeks start on Monday";
        EXPECT_EQ(dates::formatStyled(tuesday, dates::Style::abbreviated, dates::Style::none),
                  "5 Mar 2024");
        EXPECT_EQ(Calendar().start(Calendar::Unit::week, tuesday),
                  testing::utc("2024-03-04T05:00:00Z"));
    }
    {
        ScopedLocaleEnvironment environment("", "de_DE.UTF-8", "en_US.UTF-8");
        EXPECT_EQ(dates::localeOfTimeFormats(), "de_DE");
    }
    {
        ScopedLocaleEnvironment environment("", "", "fr_FR.UTF-8");
        EXPECT_EQ(dates::localeOfTimeFormats(), "fr_FR");
    }
    for (const char* plain : {"C.UTF-8", "POSIX"}) {
        ScopedLocaleEnvironment environment("", "", plain);
        EXPECT_EQ(dates::localeOfTimeFormats(), "en_US_POSIX") << plain;
    }
    {
        ScopedLocaleEnvironment environment("", "", "");
        EXPECT_EQ(dates::localeOfTimeFormats(), std::nullopt);
        testing::ScopedLocale restored("en_US");
        dates::useTimeFormatsOfTheUser();
        EXPECT_EQ(dates::currentLocale(), "en_US") << "nothing set leaves the locale alone";
    }
}

TEST(LocaleFormatting, TimeZoneIsSettableAndUnknownZonesAreRefused) {
    const Date date = Date::fromUnix(1709647629);
    dates::setCurrentTimeZone("Asia/Tokyo");
    EXPECT_EQ(dates::formatPattern(date, "HH:mm", "en_US_POSIX"), "23:07");
    EXPECT_EQ(dates::currentTimeZone(), "Asia/Tokyo");
    EXPECT_THROW(dates::setCurrentTimeZone("Mars/Olympus"), Error);
    dates::setCurrentTimeZone("America/New_York");
}

}  // namespace
}  // namespace bc
