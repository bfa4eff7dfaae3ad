#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>

#include "demo/DemoData.h"
#include "model/MessageSource.h"
#include "sources/CallHistory.h"
#include "sources/ContactResolver.h"
#include "sources/MessageDatabase.h"
#include "support/DateFormat.h"
#include "support/Sqlite.h"
#include "testing/SourceDouble.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;

struct StoredCall {
    int64_t pk;
    std::optional<double> date;
    std::string address;
    bool outgoing = false;
    bool answered = true;
    double duration = 0;
    int64_t callType = 1;
    std::string provider = "com.apple.Telephony";
};

// The system's call table, as far as the reader uses it.
void insertCalls(sqlite::Connection& db, const std::vector<StoredCall>& calls) {
    db.execute(
        "CREATE TABLE IF NOT EXISTS ZCALLRECORD (Z_PK INTEGER PRIMARY KEY, ZANSWERED INTEGER, "
        "ZCALLTYPE INTEGER, "
        "ZORIGINATED INTEGER, ZDATE TIMESTAMP, ZDURATION FLOAT, ZADDRESS VARCHAR, "
        "ZSERVICE_PROVIDER VARCHAR, "
        "ZUNIQUE_ID VARCHAR); BEGIN");
    auto insert = db.prepare("INSERT INTO ZCALLRECORD VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    for (const StoredCall& call : calls) {
        insert.bind(1, call.pk)
            .bind(2, int64_t{call.answered})
            .bind(3, call.callType)
            .bind(4, int64_t{call.outgoing});
        call.date ? insert.bind(5, *call.date) : insert.bindNull(5);
        insert.bind(6, call.duration)
            .bind(7, std::string_view(call.address))
            .bind(8, std::string_view(call.provider));
        insert.bind(9, std::string_view("UID-" + std::to_string(call.pk)));
        insert.step();
        insert.reset();
    }
    db.execute("COMMIT");
}

void writeCallHistory(const fs::path& file, const std::vector<StoredCall>& calls) {
    sqlite::Connection db(file, sqlite::OpenMode::readWriteCreate);
    insertCalls(db, calls);
}

using FakeSource = testing::SourceDouble;

// Every test starts from default settings pointed at its own call log.
class CallHistoryTest : public ::testing::Test {
protected:
    void SetUp() override { CallHistory::setOverridePath(log); }
    void TearDown() override {
        CallHistory::setOverridePath(std::nullopt);
        CallHistory::setOverrideDatabasePath(std::nullopt);
        CallHistory::setEnabled(true);
    }

    static Message message(int64_t id, double date) {
        Message m;
        m.id = id;
        m.date = Date{date};
        m.text = "message " + std::to_string(id);
        return m;
    }

    testing::TempDir dir;
    fs::path log = dir / "CallHistory.storedata";
    CallHistory history;
};

TEST(CallHistoryNormalize, MeetsOnTheLastTenDigitsOrTheLowerCasedAddress) {
    const std::pair<std::string, std::string> table[] = {
        {"+1 (555) 010-4477", "5550104477"},
        {"+44 (0)20 7946-0958", "2079460958"},
        {"\xD9\xA5\xD9\xA5\xD9\xA5\xD9\xA0\xD9\xA1\xD9\xA0\xD9\xA4\xD9\xA4\xD9\xA7\xD9\xA7",
         "5550104477"},
        {"12345", "12345"},
        {" Ana.Ruiz@Example.COM ", "ana.ruiz@example.com"},
        {"\xC3\x89LODIE@example.org", "\xC3\xA9lodie@example.org"},
        {"   ", ""},
        {"(+) - .", ""},
    };
    for (const auto& [address, expected] : table) {
        EXPECT_EQ(CallHistory::normalize(address), expected) << address;
        EXPECT_EQ(ContactResolver::key(address), expected) << address;
    }
}

