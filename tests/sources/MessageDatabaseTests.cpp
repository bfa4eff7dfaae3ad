#include "sources/MessageDatabase.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <thread>

#include "demo/DemoData.h"
#include "sources/MessageDecoding.h"
#include "support/CancelFlag.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Sha256.h"
#include "support/Sqlite.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

const Date now = Date{780'000'000};
constexpr double day = 86400;

struct DemoDatabase {
    TempDir dir;
    fs::path file = dir / "chat.db";
    DemoDatabase() {
        Clock::setFixed(now);
        DemoData::writeMessagesDatabase(file, now);
    }
    ~DemoDatabase() { Clock::setFixed(std::nullopt); }
};

// The live database at ~/Library/Messages/chat.db, with the home folder inside a test's folder.
struct LiveDatabase {
    TempDir dir;
    testing::ScopedEnvironment home{"HOME", dir.path().string()};
    fs::path file = MessageDatabase::defaultPath();
    LiveDatabase() {
        fs::create_directories(file.parent_path());
        DemoData::writeMessagesDatabase(file, now);
    }
};

const Message& byGUID(const Transcript& transcript, const std::string& guid) {
    const auto found = std::find_if(transcript.messages.begin(), transcript.messages.end(),
                                    [&](const Message& m) { return m.guid == guid; });
    if (found == transcript.messages.end()) throw std::runtime_error("no message " + guid);
    return *found;
}

std::string demoGUID(int n) {
    return "DEMO-MSG-" + std::to_string(n);
}

DBError::Kind openFailure(const fs::path& file) {
    try {
        MessageDatabase db(file);
    } catch (const DBError& error) {
        EXPECT_FALSE(error.text().empty());
        return error.kind();
    }
    ADD_FAILURE() << "opened " << file;
    return DBError::Kind::query;
}

TEST(MessageDatabaseOpen, UnreadableFilesAreAccessDenied) {
    TempDir dir;
    testing::writeText(dir / "text.db", std::string(8192, 'x'));
    testing::writeText(dir / "empty.db", "");
    {
        sqlite::Connection other(dir / "other.db", sqlite::OpenMode::readWriteCreate);
        other.execute("CREATE TABLE notes (id INTEGER)");
    }
    for (const char* name : {"text.db", "empty.db", "other.db", "absent.db"})
        EXPECT_EQ(openFailure(dir / name), DBError::Kind::accessDenied) << name;
    EXPECT_FALSE(fs::exists(dir / "absent.db"));
}

