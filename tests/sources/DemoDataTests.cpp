#include "sources/demo/DemoData.h"

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

TEST(DemoDataMessages, PhotosExistExceptTheOneMeantToBeMissing) {
    TempDir dir;
    DemoData::writeMessagesDatabase(dir / "chat.db", now);
    sqlite::Connection db(dir / "chat.db", sqlite::OpenMode::readOnly);
    auto files = db.prepare("SELECT filename, transfer_name FROM attachment ORDER BY ROWID");
    std::vector<bool> present;
    while (files.step()) {
        const fs::path file = files.text(0);
        EXPECT_EQ(file.parent_path(), dir / "Attachments");
        EXPECT_EQ(file.filename().string().rfind("demo-photo-", 0), 0u);
        EXPECT_EQ(files.text(1).rfind("IMG_", 0), 0u);
        present.push_back(fs::exists(file));
        if (present.back()) {
            EXPECT_TRUE(isJpeg(file)) << file;
        }
    }
    EXPECT_EQ(present, (std::vector<bool>{true, true, true, false}));
}

TEST(DemoDataMessages, RewritingReplacesTheOldDatabaseWhole) {
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
}

TEST(DemoDataCalls, CallLogHasTheCallHistorySchemaAndOneRowPerCall) {
    TempDir dir;
    const auto file = dir / "CallHistory.storedata";
    testing::writeText(file, "old");
    const auto calls = DemoData::sampleCalls();
    ASSERT_GE(calls.size(), 3u);
    DemoData::writeCallLog(file, calls, now);
    sqlite::Connection db(file, sqlite::OpenMode::readOnly);
    auto rows = db.prepare(
        "SELECT Z_PK, ZUNIQUE_ID, ZDATE, ZDURATION, ZORIGINATED, ZANSWERED, ZCALLTYPE, "
        "ZSERVICE_PROVIDER, ZADDRESS "
        "FROM ZCALLRECORD ORDER BY Z_PK");
    size_t index = 0;
    while (rows.step()) {
        const auto& call = calls.at(index++);
        const std::string uniqueID = rows.text(1);
        EXPECT_EQ(uniqueID.rfind("demo", 0), 0u);
        EXPECT_NE(uniqueID.find("-call-" + std::to_string(index)), std::string::npos);
        EXPECT_DOUBLE_EQ(rows.real(2), now.seconds + call.minutesFromNow * 60);
        EXPECT_DOUBLE_EQ(rows.real(3), call.duration);
        EXPECT_EQ(rows.int64(4) != 0, call.outgoing);
        EXPECT_EQ(rows.int64(5) != 0, call.answered);
        EXPECT_EQ(rows.int64(6), call.callType);
        EXPECT_EQ(rows.text(7), call.provider);
        EXPECT_EQ(rows.text(8), call.address);
    }
    EXPECT_EQ(index, calls.size());
    EXPECT_THROW(DemoData::writeCallLog(dir / "CallHistory.storedata" / "x", calls, now), Error);
}

}  // namespace
}  // namespace bc
