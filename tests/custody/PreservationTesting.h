#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "custody/CustodyLog.h"
#include "custody/Preservation.h"
#include "custody/SnapshotLock.h"
#include "demo/DemoData.h"
#include "sources/MessageDatabase.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc::testing {

// The sample database as the live source (the home folder is the test's), a snapshots root and a
// custody log of the test's own, and "now" fixed at 14:07:09 New York time (the test main's zone).
class PreservationTest : public ::testing::Test {
protected:
    void SetUp() override {
        Preservation::setOverrideRoot(root());
        CustodyLog::setOverrideURL(dir_ / "custody-log.jsonl");
        DemoData::writeMessagesDatabase(sourcePath(), Clock::now());
    }

    // Snapshots are immutable for real when tests run as root: unlocked before removal.
    void TearDown() override {
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(root(), error))
            snapshotLock::unlock(entry.path());
        Preservation::setOverrideRoot(std::nullopt);
        CustodyLog::setOverrideURL(std::nullopt);
    }

    std::filesystem::path root() const { return dir_ / "Snapshots"; }
    std::filesystem::path sourcePath() const { return MessageDatabase::defaultPath(); }
    std::filesystem::path photo(int number) const {
        return sourcePath().parent_path() / "Attachments" /
               ("demo-photo-" + std::to_string(number) + ".jpg");
    }
    std::vector<std::string> rootEntries() const {
        std::vector<std::string> names;
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(root(), error))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    TempDir dir_;
    ScopedEnvironment home_{"HOME", dir_.path().string()};
    FixedClock clock_{utc("2024-03-05T19:07:09Z")};
};

}  // namespace bc::testing
