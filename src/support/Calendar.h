#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <unicode/uversion.h>

#include "support/Date.h"

U_NAMESPACE_BEGIN
class Calendar;
class SimpleDateFormat;
U_NAMESPACE_END

namespace bc {

// The machine's calendar as it stands when made: current locale (its calendar system and first
// weekday) and current time zone. One instance serves one thread: ICU calendars carry state.
class Calendar {
public:
    enum class Unit { day, week, month, year };

    Calendar();
    ~Calendar();
    Calendar(const Calendar&) = delete;
    Calendar& operator=(const Calendar&) = delete;

    // First instant of the unit's interval that holds the date. On a day whose midnight is skipped
    // by a clock change the day starts at the first wall time that exists.
    Date start(Unit unit, Date date);
    // First instant of the following interval of the same unit.
    Date end(Unit unit, Date date);
    Date startOfDay(Date date) { return start(Unit::day, date); }
    // The day "yyyy-MM-dd" names, starting at its first instant; nothing when malformed.
    std::optional<Date> parseDay(const std::string& text);
    // Adds whole units without wrapping other fields (31 Jan + 1 month = 29 Feb in a leap year).
    std::optional<Date> adding(Unit unit, int amount, Date date);

    int year(Date date);
    int month(Date date);  // 1 … 12 (13 in calendars with a leap month)

private:
    void setDate(Date date);
    void clearTimeOfDay();
    Date current();

    std::unique_ptr<icu::Calendar> calendar_;
};

// A period of whole days: from its first instant to the start of the day after `to`, in the current
// time zone; an absent end is open. Exports and searches share it so they never disagree on a day.
class DateRange {
public:
    DateRange(const std::optional<Date>& from, const std::optional<Date>& to)
        : from_(from),
          end_(to ? std::optional(Calendar().end(Calendar::Unit::day, *to)) : std::nullopt) {}

    bool contains(Date date) const { return (!from_ || date >= *from_) && (!end_ || date < *end_); }

private:
    std::optional<Date> from_, end_;
};

// A fixed pattern such as "LLLL" bound to a locale (default: the current one) and the current time
// zone, made once and used for many dates.
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

}  // namespace bc