TEST(MessageDatabaseOpen, ReadingChangesNothingOnDiskAndSeesTheWriteAheadLog) {
    TempDir dir;
    const auto file = dir / "live chat?#.db";
    DemoData::writeMessagesDatabase(file, now);
    // A writer that keeps its log open, as Messages does while running.
    sqlite::Connection writer(file, sqlite::OpenMode::readWriteCreate);
    writer.execute(
        "PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0;"
        "INSERT INTO message (ROWID, guid, text, date) VALUES (500, 'WAL-ONLY', 'only in the log', "
        "780000000);"
        "INSERT INTO chat_message_join VALUES (1, 500);");
    const auto stamp = [&](const fs::path& path) {
        struct stat info {};
        ::stat(path.c_str(), &info);
        return std::pair{Sha256::hexOfFile(path),
                         info.st_mtim.tv_sec * 1'000'000'000 + info.st_mtim.tv_nsec};
    };
    const fs::path wal = file.string() + "-wal";
    const auto before = std::pair{stamp(file), stamp(wal)};
    {
        MessageDatabase db(file);
        EXPECT_EQ(byGUID(db.fetchTranscript({1}), "WAL-ONLY").text, "only in the log");
        db.fetchChats();
        db.changeSignature();
        db.custodySource();
    }
    EXPECT_EQ(before, std::pair(stamp(file), stamp(wal)));

    // The immutable form reads the main file only, never the log, and also leaves it alone.
    MessageDatabase sealed(file, MessageDatabase::Origin::sealedCopy);
    EXPECT_THROW(byGUID(sealed.fetchTranscript({1}), "WAL-ONLY"), std::runtime_error);
    EXPECT_EQ(before, std::pair(stamp(file), stamp(wal)));
}

const std::string onlyInTheLog =
    "INSERT INTO message (ROWID, guid, text, date) VALUES (500, 'WAL-ONLY', 'only in the log', "
    "780000000); INSERT INTO chat_message_join VALUES (1, 500);";

// Only the live database is read in place, and reading a WAL-mode file without its log makes
// one; the record hashes a log only when it was there before.
TEST(MessageDatabaseLive, RecordsTheLogOnlyWhenItWasThereBeforeOpening) {
    LiveDatabase live;
    testing::makeWalMode(live.file);
    const fs::path wal = sqlite::writeAheadLog(live.file);
    {
        MessageDatabase db(live.file);
        db.fetchChats();
        EXPECT_TRUE(fs::exists(wal));
        EXPECT_EQ(db.custodySource().walSHA256, std::nullopt);
    }
    testing::writeOnlyToLog(live.file, onlyInTheLog);
    const auto before = testing::folderState(live.file.parent_path());
    MessageDatabase db(live.file);
    EXPECT_EQ(byGUID(db.fetchTranscript({1}), "WAL-ONLY").text, "only in the log");
    EXPECT_EQ(db.custodySource().walSHA256, Sha256::hexOfFile(wal));
    const auto after = testing::folderState(live.file.parent_path());
    EXPECT_EQ(after.at("chat.db"), before.at("chat.db"));
    EXPECT_EQ(after.at("chat.db-wal"), before.at("chat.db-wal"));
}

// Any other file opens without a trace beside it, whether or not its log came with it.
TEST(MessageDatabaseOpen, ChosenFilesLeaveTheirFolderAsItWas) {
    TempDir dir;
    const fs::path copied = dir / "copied" / "chat.db";
    const fs::path logged = dir / "logged" / "chat.db";
    for (const auto& file : {copied, logged}) {
        fs::create_directories(file.parent_path());
        DemoData::writeMessagesDatabase(file, now);
        testing::makeWalMode(file);
    }
    testing::writeOnlyToLog(logged, onlyInTheLog);
    for (const auto& file : {copied, logged}) {
        const auto before = testing::folderState(file.parent_path());
        {
            MessageDatabase db(file);
            db.fetchTranscript({1});
            const auto source = db.custodySource();
            EXPECT_EQ(source.kind, "files");
            EXPECT_EQ(source.walSHA256.has_value(), file == logged);
        }
        EXPECT_EQ(testing::folderState(file.parent_path()), before) << file;
    }
    EXPECT_EQ(byGUID(MessageDatabase(logged).fetchTranscript({1}), "WAL-ONLY").text,
              "only in the log");
}

TEST(MessageDatabaseDemo, ListsConversationsWithoutCountingReactions) {
    DemoDatabase demo;
    MessageDatabase db(demo.file);
    const auto chats = db.fetchChats();
    ASSERT_EQ(chats.size(), 9u);
    const auto chat = [&](int64_t id) {
        return *std::find_if(chats.begin(), chats.end(), [&](const Chat& c) { return c.id == id; });
    };
    EXPECT_EQ(chat(1).messageCount, 21);  // 26 rows, 5 of them reactions
    EXPECT_EQ(chat(1).participants, std::vector<std::string>{"sam.taylor@example.com"});
    EXPECT_EQ(chat(7).displayName, "Weekend Crew");
    EXPECT_EQ(chat(7).participants.size(), 4u);
    EXPECT_TRUE(chat(9).isDeletedConversation);
    EXPECT_EQ(chat(2).lastDate, now - 6 * 3600);
}

TEST(MessageDatabaseDemo, TranscriptsFoldReactionsDecodeEveryKindOfRecordAndMergeConversations) {
    DemoDatabase demo;
    MessageDatabase db(demo.file);
    const auto transcript = db.fetchTranscript({1});
    EXPECT_EQ(transcript.messages.size(), 21u);
    EXPECT_EQ(transcript.reactionEvents.size(), 5u);

    EXPECT_EQ(byGUID(transcript, demoGUID(2)).text,
              "It is! The lease runs to next August, rent is $1,150 a month split two ways.");
    EXPECT_EQ(byGUID(transcript, demoGUID(5)).reactions,
              (std::vector<Reaction>{{"❤️", false, "sam.taylor@example.com"}}));
    // Liked, like removed, then an emoji reaction.
    EXPECT_EQ(byGUID(transcript, demoGUID(7)).reactions, (std::vector<Reaction>{{"🎉", true, ""}}));
    EXPECT_EQ(byGUID(transcript, demoGUID(7)).effect, "Slam");

    const auto& edited = byGUID(transcript, demoGUID(13));
    EXPECT_TRUE(edited.isEdited);
    ASSERT_EQ(edited.editHistory.size(), 2u);
    EXPECT_EQ(edited.editHistory[0].text, "Got it, thanks! $400 back by the 15th.");
    EXPECT_EQ(edited.editHistory[1].text, edited.text);
    EXPECT_LT(edited.editHistory[0].date, edited.editHistory[1].date);

    const auto& unsent = byGUID(transcript, demoGUID(14));
    EXPECT_TRUE(unsent.isUnsent);
    EXPECT_EQ(unsent.text, messages::emptyMessageNotice);

    const auto& photos = byGUID(transcript, demoGUID(15));
    ASSERT_EQ(photos.attachments.size(), 2u);
    EXPECT_LT(photos.attachments[0].id, photos.attachments[1].id);
    EXPECT_EQ(photos.attachments[0].mimeType, "image/jpeg");
    EXPECT_EQ(photos.attachments[0].totalBytes, 2481152);
    EXPECT_EQ(byGUID(transcript, demoGUID(16)).replyToGUID, demoGUID(11));
    EXPECT_TRUE(byGUID(transcript, demoGUID(20)).systemNotice.has_value());
    EXPECT_EQ(byGUID(transcript, demoGUID(22)).text, messages::undecodableNotice);
    EXPECT_TRUE(byGUID(transcript, demoGUID(22)).undecodedBody.has_value());
    EXPECT_EQ(byGUID(transcript, demoGUID(24)).errorCode, 22);
    EXPECT_EQ(byGUID(transcript, demoGUID(25)).appLabel, "Apple Cash");
    EXPECT_EQ(byGUID(transcript, demoGUID(21)).dateRead,
              byGUID(transcript, demoGUID(21)).date + 90);

    const auto& deleted = byGUID(transcript, demoGUID(23));
    EXPECT_TRUE(deleted.isInRecentlyDeleted);
    EXPECT_NEAR(deleted.deletedAt->seconds, (now - day).seconds, 1e-3);
    ASSERT_EQ(deleted.recoveredParts.size(), 1u);

    const auto group = db.fetchTranscript({7});
    EXPECT_EQ(byGUID(group, demoGUID(34)).reactions.at(0).emoji, "😂");
    EXPECT_EQ(byGUID(group, demoGUID(33)).sender, "jordan.lee@example.com");

    const auto gone = db.fetchTranscript({9});
    ASSERT_EQ(gone.messages.size(), 2u);
    EXPECT_EQ(gone.messages[0].deletedAt, now - 2 * day);
    EXPECT_TRUE(gone.messages[1].isInRecentlyDeleted);

    // Several conversations merge by date; every message keeps its own conversation.
    const auto merged = db.fetchTranscript({7, 1, 9});
    EXPECT_EQ(merged.messages.size(), 21u + 4u + 2u);
    EXPECT_EQ(byGUID(merged, demoGUID(33)).chatID, 7);
    EXPECT_TRUE(db.fetchTranscript({}).messages.empty());
    EXPECT_TRUE(db.fetchTranscript({424242}).messages.empty());
}

TEST(MessageDatabaseDemo, CountsRangesHandlesPathsAndCustodySource) {
    DemoDatabase demo;
    MessageDatabase db(demo.file, std::nullopt, [](const std::string& path, int64_t id) {
        return "/mapped/" + std::to_string(id) + fs::path(path).filename().string();
    });
    EXPECT_EQ(db.messageRowCount(), 39);
    // The newest rows are a reaction-free group and a one-line chat; reactions never count.
    EXPECT_EQ(db.newestMessageDate(), now - 6 * 3600);
    EXPECT_EQ(db.dateRange({9}), (std::pair{now - 12 * day, now - 12 * day + 180}));
    EXPECT_EQ(db.handles({1, 2}),
              (std::vector<std::string>{"sam.taylor@example.com", "+12025550143"}));

    const auto all = db.attachmentPaths();
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(db.attachmentPaths(std::vector<int64_t>{1}), all);
    EXPECT_TRUE(db.attachmentPaths(std::vector<int64_t>{2}).empty());
    EXPECT_EQ(byGUID(db.fetchTranscript({1}), demoGUID(5)).attachments.at(0).path,
              "/mapped/1demo-photo-1.jpg");

    EXPECT_FALSE(db.isLive());
    const auto source = db.custodySource();
    EXPECT_EQ(source.kind, "files");
    EXPECT_EQ(source.databaseSHA256, Sha256::hexOfFile(demo.file));
}

TEST(MessageDatabaseLive, ChangeSignatureAndDataVersionFollowEveryKindOfChange) {
    LiveDatabase live;
    MessageDatabase db(live.file);
    ASSERT_TRUE(db.isLive());
    sqlite::Connection writer(live.file, sqlite::OpenMode::readWriteCreate);
    std::vector<std::string> seen = {db.changeSignature()};
    EXPECT_EQ(db.changeSignature(), seen[0]);
    int64_t version = db.dataVersion();
    EXPECT_EQ(db.dataVersion(), version) << "reading is no change";
    for (const char* change : {
             "UPDATE message SET date_edited = 900000000000000000 WHERE ROWID = 1",
             "UPDATE message SET date_retracted = 900000000000000001 WHERE ROWID = 2",
             "UPDATE message SET date_read = 900000000000000002 WHERE ROWID = 3",
             "UPDATE message SET date_delivered = 900000000000000003 WHERE ROWID = 3",
             "DELETE FROM chat_message_join WHERE message_id = 4",
             "INSERT INTO chat_recoverable_message_join VALUES (1, 4, 0)",
             "UPDATE chat_recoverable_message_join SET delete_date = 900000000000000004 WHERE "
             "message_id = 4",
             "INSERT INTO message (ROWID, guid, date) VALUES (100, 'N', 1)",
         }) {
        writer.execute(change);
        seen.push_back(db.changeSignature());
        EXPECT_NE(seen[seen.size() - 2], seen.back()) << change;
        EXPECT_NE(db.dataVersion(), version) << change;
        version = db.dataVersion();
    }
    EXPECT_EQ(std::count(seen[0].begin(), seen[0].end(), ':'), 8);
}

// The signature is remembered while nothing moved; each write by another connection, in the log
// or checkpointed into the file, must still give exactly what a fresh reader's statements give.
TEST(MessageDatabaseLive, RememberedSignatureIsWhatTheStatementsGiveAfterEveryWrite) {
    LiveDatabase live;
    testing::makeWalMode(live.file);
    MessageDatabase db(live.file);
    const auto fresh = [&] { return MessageDatabase(live.file).changeSignature(); };
    std::string last = db.changeSignature();
    EXPECT_EQ(db.changeSignature(), last);
    sqlite::Connection writer(live.file, sqlite::OpenMode::readWriteCreate);
    for (const char* change : {
             "UPDATE message SET date_read = 900000000000000002 WHERE ROWID = 3",
             "PRAGMA wal_checkpoint(TRUNCATE)",
             "INSERT INTO message (ROWID, guid, date) VALUES (100, 'N', 1)",
             "INSERT INTO chat_message_join VALUES (1, 100)",
             "PRAGMA wal_checkpoint(TRUNCATE)",
             "UPDATE message SET date_edited = 900000000000000000 WHERE ROWID = 1",
         }) {
        writer.execute(change);
        const std::string now = db.changeSignature();
        EXPECT_EQ(now, fresh()) << change;
        if (!std::string_view(change).starts_with("PRAGMA")) {
            EXPECT_NE(now, last) << change;
        }
        last = now;
    }
}

TEST(MessageDatabaseDemo, TheOriginItIsOpenedWithDecidesLivenessAndTheCustodyName) {
    DemoDatabase demo;
    // Demo mode hands its sample over as the live database; where the file lies decides nothing.
    MessageDatabase sample(demo.file, MessageDatabase::Origin::demoSample);
    EXPECT_TRUE(sample.isLive());
    EXPECT_EQ(sample.custodySource().kind, "demo");
    DemoData::setEnabled(true);
    EXPECT_FALSE(MessageDatabase(demo.file).isLive()) << "a file by path is a chosen file";
    EXPECT_EQ(MessageDatabase(demo.file).custodySource().kind, "files");
    DemoData::setEnabled(false);
    EXPECT_EQ(MessageDatabase::originOf(MessageDatabase::defaultPath()),
              MessageDatabase::Origin::live);
}

TEST(MessageDatabaseDemo, BackupMakesOneSelfContainedCopyAndStopsWhenCancelled) {
    DemoDatabase demo;
    MessageDatabase db(demo.file);
    db.backup(demo.dir / "copy.db", nullptr);
    EXPECT_FALSE(fs::exists(demo.dir / "copy.db-wal"));
    MessageDatabase copy(demo.dir / "copy.db", MessageDatabase::Origin::sealedCopy);
    EXPECT_EQ(copy.fetchTranscript({1, 7, 9}), db.fetchTranscript({1, 7, 9}));

    CancelFlag cancel;
    cancel.cancel();
    EXPECT_THROW(db.backup(demo.dir / "cancelled.db", &cancel), CancelledError);
    try {
        db.backup(demo.dir / "no-such-folder" / "copy.db", nullptr);
        FAIL();
    } catch (const DBError& error) {
        EXPECT_EQ(error.kind(), DBError::Kind::accessDenied);
        EXPECT_EQ(error.text().rfind("Couldn't create the snapshot database: ", 0), 0u);
    }
}

TEST(MessageDatabaseDemo, ThreadsShareOneReaderSafely) {
    DemoDatabase demo;
    MessageDatabase db(demo.file);
    const auto expected = db.fetchTranscript({1, 7});
    std::vector<std::thread> threads;
    std::atomic<int> mismatches{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20; ++i)
                if (db.fetchTranscript({1, 7}) != expected || db.fetchChats().size() != 9)
                    ++mismatches;
        });
    // The body runs under the lock and may call other operations (the lock is recursive).
    const auto both = db.snapshot([&] {
        return std::pair{db.messageRowCount(), db.fetchChats().size()};
    });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(both, (std::pair<int64_t, size_t>{39, 9}));
}

