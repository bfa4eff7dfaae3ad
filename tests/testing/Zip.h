#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace bc::testing {

struct ZipEntry {
    std::string name;
    std::string bytes;
    enum class Kind { file, symlink, encrypted } kind = Kind::file;
};

// A .zip written with libzip, entries in order (a symlink's bytes are its target).
void writeZip(const std::filesystem::path& file, const std::vector<ZipEntry>& entries);

}  // namespace bc::testing
