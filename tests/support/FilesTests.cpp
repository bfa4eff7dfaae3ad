#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>

#include "support/Errors.h"
#include "support/Files.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;

TEST(AtomicWrite, CreatesFoldersReplacesWholeAndLeavesNoTemporaries) {
    testing::TempDir dir;
    const auto file = dir / "a" / "b" / "store.json";
    files::writeFileAtomically(file, "first");
    files::writeFileAtomically(file, "second");
    EXPECT_EQ(files::readFile(file), "second");
    EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), fs::directory_iterator()), 1);
}

TEST(AtomicWrite, FailureKeepsTheOldFileAndSaysWhy) {
    testing::TempDir dir;
    const auto file = dir / "store.json";
    files::writeFileAtomically(file, "old");
    fs::create_directory(dir / "blocked");
    fs::permissions(dir / "blocked", fs::perms::owner_read | fs::perms::owner_exec);
    if (::geteuid() != 0) {
        EXPECT_THROW(files::writeFileAtomically(dir / "blocked" / "x", "new"), Error);
    }
    // Renaming over a folder fails at the last step; the temporary must not be left behind.
    fs::create_directory(dir / "folder");
    testing::writeText(dir / "folder" / "inside", "keep");
    EXPECT_THROW(files::writeFileAtomically(dir / "folder", "new"), Error);
    EXPECT_EQ(files::readFile(file), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 3);
}

TEST(RemoveAll, RemovesReadOnlyTrees) {
    testing::TempDir dir;
    testing::writeText(dir / "sealed" / "inner" / "f.txt", "x");
    fs::permissions(dir / "sealed" / "inner" / "f.txt", fs::perms::owner_read);
    fs::permissions(dir / "sealed" / "inner", fs::perms::owner_read | fs::perms::owner_exec);
    fs::permissions(dir / "sealed", fs::perms::owner_read | fs::perms::owner_exec);
    files::removeAll(dir / "sealed");
    EXPECT_FALSE(fs::exists(dir / "sealed"));
    EXPECT_NO_THROW(files::removeAll(dir / "never existed"));
}

TEST(StoreLocation, DefaultsUnderTheDataFolderUntilOverridden) {
    testing::TempDir dir;
    ::setenv("XDG_DATA_HOME", dir.path().c_str(), 1);
    StoreLocation location("custody-log.jsonl");
#ifndef __APPLE__
    EXPECT_EQ(location.path(), dir / "Kestrove" / "custody-log.jsonl");
#endif
    location.setOverride(dir / "demo" / "log.jsonl");
    EXPECT_EQ(location.path(), dir / "demo" / "log.jsonl");
    location.setOverride(std::nullopt);
    EXPECT_EQ(location.path().filename(), "custody-log.jsonl");
    ::unsetenv("XDG_DATA_HOME");
}

}  // namespace
}  // namespace bc
