#pragma once

#include <memory>

#include <unicode/uversion.h>

#include "support/Date.h"

U_NAMESPACE_BEGIN
class TimeZone;
U_NAMESPACE_END

namespace bc::dates {

// A date's wall-clock fields in one time zone.
struct CivilTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    int offsetSeconds = 0;  // east of UTC
};

// Splits instants into the wall-clock fields of the time zone current when it is made: far
// cheaper per call than a pattern formatter, for fixed numeric forms written for every row of a
// long conversation.
class CivilClock {
public:
    CivilClock();
    ~CivilClock();
    CivilClock(const CivilClock&) = delete;
    CivilClock& operator=(const CivilClock&) = delete;

    CivilTime at(Date date) const;

private:
    std::unique_ptr<icu::TimeZone> zone_;
};

}  // namespace bc::dates
