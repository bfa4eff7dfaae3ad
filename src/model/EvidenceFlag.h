#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "support/Date.h"

namespace bc {

// A message the user marked as evidence, keyed by its guid so the mark survives a reload, a
// snapshot or a re-import of the same messages.
struct EvidenceFlag {
    std::string guid;
    int64_t messageID = 0;
    int64_t chatID = 0;
    std::string note;
    Date flaggedAt;
    Date updatedAt;

    bool operator==(const EvidenceFlag&) const = default;
};

using EvidenceFlagMap = std::map<std::string, EvidenceFlag>;  // guid → flag

}  // namespace bc
