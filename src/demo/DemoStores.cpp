#include "demo/DemoStores.h"

#include "counsel/ZipWriter.h"
#include "custody/AttachmentWatch.h"
#include "custody/CustodyLog.h"
#include "custody/Imports.h"
#include "custody/Preservation.h"
#include "demo/DemoData.h"
#include "evidence/EvidenceStore.h"
#include "evidence/MachineText.h"
#include "evidence/TimelineEventStore.h"
#include "sources/CallHistory.h"
#include "support/Date.h"
#include "support/Errors.h"

namespace bc {

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

// An event of the user's own in the sample conversation (keyed by its chat identifier), so the
// timeline and the exports show one beside the messages.
std::vector<TimelineEvent> sampleEvents(Date now) {
    return {{.id = "0DE30000-0000-4000-8000-000000000001",
             .conversation = "sam.taylor@example.com",
             .date = now - 26 * 86400.0,
             .title = "Sam moved in",
             .note = "Paid the movers with the $400 I lent him the day before.",
             .createdAt = now,
             .updatedAt = now}};
}

// The sample WhatsApp export, sealed once through the real import path, so that the demo holds
// an import, and its custody record, like any other.
void importSampleWhatsAppExport(const fs::path& folder) {
    if (!Imports::list().empty()) return;
    const fs::path zip = folder / "WhatsApp Chat - Sam Taylor.zip";
    try {
        fs::remove(zip);
        ZipWriter writer(zip, {});
        for (auto& [name, bytes] : DemoData::whatsAppExport(Clock::now()))
            writer.addBytes(name, std::move(bytes));
        writer.close();
        const auto imported = Imports::importFile(zip);
        fs::remove(zip);
        Imports::saveSettings(imported.info, {.chatName = DemoData::whatsAppChatName,
                                              .ownerName = DemoData::whatsAppOwner,
                                              .dayFirst = true});
        if (imported.custodyFailure) throw Error(*imported.custodyFailure);
    } catch (const std::exception& e) {
        throw Error("Couldn't seal the sample WhatsApp export: " + std::string(e.what()));
    }
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
    importSampleWhatsAppExport(folder);
    AttachmentWatch::location().setOverride(folder / "attachment-presence.json");
    EvidenceStore::location().setOverride(folder / "evidence.json");
    if (!fs::exists(folder / "evidence.json")) EvidenceStore::save(sampleFlags(Clock::now()));
    TimelineEventStore::location().setOverride(folder / "events.json");
    if (!fs::exists(folder / "events.json")) TimelineEventStore::save(sampleEvents(Clock::now()));
    AnalysisStore::location().setOverride(folder / "machine-text.json");
    const fs::path calls = folder / "CallHistory.storedata";
    DemoData::writeCallLog(calls, DemoData::sampleCalls(), Clock::now());
    CallHistory::setOverridePath(calls);
    fs::path database = DemoData::databasePath();
    CallHistory::setOverrideDatabasePath(database);
    return database;
}

}  // namespace bc
