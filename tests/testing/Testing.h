#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace bc::testing {

// A fresh folder removed (locked entries unlocked first) when the test ends.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

// The shared real-world fixtures beside the project; absent on a bare clone.
std::optional<std::filesystem::path> fixturesFolder();

void writeText(const std::filesystem::path& file, const std::string& bytes);

// Every entry under `folder` by relative path, with the SHA-256 of each file (folders map to
// ""): equal before and after means nothing in it was created, changed or removed.
std::map<std::string, std::string> folderState(const std::filesystem::path& folder);

// Puts the database into WAL mode the way a copied file arrives: the header says WAL and no
// "-wal" is beside it.
void makeWalMode(const std::filesystem::path& database);

// Runs `sql` on the database in WAL mode and leaves it as a copy taken while its writer ran:
// the rows only in the "-wal", with the writer's "-shm" beside it.
void writeOnlyToLog(const std::filesystem::path& database, const std::string& sql);

// The immutable flag on a folder while this object lives: nothing inside can be created,
// renamed or removed, not even by root. Only root may set it; `isLocked` says whether it held.
class ImmutableFolder {
public:
    explicit ImmutableFolder(std::filesystem::path folder);
    ~ImmutableFolder();
    ImmutableFolder(const ImmutableFolder&) = delete;
    ImmutableFolder& operator=(const ImmutableFolder&) = delete;

    bool isLocked() const { return locked_; }

private:
    std::filesystem::path folder_;
    bool locked_ = false;
};

}  // namespace bc::testing
