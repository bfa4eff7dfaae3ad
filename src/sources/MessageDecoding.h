#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Message.h"

// The rules that turn one stored Messages row into a reaction or a message. No row is ever
// dropped: what can't be shown is replaced by a sentence saying what is stored and why.
namespace bc::messages {

// One row of the transcript statement, as stored (text columns already UTF-8 repaired).
struct StoredRow {
    int64_t rowID = 0;
    std::string guid;
    int64_t date = 0;
    bool isFromMe = false;
    std::string sender;
    std::optional<std::string> text;
    std::optional<std::string> attributedBody;
    int64_t associatedType = 0;
    int64_t itemType = 0;
    std::string associatedGUID;
    std::string associatedEmoji;
    std::optional<std::string> threadOriginatorGUID;
    int64_t dateEdited = 0;
    int64_t dateRetracted = 0;
    std::string balloonBundleID;
    int64_t chatID = 0;
    int64_t error = 0;
    std::string sendStyle;
    std::optional<std::string> summaryInfo;
    int64_t dateDelivered = 0;
    int64_t dateRead = 0;
    // Recently Deleted membership: absent = not deleted, -1 = deleted at an unknown date.
    std::optional<int64_t> deleted;
};

inline constexpr std::string_view undecodableNotice =
    "Message text is stored but could not be decoded by this app; the raw data is included in "
    "messages.csv.";
inline constexpr std::string_view emptyMessageNotice =
    "Message with no text or attachment stored in the Messages database.";
inline constexpr std::string_view placeholderNotice =
    "Attachment placeholder with no attachment record in the Messages database.";

// Reaction tables keyed by the type code modulo 1000; absent outside 0-7 (and no emoji for 6,
// which uses the row's own).
std::optional<std::string_view> tapbackEmoji(int64_t key);
std::optional<std::string_view> tapbackName(int64_t key);

bool isReaction(int64_t associatedType);
// "p:0/GUID" -> "GUID", "bp:GUID" -> "GUID", anything else unchanged.
std::string reactionTarget(std::string_view storedGUID);
ReactionEvent reactionEvent(const StoredRow& row);
// Applies additions and removals in order to the messages they target (by guid).
void foldReactions(std::vector<Message>& messages, const std::vector<ReactionEvent>& events);

// The plain string of an archived attributed string, or nothing when it can't be found.
std::optional<std::string> decodeAttributedBody(std::string_view bytes);

// Label of the app extension a message was sent with; none for link previews.
std::optional<std::string> appLabel(std::string_view balloonBundleID);
// The expressive send style in words ("Slam", "Confetti"); unknown styles as stored.
std::optional<std::string> effectName(std::string_view sendStyleID);
std::optional<std::string> systemNotice(int64_t itemType);
std::optional<std::string> deliveryErrorNotice(int64_t errorCode);

// A message row (not a reaction) with its attachments and deleted parts, written into a fresh
// `result` where it will stay: a transcript's records are large and never moved on reading.
void fillMessage(Message& result, StoredRow row, std::vector<Attachment> attachments,
                 std::vector<RecoveredPart> parts);

// A deleted part's stored text: an archived attributed string or plain UTF-8.
std::optional<std::string> recoveredPartText(std::string_view bytes);

}  // namespace bc::messages
