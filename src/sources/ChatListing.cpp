#include "sources/ChatListing.h"

#include <algorithm>
#include <limits>
#include <string>
#include <unordered_map>
#include <utility>

#include "support/Sqlite.h"

namespace bc::chatListing {

namespace {

constexpr const char* recoverableJoin = "chat_recoverable_message_join";

// Older databases have no reactions, so every message counts.
std::string reactionTypeColumn(sqlite::Connection& db) {
    return db.columnExists("message", "associated_message_type") ? "m.associated_message_type"
                                                                 : "0";
}

std::vector<std::pair<int64_t, std::string>> participants(sqlite::Connection& db) {
    std::vector<std::pair<int64_t, std::string>> rows;
    if (!db.tableExists("chat_handle_join")) return rows;
    auto statement = db.prepare(
        "SELECT chj.chat_id, h.id FROM chat_handle_join chj\n"
        "JOIN handle h ON h.ROWID = chj.handle_id");
    while (statement.step()) rows.emplace_back(statement.int64(0), statement.text(1));
    return rows;
}

void addParticipants(sqlite::Connection& db, std::vector<Chat>& chats) {
    std::unordered_map<int64_t, size_t> byID;
    for (size_t index = 0; index < chats.size(); ++index) byID.emplace(chats[index].id, index);
    for (auto& [chatID, handle] : participants(db)) {
        const auto found = byID.find(chatID);
        if (found != byID.end()) chats[found->second].participants.push_back(std::move(handle));
    }
}

// A stored date as MAX() and ORDER BY compare it: NULL below every integer. The two lowest
// integers stand for NULL and for "no counted message"; a database that stores either leaves
// the list to the statement.
using SortableDate = int64_t;
constexpr SortableDate nullDate = std::numeric_limits<int64_t>::min();
constexpr SortableDate notCounted = nullDate + 1;

// The counted messages' dates addressed directly by row id: a million memberships are looked
// up, and a search per lookup would cost more than reading the table.
class CountedMessages {
public:
    // None when some date is not an integer (or one of the two reserved ones), or when row ids
    // are too sparse to address (a table a few times larger than the messages).
    static std::optional<CountedMessages> read(sqlite::Connection& db) {
        auto statement = db.prepare(
            "SELECT m.ROWID, m.date, typeof(m.date) IN ('integer', 'null') FROM message m\n"
            "WHERE " +
            reactionTypeColumn(db) + " NOT BETWEEN 2000 AND 3999\nORDER BY m.ROWID");
        std::vector<std::pair<int64_t, SortableDate>> rows;
        while (statement.step()) {
            const SortableDate date = statement.isNull(1) ? nullDate : statement.int64(1);
            if (statement.int64(2) == 0 || (date <= notCounted && !statement.isNull(1)))
                return std::nullopt;
            rows.emplace_back(statement.int64(0), date);
        }
        CountedMessages counted;
        if (rows.empty()) return counted;
        counted.first_ = rows.front().first;
        const auto span =
            static_cast<uint64_t>(rows.back().first) - static_cast<uint64_t>(counted.first_);
        if (span / maximumSparseness >= rows.size()) return std::nullopt;
        counted.dates_.assign(span + 1, notCounted);
        for (const auto& [rowID, date] : rows)
            counted.dates_[static_cast<size_t>(rowID - counted.first_)] = date;
        return counted;
    }

    // notCounted when the message doesn't exist or is a reaction.
    SortableDate dateOf(int64_t rowID) const {
        if (rowID < first_) return notCounted;
        const auto index = static_cast<uint64_t>(rowID) - static_cast<uint64_t>(first_);
        return index < dates_.size() ? dates_[index] : notCounted;
    }

private:
    static constexpr uint64_t maximumSparseness = 4;
    int64_t first_ = 0;
    std::vector<SortableDate> dates_;
};

struct Totals {
    int64_t count = 0;
    SortableDate lastDate = nullDate;
    bool onlyRecentlyDeleted = true;

