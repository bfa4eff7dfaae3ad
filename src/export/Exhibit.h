#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "export/ExportJob.h"
#include "export/Redactor.h"
#include "model/CustodyRecord.h"
#include "model/EvidenceFlag.h"

namespace bc {

// What the exhibit sheet edits: which flagged messages, with how much context, numbered and
// redacted how.
struct ExhibitRequest {
    std::string id;
    std::string label = "Exhibit A";
    std::string batesPrefix;  // empty: no Bates numbers
    int64_t batesStart = 1;
    int batesDigits = 6;
    int contextBefore = 3;
    int contextAfter = 3;
    std::string redactionTerms;  // one name or phrase per line
    bool redactContactDetails = false;
    bool includeNotes = false;  // notes are the user's own; they go on paper only when asked
    bool includeCertificate = true;
    RangeExportFormat format = RangeExportFormat::pdf;
    ExportSettings settings;
    int64_t flaggedCount = 0;

    Redactor redactor() const;
    // "12 flagged messages, each shown with surrounding messages so nothing is out of context."
    std::string summary() const;
    // The label (redacted, so the file name cannot name a redacted person) + " – Flagged messages".
    std::string baseName() const;
};

namespace exhibit {

inline constexpr const char* title = "Flagged messages";
inline constexpr const char* action = "exhibit";

// The flagged rows of `whole` (a job of the entire loaded conversations, calls merged in) with
// their context windows, gap counts, page options and record options.
ExportJob makeJob(const ExhibitRequest& request, ExportJob whole, const EvidenceFlagMap& flags);

// Flagged rows of the job's messages, in order.
int64_t flaggedCount(const std::vector<Message>& messages, const EvidenceFlagMap& flags);

// The number after the last Bates number used with `prefix` in the custody log, so a production
// never reuses or skips numbers; 1 when the prefix was never used.
int64_t nextBatesNumber(const std::string& prefix, const std::vector<CustodyRecord>& records);

}  // namespace exhibit

}  // namespace bc
