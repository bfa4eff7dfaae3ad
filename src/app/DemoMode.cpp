#include "app/DemoMode.h"

#include <filesystem>

#include "custody/AttachmentWatch.h"
#include "custody/CustodyLog.h"
#include "custody/Preservation.h"
#include "evidence/EvidenceStore.h"
#include "evidence/TimelineEventStore.h"
#include "sources/CallHistory.h"
#include "sources/demo/DemoData.h"
#include "support/Errors.h"

namespace bc::app {

void redirectStoresForDemo() {
    const auto folder = DemoData::folder();
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    if (failure) throw Error("Couldn't create the demo folder: " + failure.message());

    CustodyLog::setOverrideURL(folder / "custody-log.jsonl");
    EvidenceStore::location().setOverride(folder / "evidence.json");
    TimelineEventStore::location().setOverride(folder / "events.json");
    AttachmentWatch::location().setOverride(folder / "attachment-presence.json");
    Preservation::setOverrideRoot(folder / "Snapshots");

    const auto callLog = folder / "CallHistory.storedata";
    CallHistory::setOverridePath(callLog);
    CallHistory::setOverrideDatabasePath(folder / "chat.db");
    DemoData::writeCallLog(callLog, DemoData::sampleCalls(), Clock::now());
}

}  // namespace bc::app
