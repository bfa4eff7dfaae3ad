#include "custody/SnapshotTaking.h"

#include "custody/CustodyLog.h"
#include "sources/MessageDatabase.h"
#include "support/Errors.h"
#include "support/Machine.h"

namespace bc {

std::string TakenSnapshot::statusLine() const {
    if (custodyFailure)
        return "WARNING: the snapshot WAS sealed (" + info.id +
               "), but it could NOT be recorded in the custody log: " + *custodyFailure;
    std::string line = "Snapshot sealed: " + info.id + ": " +
                       std::to_string(info.attachmentsCopied) +
                       " attachments preserved and verified";
    if (info.attachmentsMissing > 0)
        line += ", " + std::to_string(info.attachmentsMissing) + " not on " + thisMachine;
    if (info.attachmentsFailed > 0)
        line += ", " + std::to_string(info.attachmentsFailed) + " could not be read";
    return line + ". Logged in the custody log.";
}

TakenSnapshot takeSnapshot(MessageDatabase& live,
                           const std::optional<std::vector<int64_t>>& chatIDs,
                           const std::string& scope, const CancelFlag* cancel,
                           const ProgressFn& progress) {
    TakenSnapshot taken{Preservation::create(live, chatIDs, scope, cancel, progress), {}};
    // Sealed evidence is never given up because the log could not take its record.
    try {
        CustodyLog::append(Preservation::custodyRecord(taken.info, live));
    } catch (const std::exception& failure) {
        taken.custodyFailure = failure.what();
    }
    return taken;
}

std::string snapshotNotTakenLine(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const CancelledError&) {
        return "Snapshot cancelled. Nothing was kept.";
    } catch (const std::exception& failure) {
        return std::string("Snapshot failed, nothing was kept: ") + failure.what();
    } catch (...) {
        return "Snapshot failed, nothing was kept: an unknown error";
    }
}

}  // namespace bc
