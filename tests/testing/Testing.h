#pragma once

#include <filesystem>
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

}  // namespace bc::testing