// A database of an old Messages: no reaction, edit, Recently Deleted or attachment tables.
TEST(MessageDatabaseSchema, OldAndOddDatabasesReadWithoutError) {
    TempDir dir;
    const auto file = dir / "old.db";
    {
        sqlite::Connection db(file, sqlite::OpenMode::readWriteCreate);
        db.execute(R"(
            CREATE TABLE handle (ROWID INTEGER PRIMARY KEY, id TEXT);
            CREATE TABLE chat (ROWID INTEGER PRIMARY KEY, chat_identifier TEXT, display_name TEXT, service_name TEXT);
            CREATE TABLE message (ROWID INTEGER PRIMARY KEY, guid TEXT, text TEXT, handle_id INTEGER,
                                  is_from_me INTEGER, date INTEGER);
            CREATE TABLE chat_message_join (chat_id INTEGER, message_id INTEGER);
            INSERT INTO handle VALUES (1, '+12025550143');
            INSERT INTO chat VALUES (1, '+12025550143', NULL, NULL);
            INSERT INTO message VALUES (1, 'A', 'seconds', 1, 0, 1000000000000);
            INSERT INTO message VALUES (2, 'B', CAST(x'6361FF' AS TEXT), 7, 1, 1000000000001);
            INSERT INTO message VALUES (3, 'C', NULL, NULL, 1, 0);
            INSERT INTO chat_message_join VALUES (1, 1), (1, 2), (1, 3), (1, 99), (2, 98);
        )");
    }
    MessageDatabase db(file);
    const auto chats = db.fetchChats();
    ASSERT_EQ(chats.size(), 1u);
    EXPECT_EQ(chats[0].messageCount, 3);
    EXPECT_EQ(chats[0].service, "");
    EXPECT_TRUE(chats[0].participants.empty());
    const auto transcript = db.fetchTranscript({1, 2});
    ASSERT_EQ(transcript.messages.size(), 3u);
    EXPECT_EQ(transcript.messages[0].text, messages::emptyMessageNotice);
    EXPECT_EQ(transcript.messages[1].date, Date{1e12});
    EXPECT_EQ(transcript.messages[2].date, Date{1000.000000001});
    EXPECT_EQ(transcript.messages[2].text, "ca\xEF\xBF\xBD");
    EXPECT_TRUE(db.attachmentPaths().empty());
    EXPECT_EQ(db.dateRange({1}), (std::pair{Date{1e12}, Date{1000.000000001}}));
    const auto signature = db.changeSignature();
    EXPECT_EQ(std::count(signature.begin(), signature.end(), ':'), 6);
}

