#pragma once

#include <optional>
#include <string>
#include <vector>

#include "evidence/EvidenceStore.h"
#include "model/Message.h"

namespace bc {

// The flags the application model holds, with the operations the user interface offers. Every
// change is saved at once (whole file); a failed save leaves the flags as changed and returns the
// status line to show.
class EvidenceFlags {
public:
    explicit EvidenceFlags(EvidenceFlagMap flags = {}) : flags_(std::move(flags)) {}

    const EvidenceFlagMap& flags() const { return flags_; }

    bool isFlagged(const Message& message) const;
    // Unflagging drops the note with the flag.
    std::optional<std::string> toggleFlag(const Message& message);
    // A note flags an unflagged message; an empty note on one changes nothing.
    std::optional<std::string> setNote(const std::string& note, const Message& message);
    // In transcript order.
    std::vector<Message> flaggedMessages(const std::vector<Message>& transcript) const;

private:
    std::optional<std::string> save() const;
    void add(const Message& message, const std::string& note);

    EvidenceFlagMap flags_;
};

}  // namespace bc
