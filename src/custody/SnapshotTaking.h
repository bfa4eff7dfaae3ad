#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "custody/Preservation.h"
#include "support/CancelFlag.h"

namespace bc {

class MessageDatabase;

// A snapshot sealed from the live database, and whether its custody record made it into the log.
struct TakenSnapshot {
    SnapshotInfo info;
    std::optional<std::string> custodyFailure;  // why the record could not be appended

    // "Snapshot sealed: …. Logged in the custody log.", or the warning that it was not logged.
    std::string statusLine() const;
};

// Seals a snapshot of `live` and appends its custody record. A failed append keeps the snapshot
// and is reported in `custodyFailure`; any other failure throws and keeps nothing.
TakenSnapshot takeSnapshot(MessageDatabase& live,
                           const std::optional<std::vector<int64_t>>& chatIDs,
                           const std::string& scope, const CancelFlag* cancel = nullptr,
                           const ProgressFn& progress = {});

// The line that ends a snapshot that was not taken: cancelled, or failed with the reason.
std::string snapshotNotTakenLine(std::exception_ptr error);

}  // namespace bc
