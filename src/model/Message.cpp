#include "model/Message.h"

#include <algorithm>
#include <functional>

namespace bc {

std::string_view textForm(MessageService service) {
    return service == MessageService::iMessage ? "iMessage" : "WhatsApp";
}

std::string withoutAttachmentMarks(const std::string& text) {
    static constexpr std::string_view mark = "\xEF\xBF\xBC";
    std::string out;
    size_t at = 0;
    for (size_t found; (found = text.find(mark, at)) != std::string::npos; at = found + mark.size())
        out.append(text, at, found - at);
    return at == 0 ? text : out.append(text, at);
}

std::vector<Attachment> Message::visibleAttachments() const {
    std::vector<Attachment> visible;
    std::copy_if(attachments.begin(), attachments.end(), std::back_inserter(visible),
                 [](const Attachment& a) { return !a.isHidden; });
    return visible;
}

namespace {

// Feeds values into one running hash; overloads cover every field type of the records.
struct Hasher {
    size_t seed = 0;

    template <class T>
    Hasher& add(const T& value) {
        mix(std::hash<T>{}(value));
        return *this;
    }
    template <class T>
    Hasher& add(const std::optional<T>& value) {
        add(value.has_value());
        if (value) add(*value);
        return *this;
    }
    template <class T>
    Hasher& add(const Indirect<T>& value) {
        add(value.has_value());
        if (value) add(*value);
        return *this;
    }
    template <class T>
    Hasher& add(const std::vector<T>& values) {
        add(values.size());
        for (const auto& value : values) add(value);
        return *this;
    }
    Hasher& add(const Attachment& a) {
        return add(a.id)
            .add(a.path)
            .add(a.mimeType)
            .add(a.uti)
            .add(a.name)
            .add(a.isSticker)
            .add(a.isHidden)
            .add(a.guid)
            .add(a.totalBytes)
            .add(a.transferState);
    }
    Hasher& add(const Reaction& r) { return add(r.emoji).add(r.isFromMe).add(r.sender); }
    Hasher& add(const EditVersion& v) { return add(v.part).add(v.date).add(v.text); }
    Hasher& add(const RecoveredPart& p) { return add(p.index).add(p.deletedAt).add(p.text); }
    Hasher& add(const CallInfo& c) {
        return add(c.recordID)
            .add(c.uniqueID)
            .add(c.date)
            .add(c.duration)
            .add(c.isOutgoing)
            .add(c.answered)
            .add(c.callType)
            .add(c.serviceProvider)
            .add(c.address);
    }
    Hasher& add(const TimelineEvent& e) {
        return add(e.id)
            .add(e.conversation)
            .add(e.date)
            .add(e.title)
            .add(e.note)
            .add(e.createdAt)
            .add(e.updatedAt);
    }

    void mix(size_t h) { seed ^= h + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2); }
};

}  // namespace

}  // namespace bc

size_t std::hash<bc::Message>::operator()(const bc::Message& m) const noexcept {
    bc::Hasher h;
    h.add(m.id)
        .add(m.guid)
        .add(m.date)
        .add(m.isFromMe)
        .add(m.sender)
        .add(m.text)
        .add(m.attachments)
        .add(m.textAsStored)
        .add(m.undecodedBody)
        .add(m.reactions)
        .add(m.replyToGUID)
        .add(m.isEdited)
        .add(m.editHistory)
        .add(m.isUnsent)
        .add(m.appLabel)
        .add(m.chatID)
        .add(m.errorCode)
        .add(m.effect)
        .add(m.systemNotice)
        .add(m.dateDelivered)
        .add(m.dateRead)
        .add(m.deletedAt)
        .add(m.isInRecentlyDeleted)
        .add(m.recoveredParts)
        .add(m.call)
        .add(m.userEvent);
    return h.seed;
}
