#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace bc {

// An instant: seconds since 2001-01-01 00:00:00 UTC, the reference every source date uses.
struct Date {
    double seconds = 0;

    // Seconds between 1970-01-01 and 2001-01-01, both UTC.
    static constexpr double referenceToUnix = 978307200.0;

    static Date fromUnix(double unixSeconds) { return Date{unixSeconds - referenceToUnix}; }
    double toUnix() const { return seconds + referenceToUnix; }

    Date operator+(double delta) const { return Date{seconds + delta}; }
    Date operator-(double delta) const { return Date{seconds - delta}; }
    double operator-(Date other) const { return seconds - other.seconds; }
    auto operator<=>(const Date&) const = default;
};

// A Messages-style stored date: 0 is no date, up to 10^12 seconds, above that nanoseconds.
std::optional<Date> appleDate(int64_t value);

// "Now" for everything that embeds a time; tests fix it so that outputs are reproducible.
class Clock {
public:
    static Date now();
    static void setFixed(std::optional<Date> fixed);
};

}  // namespace bc

template <>
struct std::hash<bc::Date> {
    size_t operator()(const bc::Date& d) const noexcept { return std::hash<double>{}(d.seconds); }
};