TEST_F(CallHistoryTest, ReadsEveryDatedCallInDateOrder) {
    writeCallHistory(
        log,
        {{.pk = 3, .date = 200.5, .address = "+15550104477", .outgoing = true, .duration = 65.25},
         {.pk = 1,
          .date = 300,
          .address = "a@b.c",
          .answered = false,
          .callType = 16,
          .provider = "com.apple.FaceTime"},
         {.pk = 2, .date = std::nullopt, .address = "undated"},
         {.pk = 4, .date = 200.5, .address = "later pk"}});
    {
        sqlite::Connection db(log, sqlite::OpenMode::readWriteCreate);
        db.execute("INSERT INTO ZCALLRECORD (Z_PK, ZDATE) VALUES (5, 400)");
    }
    const auto calls = CallHistory::readAll(log);
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls[0], (CallInfo{.recordID = 3,
                                  .uniqueID = "UID-3",
                                  .date = Date{200.5},
                                  .duration = 65.25,
                                  .isOutgoing = true,
                                  .answered = true,
                                  .callType = 1,
                                  .serviceProvider = "com.apple.Telephony",
                                  .address = "+15550104477"}));
    EXPECT_EQ(calls[1].recordID, 4);
    EXPECT_EQ(calls[2].recordID, 1);
    // Missing values read as empty or zero.
    EXPECT_EQ(calls[3], (CallInfo{.recordID = 5, .date = Date{400}}));
}

// A call history given by path, copied without its log or with "-wal" and "-shm": read whole,
// its folder left exactly as it was.
TEST_F(CallHistoryTest, AFileGivenByPathIsReadWithoutATraceBesideIt) {
    const fs::path copied = dir / "copied" / "CallHistory.storedata";
    const fs::path logged = dir / "logged" / "CallHistory.storedata";
    for (const auto& file : {copied, logged}) {
        fs::create_directories(file.parent_path());
        writeCallHistory(file, {{.pk = 1, .date = 150, .address = "5550104477"}});
        testing::makeWalMode(file);
    }
    testing::writeOnlyToLog(logged, "INSERT INTO ZCALLRECORD (Z_PK, ZDATE) VALUES (2, 160)");
    for (const auto& [file, calls] : {std::pair(copied, 1u), std::pair(logged, 2u)}) {
        const auto before = testing::folderState(file.parent_path());
        EXPECT_EQ(CallHistory::readAll(file).size(), calls);
        EXPECT_EQ(testing::folderState(file.parent_path()), before) << file;
    }
}

TEST_F(CallHistoryTest, FailuresCarryTheirCodeAndSentenceAndBecomeATranscriptIssue) {
    const auto failure = [](const fs::path& file) -> std::pair<int, std::string> {
        try {
            CallHistory::readAll(file);
        } catch (const CallHistoryError& error) {
            return {error.code(), error.what()};
        }
        return {0, "no error"};
    };
    EXPECT_EQ(
        failure(dir / "missing" / "CallHistory.storedata"),
        std::pair(1, std::string("Couldn't open the call log: unable to open database file")));

    sqlite::Connection(log, sqlite::OpenMode::readWriteCreate)
        .execute("CREATE TABLE ZOTHER (Z_PK INTEGER)");
    EXPECT_EQ(
        failure(log),
        std::pair(
            2, std::string("The call log has an unexpected format: no such table: ZCALLRECORD")));
    // Merging into a transcript turns the failure into an issue and keeps the messages.
    Transcript transcript{.messages = {message(10, 100)}};
    history.mergeCalls(transcript, FakeSource(dir / "chat.db", true), {1}, {"5550104477"});
    EXPECT_EQ(transcript.messages, std::vector<Message>{message(10, 100)});
    EXPECT_EQ(
        transcript.callLogIssue,
        "Calls aren't shown: The call log has an unexpected format: no such table: ZCALLRECORD");

    // A damaged page past the first rows fails the read part-way.
    const fs::path damaged = dir / "damaged.storedata";
    std::vector<StoredCall> many;
    for (int64_t i = 1; i <= 3000; ++i)
        many.push_back({.pk = i, .date = double(i), .address = std::string(200, 'x')});
    writeCallHistory(damaged, many);
    {
        std::fstream file(damaged, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(fs::file_size(damaged) / 2));
        const std::string garbage(8192, '\x5A');
        file.write(garbage.data(), static_cast<std::streamsize>(garbage.size()));
    }
    const auto [code, text] = failure(damaged);
    EXPECT_EQ(code, 3);
    EXPECT_EQ(text.rfind("The call log couldn't be read completely: ", 0), 0u) << text;
}

