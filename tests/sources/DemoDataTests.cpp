#include "sources/demo/DemoData.h"

#include <gtest/gtest.h>

#include <map>
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

std::map<std::string, std::vector<std::string>> schemaOf(const fs::path& file) {
    sqlite::Connection db(file, sqlite::OpenMode::readOnly);
    std::map<std::string, std::vector<std::string>> tables;
    auto names = db.prepare("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name");
    while (names.step()) {
        auto columns = db.prepare("SELECT name FROM pragma_table_info('" + names.text(0) + "')");
        auto& list = tables[names.text(0)];
        while (columns.step()) list.push_back(columns.text(0));
    }
    return tables;
}

int64_t count(const fs::path& file, const std::string& sql) {
    sqlite::Connection db(file, sqlite::OpenMode::readOnly);
    auto statement = db.prepare(sql);
    statement.step();
    return statement.int64(0);
}

TEST(DemoDataMessages, ExactlyTheMessagesTablesTheReaderUses) {
    TempDir dir;
    DemoData::writeMessagesDatabase(dir / "chat.db", now);
    const auto tables = schemaOf(dir / "chat.db");
    EXPECT_EQ(tables.size(), 9u);
    EXPECT_EQ(tables.at("chat"), (std::vector<std::string>{"ROWID", "guid", "chat_identifier",
                                                           "display_name", "service_name"}));
    EXPECT_EQ(tables.at("message").size(), 20u);
    EXPECT_EQ(tables.at("attachment").back(), "transfer_state");
    EXPECT_EQ(tables.at("recoverable_message_part"),
              (std::vector<std::string>{"chat_id", "message_id", "part_index", "delete_date",
                                        "part_text"}));
}

TEST(DemoDataMessages, HoldsEveryKindOfRecordWithDatesRelativeToNow) {
    TempDir dir;
    const auto file = dir / "chat.db";
    DemoData::writeMessagesDatabase(file, now);
    const std::map<std::string, std::string> kinds = {
        {"body-only texts",
         "SELECT COUNT(*) FROM message WHERE text IS NULL AND attributedBody IS NOT NULL"},
        {"classic reactions",
         "SELECT COUNT(*) FROM message WHERE associated_message_type BETWEEN 2000 AND 2005"},
        {"emoji reactions", "SELECT COUNT(*) FROM message WHERE associated_message_type = 2006"},
        {"removals",
         "SELECT COUNT(*) FROM message WHERE associated_message_type BETWEEN 3000 AND 3999"},
        {"edits",
         "SELECT COUNT(*) FROM message WHERE date_edited != 0 AND message_summary_info IS NOT "
         "NULL"},
        {"unsent", "SELECT COUNT(*) FROM message WHERE date_retracted != 0"},
        {"recovered parts", "SELECT COUNT(*) FROM recoverable_message_part"},
        {"system rows", "SELECT COUNT(*) FROM message WHERE item_type != 0"},
        {"replies", "SELECT COUNT(*) FROM message WHERE thread_originator_guid IS NOT NULL"},
        {"photos",
         "SELECT COUNT(*) FROM attachment WHERE mime_type = 'image/jpeg' AND total_bytes = "
         "2481152"},
        {"errors", "SELECT COUNT(*) FROM message WHERE error != 0"},
        {"app messages", "SELECT COUNT(*) FROM message WHERE balloon_bundle_id IS NOT NULL"},
        {"group",
         "SELECT COUNT(*) FROM chat WHERE guid = 'demo-chat-7' AND display_name = 'Weekend Crew'"},
        {"deleted conversation",
         "SELECT COUNT(*) FROM chat_recoverable_message_join r WHERE NOT EXISTS "
         "(SELECT 1 FROM chat_message_join j WHERE j.chat_id = r.chat_id)"},
    };
    for (const auto& [kind, sql] : kinds) EXPECT_GT(count(file, sql), 0) << kind;
    // Newest within a day of now, oldest about a month back, all stored in nanoseconds.
    EXPECT_GT(count(file, "SELECT MAX(date) FROM message"),
              static_cast<int64_t>((now.seconds - 86400) * 1e9));
    EXPECT_LE(count(file, "SELECT MAX(date) FROM message"),
              static_cast<int64_t>(now.seconds * 1e9));
    EXPECT_GT(count(file, "SELECT MIN(date) FROM message"),
              static_cast<int64_t>((now.seconds - 40 * 86400) * 1e9));
    EXPECT_EQ(count(file, "SELECT COUNT(*) FROM handle WHERE id LIKE '%@example.com'"), 2);
    EXPECT_EQ(count(file, "SELECT COUNT(*) FROM handle WHERE id LIKE '+1___55501__'"), 6);
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

TEST(DemoDataCalls, SampleCallsReachTheSampleConversations) {
    TempDir dir;
    DemoData::writeMessagesDatabase(dir / "chat.db", now);
    std::set<std::string> handles;
    {
        sqlite::Connection db(dir / "chat.db", sqlite::OpenMode::readOnly);
        auto statement = db.prepare("SELECT id FROM handle");
        while (statement.step()) handles.insert(statement.text(0));
    }
    // Addresses are written the way phones write them; their digits end in a sample handle's.
    for (const auto& call : DemoData::sampleCalls()) {
        std::string digits;
        for (char c : call.address)
            if (std::isdigit(static_cast<unsigned char>(c))) digits += c;
        const bool matches =
            std::any_of(handles.begin(), handles.end(), [&](const std::string& handle) {
                return handle == call.address ||
                       (digits.size() >= 10 && handle.ends_with(digits.substr(digits.size() - 10)));
            });
        EXPECT_TRUE(matches) << call.address;
        EXPECT_LT(call.minutesFromNow, 0);
    }
}

}  // namespace
}  // namespace bc