TEST(MessageDatabaseSchema, BrokenQueriesFailWholeWithTheEngineMessage) {
    TempDir dir;
    const auto file = dir / "chat.db";
    {
        sqlite::Connection db(file, sqlite::OpenMode::readWriteCreate);
        db.execute("CREATE TABLE message (ROWID INTEGER PRIMARY KEY, date INTEGER);");
    }
    MessageDatabase db(file);
    try {
        db.fetchChats();
        FAIL();
    } catch (const DBError& error) {
        EXPECT_EQ(error.kind(), DBError::Kind::query);
        EXPECT_NE(error.text().find("no such table"), std::string::npos);
    }
    EXPECT_THROW(db.fetchTranscript({1}), DBError);
}

// Real databases written by Messages itself.
class MessageDatabaseFixtures : public ::testing::TestWithParam<std::string> {};

TEST_P(MessageDatabaseFixtures, ReadsEveryConversationAndLeavesTheFileUnchanged) {
    const auto folder = testing::fixturesFolder();
    if (!folder) GTEST_SKIP() << "no fixtures folder";
    TempDir dir;
    const auto file = dir / GetParam();
    fs::copy_file(*folder / "messages" / GetParam(), file);
    const auto before = Sha256::hexOfFile(file);

    std::vector<int64_t> chatIDs;
    int64_t joined = 0, bodyOnly = 0;
    {
        sqlite::Connection raw(file, sqlite::OpenMode::readOnly);
        auto ids = raw.prepare("SELECT DISTINCT chat_id FROM chat_message_join ORDER BY chat_id");
        while (ids.step()) chatIDs.push_back(ids.int64(0));
        auto count = raw.prepare(
            "SELECT COUNT(DISTINCT m.ROWID), COUNT(DISTINCT CASE WHEN m.text IS NULL AND "
            "m.attributedBody IS NOT NULL "
            "THEN m.ROWID END) FROM chat_message_join j JOIN message m ON m.ROWID = j.message_id");
        count.step();
        joined = count.int64(0);
        bodyOnly = count.int64(1);
    }
    {
        MessageDatabase db(file);
        const auto all = db.fetchTranscript(chatIDs);
        EXPECT_EQ(static_cast<int64_t>(all.messages.size() + all.reactionEvents.size()), joined);
        int64_t decoded = 0;
        for (const auto& message : all.messages)
            decoded += message.textAsStored.empty() && !message.undecodedBody &&
                       message.text != messages::emptyMessageNotice;
        // At most the one reaction row is body-only and not a message.
        EXPECT_GE(decoded, bodyOnly - 1);
        if (sqlite::Connection(file, sqlite::OpenMode::readOnly).tableExists("chat")) {
            int64_t listed = 0;
            for (const auto& chat : db.fetchChats()) listed += chat.messageCount;
            EXPECT_EQ(listed + static_cast<int64_t>(all.reactionEvents.size()), joined);
        }
        db.changeSignature();
        db.attachmentPaths();
    }
    EXPECT_EQ(Sha256::hexOfFile(file), before);
}