    void add(SortableDate date, bool deleted) {
        ++count;
        lastDate = std::max(lastDate, date);
        onlyRecentlyDeleted = onlyRecentlyDeleted && deleted;
    }
};

// Counts every membership row (a message in both joins counts twice, as in the statement).
// None when an id is stored as something other than an integer.
std::optional<std::unordered_map<int64_t, Totals>> totalsByChat(sqlite::Connection& db,
                                                                const CountedMessages& counted) {
    std::string sql =
        "SELECT chat_id, message_id, 0, typeof(chat_id) = 'integer' AND typeof(message_id) = "
        "'integer' FROM chat_message_join";
    if (db.tableExists(recoverableJoin))
        sql +=
            "\nUNION ALL SELECT chat_id, message_id, 1, typeof(chat_id) = 'integer' AND "
            "typeof(message_id) = 'integer' FROM chat_recoverable_message_join";
    std::unordered_map<int64_t, Totals> totals;
    auto statement = db.prepare(sql);
    // Rows come grouped by chat, so the last chat's totals are usually the ones wanted.
    std::optional<int64_t> lastChat;
    Totals* current = nullptr;
    while (statement.step()) {
        // NULL never joins.
        if (statement.isNull(0) || statement.isNull(1)) continue;
        if (statement.int64(3) == 0) return std::nullopt;
        const SortableDate date = counted.dateOf(statement.int64(1));
        if (date == notCounted) continue;
        const int64_t chatID = statement.int64(0);
        if (lastChat != chatID) {
            current = &totals[chatID];
            lastChat = chatID;
        }
        current->add(date, statement.int64(2) != 0);
    }
    return totals;
}

// Newest first; a conversation without any date last. Equal dates come in descending chat id,
// the order in which the statement's sort returns its groups.
void sortNewestFirst(std::vector<std::pair<Chat, SortableDate>>& chats) {
    std::sort(chats.begin(), chats.end(), [](const auto& a, const auto& b) {
        if (a.second != b.second) return a.second > b.second;
        return a.first.id > b.first.id;
    });
}

}  // namespace

std::vector<Chat> list(sqlite::Connection& db) {
    if (auto chats = byScan(db)) return std::move(*chats);
    return byStatement(db);
}

std::vector<Chat> byStatement(sqlite::Connection& db) {
    std::string sql =
        "SELECT c.ROWID, c.chat_identifier, IFNULL(c.display_name, ''), IFNULL(c.service_name, "
        "''),\n"
        "       COUNT(m.ROWID), MAX(m.date), MIN(ids.deleted)\n"
        "FROM chat c\n"
        "JOIN (SELECT chat_id, message_id, 0 AS deleted FROM chat_message_join ";
    if (db.tableExists(recoverableJoin))
        sql += "UNION ALL SELECT chat_id, message_id, 1 FROM chat_recoverable_message_join";
    sql +=
        ") ids ON ids.chat_id = c.ROWID\n"
        "JOIN message m ON m.ROWID = ids.message_id\n"
        "-- Count messages the way the conversation shows them: reactions aren't messages.\n"
        "WHERE " +
        reactionTypeColumn(db) +
        " NOT BETWEEN 2000 AND 3999\n"
        "GROUP BY c.ROWID\n"
        "ORDER BY MAX(m.date) DESC";
    std::vector<Chat> chats;
    auto statement = db.prepare(sql);
    while (statement.step()) {
        chats.push_back(Chat{
            .id = statement.int64(0),
            .identifier = statement.text(1),
            .displayName = statement.text(2),
            .service = statement.text(3),
            .messageCount = statement.int64(4),
            .lastDate = appleDate(statement.int64(5)),
            .isDeletedConversation = statement.int64(6) == 1,
        });
    }
    addParticipants(db, chats);
    return chats;
}

std::optional<std::vector<Chat>> byScan(sqlite::Connection& db) {
    const auto counted = CountedMessages::read(db);
    if (!counted) return std::nullopt;
    auto totals = totalsByChat(db, *counted);
    if (!totals) return std::nullopt;
    std::vector<std::pair<Chat, SortableDate>> listed;
    auto statement = db.prepare(
        "SELECT ROWID, chat_identifier, IFNULL(display_name, ''), IFNULL(service_name, '') FROM "
        "chat");
    while (statement.step()) {
        const auto found = totals->find(statement.int64(0));
        if (found == totals->end()) continue;
        const Totals& chat = found->second;
        listed.emplace_back(
            Chat{.id = statement.int64(0),
                 .identifier = statement.text(1),
                 .displayName = statement.text(2),
                 .service = statement.text(3),
                 .messageCount = chat.count,
                 .lastDate = appleDate(chat.lastDate == nullDate ? 0 : chat.lastDate),
                 .isDeletedConversation = chat.onlyRecentlyDeleted},
            chat.lastDate);
    }
    sortNewestFirst(listed);
    std::vector<Chat> chats;
    chats.reserve(listed.size());
    for (auto& [chat, lastDate] : listed) chats.push_back(std::move(chat));
    addParticipants(db, chats);
    return chats;
}

}  // namespace bc::chatListing
