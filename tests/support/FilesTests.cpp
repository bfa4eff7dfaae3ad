#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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
    EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), fs::directory_iterator()),
              1);
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

// Temporaries of ended processes go; those of running ones, and every other name, stay.
TEST(Temporaries, OnlyThoseOfEndedProcessesAreRemoved) {
    testing::TempDir dir;
    const pid_t ended = ::fork();
    if (ended == 0) ::_exit(0);
    ::waitpid(ended, nullptr, 0);
    const fs::path abandoned = dir / (".archive.tmp-" + std::to_string(ended) + "-3");
    fs::create_directories(abandoned / "attachments");
    testing::writeText(dir / (".page.pdf.tmp-" + std::to_string(ended) + "-0"), "half");
    const std::vector<std::string> kept{".own.tmp-" + std::to_string(::getpid()) + "-0",
                                        ".parent.tmp-" + std::to_string(::getppid()) + "-1",
                                        "visible.tmp-" + std::to_string(ended) + "-0", ".hidden",
                                        ".x.tmp-12ab-0"};
    for (const auto& name : kept) testing::writeText(dir / name, "");
    files::removeAbandonedTemporaries(dir.path());
    std::vector<std::string> left;
    for (const auto& entry : fs::directory_iterator(dir.path()))
        left.push_back(entry.path().filename().string());
    std::sort(left.begin(), left.end());
    auto expected = kept;
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(left, expected);
}

TEST(MoveIntoPlace, NeverReplacesWhatIsThere) {
    testing::TempDir dir;
    fs::create_directories(dir / "built" / "inside");
    fs::create_directories(dir / "taken");
    EXPECT_THROW(files::moveIntoPlace(dir / "built", dir / "taken"), Error);
    EXPECT_TRUE(fs::exists(dir / "built" / "inside"));
    files::moveIntoPlace(dir / "built", dir / "free");
    EXPECT_TRUE(fs::exists(dir / "free" / "inside"));
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
