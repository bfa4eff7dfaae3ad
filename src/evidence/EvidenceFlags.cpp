#include "evidence/EvidenceFlags.h"

#include <algorithm>

namespace bc {

bool EvidenceFlags::isFlagged(const Message& message) const {
    return flags_.contains(message.guid);
}

std::optional<std::string> EvidenceFlags::toggleFlag(const Message& message) {
    if (flags_.erase(message.guid) == 0) add(message, "");
    return save();
}

std::optional<std::string> EvidenceFlags::setNote(const std::string& note, const Message& message) {
    const auto it = flags_.find(message.guid);
    if (it != flags_.end()) {
        it->second.note = note;
        it->second.updatedAt = Clock::now();
    } else if (note.empty()) {
        return std::nullopt;
    } else {
        add(message, note);
    }
    return save();
}

std::vector<Message> EvidenceFlags::flaggedMessages(const std::vector<Message>& transcript) const {
    std::vector<Message> flagged;
    std::copy_if(transcript.begin(), transcript.end(), std::back_inserter(flagged),
                 [this](const Message& message) { return isFlagged(message); });
    return flagged;
}

void EvidenceFlags::add(const Message& message, const std::string& note) {
    const Date now = Clock::now();
    flags_[message.guid] = EvidenceFlag{message.guid, message.id, message.chatID, note, now, now};
}

std::optional<std::string> EvidenceFlags::save() const {
    try {
        EvidenceStore::save(flags_);
        return std::nullopt;
    } catch (const std::exception& error) {
        return std::string("Couldn't save evidence flags: ") + error.what();
    }
}

}  // namespace bc
