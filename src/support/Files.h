#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace bc::files {

namespace fs = std::filesystem;

fs::path homeFolder();

// macOS: ~/Library/Application Support/Kestrove; elsewhere
// ${XDG_DATA_HOME:-~/.local/share}/Kestrove.
fs::path appDataFolder();

// Whole file into memory; only for small files (stores, logs' tails use their own reads).
std::string readFile(const fs::path& file);

// Writes beside the destination, flushes, then renames over it: readers see old or new, never half.
// Creates the parent folder with intermediates.
void writeFileAtomically(const fs::path& file, std::string_view bytes);

// Makes a fresh, unique name beside `target` for building something before it is moved in place.
fs::path temporarySibling(const fs::path& target);

// Removes the temporaries that temporarySibling named in `folder` whose process has ended (a
// killed run leaves them behind); those of running processes stay.
void removeAbandonedTemporaries(const fs::path& folder);

// Renames `from` to `to`, failing instead of replacing anything that exists at `to`.
void moveIntoPlace(const fs::path& from, const fs::path& to);

// Removes a file or folder tree, making locked (read-only) entries writable first.
void removeAll(const fs::path& target);

// Flushes a folder's entry list so a rename inside it survives a power cut.
void syncFolder(const fs::path& folder);

}  // namespace bc::files

namespace bc {

// Where one data file (or folder) lives: under the application data folder unless the
// process-wide override is set (demo mode, the command line, tests).
class StoreLocation {
public:
    explicit StoreLocation(std::string relativeName) : relativeName_(std::move(relativeName)) {}

    std::filesystem::path path() const;
    void setOverride(std::optional<std::filesystem::path> location);
    std::optional<std::filesystem::path> override() const;

private:
    std::string relativeName_;
    mutable std::mutex mutex_;
    std::optional<std::filesystem::path> override_;
};

}  // namespace bc
