#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>

#include "support/Errors.h"
#include "support/Sqlite.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc::sqlite {
namespace {

void makeDatabase(const std::filesystem::path& file) {
    Connection db(file, OpenMode::readWriteCreate);
    db.execute(
        "PRAGMA journal_mode=WAL; CREATE TABLE message (ROWID INTEGER PRIMARY KEY, text TEXT, body "
        "BLOB);");
    auto insert = db.prepare("INSERT INTO message (text, body) VALUES (?, ?)");
    insert.bind(1, std::string_view("caf\xC3\xA9 \xFF\xFE end"))
        .bindBlob(2, std::string("\x00\x01", 2));
    insert.step();
}

TEST(SqliteOpen, ImmutableUriEncodesEveryCharacterThatWouldEndThePath) {
    EXPECT_EQ(immutableURI("/a b/c?d#e%f/chat.db"),
              "file:/a%20b/c%3Fd%23e%25f/chat.db?immutable=1");
    EXPECT_EQ(immutableURI("/Users/ana/Snap 2024-03-05T140709/ü.db"),
              "file:/Users/ana/Snap%202024-03-05T140709/%C3%BC.db?immutable=1");
}

TEST(SqliteOpen, ReadOnlyModesReadButNeverWrite) {
    testing::TempDir dir;
    const auto file = dir / "odd ?#% name.db";
    makeDatabase(file);
    for (const auto mode : {OpenMode::readOnly, OpenMode::readOnlyImmutable}) {
        Connection db(file, mode);
        auto select = db.prepare("SELECT text, body FROM message");
        ASSERT_TRUE(select.step());
        EXPECT_EQ(select.text(0), "caf\xC3\xA9 \xEF\xBF\xBD\xEF\xBF\xBD end");
        EXPECT_EQ(select.blob(1), std::string("\x00\x01", 2));
        EXPECT_FALSE(select.step());
        try {
            db.execute("INSERT INTO message (text) VALUES ('x')");
            FAIL() << "a read-only connection wrote";
        } catch (const DBError& e) {
            EXPECT_EQ(e.kind(), DBError::Kind::query);
        }
    }
}

int64_t rowsIn(Connection& db) {
    auto count = db.prepare("SELECT COUNT(*) FROM message");
    count.step();
    return count.int64(0);
}

// A file the user points at, with and without a write-ahead log beside it: read whole, and its
// folder afterwards exactly as before, "-shm" included. The private copy lives in the temporary
// folder only while the connection is open.
TEST(SqliteOpen, UntouchedModeLeavesTheSourceFolderAsItWas) {
    testing::TempDir dir;
    std::filesystem::create_directories(dir / "tmp");
    const testing::ScopedEnvironment temporary("TMPDIR", (dir / "tmp").string());
    const auto plain = dir / "source" / "plain.db";
    const auto logged = dir / "source" / "logged.db";
    std::filesystem::create_directories(dir / "source");
    makeDatabase(plain);
    makeDatabase(logged);
    testing::writeOnlyToLog(logged, "INSERT INTO message (text) VALUES ('only in the log')");
    const auto before = testing::folderState(dir / "source");
    ASSERT_EQ(before.size(), 4u);
    {
        Connection db(plain, OpenMode::readOnlyUntouched);
        EXPECT_EQ(rowsIn(db), 1);
        EXPECT_TRUE(std::filesystem::is_empty(dir / "tmp")) << "no copy without a log";
    }
    {
        Connection db(logged, OpenMode::readOnlyUntouched);
        EXPECT_EQ(rowsIn(db), 2);
        EXPECT_FALSE(std::filesystem::is_empty(dir / "tmp"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(dir / "tmp"));
    EXPECT_EQ(testing::folderState(dir / "source"), before);
}

TEST(SqliteOpen, UntouchedModeReadsFromAFolderNothingCanBeCreatedIn) {
    testing::TempDir dir;
    std::filesystem::create_directories(dir / "evidence");
    makeDatabase(dir / "evidence" / "chat.db");
    makeDatabase(dir / "evidence" / "logged.db");
    testing::writeOnlyToLog(dir / "evidence" / "logged.db",
                            "INSERT INTO message (text) VALUES ('only in the log')");
    const auto before = testing::folderState(dir / "evidence");
    const testing::ImmutableFolder locked(dir / "evidence");
    if (!locked.isLocked()) GTEST_SKIP() << "only root may make a folder immutable";
    Connection plain(dir / "evidence" / "chat.db", OpenMode::readOnlyUntouched);
    EXPECT_EQ(rowsIn(plain), 1);
    Connection logged(dir / "evidence" / "logged.db", OpenMode::readOnlyUntouched);
    EXPECT_EQ(rowsIn(logged), 2);
    EXPECT_EQ(testing::folderState(dir / "evidence"), before);
}

TEST(SqliteStatements, BadSqlAndNullsAndOptionals) {
    testing::TempDir dir;
    makeDatabase(dir / "db");
    Connection db(dir / "db", OpenMode::readOnly);
    EXPECT_THROW(db.prepare("SELECT nope FROM message"), DBError);
    auto select = db.prepare("SELECT NULL, 7, 2.5, ? ");
    select.bind(1, int64_t{9});
    ASSERT_TRUE(select.step());
    EXPECT_TRUE(select.isNull(0));
    EXPECT_FALSE(select.optionalText(0).has_value());
    EXPECT_EQ(select.text(0), "");
    EXPECT_EQ(select.int64(1), 7);
    EXPECT_DOUBLE_EQ(select.real(2), 2.5);
    EXPECT_EQ(select.int64(3), 9);
}

TEST(SqliteSchema, ProbesAnswerFromTheFirstLookAndAreKept) {
    testing::TempDir dir;
    makeDatabase(dir / "db");
    Connection reader(dir / "db", OpenMode::readOnly);
    EXPECT_TRUE(reader.tableExists("message"));
    EXPECT_FALSE(reader.tableExists("chat_recoverable_message_join"));
    EXPECT_TRUE(reader.columnExists("message", "body"));
    EXPECT_FALSE(reader.columnExists("message", "transfer_state"));
    {
        Connection writer(dir / "db", OpenMode::readWriteCreate);
        writer.execute(
            "CREATE TABLE chat_recoverable_message_join (x); ALTER TABLE message ADD "
            "transfer_state;");
    }
    // Cached per connection: a reader's statements keep one shape for its whole life.
    EXPECT_FALSE(reader.tableExists("chat_recoverable_message_join"));
    EXPECT_FALSE(reader.columnExists("message", "transfer_state"));
    Connection fresh(dir / "db", OpenMode::readOnly);
    EXPECT_TRUE(fresh.tableExists("chat_recoverable_message_join"));
    EXPECT_TRUE(fresh.columnExists("message", "transfer_state"));
}

TEST(SqliteBackup, CopyIsSelfContainedAndIncludesWalContent) {
    testing::TempDir dir;
    makeDatabase(dir / "src.db");
    Connection writer(dir / "src.db", OpenMode::readWriteCreate);  // keeps the WAL alive
    writer.execute("INSERT INTO message (text) VALUES ('only in wal')");
    Connection source(dir / "src.db", OpenMode::readOnly);
    source.backupTo(dir / "copy.db", nullptr);
    EXPECT_FALSE(std::filesystem::exists(dir / "copy.db-wal"));
    Connection copy(dir / "copy.db", OpenMode::readOnlyImmutable);
    auto count = copy.prepare("SELECT COUNT(*) FROM message WHERE text = 'only in wal'");
    ASSERT_TRUE(count.step());
    EXPECT_EQ(count.int64(0), 1);
    auto mode = copy.prepare("PRAGMA journal_mode");
    ASSERT_TRUE(mode.step());
    EXPECT_EQ(mode.text(0), "delete");
}

TEST(SqliteBackup, WaitsOutAWriterHoldingTheLock) {
    testing::TempDir dir;
    makeDatabase(dir / "src.db");
    {
        Connection toRollback(dir / "src.db", OpenMode::readWriteCreate);
        toRollback.execute("PRAGMA journal_mode=DELETE");
    }
    Connection writer(dir / "src.db", OpenMode::readWriteCreate);
    writer.execute("BEGIN EXCLUSIVE; INSERT INTO message (text) VALUES ('late');");
    std::thread release([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        writer.execute("COMMIT");
    });
    Connection source(dir / "src.db", OpenMode::readOnly);
    source.backupTo(dir / "copy.db", nullptr);
    release.join();
    Connection copy(dir / "copy.db", OpenMode::readOnly);
    auto count = copy.prepare("SELECT COUNT(*) FROM message");
    ASSERT_TRUE(count.step());
    EXPECT_EQ(count.int64(0), 2);
}

}  // namespace
}  // namespace bc::sqlite
