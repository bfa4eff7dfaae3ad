#include "cli/CommandLineImport.h"

#include <filesystem>

#include "cli/DatabaseChoice.h"
#include "custody/Imports.h"
#include "custody/Preservation.h"
#include "demo/DemoStores.h"
#include "sources/MessageDatabase.h"
#include "sources/WhatsAppDatabase.h"
#include "sources/WhatsAppExportSource.h"

namespace bc::cli {

namespace fs = std::filesystem;

namespace {

// The settings the arguments name, over what the import already holds.
ImportInfo::Settings chosenSettings(const Arguments& arguments, ImportInfo::Settings settings) {
    if (const auto name = arguments.value("--chat-name")) settings.chatName = *name;
    if (const auto owner = arguments.value("--owner")) settings.ownerName = *owner;
    if (const auto zone = arguments.value("--time-zone")) settings.timeZone = *zone;
    if (arguments.contains("--day-first")) settings.dayFirst = true;
    if (arguments.contains("--month-first")) settings.dayFirst = false;
    return settings;
}

}  // namespace

int CommandLineImport::importFile() {
    const auto file = arguments_.value("--import");
    if (!file || (arguments_.contains("--day-first") && arguments_.contains("--month-first"))) {
        err_ << "usage: brindlecourt --import FILE [--chat-name NAME] [--owner NAME] "
                "[--time-zone ZONE] [--day-first|--month-first]\n";
        return 2;
    }
    try {
        if (arguments_.contains("--demo")) redirectStoresToDemo();
        const auto imported = Imports::importFile(fs::absolute(*file), &cancel_,
                                                  [&](const auto& text) { err_ << text << "\n"; });
        const ImportInfo& info = imported.info;
        Imports::saveSettings(info, chosenSettings(arguments_, info.settings()));
        out_ << "Done. " << info.id << " sealed at " << info.folder().string() << "\n";
        if (info.kind == ImportInfo::Kind::chatExport) {
            const WhatsAppExportSource source(Imports::sealedChatExport(info));
            for (const auto& note : source.notes()) out_ << "  note: " << note << "\n";
        }
        out_ << "  messages: " << imported.messageCount << "\n";
        return custodyStatus(imported, err_);
    } catch (...) {
        err_ << "error: " << Imports::failureText(std::current_exception()) << "\n";
        return 1;
    }
}

int CommandLineImport::custodyStatus(const Imports::Imported& imported, std::ostream& err) {
    if (!imported.custodyFailure) return 0;
    err << "error: The import WAS saved but could NOT be recorded in the custody log: "
        << *imported.custodyFailure << "\n";
    return 1;
}

int CommandLineImport::listSources() {
    try {
        if (arguments_.contains("--demo")) redirectStoresToDemo();
        // "messages" reads what --demo or --database name, and says which.
        const auto messages = DatabaseChoice::from(arguments_);
        const char* label = arguments_.contains("--demo") ? "Sample Messages database, demo mode ("
                            : arguments_.contains("--database") ? "Messages database file ("
                                                                : "Live Messages (";
        out_ << "messages\t" << label << messages.path.string() << ")\n";
        if (fs::exists(WhatsAppDatabase::macDatabasePath()))
            out_ << "whatsapp\t" << WhatsAppDatabase::liveLabel << "\n";
        for (const auto& snapshot : Preservation::list())
            out_ << "snapshot:" << snapshot.id << "\tPreservation snapshot (" << snapshot.scope
                 << ")\n";
        for (const auto& info : Imports::list())
            for (const auto part : Imports::parts(info))
                out_ << "import:" << Imports::partName(info, part) << "\t"
                     << Imports::partLabel(info, part) << "\n";
        return 0;
    } catch (const std::exception& e) {
        err_ << "error: " << e.what() << "\n";
        return 1;
    }
}

bool CommandLineImport::verifyImports(std::ostream& out, const CancelFlag& cancel) {
    bool intact = true;
    for (const auto& info : Imports::list()) {
        try {
            const auto verification = Imports::verify(info, &cancel);
            intact = intact && verification.isIntact();
            out << Imports::describe(verification, info) << "\n";
        } catch (const std::exception& e) {
            intact = false;
            out << info.id << ": error " << e.what() << "\n";
        }
    }
    return intact;
}

}  // namespace bc::cli
