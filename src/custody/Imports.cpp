#include "custody/Imports.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <map>
#include <unordered_set>

#include "custody/CustodyLog.h"
#include "custody/CustodySystemInfo.h"
#include "custody/SnapshotCopy.h"
#include "custody/SnapshotLock.h"
#include "custody/ZipUnpacking.h"
#include "sources/BackupKeyBag.h"
#include "sources/WhatsAppDatabase.h"
#include "sources/WhatsAppExportSource.h"
#include "support/DateFormat.h"
#include "support/ErrorReason.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/SafeStore.h"
#include "support/Sha256.h"
#include "support/Sqlite.h"
#include "support/Text.h"
#include "support/Uuid.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

constexpr const char* manifestName = "manifest.json";
constexpr const char* partialSuffix = ".partial";
constexpr const char* databaseCopy = "database/ChatStorage.sqlite";
constexpr const char* whatsAppPartSuffix = "/whatsapp";

StoreLocation& rootLocation() {
    static StoreLocation location("Imports");
    return location;
}

const std::map<ImportInfo::Kind, std::string> kindNames{
    {ImportInfo::Kind::chatExport, "chatExport"},
    {ImportInfo::Kind::database, "database"},
    {ImportInfo::Kind::iphoneBackup, "iphoneBackup"}};

ImportInfo readManifest(const fs::path& folder) {
    try {
        return json::decode(files::readFile(folder / manifestName)).get<ImportInfo>();
    } catch (const std::exception& error) {
        throw Error("Couldn't read the manifest of " + folder.filename().string() + ": " +
                    reasonOf(error));
    }
}

ImportInfo::Kind kindOf(const fs::path& file) {
    const std::string extension = text::toLowerAscii(file.extension().string());
    if (extension == ".sqlite") return ImportInfo::Kind::database;
    if (extension == ".zip" || extension == ".txt") return ImportInfo::Kind::chatExport;
    throw Error("Choose a WhatsApp chat export (.zip or .txt) or a ChatStorage.sqlite file.");
}

// "WhatsApp 2024-03-05T140709", a second import within the same second gets " 2", " 3"…
std::string freeID(const fs::path& root, const std::string& prefix, Date createdAt) {
    const std::string base =
        prefix + " " + dates::formatPattern(createdAt, "yyyy-MM-dd'T'HHmmss", "en_US_POSIX");
    std::string id = base;
    for (int number = 2; fs::exists(root / id); ++number) id = base + " " + std::to_string(number);
    return id;
}

std::vector<SnapshotInfo::FileEntry> hashFiles(const fs::path& work, const CancelFlag* cancel) {
    std::vector<SnapshotInfo::FileEntry> entries;
    for (const auto& entry : fs::recursive_directory_iterator(work)) {
        if (!entry.is_regular_file()) continue;
        entries.push_back({entry.path().lexically_relative(work).generic_string(),
                           static_cast<int64_t>(entry.file_size()),
                           Sha256::hexOfFile(entry.path(), cancel)});
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.path < b.path; });
    return entries;
}

void copyDatabase(const fs::path& chosen, const fs::path& work, const CancelFlag* cancel,
                  const ProgressFn& progress) {
    if (progress) progress("Copying the WhatsApp database…");
    if (cancel) cancel->check();
    fs::create_directories(work / "database");
    // From the chosen file, not the plain copy: the online backup folds in its write-ahead log.
    try {
        sqlite::Connection source(chosen, sqlite::OpenMode::readOnly);
        source.backupTo(work / databaseCopy, cancel);
    } catch (const DBError& error) {
        throw Error("The database couldn't be opened: " + error.text());
    }
    WhatsAppDatabase check(work / databaseCopy, std::nullopt,
                           WhatsAppDatabase::Origin::sealedImport, "check");
}

void gatherExport(const fs::path& chosen, const fs::path& original, const fs::path& work,
                  const CancelFlag* cancel, const ProgressFn& progress) {
    if (progress) progress("Unpacking the export…");
    const fs::path extracted = work / "extracted";
    if (text::toLowerAscii(chosen.extension().string()) == ".zip") {
        unpackZip(original, extracted, cancel);
    } else {
        fs::create_directories(extracted);
        copyVerified(original, extracted / original.filename(), cancel);
    }
    if (!WhatsAppExportSource::findChatText(extracted))
        throw Error("This doesn't look like a WhatsApp chat export: no chat text file inside.");
}

