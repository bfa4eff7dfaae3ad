#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Message.h"
#include "model/MessageSource.h"
#include "support/Calendar.h"
#include "support/CancelFlag.h"
#include "support/Date.h"

namespace bc {

struct SearchQuery {
    enum class Sender { anyone, me, others };

    std::string text;
    std::optional<int64_t> chatID;
    std::optional<Date> from, to;  // whole days, as exports count them
    Sender sender = Sender::anyone;
    bool attachmentsOnly = false;
    bool includeMachineText = false;
    bool deletedOnly = false;

    // `text` without surrounding white space and line breaks.
    std::string trimmedText() const;
    // An empty query is never run.
    bool isEmpty() const;
    bool operator==(const SearchQuery&) const = default;
};

namespace searchSender {
inline constexpr std::array<SearchQuery::Sender, 3> allCases{
    SearchQuery::Sender::anyone, SearchQuery::Sender::me, SearchQuery::Sender::others};
std::string_view rawValue(SearchQuery::Sender sender);
std::optional<SearchQuery::Sender> named(std::string_view raw);
}  // namespace searchSender

// The toggle's label, everywhere it is offered.
inline constexpr std::string_view machineTextToggle =
    "Also search text recognised in photos and voice-message transcripts";

// Text as searches compare it: canonically decomposed, case folded (Turkic rules where the current
// locale is Turkish or Azerbaijani), recomposed. "É" and "é" fold alike; "e" stays apart.
std::string foldForSearch(std::string_view utf8);

// The folded text of every message of one source at one change signature, with what the filters
// need, so that later searches never read the source again. Each chat's messages sit together, in
// transcript order.
class SearchIndex {
public:
    struct Place {
        int64_t chatID = 0;
        int64_t messageID = 0;
        bool operator==(const Place&) const = default;
    };

    // Reads every transcript of the source once.
    static SearchIndex build(MessageSource& source, const CancelFlag& cancel,
                             const ProgressFn& progress);

    const std::string& sourcePath() const { return sourcePath_; }
    const std::string& changeSignature() const { return signature_; }

    // Every place in `chats` (all when empty) that passes the query's filters and whose text,
    // earlier versions or visible attachments' names hold the folded `needle`.
    std::vector<Place> find(const SearchQuery& query, const std::vector<int64_t>& chats,
                            std::string_view needle) const;
    // The places that pass the filters and have visible attachments, whatever their text.
    std::vector<Place> withAttachments(const SearchQuery& query,
                                       const std::vector<int64_t>& chats) const;

    size_t messageCount() const { return dates_.size(); }
    size_t foldedTextBytes() const { return folded_.size(); }
    size_t memoryBytes() const;

private:
    struct ChatSpan {
        int64_t chatID = 0;
        size_t first = 0, count = 0;
    };
    enum Trait : uint8_t { fromMe = 1, hasAttachments = 2, deleted = 4 };

    void add(int64_t chatID, const std::vector<Message>& messages);
    std::vector<const ChatSpan*> spansOf(const std::vector<int64_t>& chats) const;
    bool passesFilters(size_t entry, const SearchQuery& query, const DateRange& range) const;
    template <typename Keep>
    std::vector<Place> collect(const SearchQuery& query, const std::vector<int64_t>& chats,
                               Keep keep) const;

    std::string sourcePath_, signature_;
    std::string folded_;            // every entry's fields, each ended by '\0'
    std::vector<uint64_t> starts_;  // entry i is folded_[starts_[i], starts_[i + 1])
    std::vector<int64_t> ids_;
    std::vector<double> dates_;
    std::vector<uint8_t> traits_;
    std::vector<ChatSpan> chats_;
};

// What a search found. Machine-read text is looked up by attachment; a search asked to include it
// without a lookup says so in its notice.
struct SearchOutcome {
    std::vector<Message> messages;  // in date order, each message once
    std::optional<std::string> notice;
};
using MachineTextLookup = std::function<std::optional<std::string>(const Attachment&)>;

// The query over `chats` (the chosen chat with its related chats; every chat when empty). Throws
// Error: "Search failed: " + the reason.
SearchOutcome runSearch(MessageSource& source, const SearchIndex& index, const SearchQuery& query,
                        const std::vector<int64_t>& chats, const MachineTextLookup& machineText,
                        const CancelFlag& cancel);

// The application's search state. Searches run off the main thread; a newer search always wins,
// so results of an older one that finishes later are dropped. The index is kept for the source
// and change signature it was built at, and built again only when either moves.
class Searches {
public:
    struct Ticket {
        uint64_t generation = 0;
        SearchQuery query;
    };

    Ticket begin(const SearchQuery& query);
    // False when a newer search began meanwhile: the outcome is dropped.
    bool finish(const Ticket& ticket, SearchOutcome outcome);
    // The failure's sentence, or nothing when a newer search began; earlier results stay.
    std::optional<std::string> fail(const Ticket& ticket, const std::string& reason);

    std::shared_ptr<const SearchIndex> index(MessageSource& source, const CancelFlag& cancel,
                                             const ProgressFn& progress);

    bool isSearching() const;
    std::vector<Message> searchResults() const;
    std::optional<SearchQuery> lastSearchQuery() const;
    std::optional<std::string> notice() const;

private:
    mutable std::mutex mutex_;
    uint64_t generation_ = 0;
    bool isSearching_ = false;
    SearchOutcome shown_;
    std::optional<SearchQuery> lastQuery_;
    std::shared_ptr<const SearchIndex> index_;
};

}  // namespace bc
