#include "support/Calendar.h"

#include <charconv>
#include <chrono>

#include <unicode/calendar.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include "support/DateFormat.h"
#include "support/Errors.h"

namespace bc {

namespace {

UDate toUDate(Date date) {
    return date.toUnix() * 1000.0;
}
Date fromUDate(UDate millis) {
    return Date::fromUnix(millis / 1000.0);
}

UCalendarDateFields field(Calendar::Unit unit) {
    switch (unit) {
        case Calendar::Unit::day:
            return UCAL_DATE;
        case Calendar::Unit::week:
            return UCAL_WEEK_OF_YEAR;
        case Calendar::Unit::month:
            return UCAL_MONTH;
        case Calendar::Unit::year:
            return UCAL_YEAR;
    }
    return UCAL_DATE;
}

void require(UErrorCode status, const char* what) {
    if (U_FAILURE(status))
        throw Error(std::string("Couldn't ") + what + ": " + u_errorName(status) + ".");
}

}  // namespace

Calendar::Calendar() {
    UErrorCode status = U_ZERO_ERROR;
    calendar_.reset(icu::Calendar::createInstance(icu::TimeZone::createDefault(),
                                                  icu::Locale::getDefault(), status));
    require(status, "set up the calendar");
    calendar_->setSkippedWallTimeOption(UCAL_WALLTIME_NEXT_VALID);
}

Calendar::~Calendar() = default;

void Calendar::setDate(Date date) {
    UErrorCode status = U_ZERO_ERROR;
    calendar_->setTime(toUDate(date), status);
    require(status, "place a date in the calendar");
}

void Calendar::clearTimeOfDay() {
    calendar_->set(UCAL_HOUR_OF_DAY, 0);
    calendar_->set(UCAL_MINUTE, 0);
    calendar_->set(UCAL_SECOND, 0);
    calendar_->set(UCAL_MILLISECOND, 0);
}

Date Calendar::current() {
    UErrorCode status = U_ZERO_ERROR;
    const UDate millis = calendar_->getTime(status);
    require(status, "compute a calendar date");
    return fromUDate(millis);
}

Date Calendar::start(Unit unit, Date date) {
    setDate(date);
    UErrorCode status = U_ZERO_ERROR;
    switch (unit) {
        case Unit::day:
            break;
        case Unit::week: {
            const int weekday = calendar_->get(UCAL_DAY_OF_WEEK, status);
            const int back = (weekday - calendar_->getFirstDayOfWeek(status) + 7) % 7;
            calendar_->add(UCAL_DATE, -back, status);
            break;
        }
        case Unit::month:
            calendar_->set(UCAL_DATE, 1);
            break;
        case Unit::year:
            calendar_->set(UCAL_DAY_OF_YEAR, 1);
            break;
    }
    require(status, "find the start of a period");
    clearTimeOfDay();
    return current();
}

Date Calendar::end(Unit unit, Date date) {
    const Date first = start(unit, date);
    // Adding keeps the wall time (midnight), which a clock change may move; start again from it.
    const auto next = adding(unit, 1, first);
    if (!next) throw Error("Couldn't find the end of a period: the calendar has no later date.");
    return startOfDay(*next);
}

std::optional<Date> Calendar::adding(Unit unit, int amount, Date date) {
    setDate(date);
    UErrorCode status = U_ZERO_ERROR;
    calendar_->add(field(unit), amount, status);
    if (U_FAILURE(status)) return std::nullopt;
    const UDate millis = calendar_->getTime(status);
    if (U_FAILURE(status)) return std::nullopt;
    return fromUDate(millis);
}

int Calendar::year(Date date) {
    setDate(date);
    UErrorCode status = U_ZERO_ERROR;
    const int value = calendar_->get(UCAL_YEAR, status);
    require(status, "read the year of a date");
    return value;
}

int Calendar::month(Date date) {
    setDate(date);
    UErrorCode status = U_ZERO_ERROR;
    const int value = calendar_->get(UCAL_MONTH, status);
    require(status, "read the month of a date");
    return value + 1;
}

PatternFormatter::PatternFormatter(std::string_view pattern, std::string_view locale) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Locale loc =
        locale.empty() ? icu::Locale::getDefault() : icu::Locale(std::string(locale).c_str());
    formatter_ = std::make_unique<icu::SimpleDateFormat>(
        icu::UnicodeString::fromUTF8(
            icu::StringPiece(pattern.data(), static_cast<int32_t>(pattern.size()))),
        loc, status);
    if (U_FAILURE(status))
        throw Error("Couldn't format a date with the pattern " + std::string(pattern) + ": " +
                    u_errorName(status));
}

PatternFormatter::~PatternFormatter() = default;

std::string PatternFormatter::format(Date date) const {
    icu::UnicodeString text;
    formatter_->format(toUDate(date), text);
    std::string out;
    text.toUTF8String(out);
    return out;
}

std::optional<Date> Calendar::parseDay(const std::string& text) {
    int year = 0, month = 0, dayOfMonth = 0;
    const auto number = [&](size_t at, size_t length, int& into) {
        const char* begin = text.data() + at;
        const auto [end, error] = std::from_chars(begin, begin + length, into);
        return error == std::errc() && end == begin + length;
    };
    if (text.size() != 10 || text[4] != '-' || text[7] != '-' || !number(0, 4, year) ||
        !number(5, 2, month) || !number(8, 2, dayOfMonth))
        return std::nullopt;
    const std::chrono::year_month_day civil{std::chrono::year(year),
                                            std::chrono::month(static_cast<unsigned>(month)),
                                            std::chrono::day(static_cast<unsigned>(dayOfMonth))};
    if (!civil.ok()) return std::nullopt;
    // The local day starts within 14 hours of that date's UTC midnight; one of three instants
    // 12 hours apart lies inside it.
    const auto midnightUTC = std::chrono::sys_days(civil).time_since_epoch();
    const Date utc = Date::fromUnix(
        static_cast<double>(std::chrono::duration_cast<std::chrono::seconds>(midnightUTC).count()));
    for (const double hours : {0.0, 12.0, -12.0}) {
        const Date start = startOfDay(utc + hours * 3600);
        if (dates::formatPattern(start, "yyyy-MM-dd", "en_US_POSIX") == text) return start;
    }
    return std::nullopt;
}

}  // namespace bc
