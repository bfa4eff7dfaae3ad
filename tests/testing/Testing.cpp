#include "testing/Testing.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "support/Files.h"

namespace bc::testing {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "bc-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    try {
        files::removeAll(path_);
    } catch (...) {
    }
}

std::optional<std::filesystem::path> fixturesFolder() {
    const std::filesystem::path folder = BC_FIXTURES_DIR;
    if (std::filesystem::is_directory(folder)) return folder;
    return std::nullopt;
}

void writeText(const std::filesystem::path& file, const std::string& bytes) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary);
    out << bytes;
}

}  // namespace bc::testing
