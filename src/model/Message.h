#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Indirect.h"
#include "model/TimelineEvent.h"
#include "support/Date.h"

namespace bc {

enum class MessageService { iMessage, whatsApp };

// "iMessage" or "WhatsApp", as exports and certificates print it.
std::string_view textForm(MessageService service);

// Messages marks where each attachment sat with U+FFFC. Renderings that show the attachments
// themselves drop the marks, which would otherwise print as boxes; data exports keep them.
std::string withoutAttachmentMarks(const std::string& text);

struct Chat {
    int64_t id = 0;
    std::string identifier;
    std::string displayName;  // empty when the source has none
    std::string service;
    std::vector<std::string> participants;
    int64_t messageCount = 0;
    std::optional<Date> lastDate;
    bool isDeletedConversation = false;

    bool operator==(const Chat&) const = default;
};

struct Attachment {
    int64_t id = 0;
    std::string path;
    std::string mimeType;
    std::string uti;
    std::string name;
    bool isSticker = false;
    bool isHidden = false;
    std::string guid;
    int64_t totalBytes = -1;
    int64_t transferState = -1;

    bool operator==(const Attachment&) const = default;
};

struct Reaction {
    std::string emoji;
    bool isFromMe = false;
    std::string sender;

    bool operator==(const Reaction&) const = default;
};

struct ReactionEvent {
    int64_t rowID = 0;
    Date date;
    bool isFromMe = false;
    std::string sender;
    std::string targetGUID;
    bool isRemoval = false;
    int64_t kind = 0;
    std::string emoji;

    bool operator==(const ReactionEvent&) const = default;
};

struct EditVersion {
    int part = 0;
    Date date;
    std::optional<std::string> text;

    bool operator==(const EditVersion&) const = default;
};

struct RecoveredPart {
    int index = 0;
    std::optional<Date> deletedAt;
    std::optional<std::string> text;

    bool operator==(const RecoveredPart&) const = default;
};

struct CallInfo {
    int64_t recordID = 0;
    std::string uniqueID;
    Date date;
    double duration = 0;
    bool isOutgoing = false;
    bool answered = false;
    int64_t callType = 0;
    std::string serviceProvider;
    std::string address;

    bool operator==(const CallInfo&) const = default;
};

class Redactor;

struct Message {
    int64_t id = 0;
    std::string guid;
    Date date;
    bool isFromMe = false;
    std::string sender;
    std::string text;
    std::vector<Attachment> attachments;
    std::string textAsStored;
    std::optional<std::string> undecodedBody;
    std::vector<Reaction> reactions;
    std::optional<std::string> replyToGUID;
    bool isEdited = false;
    std::vector<EditVersion> editHistory;
    bool isUnsent = false;
    std::optional<std::string> appLabel;
    int64_t chatID = 0;
    int64_t errorCode = 0;
    std::optional<std::string> effect;
    std::optional<std::string> systemNotice;
    std::optional<Date> dateDelivered;
    std::optional<Date> dateRead;
    std::optional<Date> deletedAt;
    bool isInRecentlyDeleted = false;
    std::vector<RecoveredPart> recoveredParts;
    // Present on few rows, so kept out of line: a transcript holds hundreds of thousands.
    Indirect<CallInfo> call;
    Indirect<TimelineEvent> userEvent;

    std::vector<Attachment> visibleAttachments() const;
    bool isCall() const { return call.has_value(); }
    bool isUserEvent() const { return userEvent.has_value(); }
    // A row the source itself stores; merged call rows and the user's events are shown among
    // them but are not counted as messages.
    bool isRecordedMessage() const { return !isCall() && !isUserEvent(); }
    // A copy whose text, edit-history texts and recovered-part texts are redacted; attachments and
    // every other field stay as they are. Defined beside `Redactor`.
    Message redacted(const Redactor& redactor) const;

    bool operator==(const Message&) const = default;
};

struct Transcript {
    std::vector<Message> messages;
    std::vector<ReactionEvent> reactionEvents;
    std::optional<std::string> callLogIssue;

    bool operator==(const Transcript&) const = default;
};

}  // namespace bc

// Hashing agrees with equality: every field takes part.
template <>
struct std::hash<bc::Message> {
    size_t operator()(const bc::Message& message) const noexcept;
};