ImportInfo build(const fs::path& chosen, ImportInfo::Kind kind, const fs::path& work,
                 const CancelFlag* cancel, const ProgressFn& progress) {
    ImportInfo info;
    info.kind = kind;
    info.originalName = chosen.filename().string();
    fs::create_directories(work / "original");
    const fs::path original = work / "original" / info.originalName;
    const VerifiedCopy copy = copyVerified(chosen, original, cancel);
    if (!copy.matches()) throw Error("the copy's SHA-256 differs from the file's");
    info.originalSHA256 = copy.sourceSHA256;
    info.originalBytes = copy.bytes;

    if (kind == ImportInfo::Kind::database)
        copyDatabase(chosen, work, cancel, progress);
    else
        gatherExport(chosen, original, work, cancel, progress);
    return info;
}

ImportInfo buildFromBackup(const fs::path& folder, const std::optional<std::string>& password,
                           const fs::path& work, const CancelFlag* cancel,
                           const ProgressFn& progress) {
    ImportInfo info;
    info.kind = ImportInfo::Kind::iphoneBackup;
    info.originalName = folder.filename().string();
    info.backup = iphoneBackupImport::gather(folder, password, work, cancel, progress);
    info.originalSHA256 = info.backup->foundSHA256.at("Manifest.db");
    info.originalBytes = static_cast<int64_t>(fs::file_size(folder / "Manifest.db"));
    return info;
}

CustodyRecord custodyRecord(const Imports::Imported& imported, const fs::path& chosen) {
    const ImportInfo& info = imported.info;
    const fs::path folder = info.folder();
    CustodyRecord record;
    record.id = newUUID();
    record.createdAt = Clock::now();
    record.action = info.kind == ImportInfo::Kind::database ? "whatsapp-database-import"
                                                            : "whatsapp-export-import";
    record.format = info.label();
    record.title = info.originalName;
    record.rangeDescription = "Everything in the file as received";
    record.messageCount = imported.messageCount;
    record.source = {.kind = "upload",
                     .path = fs::absolute(chosen).string(),
                     .databaseSHA256 = info.originalSHA256,
                     .note = "Uploaded file " + info.originalName + ", sealed as received"};
    for (const auto& entry : info.files)
        record.outputs.push_back(
            {(folder / entry.path).generic_string(), entry.bytes, entry.sha256});
    record.system = custodySystemInfo::current();
    if (info.backup) iphoneBackupImport::describeImport(*info.backup, chosen, record);
    return record;
}

