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
    TimelineEventStore::location().setOverride(folder / "events.json");
    const fs::path calls = folder / "CallHistory.storedata";
    DemoData::writeCallLog(calls, DemoData::sampleCalls(), Clock::now());
    CallHistory::setOverridePath(calls);
    const fs::path database = DemoData::databasePath();
    CallHistory::setOverrideDatabasePath(database);
    return database;
}

}  // namespace bc::cli
