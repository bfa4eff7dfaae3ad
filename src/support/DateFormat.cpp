#include "support/DateFormat.h"

#include <unicode/calendar.h>
#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "support/Calendar.h"
#include "support/Errors.h"

namespace bc::dates {

namespace {

struct CivilTime {
    int year, month, day, hour, minute, second;
};

CivilTime utcFields(double unixSeconds) {
    const auto whole = static_cast<time_t>(std::floor(unixSeconds));
    std::tm tm{};
    gmtime_r(&whole, &tm);
    return {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
}

std::string format(const CivilTime& t, const char* suffix) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02d%s", t.year, t.month, t.day,
                  t.hour, t.minute, t.second, suffix);
    return buffer;
}

std::string toUtf8(const icu::UnicodeString& s) {
    std::string out;
    s.toUTF8String(out);
    return out;
}

UDate toUDate(Date date) {
    return date.toUnix() * 1000.0;
}

icu::DateFormat::EStyle icuStyle(Style style) {
    switch (style) {
        case Style::none:
            return icu::DateFormat::kNone;
        case Style::short_:
            return icu::DateFormat::kShort;
        case Style::abbreviated:
            return icu::DateFormat::kMedium;
        case Style::long_:
            return icu::DateFormat::kLong;
        case Style::full:
            return icu::DateFormat::kFull;
    }
    return icu::DateFormat::kNone;
}

bool readInt(std::string_view text, size_t& pos, size_t digits, int& value) {
    if (pos + digits > text.size()) return false;
    value = 0;
    for (size_t i = 0; i < digits; ++i) {
        const char c = text[pos + i];
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
    }
    pos += digits;
    return true;
}

bool expect(std::string_view text, size_t& pos, char c) {
    if (pos >= text.size() || text[pos] != c) return false;
    ++pos;
    return true;
}

}  // namespace

std::string iso8601(Date date) {
    return format(utcFields(date.toUnix()), "Z");
}

std::string iso8601Millis(Date date) {
    const double unix = date.toUnix();
    auto millis = static_cast<int64_t>(std::llround(unix * 1000.0));
    const int64_t wholeSeconds = millis >= 0 ? millis / 1000 : -((-millis + 999) / 1000);
    const int fraction = static_cast<int>(millis - wholeSeconds * 1000);
    char suffix[16];
    std::snprintf(suffix, sizeof suffix, ".%03dZ", fraction);
    return format(utcFields(static_cast<double>(wholeSeconds)), suffix);
}

std::optional<Date> parseIso8601(std::string_view text) {
    size_t pos = 0;
    std::tm tm{};
    int year, month, day, hour, minute, second;
    if (!readInt(text, pos, 4, year) || !expect(text, pos, '-') || !readInt(text, pos, 2, month) ||
        !expect(text, pos, '-') || !readInt(text, pos, 2, day) || !expect(text, pos, 'T') ||
        !readInt(text, pos, 2, hour) || !expect(text, pos, ':') || !readInt(text, pos, 2, minute) ||
        !expect(text, pos, ':') || !readInt(text, pos, 2, second)) {
        return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60)
        return std::nullopt;
    double fraction = 0;
    if (pos < text.size() && text[pos] == '.') {
        ++pos;
        double scale = 0.1;
        const size_t start = pos;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
            fraction += (text[pos] - '0') * scale;
            scale /= 10;
            ++pos;
        }
        if (pos == start) return std::nullopt;
    }
    int offsetSeconds = 0;
    if (pos < text.size() && text[pos] == 'Z') {
        ++pos;
    } else if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
        const int sign = text[pos] == '-' ? -1 : 1;
        ++pos;
        int oh, om;
        if (!readInt(text, pos, 2, oh) || !expect(text, pos, ':') || !readInt(text, pos, 2, om))
            return std::nullopt;
        offsetSeconds = sign * (oh * 3600 + om * 60);
    } else {
        return std::nullopt;
    }
    if (pos != text.size()) return std::nullopt;
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    const time_t unix = timegm(&tm);
    return Date::fromUnix(static_cast<double>(unix) + fraction - offsetSeconds);
}

std::string formatStyled(Date date, Style dateStyle, Style timeStyle) {
    std::unique_ptr<icu::DateFormat> formatter(icu::DateFormat::createDateTimeInstance(
        icuStyle(dateStyle), icuStyle(timeStyle), icu::Locale::getDefault()));
    if (!formatter) throw Error("Couldn't format a date: the locale has no date formats.");
    icu::UnicodeString out;
    formatter->format(toUDate(date), out);
    return toUtf8(out);
}

std::string formatPattern(Date date, std::string_view pattern, std::string_view locale) {
    return PatternFormatter(pattern, locale).format(date);
}

int firstWeekday() {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Calendar> calendar(icu::Calendar::createInstance(status));
    if (U_FAILURE(status)) return 1;
    return static_cast<int>(calendar->getFirstDayOfWeek(status));
}

std::string currentLocale() {
    return icu::Locale::getDefault().getName();
}

void setCurrentLocale(const std::string& localeID) {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale(localeID.c_str()), status);
    if (U_FAILURE(status))
        throw Error("Couldn't use the locale " + localeID + ": " + u_errorName(status));
}

std::optional<std::string> localeOfTimeFormats() {
    for (const char* variable : {"LC_TIME", "LC_ALL", "LANG"}) {
        const char* value = std::getenv(variable);
        if (!value || !*value) continue;
        const std::string_view name(value);
        // The C locale asks for no language; ICU's own name for it keeps English formats, where
        // a canonical "c" would fall back to the bare root formats ("2026 M11 24").
        if (const auto base = name.substr(0, name.find_first_of(".@"));
            base == "C" || base == "POSIX")
            return "en_US_POSIX";
        // Drops the character set ("en_GB.UTF-8").
        return std::string(icu::Locale::createCanonical(value).getName());
    }
    return std::nullopt;
}

void useTimeFormatsOfTheUser() {
    if (const auto locale = localeOfTimeFormats()) setCurrentLocale(*locale);
}

std::string currentTimeZone() {
    std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createDefault());
    icu::UnicodeString id;
    zone->getID(id);
    return toUtf8(id);
}

void setCurrentTimeZone(const std::string& zoneID) {
    auto* zone = icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zoneID));
    if (*zone == icu::TimeZone::getUnknown()) {
        delete zone;
        throw Error("Couldn't use the time zone " + zoneID + ": it is not a known zone.");
    }
    icu::TimeZone::adoptDefault(zone);
}

}  // namespace bc::dates
