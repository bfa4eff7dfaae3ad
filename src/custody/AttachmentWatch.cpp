#include "custody/AttachmentWatch.h"

#include <algorithm>
#include <set>

#include "custody/SafeStore.h"

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

AttachmentWatch::Report AttachmentWatch::check(const AttachmentPaths& attachments) {
    const fs::path file = location().path();
    const std::vector<int64_t> present = presentIDs(attachments);
    const auto previous = SafeStore::load<Record>(file).value;

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

RepeatingRounds::RepeatingRounds(std::chrono::steady_clock::duration interval,
                                 std::function<bool()> isBusy, std::function<void()> round)
    : interval_(interval), isBusy_(std::move(isBusy)), round_(std::move(round)) {
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
    auto due = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        wake_.wait_until(lock, due, [&] {
            return stopping_ || requested_ || std::chrono::steady_clock::now() >= due;
        });
        if (stopping_) break;
        const bool asked = std::exchange(requested_, false);
        const auto now = std::chrono::steady_clock::now();
        // Counted from this round, so a long pause (or a slow round) never queues a burst of
        // rounds.
        if (now >= due) due = now + interval_;
        lock.unlock();
        if (asked || !isBusy_()) round_();
        lock.lock();
    }
}

}  // namespace bc
