#include "sources/MessageDecoding.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <unordered_map>

#include "sources/EditHistory.h"
#include "support/Text.h"

namespace bc::messages {

namespace {

constexpr std::array<std::string_view, 8> emojiTable = {"❤️", "👍", "👎", "😂",
                                                        "‼️", "❓", "",  "(sticker)"};
constexpr std::array<std::string_view, 8> nameTable = {
    "Loved",      "Liked",      "Disliked",           "Laughed at",
    "Emphasized", "Questioned", "Reacted with emoji", "Reacted with sticker"};

constexpr int64_t emojiReactionKey = 6;
constexpr std::string_view objectReplacement = "\xEF\xBF\xBC";  // U+FFFC

uint32_t littleEndian(std::string_view bytes, size_t offset, size_t count) {
    uint32_t value = 0;
    for (size_t i = 0; i < count; ++i)
        value |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[offset + i])) << (8 * i);
    return value;
}

bool sameReactor(const Reaction& reaction, const ReactionEvent& event) {
    return reaction.isFromMe == event.isFromMe && reaction.sender == event.sender;
}

void applyReaction(std::vector<Reaction>& inForce, const ReactionEvent& event) {
    if (event.isRemoval) {
        // A removal whose emoji wasn't recorded takes away whatever that person had in force.
        std::erase_if(inForce, [&](const Reaction& reaction) {
            return sameReactor(reaction, event) &&
                   (event.emoji.empty() || reaction.emoji == event.emoji);
        });
        return;
    }
    // One reaction per person: a new one replaces the earlier.
    std::erase_if(inForce, [&](const Reaction& reaction) { return sameReactor(reaction, event); });
    inForce.push_back(Reaction{event.emoji, event.isFromMe, event.sender});
}

// True when the text holds nothing but inline attachment marks (and white space).
bool isOnlyPlaceholders(std::string_view text) {
    bool sawMark = false;
    while (!text.empty()) {
        if (text.starts_with(objectReplacement)) {
            sawMark = true;
            text.remove_prefix(objectReplacement.size());
        } else if (std::isspace(static_cast<unsigned char>(text.front()))) {
            text.remove_prefix(1);
        } else {
            return false;
        }
    }
    return sawMark;
}

void decodeText(Message& message, const StoredRow& row) {
    message.textAsStored = row.text.value_or("");
    message.text = message.textAsStored;
    if (!message.text.empty() || !row.attributedBody || row.attributedBody->empty()) return;
    if (auto decoded = decodeAttributedBody(*row.attributedBody)) {
        message.text = std::move(*decoded);
    } else {
        message.text = undecodableNotice;
        message.undecodedBody = row.attributedBody;
    }
}

// Notices stand in for text only where nothing else would be shown: a system row keeps any
// text it stores.
void applyNotices(Message& message, int64_t itemType) {
    if (message.text.empty()) message.systemNotice = systemNotice(itemType);
    if (!message.text.empty() && !isOnlyPlaceholders(message.text)) return;
    if (message.systemNotice) {
        message.text = *message.systemNotice;
    } else if (message.attachments.empty()) {
        message.text = message.text.empty() ? emptyMessageNotice : placeholderNotice;
    }
}

}  // namespace

std::optional<std::string_view> tapbackEmoji(int64_t key) {
    if (key < 0 || key >= static_cast<int64_t>(emojiTable.size()) || key == emojiReactionKey)
        return std::nullopt;
    return emojiTable[static_cast<size_t>(key)];
}

std::optional<std::string_view> tapbackName(int64_t key) {
    if (key < 0 || key >= static_cast<int64_t>(nameTable.size())) return std::nullopt;
    return nameTable[static_cast<size_t>(key)];
}

bool isReaction(int64_t associatedType) {
    return associatedType >= 2000 && associatedType <= 3999;
}

std::string reactionTarget(std::string_view storedGUID) {
    if (const auto slash = storedGUID.rfind('/'); slash != std::string_view::npos)
        return std::string(storedGUID.substr(slash + 1));
    if (storedGUID.starts_with("bp:")) return std::string(storedGUID.substr(3));
    return std::string(storedGUID);
}

ReactionEvent reactionEvent(const StoredRow& row) {
    const int64_t key = row.associatedType % 1000;
    std::string emoji =
        key == emojiReactionKey ? row.associatedEmoji : std::string(tapbackEmoji(key).value_or(""));
    return ReactionEvent{
        .rowID = row.rowID,
        .date = appleDate(row.date).value_or(Date{}),
        .isFromMe = row.isFromMe,
        .sender = row.isFromMe ? std::string() : row.sender,
        .targetGUID = reactionTarget(row.associatedGUID),
        .isRemoval = row.associatedType >= 3000,
        .kind = row.associatedType,
        .emoji = std::move(emoji),
    };
}

void foldReactions(std::vector<Message>& messages, const std::vector<ReactionEvent>& events) {
    // Index only the messages reacted to: a huge conversation has far fewer of them.
    std::unordered_map<std::string_view, Message*> targets;
    for (const auto& event : events) targets.emplace(event.targetGUID, nullptr);
    for (auto& message : messages)
        if (const auto found = targets.find(message.guid); found != targets.end() && !found->second)
            found->second = &message;
    for (const auto& event : events)
        if (Message* target = targets[event.targetGUID]) applyReaction(target->reactions, event);
}

