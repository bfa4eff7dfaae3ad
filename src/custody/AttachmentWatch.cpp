#include "custody/AttachmentWatch.h"

#include <algorithm>
#include <set>

#include <time.h>

#include "support/Errors.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

std::vector<int64_t> presentIDs(const AttachmentWatch::AttachmentPaths& attachments) {
    std::vector<int64_t> present;
    for (const auto& [id, path] : attachments) {
        std::error_code error;
        if (!path.empty() && fs::exists(path, error)) present.push_back(id);
    }
    std::sort(present.begin(), present.end());
    present.erase(std::unique(present.begin(), present.end()), present.end());
    return present;
}

// Gone since the last check, among the rows the database still lists: a row that was deleted
// took its file with it and is not an eviction.
std::vector<int64_t> newlyMissing(const AttachmentWatch::Record& previous,
                                  const std::vector<int64_t>& present,
                                  const AttachmentWatch::AttachmentPaths& attachments) {
    std::set<int64_t> listed;
    for (const auto& entry : attachments) listed.insert(entry.first);
    const std::set<int64_t> presentNow(present.begin(), present.end());
    std::set<int64_t> missing;
    for (const int64_t id : previous.present)
        if (!presentNow.contains(id) && listed.contains(id)) missing.insert(id);
    return {missing.begin(), missing.end()};
}

}  // namespace

StoreLocation& AttachmentWatch::location() {
    static StoreLocation location("attachment-presence.json");
    return location;
}

void to_json(Json& j, const AttachmentWatch::Record& record) {
    j = Json{{"checkedAt", record.checkedAt}, {"present", record.present}};
}

void from_json(const Json& j, AttachmentWatch::Record& record) {
    j.at("checkedAt").get_to(record.checkedAt);
    const Json& present = j.at("present");
    if (!present.is_array()) throw Error("Couldn't read the present attachments: not a list.");
    record.present.clear();
    for (const Json& id : present) record.present.push_back(json::integer(id, "an attachment id"));
}

StoreLoadError& AttachmentWatch::loadError() {
    static StoreLoadError error;
    return error;
}

AttachmentWatch::Report AttachmentWatch::check(const AttachmentPaths& attachments) {
    const fs::path file = location().path();
    const std::vector<int64_t> present = presentIDs(attachments);
    const auto loaded = SafeStore::load<Record>(file);
    if (loaded.error) loadError().set(loaded.error->message);
    const auto& previous = loaded.value;

    Report report;
    report.total = static_cast<int64_t>(attachments.size());
    report.missingNow = report.total - static_cast<int64_t>(present.size());
    if (previous) {
        report.newlyMissing = newlyMissing(*previous, present, attachments);
        report.previousCheck = previous->checkedAt;
    }
    files::writeFileAtomically(file, json::encodePretty(Record{Clock::now(), present}));
    return report;
}

ContinuousClock::time_point ContinuousClock::now() noexcept {
#ifdef __APPLE__
    constexpr clockid_t clock = CLOCK_MONOTONIC;  // keeps counting while asleep, unlike UPTIME
#else
    constexpr clockid_t clock = CLOCK_BOOTTIME;
#endif
    timespec now{};
    clock_gettime(clock, &now);
    return time_point(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

RepeatingRounds::RepeatingRounds(std::chrono::nanoseconds interval, std::function<bool()> isBusy,
                                 std::function<void()> round, RoundTiming timing)
    : interval_(interval),
      isBusy_(std::move(isBusy)),
      round_(std::move(round)),
      timing_(std::move(timing)) {
    thread_ = std::thread([this] { loop(); });
}

RepeatingRounds::~RepeatingRounds() {
    {
        std::lock_guard guard(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void RepeatingRounds::runNow() {
    {
        std::lock_guard guard(mutex_);
        requested_ = true;
    }
    wake_.notify_all();
}

void RepeatingRounds::loop() {
    auto due = timing_.now();
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        // In short steps: the clock a wait sleeps on stops while the machine is suspended.
        while (!stopping_ && !requested_ && timing_.now() < due) {
            const std::chrono::nanoseconds left = due - timing_.now();
            wake_.wait_for(lock, std::min<std::chrono::nanoseconds>(left, timing_.recheck));
        }
        if (stopping_) break;
        const bool asked = std::exchange(requested_, false);
        const auto now = timing_.now();
        // Counted from this round, so a long pause (or a slow round) never queues a burst of
        // rounds.
        if (now >= due) due = now + interval_;
        lock.unlock();
        if (asked || !isBusy_()) round_();
        lock.lock();
    }
}

}  // namespace bc
