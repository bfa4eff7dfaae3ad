#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "support/Date.h"
#include "support/DateFormat.h"
#include "support/Files.h"

namespace bc::testing {

inline Date utc(const char* iso) {
    return dates::parseIso8601(iso).value();
}

// Switches the current locale (and time zone) for one test and puts the previous ones back.
class ScopedLocale {
public:
    explicit ScopedLocale(const std::string& locale, const std::string& timeZone = {})
        : locale_(dates::currentLocale()), timeZone_(dates::currentTimeZone()) {
        dates::setCurrentLocale(locale);
        if (!timeZone.empty()) dates::setCurrentTimeZone(timeZone);
    }
    ~ScopedLocale() {
        dates::setCurrentLocale(locale_);
        dates::setCurrentTimeZone(timeZone_);
    }

private:
    std::string locale_, timeZone_;
};

// Fixes "now" for one test.
struct FixedClock {
    explicit FixedClock(Date now) { Clock::setFixed(now); }
    ~FixedClock() { Clock::setFixed(std::nullopt); }
    void set(Date now) { Clock::setFixed(now); }
};

// Points one store at a test's own file and back.
class ScopedOverride {
public:
    ScopedOverride(StoreLocation& location, const std::filesystem::path& file)
        : location_(location), previous_(location.override()) {
        location.setOverride(file);
    }
    ~ScopedOverride() { location_.setOverride(previous_); }

private:
    StoreLocation& location_;
    std::optional<std::filesystem::path> previous_;
};

// Sets one environment variable (HOME, TMPDIR, …) for one test and puts the previous value back.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::string& value) : name_(name) {
        if (const char* previous = std::getenv(name)) previous_ = previous;
        ::setenv(name, value.c_str(), 1);
    }
    ~ScopedEnvironment() {
        if (previous_)
            ::setenv(name_, previous_->c_str(), 1);
        else
            ::unsetenv(name_);
    }

private:
    const char* name_;
    std::optional<std::string> previous_;
};

}  // namespace bc::testing
