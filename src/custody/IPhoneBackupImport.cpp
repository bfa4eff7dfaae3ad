#include "custody/IPhoneBackupImport.h"

#include <algorithm>
#include <unordered_map>

#include "sources/IPhoneBackupMessages.h"
#include "sources/WhatsAppDatabase.h"
#include "support/DateFormat.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Sha256.h"
#include "support/Sqlite.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

constexpr const char* attachmentsPrefix = "Library/SMS/Attachments/";
constexpr const char* whatsAppMediaPrefix = "Message/Media/";

std::string located(const std::string& domain, const std::string& relativePath) {
    return domain + " " + relativePath;
}

fs::path sealedPath(const fs::path& root, const std::string& domain,
                    const std::string& relativePath) {
    return root / "files" / domain / relativePath;
}

// The database with its write-ahead log folded in, so that the sealed copy opens whole as an
// immutable file. Returns false when the backup does not hold the database.
bool sealDatabase(IPhoneBackup& backup, const std::string& domain, const std::string& path,
                  const fs::path& work, IPhoneBackupSummary& summary, const CancelFlag* cancel) {
    const auto record = backup.find(domain, path);
    if (!record) return false;
    const fs::path destination = sealedPath(work, domain, path);
    backup.extract(*record, destination, cancel);
    summary.foundSHA256[located(domain, path)] =
        Sha256::hexOfFile(backup.contentPath(*record), cancel);
    const auto log = backup.find(domain, path + "-wal");
    if (!log) return true;
    const fs::path folded = files::temporarySibling(destination);
    backup.extract(*log, sqlite::writeAheadLog(destination), cancel);
    summary.foundSHA256[located(domain, path + "-wal")] =
        Sha256::hexOfFile(backup.contentPath(*log), cancel);
    try {
        sqlite::Connection(destination, sqlite::OpenMode::readOnly).backupTo(folded, cancel);
    } catch (const DBError& error) {
        throw Error("Couldn't read " + located(domain, path) + " from the backup: " + error.text());
    }
    for (const char* suffix : {"-wal", "-shm"}) fs::remove(destination.string() + suffix);
    fs::rename(folded, destination);
    return true;
}

void sealMessageAttachments(IPhoneBackup& backup, const fs::path& work,
                            IPhoneBackupSummary& summary, const CancelFlag* cancel) {
    std::unordered_map<std::string, BackupFileRecord> files;
    for (auto& file : backup.filesUnder(IPhoneBackup::attachmentsDomain, attachmentsPrefix))
        files.emplace(file.relativePath, std::move(file));
    MessageDatabase messages(
        sealedPath(work, IPhoneBackup::messagesDomain, IPhoneBackup::messagesPath),
        MessageDatabase::Origin::sealedCopy);
    for (const auto& [id, stored] : messages.attachmentPaths()) {
        const auto location = IPhoneBackup::attachmentLocation(stored);
        if (!location) continue;
        const auto found = files.find(location->second);
        const fs::path destination = sealedPath(work, location->first, location->second);
        // Several messages may share a file; it is sealed once.
        if (found != files.end() && fs::exists(destination)) continue;
        if (found == files.end() || !fs::is_regular_file(backup.contentPath(found->second))) {
            summary.notInBackup.push_back(located(location->first, location->second));
            continue;
        }
        backup.extract(found->second, destination, cancel);
    }
}

void sealWhatsApp(IPhoneBackup& backup, const fs::path& work, IPhoneBackupSummary& summary,
                  const CancelFlag* cancel) {
    const std::string domain = IPhoneBackup::whatsAppDomain;
    if (!sealDatabase(backup, domain, IPhoneBackup::whatsAppPath, work, summary, cancel)) return;
    for (const auto& file : backup.filesUnder(domain, whatsAppMediaPrefix)) {
        if (!fs::is_regular_file(backup.contentPath(file))) {
            summary.notInBackup.push_back(located(domain, file.relativePath));
            continue;
        }
        backup.extract(file, sealedPath(work, domain, file.relativePath), cancel);
    }
}

std::optional<fs::path> companion(const fs::path& folder, const char* relativePath) {
    const fs::path file = sealedPath(folder, IPhoneBackup::messagesDomain, relativePath);
    std::error_code error;
    return fs::is_regular_file(file, error) ? std::optional(file) : std::nullopt;
}

}  // namespace

void to_json(Json& j, const IPhoneBackupSummary& summary) {
    j = Json{
        {"deviceName", summary.device.name},       {"productType", summary.device.productType},
        {"iosVersion", summary.device.iosVersion}, {"serialNumber", summary.device.serialNumber},
        {"encrypted", summary.encrypted},          {"foundSHA256", summary.foundSHA256},
        {"notInBackup", summary.notInBackup}};
    json::setOptional(j, "backupDate", summary.device.backupDate);
}

void from_json(const Json& j, IPhoneBackupSummary& summary) {
    summary.device = {.name = j.at("deviceName").get<std::string>(),
                      .productType = j.at("productType").get<std::string>(),
                      .iosVersion = j.at("iosVersion").get<std::string>(),
                      .serialNumber = j.at("serialNumber").get<std::string>(),
                      .backupDate = json::getOptional<Date>(j, "backupDate")};
    summary.encrypted = j.at("encrypted").get<bool>();
    summary.foundSHA256 = j.at("foundSHA256").get<std::map<std::string, std::string>>();
    summary.notInBackup = j.at("notInBackup").get<std::vector<std::string>>();
}

