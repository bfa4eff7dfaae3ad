#include "cli/DemoStores.h"

#include "custody/AttachmentWatch.h"
#include "custody/CustodyLog.h"
#include "custody/Imports.h"
#include "custody/Preservation.h"
#include "evidence/EvidenceStore.h"
#include "evidence/TimelineEventStore.h"
#include "sources/CallHistory.h"
#include "sources/demo/DemoData.h"
#include "support/Date.h"
#include "support/Errors.h"

namespace bc::cli {

namespace fs = std::filesystem;

namespace {

// The disputed promise of the sample conversation, flagged as a user would, so the sample
// exhibit has something to show.
EvidenceFlagMap sampleFlags(Date now) {
    EvidenceFlagMap flags;
    const auto flag = [&](int64_t row, const std::string& note) {
        const std::string guid = "DEMO-MSG-" + std::to_string(row);
        flags[guid] = {.guid = guid,
                       .messageID = row,
                       .chatID = 1,
                       .note = note,
                       .flaggedAt = now,
                       .updatedAt = now};
    };
    flag(11, "The promise: $400 back by the 15th.");
    flag(17, "Denies the date he set himself.");
    return flags;
}

}  // namespace

fs::path redirectStoresToDemo() {
    DemoData::setEnabled(true);
    const fs::path folder = DemoData::folder();
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw Error("Couldn't create the demo folder " + folder.string() + ": " + error.message());
    CustodyLog::setOverrideURL(folder / "custody-log.jsonl");
    Preservation::setOverrideRoot(folder / "Snapshots");
    Imports::setOverrideRoot(folder / "Imports");
    AttachmentWatch::location().setOverride(folder / "attachment-presence.json");
    EvidenceStore::location().setOverride(folder / "evidence.json");
    if (!fs::exists(folder / "evidence.json")) EvidenceStore::save(sampleFlags(Clock::now()));
    TimelineEventStore::location().setOverride(folder / "events.json");
    const fs::path calls = folder / "CallHistory.storedata";
    DemoData::writeCallLog(calls, DemoData::sampleCalls(), Clock::now());
    CallHistory::setOverridePath(calls);
    const fs::path database = DemoData::databasePath();
    CallHistory::setOverrideDatabasePath(database);
    return database;
}

}  // namespace bc::cli
