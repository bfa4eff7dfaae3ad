#include "support/CivilClock.h"

#include <unicode/timezone.h>

#include <cmath>
#include <ctime>

namespace bc::dates {

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

}  // namespace bc::dates