int64_t countMessages(const ImportInfo& info) {
    const auto source = Imports::open(info);
    int64_t count = 0;
    for (const auto& chat : source->fetchChats()) count += chat.messageCount;
    return count;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// The manifest's and the settings' JSON forms.

void to_json(Json& j, const ImportInfo& info) {
    j = Json{{"id", info.id},
             {"createdAt", info.createdAt},
             {"kind", kindNames.at(info.kind)},
             {"originalName", info.originalName},
             {"originalSHA256", info.originalSHA256},
             {"originalBytes", info.originalBytes},
             {"files", info.files},
             {"app", info.app}};
    json::setOptional(j, "backup", info.backup);
}

void from_json(const Json& j, ImportInfo& info) {
    info.id = j.at("id").get<std::string>();
    info.createdAt = j.at("createdAt").get<Date>();
    const auto kind = j.at("kind").get<std::string>();
    const auto named = std::find_if(kindNames.begin(), kindNames.end(),
                                    [&](const auto& entry) { return entry.second == kind; });
    if (named == kindNames.end()) throw Error("unknown import kind " + kind);
    info.kind = named->first;
    info.originalName = j.at("originalName").get<std::string>();
    info.originalSHA256 = j.at("originalSHA256").get<std::string>();
    info.originalBytes = j.at("originalBytes").get<int64_t>();
    info.files = j.at("files").get<std::vector<SnapshotInfo::FileEntry>>();
    info.app = j.at("app").get<CustodySystemInfo>();
    info.backup = json::getOptional<IPhoneBackupSummary>(j, "backup");
    if (info.kind == ImportInfo::Kind::iphoneBackup && !info.backup)
        throw Error("the backup's description is missing");
}

void to_json(Json& j, const ImportInfo::Settings& settings) {
    j = Json{{"chatName", settings.chatName}};
    json::setOptional(j, "ownerName", settings.ownerName);
    json::setOptional(j, "timeZone", settings.timeZone);
    json::setOptional(j, "dayFirst", settings.dayFirst);
}

void from_json(const Json& j, ImportInfo::Settings& settings) {
    settings.chatName = j.value("chatName", std::string());
    settings.ownerName = json::getOptional<std::string>(j, "ownerName");
    settings.timeZone = json::getOptional<std::string>(j, "timeZone");
    settings.dayFirst = json::getOptional<bool>(j, "dayFirst");
}

fs::path ImportInfo::folder() const {
    return fs::absolute(Imports::root()) / id;
}

fs::path ImportInfo::settingsURL() const {
    return fs::path(folder().string() + ".settings.json");
}

ImportInfo::Settings ImportInfo::settings() const {
    Settings settings = SafeStore::load<Settings>(settingsURL()).value.value_or(Settings{});
    if (settings.chatName.empty())
        settings.chatName = backup ? backup->device.name : fs::path(originalName).stem().string();
    return settings;
}

std::string ImportInfo::label() const {
    if (kind == Kind::iphoneBackup) return "Imported iPhone backup (sealed on import)";
    return kind == Kind::database ? "Imported WhatsApp database (sealed on import)"
                                  : "Imported WhatsApp chat export (sealed on import)";
}

// ---------------------------------------------------------------------------------------------

fs::path Imports::root() {
    return rootLocation().path();
}

void Imports::setOverrideRoot(std::optional<fs::path> folder) {
    rootLocation().setOverride(std::move(folder));
}

namespace {

// Builds the import under a partial name, seals it and moves it into place, then records it.
Imports::Imported seal(const std::string& idPrefix, const fs::path& chosen,
                       const std::function<ImportInfo(const fs::path& work)>& build,
                       const CancelFlag* cancel, const ProgressFn& progress) {
    const fs::path rootFolder = fs::absolute(Imports::root());
    std::error_code error;
    fs::create_directories(rootFolder, error);
    if (error)
        throw Error("Couldn't create the imports folder " + rootFolder.string() + ": " +
                    error.message());
    const Date createdAt{std::floor(Clock::now().seconds)};
    const std::string id = freeID(rootFolder, idPrefix, createdAt);
    const fs::path work = rootFolder / (id + partialSuffix);
    const fs::path destination = rootFolder / id;
    Imports::Imported imported;
    try {
        Preservation::discard(work);
        imported.info = build(work);
        if (progress) progress("Sealing the import…");
        if (cancel) cancel->check();
        imported.info.files = hashFiles(work, cancel);
        imported.info.app = custodySystemInfo::current();
        imported.info.id = id;
        imported.info.createdAt = createdAt;
        files::writeFileAtomically(work / manifestName, json::encodePretty(imported.info));
        snapshotLock::lock(work);
        fs::rename(work, destination);
        files::syncFolder(rootFolder);
    } catch (const Error&) {
        Preservation::discard(work);
        throw;
    } catch (const std::exception& failure) {
        Preservation::discard(work);
        throw Error(reasonOf(failure));
    }
    try {
        imported.messageCount = countMessages(imported.info);
        CustodyLog::append(custodyRecord(imported, chosen));
    } catch (const std::exception& failure) {
        imported.custodyFailure = failure.what();
    }
    return imported;
}

}  // namespace

Imports::Imported Imports::importFile(const fs::path& file, const CancelFlag* cancel,
                                      const ProgressFn& progress) {
    const ImportInfo::Kind kind = kindOf(file);
    return seal(
        "WhatsApp", file,
        [&](const fs::path& work) { return build(file, kind, work, cancel, progress); }, cancel,
        progress);
}

Imports::Imported Imports::importBackup(const fs::path& folder,
                                        const std::optional<std::string>& password,
                                        const CancelFlag* cancel, const ProgressFn& progress) {
    // Without a trailing separator, so that the folder's own name is its file name.
    const fs::path chosen = (fs::absolute(folder) / "").parent_path();
    return seal(
        "iPhone", chosen,
        [&](const fs::path& work) {
            return buildFromBackup(chosen, password, work, cancel, progress);
        },
        cancel, progress);
}

std::string Imports::failureText(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const CancelledError&) {
        return "Import cancelled. Nothing was kept.";
    } catch (const WrongBackupPassword& wrong) {
        // Nothing was started, and the sentence is the whole answer.
        return wrong.what();
    } catch (const std::exception& failure) {
        return "Import failed, nothing was kept: " + reasonOf(failure);
    }
}

std::vector<ImportInfo> Imports::list() {
    std::vector<ImportInfo> imports;
    std::error_code error;
    std::vector<fs::path> folders;
    for (const auto& entry : fs::directory_iterator(root(), error))
        if (entry.is_directory() && !entry.path().filename().string().ends_with(partialSuffix) &&
            fs::exists(entry.path() / manifestName))
            folders.push_back(entry.path());
    std::sort(folders.begin(), folders.end());
    for (const auto& folder : folders) {
        try {
            imports.push_back(readManifest(folder));
        } catch (const Error&) {
            // A damaged manifest shows when the import is verified; the others are listed.
        }
    }
    return imports;
}

