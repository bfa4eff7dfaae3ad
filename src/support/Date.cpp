#include "support/Date.h"

#include <chrono>
#include <mutex>

namespace bc {

std::optional<Date> appleDate(int64_t value) {
    if (value == 0) return std::nullopt;
    constexpr int64_t largestSeconds = 1'000'000'000'000;
    if (value <= largestSeconds) return Date{static_cast<double>(value)};
    return Date{static_cast<double>(value) / 1e9};
}

namespace {
std::mutex clockMutex;
std::optional<Date> fixedNow;
}  // namespace

Date Clock::now() {
    {
        std::lock_guard guard(clockMutex);
        if (fixedNow) return *fixedNow;
    }
    using namespace std::chrono;
    const auto micros = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    return Date::fromUnix(static_cast<double>(micros) / 1e6);
}

void Clock::setFixed(std::optional<Date> fixed) {
    std::lock_guard guard(clockMutex);
    fixedNow = fixed;
}

}  // namespace bc
