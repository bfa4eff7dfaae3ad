#pragma once

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace bc {

namespace sqlite {
class Connection;
}

// Where each message of a transcript stands and which of its conversations it belongs to. The
// defining statement groups every membership row by message and sorts by date and row id; here
// the rows are read narrow and sorted by the reader, which is several times cheaper on a large
// conversation than sorting whole rows in the engine. `prefix` is the transcript's common table
// `ids(message_id, chat_id, deleted)`.
namespace transcriptOrder {

// MIN(ids.chat_id) and MAX(ids.deleted) of a message.
struct Membership {
    int64_t chatID = 0;
    std::optional<int64_t> deleted;
};

// Message row id -> membership, straight from the membership rows. None when an id or a deleted
// value is stored as something other than an integer: only the grouped statement then says
// which rows are one message.
std::optional<std::unordered_map<int64_t, Membership>> membershipsByScan(sqlite::Connection& db,
                                                                         const std::string& prefix);

struct Placement {
    Membership membership;
    size_t position = 0;
};

// The grouped statement itself: membership and transcript position of every message.
std::unordered_map<int64_t, Placement> placementsByStatement(sqlite::Connection& db,
                                                             const std::string& prefix);

// A row's place as "ORDER BY m.date, m.ROWID" gives it when every date is an integer or NULL.
struct SortKey {
    std::optional<int64_t> date;  // NULL sorts first
    int64_t rowID = 0;
    auto operator<=>(const SortKey&) const = default;
};

// Puts items in the order of their positions (any increasing numbers), moving each item once.
template <typename Item>
void arrange(std::vector<Item>& items, const std::vector<size_t>& positions) {
    // Rows usually arrive in date order already.
    if (std::is_sorted(positions.begin(), positions.end())) return;
    std::vector<size_t> order(items.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::sort(order.begin(), order.end(),
              [&](size_t a, size_t b) { return positions[a] < positions[b]; });
    // order[i] is the item that belongs at i: follow each cycle once.
    for (size_t start = 0; start < order.size(); ++start) {
        if (order[start] == start) continue;
        Item held = std::move(items[start]);
        size_t at = start;
        while (order[at] != start) {
            const size_t from = order[at];
            items[at] = std::move(items[from]);
            order[at] = at;
            at = from;
        }
        items[at] = std::move(held);
        order[at] = at;
    }
}

// The rank of each key among all of them.
std::vector<size_t> ranks(const std::vector<SortKey>& keys);

// The rows of a transcript as they were read, to be put in transcript order at the end.
class ReadOrder {
public:
    void reserve(size_t rows);
    // `sortsAsInteger`: the date is an integer or NULL, so the key sorts it as the engine would.
    void add(const SortKey& key, bool isReaction, bool sortsAsInteger);
    // When false, only the grouped statement's positions give the order.
    bool keysSortAsTheEngine() const { return sortsAsIntegers_; }
    // Messages and reactions each put in order: by the keys, or by `placements` when given.
    template <typename MessageItem, typename ReactionItem>
    void apply(std::vector<MessageItem>& messages, std::vector<ReactionItem>& reactions,
               const std::unordered_map<int64_t, Placement>* placements) const {
        const auto positions = positionsOfRows(placements);
        arrange(messages, select(positions, messageRows_));
        arrange(reactions, select(positions, reactionRows_));
    }

private:
    std::vector<size_t> positionsOfRows(
        const std::unordered_map<int64_t, Placement>* placements) const;
    static std::vector<size_t> select(const std::vector<size_t>& positions,
                                      const std::vector<size_t>& rows);

    std::vector<SortKey> keys_;
    std::vector<size_t> messageRows_, reactionRows_;  // indexes into keys_
    bool sortsAsIntegers_ = true;
};

}  // namespace transcriptOrder
}  // namespace bc
