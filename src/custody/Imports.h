#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "custody/IPhoneBackupImport.h"
#include "custody/Preservation.h"
#include "model/CustodyRecord.h"
#include "model/ImportSettings.h"
#include "sources/WhatsAppExportSource.h"
#include "support/CancelFlag.h"
#include "support/Date.h"
#include "support/Json.h"

namespace bc {

class MessageSource;

// The manifest of a sealed import ("manifest.json"); JSON keys are the field names.
struct ImportInfo {
    enum class Kind { chatExport, database, iphoneBackup };

    using Settings = ImportSettings;

    std::string id;  // "WhatsApp 2024-03-05T140709" or "iPhone …", also the folder name
    Date createdAt;
    Kind kind = Kind::chatExport;
    std::string originalName;    // a backup's folder name
    std::string originalSHA256;  // a backup's Manifest.db
    int64_t originalBytes = 0;
    std::optional<IPhoneBackupSummary> backup;
    std::vector<SnapshotInfo::FileEntry> files;  // every file of the folder but the manifest
    CustodySystemInfo app;

    std::filesystem::path folder() const;
    // The folder's path + ".settings.json", beside it.
    std::filesystem::path settingsURL() const;
    // Defaults (the received file's name as chat name) when there is no settings file.
    Settings settings() const;
    std::string chatName() const { return settings().chatName; }
    std::optional<std::string> ownerName() const { return settings().ownerName; }
    // "Imported WhatsApp chat export (sealed on import)", "…database …" or "…iPhone backup …".
    std::string label() const;

    bool operator==(const ImportInfo&) const = default;
};

void to_json(Json& j, const ImportInfo& info);
void from_json(const Json& j, ImportInfo& info);
void to_json(Json& j, const ImportInfo::Settings& settings);
void from_json(const Json& j, ImportInfo::Settings& settings);

// Sealed, self-describing copies of WhatsApp chat exports and databases and of iPhone backups,
// one folder each under the imports root. Stateless: every call reads the folders afresh.
// What of an import is read: its own source, or the WhatsApp that an iPhone backup held beside
// its Messages.
enum class ImportPart { own, backupWhatsApp };

class Imports {
public:
    struct Imported {
        ImportInfo info;
        int64_t messageCount = 0;
        std::optional<std::string> custodyFailure;  // why the record could not be appended
    };

    // "Kestrove/Imports" under the application data folder, unless overridden.
    static std::filesystem::path root();
    static void setOverrideRoot(std::optional<std::filesystem::path> folder);

    // Copies the file as received, unpacks or copies what it holds, hashes every file, writes
    // the manifest, locks the folder and moves it into place; then appends the custody record
    // (a failed append keeps the import and is reported in `custodyFailure`). Any other failure
    // or a cancel keeps nothing and throws Error or CancelledError.
    static Imported importFile(const std::filesystem::path& file,
                               const CancelFlag* cancel = nullptr, const ProgressFn& progress = {});
    // The same for an iPhone backup folder; the password only when it is encrypted.
    static Imported importBackup(const std::filesystem::path& folder,
                                 const std::optional<std::string>& password,
                                 const CancelFlag* cancel = nullptr,
                                 const ProgressFn& progress = {});
    // "Import failed, nothing was kept: …" or "Import cancelled. Nothing was kept."
    static std::string failureText(std::exception_ptr error);

    // Complete imports in the order of their folder names; ".partial" folders are never listed.
    static std::vector<ImportInfo> list();
    // The parts the import holds, its own first.
    static std::vector<ImportPart> parts(const ImportInfo& info);
    // How the command line and the window name a part: "ID", or "ID/whatsapp" for a backup's
    // WhatsApp; and its label, "Imported iPhone backup (…): …" or "WhatsApp of an imported …".
    static std::string partName(const ImportInfo& info, ImportPart part);
    static std::string partLabel(const ImportInfo& info, ImportPart part);
    // The import identifier and part a name stands for.
    static std::pair<std::string, ImportPart> parsePartName(std::string_view name);
    // The chat export's, database's or backup's source. Throws Error or DBError.
    static std::unique_ptr<MessageSource> open(const ImportInfo& info,
                                               ImportPart part = ImportPart::own);
    // A chat export import as its reader takes it, its settings read and written here.
    static SealedChatExport sealedChatExport(const ImportInfo& info);
    // Writes the settings file; the sealed folder is not touched.
    static void saveSettings(const ImportInfo& info, const ImportInfo::Settings& settings);
    // Re-hashes every file against the manifest. Throws Error when the manifest can't be read.
    static Preservation::Verification verify(const ImportInfo& info,
                                             const CancelFlag* cancel = nullptr);
    static std::string describe(const Preservation::Verification& verification,
                                const ImportInfo& info);
    // Makes the folder removable again before the application moves it to the Trash.
    static void unlock(const ImportInfo& info);
    static std::string trashConfirmation(const ImportInfo& info);
};

}  // namespace bc
