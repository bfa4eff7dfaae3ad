#include "evidence/Search.h"

#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include "model/MessageNotes.h"
#include "support/Errors.h"
#include "support/Text.h"

namespace bc {

namespace {

constexpr char fieldEnd = '\0';

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
}

uint32_t foldOptions() {
    const std::string_view language = icu::Locale::getDefault().getLanguage();
    return language == "tr" || language == "az" ? U_FOLD_CASE_EXCLUDE_SPECIAL_I
                                                : U_FOLD_CASE_DEFAULT;
}

const icu::Normalizer2& normalizer(UNormalization2Mode mode) {
    UErrorCode status = U_ZERO_ERROR;
    const auto* instance = icu::Normalizer2::getInstance(nullptr, "nfc", mode, status);
    if (U_FAILURE(status))
        throw Error(std::string("Couldn't prepare text for searching: ") + u_errorName(status));
    return *instance;
}

// Unsent, deleted for everyone, or still in Recently Deleted: the rows every record marks.
bool isMarkedDeleted(const Message& message) {
    return message.isUnsent || message.isInRecentlyDeleted || message.deletedAt.has_value();
}

// Cancellation passes through; every other failure becomes the search's one sentence.
[[noreturn]] void rethrowAsSearchFailure() {
    try {
        throw;
    } catch (const CancelledError&) {
        throw;
    } catch (const std::exception& error) {
        throw Error(std::string("Search failed: ") + error.what());
    }
}

void appendField(std::string& folded, std::string_view text) {
    std::string field = foldForSearch(text);
    std::replace(field.begin(), field.end(), fieldEnd, ' ');
    folded += field;
    folded += fieldEnd;
}

}  // namespace

std::string SearchQuery::trimmedText() const {
    return text::trim(text);
}

bool SearchQuery::isEmpty() const {
    return trimmedText().empty() && !chatID && !from && !to && sender == Sender::anyone &&
           !attachmentsOnly && !includeMachineText && !deletedOnly;
}

std::string_view searchSender::rawValue(SearchQuery::Sender sender) {
    switch (sender) {
        case SearchQuery::Sender::anyone:
            return "anyone";
        case SearchQuery::Sender::me:
            return "me";
        case SearchQuery::Sender::others:
            return "others";
    }
    return "anyone";
}

std::optional<SearchQuery::Sender> searchSender::named(std::string_view raw) {
    for (const auto sender : allCases)
        if (rawValue(sender) == raw) return sender;
    return std::nullopt;
}

std::string foldForSearch(std::string_view utf8) {
    // Nearly all text is ASCII, where folding is lower-casing and normalising changes nothing.
    if (isAscii(utf8)) return text::toLowerAscii(utf8);
    static const icu::Normalizer2& decompose = normalizer(UNORM2_DECOMPOSE);
    static const icu::Normalizer2& compose = normalizer(UNORM2_COMPOSE);
    static const uint32_t options = foldOptions();
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString text = decompose.normalize(
        icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), int32_t(utf8.size()))), status);
    text.foldCase(options);
    text = compose.normalize(text, status);
    if (U_FAILURE(status))
        throw Error(std::string("Couldn't prepare text for searching: ") + u_errorName(status));
    std::string out;
    return text.toUTF8String(out);
}

SearchIndex SearchIndex::build(MessageSource& source, const CancelFlag& cancel,
                               const ProgressFn& progress) {
    try {
        if (progress) progress("Reading every conversation for the search…");
        SearchIndex index;
        index.sourcePath_ = source.path();
        index.signature_ = source.changeSignature();
        for (const auto& chat : source.fetchChats()) {
            cancel.check();
            index.add(chat.id, source.fetchMessages(chat.id));
        }
        index.starts_.push_back(index.folded_.size());
        index.folded_.shrink_to_fit();
        return index;
    } catch (...) {
        rethrowAsSearchFailure();
    }
}

