#include "sources/ChatListing.h"

#include <gtest/gtest.h>

#include "demo/DemoData.h"
#include "demo/LargeSample.h"
#include "sources/MessageDatabase.h"
#include "support/Sqlite.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

// The quick list must be the statement's list, field for field and in the same order.
void expectScanMatchesStatement(const fs::path& file) {
    sqlite::Connection db(file, sqlite::OpenMode::readOnly);
    const auto byStatement = chatListing::byStatement(db);
    const auto byScan = chatListing::byScan(db);
    ASSERT_TRUE(byScan.has_value()) << file;
    EXPECT_EQ(*byScan, byStatement) << file;
    EXPECT_FALSE(byStatement.empty()) << file;
}

// Tables as Messages has them, with rows each test adds.
fs::path writeDatabase(const TempDir& dir, const std::string& rows,
                       const std::string& messageColumns =
                           "associated_message_type INTEGER "
                           "DEFAULT 0,") {
    const auto file = dir / "chat.db";
    sqlite::Connection db(file, sqlite::OpenMode::readWriteCreate);
    db.execute(
        "CREATE TABLE handle (ROWID INTEGER PRIMARY KEY, id TEXT);"
        "CREATE TABLE chat (ROWID INTEGER PRIMARY KEY, chat_identifier TEXT, display_name TEXT, "
        "service_name TEXT);"
        "CREATE TABLE chat_handle_join (chat_id INTEGER, handle_id INTEGER);"
        "CREATE TABLE message (ROWID INTEGER PRIMARY KEY, guid TEXT, text TEXT, handle_id "
        "INTEGER, " +
        messageColumns +
        " date INTEGER);"
        "CREATE TABLE chat_message_join (chat_id INTEGER, message_id INTEGER, PRIMARY KEY "
        "(chat_id, message_id));"
        "CREATE TABLE chat_recoverable_message_join (chat_id INTEGER, message_id INTEGER, "
        "delete_date INTEGER, PRIMARY KEY (chat_id, message_id));"
        "INSERT INTO handle VALUES (1, '+12025550143'), (2, 'b@example.com');"
        "INSERT INTO chat VALUES (1, 'one', NULL, 'iMessage'), (2, 'two', 'Named', NULL), "
        "(3, 'three', NULL, 'SMS'), (4, 'four', NULL, NULL), (5, 'five', NULL, NULL), "
        "(6, 'six', NULL, NULL);"
        "INSERT INTO chat_handle_join VALUES (1, 1), (2, 1), (2, 2), (9, 2);" +
        rows);
    return file;
}

TEST(ChatListing, ScanGivesTheStatementsListOnSampleGeneratedAndRealDatabases) {
    TempDir dir;
    DemoData::writeMessagesDatabase(dir / "sample.db", Date{780'000'000});
    expectScanMatchesStatement(dir / "sample.db");
    demo::LargeSample{.messages = 20'000}.write(dir / "large.db");
    expectScanMatchesStatement(dir / "large.db");
    MessageDatabase reader(dir / "large.db");
    sqlite::Connection db(dir / "large.db", sqlite::OpenMode::readOnly);
    EXPECT_EQ(reader.fetchChats(), chatListing::byStatement(db));
    // The only fixture with a chat table; it also joins messages that no longer exist.
    if (const auto folder = testing::fixturesFolder()) {
        fs::copy_file(*folder / "messages" / "macos-10.11-plaso.db", dir / "real.db");
        expectScanMatchesStatement(dir / "real.db");
    }
}

TEST(ChatListing, ScanAgreesOnTiesMissingRowsReactionsAndRecentlyDeleted) {
    TempDir dir;
    const auto file = writeDatabase(
        dir,
        // 1 and 2 end on the same date; 3 has no dates at all; 4 only reactions; 5 only in
        // Recently Deleted; 6 once in each join; memberships of missing messages and chats.
        "INSERT INTO message (ROWID, guid, associated_message_type, date) VALUES "
        "(1, 'a', 0, 500), (2, 'b', 0, 900), (3, 'c', 2000, 5000), (4, 'd', 0, 900), "
        "(5, 'e', 0, NULL), (6, 'f', NULL, 7000), (7, 'g', 3006, 9000), (8, 'h', 0, -40), "
        "(9, 'i', 1000, 1000000000001), (10, 'j', 0, 1000000000000);"
        "INSERT INTO chat_message_join VALUES (1, 1), (1, 2), (1, 3), (1, 6), (2, 4), (2, 99), "
        "(3, 5), (4, 7), (6, 8), (8, 9), (NULL, 1), (1, NULL);"
        "INSERT INTO chat_recoverable_message_join VALUES (5, 9, 0), (5, 10, NULL), "
        "(6, 8, 700), (6, 5, 1);");
    expectScanMatchesStatement(file);
    sqlite::Connection db(file, sqlite::OpenMode::readOnly);
    const auto chats = *chatListing::byScan(db);
    ASSERT_EQ(chats.size(), 5u);
    EXPECT_EQ(chats[0].id, 5);
    EXPECT_TRUE(chats[0].isDeletedConversation);
    EXPECT_EQ(chats[1].id, 2) << "equal dates: the higher chat id first";
    EXPECT_EQ(chats[1].participants, (std::vector<std::string>{"+12025550143", "b@example.com"}));
    EXPECT_EQ(chats[2].id, 1);
    EXPECT_EQ(chats[2].messageCount, 2) << "a reaction and a row without a type don't count";
    EXPECT_EQ(chats[3].id, 6);
    EXPECT_EQ(chats[3].messageCount, 3) << "each membership row counts";
    EXPECT_FALSE(chats[3].isDeletedConversation);
    EXPECT_EQ(chats[4].id, 3);
    EXPECT_EQ(chats[4].lastDate, std::nullopt);

    // Old databases without reactions or Recently Deleted scan alike.
    TempDir old;
    expectScanMatchesStatement(writeDatabase(
        old,
        "DROP TABLE chat_recoverable_message_join;"
        "INSERT INTO message (ROWID, guid, date) VALUES (1, 'a', 500), (2, 'b', 700), "
        "(4, 'c', 0);"
        "INSERT INTO chat_message_join VALUES (1, 1), (2, 2), (2, 4);",
        ""));
}

TEST(ChatListing, OddlyStoredValuesAreLeftToTheStatement) {
    const std::vector<std::string> odd = {
        "UPDATE message SET date = 900.5 WHERE ROWID = 2;",
        "UPDATE message SET date = 'soon' WHERE ROWID = 2;",
        "UPDATE message SET date = x'01' WHERE ROWID = 2;",
        "UPDATE message SET date = -9223372036854775808 WHERE ROWID = 2;",
        "INSERT INTO chat_message_join VALUES ('one', 1);",
        "INSERT INTO chat_message_join VALUES (2, 2.5);",
        // Row ids too far apart to address directly.
        "INSERT INTO message (ROWID, guid, date) VALUES (900000000000, 'far', 100);"
        "INSERT INTO chat_message_join VALUES (3, 900000000000);",
    };
    for (const auto& change : odd) {
        TempDir dir;
        const auto file = writeDatabase(
            dir,
            "INSERT INTO message (ROWID, guid, date) VALUES (1, 'a', 500), (2, 'b', 700);"
            "INSERT INTO chat_message_join VALUES (1, 1), (2, 2);" +
                change);
        sqlite::Connection db(file, sqlite::OpenMode::readOnly);
        EXPECT_FALSE(chatListing::byScan(db).has_value()) << change;
        EXPECT_EQ(chatListing::list(db), chatListing::byStatement(db)) << change;
    }
}

}  // namespace
}  // namespace bc
