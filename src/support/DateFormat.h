#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "support/Date.h"

// Every conversion between instants and text lives here: ISO 8601 forms for files and hashes,
// the locale's styles and patterns for people.
namespace bc::dates {

// 2024-03-05T14:07:09Z (fractional seconds dropped).
std::string iso8601(Date date);
// 2024-03-01T17:05:09.250Z
std::string iso8601Millis(Date date);
// Reads the forms above (any number of fractional digits, "Z" or a ±hh:mm offset).
std::optional<Date> parseIso8601(std::string_view text);

enum class Style { none, short_, abbreviated, long_, full };

// The current locale's style in the current time zone, e.g. full date + full time.
std::string formatStyled(Date date, Style dateStyle, Style timeStyle);
// A pattern such as "LLLL yyyy" in the given locale (default: the current one), current time zone.
std::string formatPattern(Date date, std::string_view pattern, std::string_view locale = {});

// The current locale's first day of the week: 1 = Sunday … 7 = Saturday.
int firstWeekday();

// The current locale and time zone; tests and the command line set them.
std::string currentLocale();
void setCurrentLocale(const std::string& localeID);
std::string currentTimeZone();
void setCurrentTimeZone(const std::string& zoneID);

// The locale of the date formats the user chose, as Linux sessions say it: LC_TIME, else LC_ALL,
// else LANG ("en_GB.UTF-8" gives "en_GB"); nothing when none is set. English messages with
// British formats thus give Monday weeks and British dates.
std::optional<std::string> localeOfTimeFormats();
// Makes that locale the current one, when there is one.
void useTimeFormatsOfTheUser();

}  // namespace bc::dates