void SearchIndex::add(int64_t chatID, const std::vector<Message>& messages) {
    chats_.push_back({.chatID = chatID, .first = dates_.size(), .count = messages.size()});
    for (const auto& message : messages) {
        starts_.push_back(folded_.size());
        appendField(folded_, message.text);
        for (const auto& version : message.editHistory)
            if (version.text) appendField(folded_, *version.text);
        const auto attachments = message.visibleAttachments();
        for (const auto& attachment : attachments) appendField(folded_, attachment.name);
        ids_.push_back(message.id);
        dates_.push_back(message.date.seconds);
        traits_.push_back(uint8_t((message.isFromMe ? fromMe : 0) |
                                  (attachments.empty() ? 0 : hasAttachments) |
                                  (isMarkedDeleted(message) ? deleted : 0)));
    }
}

size_t SearchIndex::memoryBytes() const {
    return folded_.capacity() + starts_.capacity() * sizeof(uint64_t) +
           ids_.capacity() * sizeof(int64_t) + dates_.capacity() * sizeof(double) +
           traits_.capacity() + chats_.capacity() * sizeof(ChatSpan);
}

std::vector<const SearchIndex::ChatSpan*> SearchIndex::spansOf(
    const std::vector<int64_t>& chats) const {
    const std::set<int64_t> wanted(chats.begin(), chats.end());
    std::vector<const ChatSpan*> spans;
    for (const auto& span : chats_)
        if (wanted.empty() || wanted.contains(span.chatID)) spans.push_back(&span);
    return spans;
}

bool SearchIndex::passesFilters(size_t entry, const SearchQuery& query,
                                const DateRange& range) const {
    const uint8_t traits = traits_[entry];
    if (!range.contains(Date{dates_[entry]})) return false;
    if (query.sender == SearchQuery::Sender::me && !(traits & fromMe)) return false;
    if (query.sender == SearchQuery::Sender::others && (traits & fromMe)) return false;
    if (query.attachmentsOnly && !(traits & hasAttachments)) return false;
    return !query.deletedOnly || (traits & deleted);
}

template <typename Keep>
std::vector<SearchIndex::Place> SearchIndex::collect(const SearchQuery& query,
                                                     const std::vector<int64_t>& chats,
                                                     Keep keep) const {
    const DateRange range(query.from, query.to);
    std::vector<Place> places;
    for (const auto* span : spansOf(chats))
        keep(*span, [&](size_t entry) {
            if (passesFilters(entry, query, range))
                places.push_back({.chatID = span->chatID, .messageID = ids_[entry]});
        });
    return places;
}

std::vector<SearchIndex::Place> SearchIndex::find(const SearchQuery& query,
                                                  const std::vector<int64_t>& chats,
                                                  std::string_view needle) const {
    const std::boyer_moore_horspool_searcher searcher(needle.begin(), needle.end());
    return collect(query, chats, [&](const ChatSpan& span, const auto& offer) {
        if (needle.empty()) {
            for (size_t entry = span.first; entry < span.first + span.count; ++entry) offer(entry);
            return;
        }
        // One pass over the chat's text; after a hit the rest of that message is skipped.
        const auto begin = folded_.begin() + ptrdiff_t(starts_[span.first]);
        const auto end = folded_.begin() + ptrdiff_t(starts_[span.first + span.count]);
        for (auto at = std::search(begin, end, searcher); at != end;
             at = std::search(at, end, searcher)) {
            const auto offset = uint64_t(at - folded_.begin());
            const size_t entry =
                size_t(std::upper_bound(starts_.begin(), starts_.end(), offset) - starts_.begin()) -
                1;
            offer(entry);
            at = folded_.begin() + ptrdiff_t(starts_[entry + 1]);
        }
    });
}

std::vector<SearchIndex::Place> SearchIndex::withAttachments(
    const SearchQuery& query, const std::vector<int64_t>& chats) const {
    return collect(query, chats, [&](const ChatSpan& span, const auto& offer) {
        for (size_t entry = span.first; entry < span.first + span.count; ++entry)
            if (traits_[entry] & hasAttachments) offer(entry);
    });
}

