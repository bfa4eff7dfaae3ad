#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <unicode/uversion.h>

#include "support/Date.h"

U_NAMESPACE_BEGIN
class SimpleDateFormat;
class TimeZone;
U_NAMESPACE_END

namespace bc::dates {

// A date pattern made once and reused: building an ICU formatter costs far more than using it,
// which matters when every row of a long conversation is formatted. Uses the time zone that is
// current when it is made.
class PatternFormatter {
public:
    explicit PatternFormatter(std::string_view pattern, std::string_view locale = {});
    ~PatternFormatter();
    PatternFormatter(const PatternFormatter&) = delete;
    PatternFormatter& operator=(const PatternFormatter&) = delete;

    std::string format(Date date) const;

private:
    std::unique_ptr<icu::SimpleDateFormat> formatter_;
};

// A date's wall-clock fields in one time zone.
struct CivilTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    int offsetSeconds = 0;  // east of UTC
};

// Splits instants into wall-clock fields of the time zone current when it is made. Far cheaper
// per call than a pattern formatter; for fixed numeric forms.
class CivilClock {
public:
    CivilClock();
    ~CivilClock();
    CivilClock(const CivilClock&) = delete;
    CivilClock& operator=(const CivilClock&) = delete;

    CivilTime at(Date date) const;
    // The first instant of the calendar day `days` after the one holding `date`.
    Date startOfDay(Date date, int days = 0) const;

private:
    std::unique_ptr<icu::TimeZone> zone_;
};

}  // namespace bc::dates