std::optional<std::string> decodeAttributedBody(std::string_view bytes) {
    static constexpr std::string_view marker = "NSString";
    const size_t found = bytes.find(marker);
    if (found == std::string_view::npos) return std::nullopt;
    const size_t start = found + marker.size();
    const size_t window = std::min<size_t>(17, bytes.size() - start);
    const size_t plus = bytes.substr(start, window).find('+');
    if (plus == std::string_view::npos) return std::nullopt;
    const size_t at = start + plus;
    if (at + 1 >= bytes.size()) return std::nullopt;
    const auto lengthMarker = static_cast<unsigned char>(bytes[at + 1]);
    size_t length = lengthMarker;
    size_t textStart = at + 2;
    if (lengthMarker == 0x81 || lengthMarker == 0x82) {
        const size_t width = lengthMarker == 0x81 ? 2 : 4;
        if (at + 2 + width > bytes.size()) return std::nullopt;
        length = littleEndian(bytes, at + 2, width);
        textStart = at + 2 + width;
    }
    if (textStart > bytes.size() || length > bytes.size() - textStart) return std::nullopt;
    return text::repairUtf8(bytes.substr(textStart, length));
}

std::optional<std::string> appLabel(std::string_view bundleID) {
    if (bundleID.empty() || bundleID.find("URLBalloonProvider") != std::string_view::npos)
        return std::nullopt;
    static constexpr std::pair<std::string_view, std::string_view> known[] = {
        {"PhotosMessagesApp", "Photos"},
        {"CredentialSharing", "Passwords"},
        {"PeerPayment", "Apple Cash"},
        {"Handwriting", "Handwriting"},
        {"DigitalTouch", "Digital Touch"},
        {"ActivityMessagesApp", "Fitness"},
        {"Animoji", "Memoji"},
        {"FindMy", "Find My"},
        {"Journal", "Journal"},
        {"CheckIn", "Check In"},
        {"SafetyMonitor", "Check In"},
        {"Stickers", "Stickers"},
    };
    for (const auto& [fragment, label] : known)
        if (bundleID.find(fragment) != std::string_view::npos) return std::string(label);
    // Third-party extensions: the bundle identifier after the plug-in prefix names the app.
    const auto colon = bundleID.rfind(':');
    return std::string(colon == std::string_view::npos ? bundleID : bundleID.substr(colon + 1));
}

std::optional<std::string> effectName(std::string_view styleID) {
    if (styleID.empty()) return std::nullopt;
    static constexpr std::pair<std::string_view, std::string_view> known[] = {
        {"expressivesend.impact", "Slam"},
        {"expressivesend.loud", "Loud"},
        {"expressivesend.gentle", "Gentle"},
        {"expressivesend.invisibleink", "Invisible Ink"},
        {"CKConfettiEffect", "Confetti"},
        {"CKEchoEffect", "Echo"},
        {"CKFireworksEffect", "Fireworks"},
        {"CKHappyBirthdayEffect", "Balloons"},
        {"CKHeartEffect", "Love"},
        {"CKLasersEffect", "Lasers"},
        {"CKShootingStarEffect", "Shooting Star"},
        {"CKSparklesEffect", "Celebration"},
        {"CKSpotlightEffect", "Spotlight"},
    };
    for (const auto& [fragment, name] : known)
        if (styleID.ends_with(fragment)) return std::string(name);
    return std::string(styleID);
}

std::optional<std::string> systemNotice(int64_t itemType) {
    if (itemType == 0) return std::nullopt;
    return "System notice recorded by Messages (item_type " + std::to_string(itemType) +
           "); no text is stored for it.";
}

std::optional<std::string> deliveryErrorNotice(int64_t errorCode) {
    if (errorCode == 0) return std::nullopt;
    return "Not delivered (error " + std::to_string(errorCode) +
           "). Messages recorded that this message " + "was not delivered to the recipient.";
}

std::optional<std::string> recoveredPartText(std::string_view bytes) {
    if (bytes.empty()) return std::nullopt;
    if (auto decoded = decodeAttributedBody(bytes)) return decoded;
    if (text::isValidUtf8(bytes) && bytes.find('\0') == std::string_view::npos)
        return std::string(bytes);
    return std::nullopt;
}

void fillMessage(Message& result, StoredRow row, std::vector<Attachment> attachments,
                 std::vector<RecoveredPart> parts) {
    result.id = row.rowID;
    result.guid = std::move(row.guid);
    result.date = appleDate(row.date).value_or(Date{});
    result.isFromMe = row.isFromMe;
    // Messages stores the other party's handle on rows sent from this Mac too.
    if (!row.isFromMe) result.sender = std::move(row.sender);
    result.attachments = std::move(attachments);
    decodeText(result, row);
    applyNotices(result, row.itemType);
    result.replyToGUID = std::move(row.threadOriginatorGUID);
    result.isEdited = row.dateEdited != 0;
    if (row.summaryInfo && !row.summaryInfo->empty())
        result.editHistory = editHistory(*row.summaryInfo);
    result.isUnsent = row.dateRetracted != 0;
    result.appLabel = appLabel(row.balloonBundleID);
    result.chatID = row.chatID;
    result.errorCode = row.error;
    result.effect = effectName(row.sendStyle);
    result.dateDelivered = appleDate(row.dateDelivered);
    result.dateRead = appleDate(row.dateRead);
    if (row.deleted) {
        result.isInRecentlyDeleted = true;
        if (*row.deleted != -1) result.deletedAt = appleDate(*row.deleted);
    }
    result.recoveredParts = std::move(parts);
}

}  // namespace bc::messages
