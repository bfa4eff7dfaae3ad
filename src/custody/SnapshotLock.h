#pragma once

#include <filesystem>

// Sealed folders (snapshots, imports) made unchangeable by anyone short of their owner undoing it.
namespace bc::snapshotLock {

// Every file read-only (0444) and immutable where the system allows, folders 0555. The first
// failure is thrown.
void lock(const std::filesystem::path& folder);
// Undoes lock (0644, 0755).
void unlock(const std::filesystem::path& folder);

}  // namespace bc::snapshotLock
