#include "sources/TranscriptOrder.h"

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

struct Row {
    int64_t id = 0;
    int64_t chatID = 0;
    bool inRecentlyDeleted = false;
    std::optional<Date> deletedAt;
    bool operator==(const Row&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Row& row) {
    return out << "{" << row.id << " in " << row.chatID << (row.inRecentlyDeleted ? " deleted" : "")
               << "}";
}

// The transcript's rows as the one grouped, sorted statement gives them: messages, then
// reactions, each in statement order.
std::pair<std::vector<Row>, std::vector<int64_t>> definedRows(const fs::path& file,
                                                              const std::vector<int64_t>& chats) {
    const std::string list = idList(chats);
    sqlite::Connection db(file, sqlite::OpenMode::readOnly);
    auto statement = db.prepare(
        "WITH ids(message_id, chat_id, deleted) AS (SELECT message_id, chat_id, NULL FROM "
        "chat_message_join WHERE chat_id IN (" +
        list +
        ") UNION ALL SELECT message_id, chat_id, IFNULL(NULLIF(delete_date, 0), -1) FROM "
        "chat_recoverable_message_join WHERE chat_id IN (" +
        list +
        "))\n"
        "SELECT m.ROWID, MIN(ids.chat_id), MAX(ids.deleted), m.associated_message_type BETWEEN "
        "2000 AND 3999 FROM ids JOIN message m ON m.ROWID = ids.message_id GROUP BY m.ROWID "
        "ORDER BY m.date, m.ROWID");
    std::pair<std::vector<Row>, std::vector<int64_t>> rows;
    while (statement.step()) {
        if (statement.int64(3) != 0) {
            rows.second.push_back(statement.int64(0));
            continue;
        }
        const bool deleted = !statement.isNull(2);
        rows.first.push_back(Row{.id = statement.int64(0),
                                 .chatID = statement.int64(1),
                                 .inRecentlyDeleted = deleted,
                                 .deletedAt = deleted && statement.int64(2) != -1
                                                  ? appleDate(statement.int64(2))
                                                  : std::nullopt});
    }
    return rows;
}

void expectDefinedOrder(const fs::path& file, const std::vector<int64_t>& chats) {
    const auto transcript = MessageDatabase(file).fetchTranscript(chats);
    std::pair<std::vector<Row>, std::vector<int64_t>> read;
    for (const auto& message : transcript.messages)
        read.first.push_back(Row{.id = message.id,
                                 .chatID = message.chatID,
                                 .inRecentlyDeleted = message.isInRecentlyDeleted,
                                 .deletedAt = message.deletedAt});
    for (const auto& reaction : transcript.reactionEvents) read.second.push_back(reaction.rowID);
    const auto defined = definedRows(file, chats);
    EXPECT_EQ(read.first, defined.first) << file << " chats " << idList(chats);
    EXPECT_EQ(read.second, defined.second) << file << " chats " << idList(chats);
    EXPECT_FALSE(defined.first.empty());
}

TEST(TranscriptOrder, ReaderKeepsTheGroupedStatementsOrderAndMemberships) {
    TempDir dir;
    const auto sample = dir / "sample.db";
    DemoData::writeMessagesDatabase(sample, Date{780'000'000});
    {
        // A message in two conversations, once only in Recently Deleted.
        sqlite::Connection writer(sample, sqlite::OpenMode::readWriteCreate);
        writer.execute(
            "INSERT INTO chat_message_join VALUES (2, 1);"
            "INSERT INTO chat_recoverable_message_join VALUES (1, 2, 0), (2, 2, 700000000);");
    }
    for (const auto& chats : std::vector<std::vector<int64_t>>{{1}, {2}, {1, 2}, {2, 1, 3}})
        expectDefinedOrder(sample, chats);

    const auto large = dir / "large.db";
    demo::LargeSample{.messages = 20'000}.write(large);
    expectDefinedOrder(large, {demo::LargeSample::largestChat});
    expectDefinedOrder(large, {2, 3, 40});
}

TEST(TranscriptOrder, OddlyStoredDatesAndIdsFallBackToTheEnginesOrder) {
    const std::vector<std::string> odd = {
        // Equal dates, a missing date and a fractional one sort by the engine's rules.
        "UPDATE message SET date = (SELECT date FROM message WHERE ROWID = 3) WHERE ROWID = 5;"
        "UPDATE message SET date = NULL WHERE ROWID = 4;"
        "UPDATE message SET date = 1.5 WHERE ROWID = 6;",
        "UPDATE message SET date = 'later' WHERE ROWID = 2;",
        "INSERT INTO chat_recoverable_message_join VALUES (1, 'x', 3);",
        "INSERT INTO chat_recoverable_message_join VALUES (1, 3, 7.5);",
    };
    for (const auto& change : odd) {
        TempDir dir;
        const auto file = dir / "chat.db";
        DemoData::writeMessagesDatabase(file, Date{780'000'000});
        sqlite::Connection(file, sqlite::OpenMode::readWriteCreate).execute(change);
        SCOPED_TRACE(change);
        expectDefinedOrder(file, {1, 2});
    }
}

template <typename Item>
std::vector<Item> lastOf(const std::vector<Item>& items, size_t count) {
    return std::vector<Item>(items.end() - static_cast<std::ptrdiff_t>(count), items.end());
}

TEST(TranscriptOrder, RecentRowsAreTheEndOfTheWholeTranscript) {
    TempDir dir;
    const auto file = dir / "large.db";
    demo::LargeSample{.messages = 20'000}.write(file);
    MessageDatabase db(file);
    const std::vector<int64_t> chats = {demo::LargeSample::largestChat, 7};
    const auto whole = db.fetchTranscript(chats);
    const size_t total = whole.messages.size() + whole.reactionEvents.size();
    for (const size_t rows : {size_t{1}, size_t{40}, size_t{700}, total + 5}) {
        SCOPED_TRACE(rows);
        const auto recent = db.fetchRecentRows(chats, rows);
        EXPECT_EQ(recent.messages.size() + recent.reactionEvents.size(), std::min(rows, total));
        EXPECT_EQ(recent.messages, lastOf(whole.messages, recent.messages.size()));
        EXPECT_EQ(recent.reactionEvents,
                  lastOf(whole.reactionEvents, recent.reactionEvents.size()));
    }
    EXPECT_EQ(db.fetchRecentRows(chats, total + 5), whole);
}

}  // namespace
}  // namespace bc