TEST_F(CallHistoryTest, MergesTheConversationsCallsBetweenItsMessages) {
    writeCallHistory(log, {{.pk = 1, .date = 150, .address = "+1 (555) 010-4477", .duration = 125},
                           {.pk = 2, .date = 250, .address = "ANA@example.com", .answered = false},
                           {.pk = 3, .date = 175, .address = "+1 555 010 9999"},
                           {.pk = 4, .date = 200, .address = ""}});
    Transcript transcript{.messages = {message(10, 100), message(11, 200), message(12, 300)}};
    history.mergeCalls(transcript, FakeSource(dir / "chat.db", true), {7, 4},
                       {"5550104477", "ana@example.com", ""});

    ASSERT_EQ(transcript.messages.size(), 5u);
    std::vector<std::string> guids;
    for (const Message& m : transcript.messages) guids.push_back(m.guid.empty() ? m.text : m.guid);
    EXPECT_EQ(guids, (std::vector<std::string>{"message 10", "call:UID-1", "message 11",
                                               "call:UID-2", "message 12"}));
    const Message& call = transcript.messages[1];
    EXPECT_EQ(call.chatID, 4);
    EXPECT_EQ(call.text, "Phone call · incoming · answered · 2 min 5 s");
    EXPECT_EQ(transcript.messages[3].text, "Phone call · incoming · not answered");
    EXPECT_FALSE(transcript.callLogIssue);
}

TEST_F(CallHistoryTest, CallsAreOfferedOnlyForTheLiveOrTheNamedDatabase) {
    writeCallHistory(log, {{.pk = 1, .date = 150, .address = "5550104477"}});
    const auto merged = [&](const FakeSource& source) {
        Transcript transcript;
        history.mergeCalls(transcript, source, {1}, {"5550104477"});
        EXPECT_FALSE(transcript.callLogIssue);
        return transcript.messages.size();
    };
    const FakeSource snapshot(dir / "snapshot" / "chat.db", false);
    EXPECT_EQ(merged(FakeSource(dir / "chat.db", true)), 1u);
    EXPECT_EQ(merged(snapshot), 0u);
    CallHistory::setOverrideDatabasePath(dir / "snapshot" / ".." / "snapshot" / "chat.db");
    EXPECT_EQ(merged(snapshot), 1u);

    CallHistory::setEnabled(false);
    EXPECT_EQ(merged(snapshot), 0u);
    CallHistory::setEnabled(true);
    // No file is no call history, not a failure.
    CallHistory::setOverridePath(dir / "absent.storedata");
    EXPECT_EQ(merged(snapshot), 0u);
    EXPECT_EQ(CallHistory::path(snapshot), std::nullopt);
}

TEST_F(CallHistoryTest, TheCacheRereadsOnlyWhenTheFileOrItsLogChanges) {
    // The system keeps the log open in WAL mode, so new calls land in the "-wal" file first.
    sqlite::Connection writer(log, sqlite::OpenMode::readWriteCreate);
    writer.execute("PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0");
    insertCalls(writer, {{.pk = 1, .date = 150, .address = "5550104477"}});
    ASSERT_EQ(history.allCalls(log).size(), 1u);

    // Same modification dates: the cached calls are served without reading.
    const fs::path wal = log.string() + "-wal";
    const auto walStamp = fs::last_write_time(wal);
    const auto fileStamp = fs::last_write_time(log);
    insertCalls(writer, {{.pk = 2, .date = 160, .address = "5550104477"}});
    fs::last_write_time(wal, walStamp);
    fs::last_write_time(log, fileStamp);
    EXPECT_EQ(history.allCalls(log).size(), 1u);

    // A new call moves the log's date (set here explicitly: the clock may not have ticked yet).
    fs::last_write_time(wal, walStamp + std::chrono::seconds(1));
    EXPECT_EQ(history.calls({"+1 555 010 4477"}, log).size(), 2u);
    EXPECT_EQ(CallHistory::shared().allCalls(log).size(), 2u);
}