namespace {

bool machineTextHolds(const Message& message, std::string_view needle,
                      const MachineTextLookup& machineText) {
    for (const auto& attachment : message.visibleAttachments())
        if (const auto text = machineText(attachment);
            text && foldForSearch(*text).find(needle) != std::string::npos)
            return true;
    return false;
}

// The messages at the places that `keep` accepts, read again from the source in one pass over
// their chats, so that each comes whole and once.
std::vector<Message> messagesAt(MessageSource& source,
                                const std::vector<SearchIndex::Place>& places,
                                const std::function<bool(const Message&)>& keep,
                                const CancelFlag& cancel) {
    if (places.empty()) return {};
    cancel.check();
    std::set<int64_t> chats, ids;
    for (const auto& place : places) {
        chats.insert(place.chatID);
        ids.insert(place.messageID);
    }
    auto transcript = source.fetchTranscript({chats.begin(), chats.end()});
    std::vector<Message> found;
    for (auto& message : transcript.messages)
        if (ids.contains(message.id) && keep(message)) found.push_back(std::move(message));
    notes::putInDateOrder(found);
    return found;
}

}  // namespace

SearchOutcome runSearch(MessageSource& source, const SearchIndex& index, const SearchQuery& query,
                        const std::vector<int64_t>& chats, const MachineTextLookup& machineText,
                        const CancelFlag& cancel) {
    try {
        const std::string needle = foldForSearch(query.trimmedText());
        const auto direct = index.find(query, chats, needle);
        if (!query.includeMachineText || needle.empty() || !machineText) {
            SearchOutcome outcome{.messages = messagesAt(
                                      source, direct, [](const auto&) { return true; }, cancel)};
            if (query.includeMachineText && !needle.empty())
                outcome.notice =
                    "No text has been recognised in photos or voice messages yet, "
                    "so none was searched.";
            return outcome;
        }
        // Machine-read text is looked up only where the message's own text did not match.
        const std::set<int64_t> matched = [&] {
            std::set<int64_t> ids;
            for (const auto& place : direct) ids.insert(place.messageID);
            return ids;
        }();
        SearchOutcome outcome;
        auto places = direct;
        const auto withAttachments = index.withAttachments(query, chats);
        places.insert(places.end(), withAttachments.begin(), withAttachments.end());
        outcome.messages = messagesAt(
            source, places,
            [&](const Message& message) {
                return matched.contains(message.id) ||
                       machineTextHolds(message, needle, machineText);
            },
            cancel);
        return outcome;
    } catch (...) {
        rethrowAsSearchFailure();
    }
}

Searches::Ticket Searches::begin(const SearchQuery& query) {
    std::lock_guard guard(mutex_);
    isSearching_ = true;
    return {.generation = ++generation_, .query = query};
}

bool Searches::finish(const Ticket& ticket, SearchOutcome outcome) {
    std::lock_guard guard(mutex_);
    if (ticket.generation != generation_) return false;
    isSearching_ = false;
    shown_ = std::move(outcome);
    lastQuery_ = ticket.query;
    return true;
}

std::optional<std::string> Searches::fail(const Ticket& ticket, const std::string& reason) {
    std::lock_guard guard(mutex_);
    if (ticket.generation != generation_) return std::nullopt;
    isSearching_ = false;
    return reason;
}

std::shared_ptr<const SearchIndex> Searches::index(MessageSource& source, const CancelFlag& cancel,
                                                   const ProgressFn& progress) {
    const std::string signature = source.changeSignature();
    {
        std::lock_guard guard(mutex_);
        if (index_ && index_->sourcePath() == source.path() &&
            index_->changeSignature() == signature)
            return index_;
    }
    auto built = std::make_shared<const SearchIndex>(SearchIndex::build(source, cancel, progress));
    std::lock_guard guard(mutex_);
    index_ = built;
    return built;
}

bool Searches::isSearching() const {
    std::lock_guard guard(mutex_);
    return isSearching_;
}

std::vector<Message> Searches::searchResults() const {
    std::lock_guard guard(mutex_);
    return shown_.messages;
}

std::optional<SearchQuery> Searches::lastSearchQuery() const {
    std::lock_guard guard(mutex_);
    return lastQuery_;
}

std::optional<std::string> Searches::notice() const {
    std::lock_guard guard(mutex_);
    return shown_.notice;
}

}  // namespace bc