IPhoneBackupSummary iphoneBackupImport::gather(const fs::path& backupFolder,
                                               const std::optional<std::string>& password,
                                               const fs::path& work, const CancelFlag* cancel,
                                               const ProgressFn& progress) {
    if (progress) progress("Reading the iPhone backup…");
    IPhoneBackup backup(backupFolder, password);
    IPhoneBackupSummary summary{.device = backup.device(), .encrypted = backup.encrypted()};
    for (const char* name : {"Manifest.db", "Info.plist"})
        summary.foundSHA256[name] = Sha256::hexOfFile(backupFolder / name, cancel);

    if (progress) progress("Copying the databases…");
    const std::string home = IPhoneBackup::messagesDomain;
    if (!sealDatabase(backup, home, IPhoneBackup::messagesPath, work, summary, cancel))
        throw Error("Couldn't read the Messages database of the backup: " + home + " " +
                    IPhoneBackup::messagesPath + " is " + IPhoneBackup::notInBackup + ".");
    sealDatabase(backup, home, IPhoneBackup::callHistoryPath, work, summary, cancel);
    sealDatabase(backup, home, IPhoneBackup::contactsPath, work, summary, cancel);
    try {
        if (progress) progress("Copying the attachment files…");
        sealMessageAttachments(backup, work, summary, cancel);
    } catch (const DBError& error) {
        throw Error("Couldn't read the Messages database of the backup: " + error.text());
    }
    if (progress) progress("Copying WhatsApp…");
    sealWhatsApp(backup, work, summary, cancel);
    std::sort(summary.notInBackup.begin(), summary.notInBackup.end());
    return summary;
}

std::unique_ptr<MessageSource> iphoneBackupImport::open(const fs::path& importFolder,
                                                        const std::string& importID,
                                                        const IPhoneBackupSummary& summary) {
    auto mapper = [importFolder](const std::string& path, int64_t) {
        const auto location = IPhoneBackup::attachmentLocation(path);
        return location ? sealedPath(importFolder, location->first, location->second).string()
                        : path;
    };
    CustodyRecord::Source origin{.kind = "iphone-backup-import",
                                 .note = deviceText(summary.device)};
    return std::make_unique<IPhoneBackupMessages>(
        sealedPath(importFolder, IPhoneBackup::messagesDomain, IPhoneBackup::messagesPath), mapper,
        IPhoneBackupMessages::Companions{
            .callHistory = companion(importFolder, IPhoneBackup::callHistoryPath),
            .contacts = companion(importFolder, IPhoneBackup::contactsPath)},
        "the Messages of an imported iPhone backup (" + importID + ", " + summary.device.name + ")",
        std::move(origin));
}

bool iphoneBackupImport::holdsWhatsApp(const IPhoneBackupSummary& summary) {
    return summary.foundSHA256.contains(
        located(IPhoneBackup::whatsAppDomain, IPhoneBackup::whatsAppPath));
}

std::unique_ptr<MessageSource> iphoneBackupImport::openWhatsApp(
    const fs::path& importFolder, const std::string& importID, const IPhoneBackupSummary& summary) {
    const std::string domain = IPhoneBackup::whatsAppDomain;
    if (!holdsWhatsApp(summary))
        throw Error("The iPhone backup " + importID + " held no WhatsApp database.");
    // WhatsApp stores each media path relative to its "Message" folder.
    return std::make_unique<WhatsAppDatabase>(
        sealedPath(importFolder, domain, IPhoneBackup::whatsAppPath),
        sealedPath(importFolder, domain, "Message"), WhatsAppDatabase::Origin::sealedImport,
        "the WhatsApp of an imported iPhone backup (" + importID + ", " + summary.device.name +
            ")");
}

std::string iphoneBackupImport::deviceText(const BackupDevice& device) {
    return "Device \u201C" + device.name + "\u201D, model " + device.productType + ", iOS " +
           device.iosVersion + ", backup date " +
           (device.backupDate ? dates::iso8601(*device.backupDate) : "unknown");
}

void iphoneBackupImport::describeImport(const IPhoneBackupSummary& summary,
                                        const fs::path& backupFolder, CustodyRecord& record) {
    record.action = "iphone-backup-import";
    record.rangeDescription = "The Messages, calls, contacts and WhatsApp the backup holds";
    record.source = {.kind = "iphone-backup",
                     .path = fs::absolute(backupFolder).string(),
                     .databaseSHA256 = summary.foundSHA256.at("Manifest.db"),
                     .note = deviceText(summary.device) +
                             (summary.encrypted ? ", encrypted backup" : ", plain backup")};
    record.options["Device"] = summary.device.name;
    record.options["Model"] = summary.device.productType;
    record.options["iOS version"] = summary.device.iosVersion;
    record.options["Serial number"] = summary.device.serialNumber;
    record.options["Backup date"] =
        summary.device.backupDate ? dates::iso8601(*summary.device.backupDate) : "unknown";
    for (const auto& [name, sha256] : summary.foundSHA256)
        record.options["SHA-256 as found: " + name] = sha256;
    if (!summary.notInBackup.empty())
        record.options["Files not in this backup"] = std::to_string(summary.notInBackup.size());
}

}  // namespace bc