std::vector<ImportPart> Imports::parts(const ImportInfo& info) {
    if (info.backup && iphoneBackupImport::holdsWhatsApp(*info.backup))
        return {ImportPart::own, ImportPart::backupWhatsApp};
    return {ImportPart::own};
}

std::string Imports::partName(const ImportInfo& info, ImportPart part) {
    return part == ImportPart::own ? info.id : info.id + whatsAppPartSuffix;
}

std::string Imports::partLabel(const ImportInfo& info, ImportPart part) {
    if (part == ImportPart::own) return info.label() + ": " + info.chatName();
    return "WhatsApp of an imported iPhone backup (sealed on import): " + info.chatName();
}

std::pair<std::string, ImportPart> Imports::parsePartName(std::string_view name) {
    if (name.ends_with(whatsAppPartSuffix))
        return {std::string(name.substr(0, name.size() - std::strlen(whatsAppPartSuffix))),
                ImportPart::backupWhatsApp};
    return {std::string(name), ImportPart::own};
}

std::unique_ptr<MessageSource> Imports::open(const ImportInfo& info, ImportPart part) {
    if (part == ImportPart::backupWhatsApp) {
        if (!info.backup) throw Error("The import " + info.id + " is not of an iPhone backup.");
        return iphoneBackupImport::openWhatsApp(info.folder(), info.id, *info.backup);
    }
    if (info.backup) return iphoneBackupImport::open(info.folder(), info.id, *info.backup);
    if (info.kind == ImportInfo::Kind::chatExport)
        return std::make_unique<WhatsAppExportSource>(sealedChatExport(info));
    return std::make_unique<WhatsAppDatabase>(
        info.folder() / databaseCopy, std::nullopt, WhatsAppDatabase::Origin::sealedImport,
        "an imported WhatsApp database (" + info.id + ", from " + info.originalName + ")");
}

SealedChatExport Imports::sealedChatExport(const ImportInfo& info) {
    return {
        .id = info.id,
        .folder = info.folder(),
        .originalName = info.originalName,
        .originalSHA256 = info.originalSHA256,
        .settings = [info] { return info.settings(); },
        .keepSettings = [info](const ImportSettings& settings) { saveSettings(info, settings); }};
}

void Imports::saveSettings(const ImportInfo& info, const ImportInfo::Settings& settings) {
    files::writeFileAtomically(info.settingsURL(), json::encodePretty(settings));
}

Preservation::Verification Imports::verify(const ImportInfo& info, const CancelFlag* cancel) {
    const fs::path folder = info.folder();
    const ImportInfo manifest = readManifest(folder);
    Preservation::Verification result;
    std::unordered_set<std::string> listed;
    for (const auto& entry : manifest.files) {
        ++result.checked;
        listed.insert(entry.path);
        const fs::path file = folder / entry.path;
        std::error_code error;
        if (!fs::is_regular_file(fs::symlink_status(file, error))) {
            result.missing.push_back(entry.path);
            continue;
        }
        try {
            if (Sha256::hexOfFile(file, cancel) != entry.sha256)
                result.mismatched.push_back(entry.path);
        } catch (const CancelledError&) {
            throw;
        } catch (const Error&) {
            result.mismatched.push_back(entry.path);
        }
    }
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        const std::string relative = entry.path().lexically_relative(folder).generic_string();
        // The engine may leave a shared-memory file beside the database it opened.
        if (entry.is_directory() || relative == manifestName ||
            relative == std::string(databaseCopy) + "-shm" || listed.contains(relative))
            continue;
        result.extra.push_back(relative);
    }
    std::sort(result.extra.begin(), result.extra.end());
    return result;
}

std::string Imports::describe(const Preservation::Verification& verification,
                              const ImportInfo& info) {
    SnapshotInfo named;
    named.id = info.id;
    std::string line = Preservation::describe(verification, named);
    // Imports are not cross-checked with the log; the snapshot wording about it does not apply.
    const std::string aside = " (No custody-log record found to cross-check.)";
    if (line.ends_with(aside)) line.erase(line.size() - aside.size());
    return line;
}

void Imports::unlock(const ImportInfo& info) {
    snapshotLock::unlock(info.folder());
}

std::string Imports::trashConfirmation(const ImportInfo& info) {
    return "\"" + info.id +
           "\" will be unlocked and moved to the Trash. You can restore it from the Trash until "
           "you empty it.";
}

}  // namespace bc
