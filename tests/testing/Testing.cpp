#include "testing/Testing.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "support/Files.h"
#include "support/Sha256.h"
#include "support/Sqlite.h"

#ifndef __APPLE__
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif

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

std::map<std::string, std::string> folderState(const std::filesystem::path& folder) {
    std::map<std::string, std::string> state;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        const std::string name = entry.path().lexically_relative(folder).string();
        state[name] = entry.is_regular_file() ? Sha256::hexOfFile(entry.path()) : "";
    }
    return state;
}

void makeWalMode(const std::filesystem::path& database) {
    // Closing the last connection checkpoints the log and removes it with its index.
    sqlite::Connection(database, sqlite::OpenMode::readWriteCreate)
        .execute("PRAGMA journal_mode=WAL");
}

void writeOnlyToLog(const std::filesystem::path& database, const std::string& sql) {
    namespace fs = std::filesystem;
    const fs::path held = database.string() + ".held";
    const std::vector<std::string> suffixes{"", "-wal", "-shm"};
    fs::create_directories(held);
    {
        sqlite::Connection writer(database, sqlite::OpenMode::readWriteCreate);
        writer.execute("PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0;" + sql);
        for (const auto& suffix : suffixes)
            fs::copy_file(database.string() + suffix, held / ("copy" + suffix));
    }
    for (const auto& suffix : suffixes)
        fs::rename(held / ("copy" + suffix), database.string() + suffix);
    fs::remove(held);
}

namespace {

// True when the flag now is as asked.
bool setImmutable(const std::filesystem::path& folder, bool immutable) {
#ifdef __APPLE__
    struct stat info {};
    if (::stat(folder.c_str(), &info) != 0) return false;
    const auto flags = immutable ? (info.st_flags | UF_IMMUTABLE) : (info.st_flags & ~UF_IMMUTABLE);
    return ::chflags(folder.c_str(), flags) == 0;
#else
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    int flags = 0;
    bool done = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (done) {
        flags = immutable ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
        done = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    ::close(fd);
    return done;
#endif
}

}  // namespace

ImmutableFolder::ImmutableFolder(std::filesystem::path folder) : folder_(std::move(folder)) {
    locked_ = setImmutable(folder_, true);
}

ImmutableFolder::~ImmutableFolder() {
    if (locked_) setImmutable(folder_, false);
}

}  // namespace bc::testing
