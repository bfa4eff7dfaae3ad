#include "support/PatternFormatter.h"

#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <cmath>
#include <ctime>

#include "support/Errors.h"

namespace bc::dates {

namespace {

UDate toUDate(Date date) {
    return date.toUnix() * 1000.0;
}

}  // namespace

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
    icu::UnicodeString out;
    formatter_->format(toUDate(date), out);
    std::string utf8;
    out.toUTF8String(utf8);
    return utf8;
}

CivilClock::CivilClock() : zone_(icu::TimeZone::createDefault()) {}

CivilClock::~CivilClock() = default;

CivilTime CivilClock::at(Date date) const {
    int32_t raw = 0, dst = 0;
    UErrorCode status = U_ZERO_ERROR;
    const double unix = date.toUnix();
    zone_->getOffset(unix * 1000.0, false, raw, dst, status);
    const int offset = U_SUCCESS(status) ? (raw + dst) / 1000 : 0;
    const auto local = static_cast<time_t>(std::floor(unix)) + offset;
    std::tm tm{};
    gmtime_r(&local, &tm);
    return {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, offset};
}

Date CivilClock::startOfDay(Date date, int days) const {
    UErrorCode status = U_ZERO_ERROR;
    icu::GregorianCalendar calendar(zone_->clone(), status);
    calendar.setTime(toUDate(date), status);
    calendar.set(UCAL_HOUR_OF_DAY, 0);
    calendar.set(UCAL_MINUTE, 0);
    calendar.set(UCAL_SECOND, 0);
    calendar.set(UCAL_MILLISECOND, 0);
    calendar.add(UCAL_DATE, days, status);
    const UDate start = calendar.getTime(status);
    if (U_FAILURE(status))
        throw Error(std::string("Couldn't work out the start of a day: ") + u_errorName(status));
    return Date::fromUnix(start / 1000.0);
}

}  // namespace bc::dates