TEST_F(CallHistoryTest, TheSampleCallLogFillsTheSampleConversations) {
    const Date now{750'000'000};
    const fs::path chatDB = dir / "demo" / "chat.db";
    DemoData::writeMessagesDatabase(chatDB, now);
    DemoData::writeCallLog(log, DemoData::sampleCalls(), now);
    CallHistory::setOverrideDatabasePath(chatDB);

    MessageDatabase database(chatDB);
    std::set<std::string> merged;
    for (const Chat& chat : database.fetchChats()) {
        Transcript transcript = database.fetchTranscript({chat.id});
        history.mergeCalls(transcript, database, {chat.id}, database.handles({chat.id}));
        EXPECT_FALSE(transcript.callLogIssue);
        for (const Message& row : transcript.messages)
            if (row.isCall()) merged.insert(row.guid);
    }
    EXPECT_EQ(merged.size(), DemoData::sampleCalls().size());
}

TEST(CallHistoryRows, SummariesNameServiceDirectionAndOutcome) {
    const auto summary = [](int64_t type, std::string provider, bool outgoing, bool answered,
                            double duration) {
        return CallHistory::summary(CallInfo{.duration = duration,
                                             .isOutgoing = outgoing,
                                             .answered = answered,
                                             .callType = type,
                                             .serviceProvider = std::move(provider)});
    };
    EXPECT_EQ(summary(1, "com.apple.Telephony", true, true, 3723.4),
              "Phone call · outgoing · answered · 1 h 2 min 3 s");
    EXPECT_EQ(summary(8, "com.apple.FaceTime", false, true, 0),
              "FaceTime Video call · incoming · answered · 0 s");
    EXPECT_EQ(summary(0, "com.apple.FaceTime", true, false, 0),
              "FaceTime call · outgoing · not answered");
    EXPECT_EQ(summary(1, "org.example.talk", true, true, 59.6),
              "org.example.talk call · outgoing · answered · 1 min 0 s");
    EXPECT_EQ(summary(0, "", false, true, 5), "unknown service call · incoming · answered · 5 s");

    const Message withoutID = CallHistory::row(CallInfo{.recordID = 42}, 3);
    EXPECT_EQ(withoutID.guid, "call:record-42");
}

TEST(CallHistoryRows, CsvRowsListOnlyCallRowsWithEveryColumn) {
    const CallInfo call{.recordID = 9,
                        .uniqueID = "U-9",
                        .date = *dates::parseIso8601("2024-03-01T17:05:09.250Z"),
                        .duration = 65.5,
                        .isOutgoing = true,
                        .answered = true,
                        .callType = 16,
                        .serviceProvider = "com.apple.FaceTime",
                        .address = "ana@example.com"};
    Message text;
    text.text = "hello";
    const auto rows = CallHistory::csvRows({text, CallHistory::row(call, 1)});
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0],
              (std::vector<std::string>{"call_record_id", "unique_id", "date_utc", "direction",
                                        "answered", "duration_seconds", "service", "call_type",
                                        "service_provider", "address", "description"}));
    EXPECT_EQ(rows[1], (std::vector<std::string>{
                           "9", "U-9", "2024-03-01T17:05:09.250Z", "outgoing", "1", "65.500",
                           "FaceTime Audio", "16", "com.apple.FaceTime", "ana@example.com",
                           "FaceTime Audio call · outgoing · answered · 1 min 6 s"}));
}

}  // namespace
}  // namespace bc
