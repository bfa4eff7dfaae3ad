#include "sources/TranscriptOrder.h"

#include "support/Sqlite.h"

namespace bc::transcriptOrder {

namespace {

// Columns 1 and 2 of a row: a chat id and a deleted value.
Membership membershipIn(const sqlite::Statement& row) {
    return {.chatID = row.int64(1),
            .deleted = row.isNull(2) ? std::nullopt : std::optional(row.int64(2))};
}

}  // namespace

std::optional<std::unordered_map<int64_t, Membership>> membershipsByScan(
    sqlite::Connection& db, const std::string& prefix) {
    auto statement = db.prepare(prefix +
                                "\nSELECT message_id, chat_id, deleted,\n"
                                "       typeof(message_id) = 'integer' AND typeof(chat_id) = "
                                "'integer' AND typeof(deleted) IN ('integer', 'null')\n"
                                "FROM ids");
    std::unordered_map<int64_t, Membership> memberships;
    while (statement.step()) {
        if (statement.int64(3) == 0) return std::nullopt;
        const Membership row = membershipIn(statement);
        auto [found, isNew] = memberships.try_emplace(statement.int64(0), row);
        if (isNew) continue;
        // MIN and MAX as the engine takes them: NULL never wins.
        Membership& kept = found->second;
        kept.chatID = std::min(kept.chatID, row.chatID);
        if (row.deleted && (!kept.deleted || *row.deleted > *kept.deleted))
            kept.deleted = row.deleted;
    }
    return memberships;
}

std::unordered_map<int64_t, Placement> placementsByStatement(sqlite::Connection& db,
                                                             const std::string& prefix) {
    auto statement = db.prepare(prefix +
                                "\nSELECT m.ROWID, MIN(ids.chat_id), MAX(ids.deleted)\n"
                                "FROM ids\n"
                                "JOIN message m ON m.ROWID = ids.message_id\n"
                                "GROUP BY m.ROWID\n"
                                "ORDER BY m.date, m.ROWID");
    std::unordered_map<int64_t, Placement> placements;
    while (statement.step()) {
        const size_t position = placements.size();
        placements.emplace(statement.int64(0),
                           Placement{.membership = membershipIn(statement), .position = position});
    }
    return placements;
}

std::vector<size_t> ranks(const std::vector<SortKey>& keys) {
    std::vector<size_t> order(keys.size());
    std::iota(order.begin(), order.end(), size_t{0});
    if (std::is_sorted(keys.begin(), keys.end())) return order;
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return keys[a] < keys[b]; });
    std::vector<size_t> rank(keys.size());
    for (size_t place = 0; place < order.size(); ++place) rank[order[place]] = place;
    return rank;
}

void ReadOrder::reserve(size_t rows) {
    keys_.reserve(rows);
    messageRows_.reserve(rows);
}

void ReadOrder::add(const SortKey& key, bool isReaction, bool sortsAsInteger) {
    (isReaction ? reactionRows_ : messageRows_).push_back(keys_.size());
    keys_.push_back(key);
    sortsAsIntegers_ = sortsAsIntegers_ && sortsAsInteger;
}

std::vector<size_t> ReadOrder::positionsOfRows(
    const std::unordered_map<int64_t, Placement>* placements) const {
    if (!placements) return ranks(keys_);
    std::vector<size_t> positions;
    positions.reserve(keys_.size());
    for (const auto& key : keys_) positions.push_back(placements->at(key.rowID).position);
    return positions;
}

std::vector<size_t> ReadOrder::select(const std::vector<size_t>& positions,
                                      const std::vector<size_t>& rows) {
    std::vector<size_t> selected;
    selected.reserve(rows.size());
    for (const size_t row : rows) selected.push_back(positions[row]);
    return selected;
}

}  // namespace bc::transcriptOrder
