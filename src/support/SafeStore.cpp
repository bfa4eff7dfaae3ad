#include "support/SafeStore.h"

#include <algorithm>

#include "support/Date.h"
#include "support/DateFormat.h"
#include "support/Files.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

std::string stampNow() {
    std::string stamp = dates::iso8601(Clock::now());
    stamp.erase(std::remove(stamp.begin(), stamp.end(), ':'), stamp.end());
    return stamp;
}

// "evidence.json" is kept as "evidence.corrupt-2024-03-05T140709Z.json" after a load at 14:07:09
// UTC; a second failure within the same second must not overwrite the first backup.
fs::path unusedBackupLocation(const fs::path& file) {
    fs::path preferred = file;
    preferred.replace_extension("corrupt-" + stampNow() + ".json");
    fs::path candidate = preferred;
    std::error_code error;
    for (int n = 2; fs::exists(fs::symlink_status(candidate, error)); ++n) {
        candidate = preferred;
        candidate.replace_extension();
        candidate += "-" + std::to_string(n) + ".json";
    }
    return candidate;
}

}  // namespace

std::optional<std::string> SafeStore::readIfPresent(const fs::path& file) {
    std::error_code error;
    const bool present = fs::exists(file, error);
    if (error) throw std::system_error(error);
    if (!present) return std::nullopt;
    return files::readFile(file);
}

SafeStore::LoadError SafeStore::setAside(const fs::path& file, const std::string& reason) {
    const std::string name = file.filename().string();
    const fs::path backup = unusedBackupLocation(file);
    std::error_code error;
    fs::rename(file, backup, error);
    if (error)
        return {name + " couldn't be read, and couldn't be kept as " + backup.filename().string() +
                " (" + error.message() + "): " + reason};
    return {name + " couldn't be read and was kept as " + backup.filename().string() + ": " +
            reason};
}

std::optional<std::string> StoreLoadError::get() const {
    std::lock_guard guard(mutex_);
    return message_;
}

void StoreLoadError::set(std::optional<std::string> message) {
    std::lock_guard guard(mutex_);
    message_ = std::move(message);
}

}  // namespace bc
