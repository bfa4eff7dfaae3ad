#include "demo/DemoData.h"

#include <gtest/gtest.h>

#include <set>

#include "support/Errors.h"
#include "support/Files.h"
#include "support/Image.h"
#include "support/Sqlite.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

const Date now = Date{780'000'000};

int64_t count(const fs::path& file, const std::string& sql) {
    sqlite::Connection db(file, sqlite::OpenMode::readOnly);
    auto statement = db.prepare(sql);
    statement.step();
    return statement.int64(0);
}

bool isJpeg(const fs::path& file) {
    const std::string bytes = files::readFile(file);
    return image::sniff(bytes) == image::Format::jpeg && !image::decode(bytes, "photo").empty();
}

TEST(DemoDataMessages, RewritingReplacesTheOldDatabaseAndPhotosWhole) {
    TempDir dir;
    const auto file = dir / "chat.db";
    testing::writeText(file, "an old file that is not a database");
    testing::writeText(file.string() + "-wal", "stale log");
    DemoData::writeMessagesDatabase(file, now);
    const int64_t newest = count(file, "SELECT MAX(date) FROM message");
    DemoData::writeMessagesDatabase(file, now + 3600);
    EXPECT_FALSE(fs::exists(file.string() + "-wal"));
    EXPECT_EQ(count(file, "SELECT COUNT(*) FROM message"), 39);
    EXPECT_EQ(count(file, "SELECT MAX(date) FROM message"), newest + 3600'000'000'000);
    // Nothing but the database and its photos is left behind.
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir.path()))
        names.insert(entry.path().filename().string());
    EXPECT_EQ(names, (std::set<std::string>{"Attachments", "chat.db"}));

    // Every photo but the one meant to be missing is a real image beside the database.
    sqlite::Connection db(file, sqlite::OpenMode::readOnly);
    auto paths = db.prepare("SELECT filename FROM attachment ORDER BY ROWID");
    std::vector<bool> present;
    while (paths.step()) {
        const fs::path photo = paths.text(0);
        EXPECT_EQ(photo.parent_path(), dir / "Attachments");
        present.push_back(fs::exists(photo));
        EXPECT_TRUE(!present.back() || isJpeg(photo)) << photo;
    }
    EXPECT_EQ(present, (std::vector<bool>{true, true, true, false}));
}

TEST(DemoDataMessages, UnwritableFolderFailsWithoutLeavingAnything) {
    TempDir dir;
    testing::writeText(dir / "blocker", "a file where a folder should be");
    try {
        DemoData::writeMessagesDatabase(dir / "blocker" / "chat.db", now);
        FAIL();
    } catch (const Error& error) {
        EXPECT_EQ(
            std::string(error.what()).rfind("Couldn't write the sample Messages database: ", 0),
            0u);
    }
    EXPECT_EQ(files::readFile(dir / "blocker"), "a file where a folder should be");
    EXPECT_THROW(DemoData::writeCallLog(dir / "blocker" / "calls", DemoData::sampleCalls(), now),
                 Error);
}

}  // namespace
}  // namespace bc
