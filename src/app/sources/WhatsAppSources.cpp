#include "app/sources/WhatsAppSources.h"

#include "app/custody/Snapshots.h"
#include "app/shell/AppModel.h"
#include "app/shell/Failures.h"
#include "app/shell/QtText.h"
#include "sources/WhatsAppDatabase.h"

namespace bc::app {

namespace fs = std::filesystem;

namespace {

// The import is kept even when its record could not be written: the user must hear of both.
QString withCustodyWarning(QString line, const Imports::Imported& imported) {
    if (!imported.custodyFailure) return line;
    return "WARNING: " + qs(imported.info.id) +
           " WAS sealed, but it could NOT be recorded in the custody log: " +
           qs(*imported.custodyFailure);
}

// "…: 120 messages, sealed and logged in the custody log."
QString importedLine(const Imports::Imported& imported) {
    return "Imported " + qs(imported.info.originalName) + " as " + qs(imported.info.id) + ": " +
           QString::number(imported.messageCount) +
           " messages, sealed and logged in the custody log.";
}

}  // namespace

WhatsAppSources::WhatsAppSources(AppModel& model) : model_(model), listing_(this, 1) {
    refresh();
}

WhatsAppSources::~WhatsAppSources() = default;

const ImportInfo* WhatsAppSources::find(const std::string& id) const {
    for (const auto& info : list_)
        if (info.id == id) return &info;
    return nullptr;
}

void WhatsAppSources::refresh() {
    const auto generation = ++listGeneration_;
    listing_.run([] { return Imports::list(); },
                 [this, generation](std::vector<ImportInfo> found) {
                     if (generation != listGeneration_) return;
                     list_ = std::move(found);
                     emit listChanged();
                 },
                 [this](std::exception_ptr error) {
                     emit statusReported("Couldn't list the imports: " + qs(messageOf(error)));
                 });
}

bool WhatsAppSources::macAvailable() {
    std::error_code error;
    return fs::is_regular_file(WhatsAppDatabase::macDatabasePath(), error);
}

bool WhatsAppSources::refuseWhileBusy() {
    if (!model_.jobs().isRunning()) return false;
    emit statusReported(Jobs::busyText);
    return true;
}

bool WhatsAppSources::runImport(ImportWork work, const QString& preparing,
                                std::function<QString(const Imports::Imported&)> succeeded) {
    if (refuseWhileBusy()) return false;
    return model_.jobs().start(
        preparing, std::move(work),
        [this, succeeded = std::move(succeeded)](const Imports::Imported& imported) {
            refresh();
            model_.openImport(imported.info);
            return withCustodyWarning(succeeded(imported), imported);
        },
        [](std::exception_ptr error) { return qs(Imports::failureText(error)); });
}

bool WhatsAppSources::importFile(const fs::path& file) {
    return runImport(
        [file](const CancelFlag& cancel, const ProgressFn& progress) {
            return Imports::importFile(file, &cancel, progress);
        },
        "Importing " + qs(file.filename().string()) + "…", importedLine);
}

bool WhatsAppSources::importBackup(const fs::path& folder, std::optional<std::string> password) {
    return runImport(
        [folder, password = std::move(password)](const CancelFlag& cancel,
                                                 const ProgressFn& progress) {
            return Imports::importBackup(folder, password, &cancel, progress);
        },
        "Importing the iPhone backup " + qs(folder.filename().string()) + "…", importedLine);
}

bool WhatsAppSources::sealMac() {
    if (!macAvailable()) {
        emit statusReported("Couldn't seal a copy of WhatsApp for Mac: there is no database at " +
                            qs(WhatsAppDatabase::macDatabasePath().string()) + ".");
        return false;
    }
    return runImport(
        [](const CancelFlag& cancel, const ProgressFn& progress) {
            return Imports::importFile(WhatsAppDatabase::macDatabasePath(), &cancel, progress);
        },
        "Sealing a copy of WhatsApp for Mac…",
        [](const Imports::Imported&) { return QString(sealedMacText); });
}

bool WhatsAppSources::verify(const ImportInfo& info) {
    if (refuseWhileBusy()) return false;
    const QString id = qs(info.id);
    return model_.jobs().start(
        "Verifying " + id + "…",
        [info](const CancelFlag& cancel, const ProgressFn&) {
            return Imports::describe(Imports::verify(info, &cancel), info);
        },
        [](const std::string& verdict) { return qs(verdict); },
        [id](std::exception_ptr error) {
            if (isCancellation(error)) return "Verification of " + id + " cancelled.";
            return "Couldn't verify " + id + ": " + qs(messageOf(error));
        });
}

bool WhatsAppSources::moveToTrash(const ImportInfo& info) {
    const QString id = qs(info.id);
    const auto& open = model_.openedImport();
    if (open && open->id == info.id) {
        emit statusReported("Couldn't move " + id +
                            " to the Trash: it is the open source. Switch to another source "
                            "first.");
        return false;
    }
    if (refuseWhileBusy()) return false;
    return model_.jobs().start(
        "Moving " + id + " to the Trash…",
        [folder = info.folder()](const CancelFlag& cancel, const ProgressFn&) {
            unlockAndTrash(folder, cancel);
            return true;
        },
        [this, id](bool) {
            refresh();
            return id + " moved to the Trash.";
        },
        [id](std::exception_ptr error) {
            if (isCancellation(error)) return id + " was not moved; it is still sealed.";
            return "Couldn't move " + id + " to the Trash: " + qs(messageOf(error));
        });
}

void WhatsAppSources::saveSettings(const ImportInfo& info, const ImportInfo::Settings& settings) {
    try {
        Imports::saveSettings(info, settings);
    } catch (const std::exception& error) {
        emit statusReported(QString("Couldn't save the import's settings: ") + error.what());
        return;
    }
    refresh();
    const auto& open = model_.openedImport();
    if (open && open->id == info.id) model_.openImport(info);
}

}  // namespace bc::app