INSTANTIATE_TEST_SUITE_P(Real, MessageDatabaseFixtures,
                         ::testing::Values("macos-10.11-plaso.db", "macos-11-upgrade-langchain.db",
                                           "macos-2023-langchain.db"));

TEST(MessageDatabaseFixtures, DecodesTheRealAttributedBodies) {
    const auto folder = testing::fixturesFolder();
    if (!folder) GTEST_SKIP() << "no fixtures folder";
    TempDir dir;
    const auto file = dir / "chat.db";
    fs::copy_file(*folder / "messages" / "macos-2023-langchain.db", file);
    MessageDatabase db(file);
    const auto transcript = db.fetchTranscript({1});
    int bodyOnly = 0;
    for (const auto& message : transcript.messages) {
        EXPECT_FALSE(message.undecodedBody.has_value()) << message.guid;
        bodyOnly += message.textAsStored.empty() && message.text != messages::emptyMessageNotice;
    }
    EXPECT_GE(bodyOnly, 10);
    EXPECT_EQ(transcript.messages.front().text, "Yeh");
    ASSERT_EQ(transcript.reactionEvents.size(), 1u);
    EXPECT_EQ(transcript.reactionEvents[0].targetGUID, "FC62F43D-2F38-43EC-937E-2129DBBD948A");
}

}  // namespace
}  // namespace bc
