#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Date.h"
#include "support/Files.h"
#include "support/Json.h"
#include "support/SafeStore.h"

namespace bc {

// Remembers which attachments of the Messages database had their files on disk at the last check,
// so that files the system evicts since then can be reported before more is lost.
class AttachmentWatch {
public:
    struct Record {
        Date checkedAt;
        std::vector<int64_t> present;  // ascending attachment row ids
        bool operator==(const Record&) const = default;
    };

    struct Report {
        std::vector<int64_t> newlyMissing;  // ascending
        std::optional<Date> previousCheck;
        int64_t missingNow = 0;
        int64_t total = 0;
        bool operator==(const Report&) const = default;
    };

    // (attachment row id, listed path), as the Messages database lists its attachments.
    using AttachmentPaths = std::vector<std::pair<int64_t, std::string>>;

    static constexpr std::chrono::seconds checkInterval{600};

    // "attachment-presence.json" in the application data folder unless overridden.
    static StoreLocation& location();

    // A damaged record, set aside by the last check, waiting to be shown.
    static StoreLoadError& loadError();

    // Compares the files present now with the last record and writes the new record; throws when
    // the record cannot be written (the report must then not be shown).
    static Report check(const AttachmentPaths& attachments);
};

void to_json(Json& j, const AttachmentWatch::Record& record);
void from_json(const Json& j, AttachmentWatch::Record& record);

// Counts the time the machine spends asleep as well, so that a round due in ten minutes comes ten
// minutes later however long the lid was shut: CLOCK_BOOTTIME on Linux, the continuous clock on
// macOS.
struct ContinuousClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<ContinuousClock>;
    static constexpr bool is_steady = true;
    static time_point now() noexcept;
};

// The clock rounds are timed on, and how often a wait looks at it again: the waits themselves run
// on a clock that stops while the machine is suspended.
struct RoundTiming {
    std::function<ContinuousClock::time_point()> now = ContinuousClock::now;
    std::chrono::milliseconds recheck{5000};
};

// Runs a round on its own thread once at start and then every `interval`, skipping a round while
// `isBusy` says other heavy work (an export or snapshot) is running. Rounds run one after another;
// a round handles its own failures.
class RepeatingRounds {
public:
    RepeatingRounds(std::chrono::nanoseconds interval, std::function<bool()> isBusy,
                    std::function<void()> round, RoundTiming timing = {});
    ~RepeatingRounds();  // stops, waiting for a running round to finish
    RepeatingRounds(const RepeatingRounds&) = delete;
    RepeatingRounds& operator=(const RepeatingRounds&) = delete;

    // Runs a round as soon as the current one (if any) is done, busy or not: the user asked.
    void runNow();

private:
    void loop();

    std::chrono::nanoseconds interval_;
    std::function<bool()> isBusy_;
    std::function<void()> round_;
    RoundTiming timing_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    bool requested_ = false;
    std::thread thread_;
};

}  // namespace bc
