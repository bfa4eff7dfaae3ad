#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "sources/MessageDatabase.h"

namespace bc {

// The Messages database sealed from an iPhone backup, with the call history and contacts sealed
// beside it: calls merge into its transcripts and its contacts name its people, not this
// computer's.
class IPhoneBackupMessages : public MessageDatabase {
public:
    struct Companions {
        std::optional<std::filesystem::path> callHistory;
        std::optional<std::filesystem::path> contacts;
    };

    // `origin` is what custody records name as read; its SHA-256 is taken afresh each time.
    IPhoneBackupMessages(const std::filesystem::path& database, PathMapper pathMapper,
                         Companions companions, std::string description,
                         CustodyRecord::Source origin);

    std::string sourceDescription() const override { return description_; }
    CustodyRecord::Source custodySource() const override;
    const Companions& companions() const { return companions_; }

private:
    Companions companions_;
    std::string description_;
    CustodyRecord::Source origin_;
};

}  // namespace bc
