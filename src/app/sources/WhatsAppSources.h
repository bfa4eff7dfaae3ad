#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <QObject>
#include <QString>

#include "app/shell/Background.h"
#include "custody/Imports.h"

namespace bc::app {

class AppModel;

// WhatsApp as the window offers it: importing a chat export or database into a sealed folder,
// sealing a copy of WhatsApp for Mac's own database, and the imports with what can be done to
// one (its display settings, verifying it, moving it to the Trash). Importing, sealing,
// verifying and trashing run on the model's job runner, one at a time with everything else.
class WhatsAppSources : public QObject {
    Q_OBJECT
public:
    static constexpr const char* sealedMacText = "Sealed a copy of WhatsApp for Mac's history";
    static constexpr const char* fileFilter =
        "WhatsApp chat export or database (*.zip *.txt *.sqlite)";
    static constexpr const char* trashQuestion = "Move this import to the Trash?";
    static constexpr const char* trashButton = "Unlock and Move to Trash";

    explicit WhatsAppSources(AppModel& model);
    ~WhatsAppSources() override;

    // The complete imports in the order of their folder names, as last read.
    const std::vector<ImportInfo>& list() const { return list_; }
    const ImportInfo* find(const std::string& id) const;
    // Reads the imports root again off the main thread; `listChanged` follows.
    void refresh();

    // Whether this machine has WhatsApp for Mac's database.
    static bool macAvailable();

    // Seals the file into a new import and opens it. False when nothing was started.
    bool importFile(const std::filesystem::path& file);
    // The same for an iPhone backup folder; the password only for an encrypted one.
    bool importBackup(const std::filesystem::path& folder, std::optional<std::string> password);
    bool sealMac();
    // The verdict ends up in the status line.
    bool verify(const ImportInfo& info);
    // Unlocks the folder and moves it to the Trash (the caller has asked the user).
    bool moveToTrash(const ImportInfo& info);
    // Keeps the display settings beside the sealed folder and reads the open import again.
    void saveSettings(const ImportInfo& info, const ImportInfo::Settings& settings);

signals:
    void listChanged();
    // A line for the status, for refusals and failures outside a job.
    void statusReported(const QString& line);

private:
    using ImportWork = std::function<Imports::Imported(const CancelFlag&, const ProgressFn&)>;
    // Runs the import and ends with `succeeded(imported)`'s line.
    bool runImport(ImportWork work, const QString& preparing,
                   std::function<QString(const Imports::Imported&)> succeeded);
    bool refuseWhileBusy();

    AppModel& model_;
    Background listing_;
    uint64_t listGeneration_ = 0;
    std::vector<ImportInfo> list_;
};

}  // namespace bc::app
