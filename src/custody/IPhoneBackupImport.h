#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/CustodyRecord.h"
#include "sources/IPhoneBackup.h"
#include "support/CancelFlag.h"
#include "support/Json.h"

namespace bc {

class MessageSource;

// What an import records of the iPhone backup it sealed (the manifest's "backup" entry).
struct IPhoneBackupSummary {
    BackupDevice device;
    bool encrypted = false;
    // "Manifest.db", "Info.plist" and "<domain> <path>" of each database: the SHA-256 of the
    // file as it was in the backup folder (encrypted, for an encrypted backup).
    std::map<std::string, std::string> foundSHA256;
    // "<domain> <path>" of the attachment files the messages name that the backup lacks.
    std::vector<std::string> notInBackup;

    bool operator==(const IPhoneBackupSummary&) const = default;
};

void to_json(Json& j, const IPhoneBackupSummary& summary);
void from_json(const Json& j, IPhoneBackupSummary& summary);

namespace iphoneBackupImport {

// Copies (decrypting when needed) the Messages, call history, contacts and WhatsApp databases
// and the attachment files the messages name into `work`/files/<domain>/<path>. A database's
// write-ahead log is folded into it. Throws Error or CancelledError; the caller discards `work`.
IPhoneBackupSummary gather(const std::filesystem::path& backupFolder,
                           const std::optional<std::string>& password,
                           const std::filesystem::path& work, const CancelFlag* cancel,
                           const ProgressFn& progress);

// The sealed Messages database with its calls and contacts. Throws Error or DBError.
std::unique_ptr<MessageSource> open(const std::filesystem::path& importFolder,
                                    const std::string& importID,
                                    const IPhoneBackupSummary& summary);

// Whether the backup held WhatsApp's database, sealed beside the Messages.
bool holdsWhatsApp(const IPhoneBackupSummary& summary);
// That WhatsApp database, its media read from the sealed copies. Throws Error or DBError.
std::unique_ptr<MessageSource> openWhatsApp(const std::filesystem::path& importFolder,
                                            const std::string& importID,
                                            const IPhoneBackupSummary& summary);

// "Device “Alex's iPhone”, model iPhone14,2, iOS 17.4, backup date 2024-03-05T14:07:09Z".
std::string deviceText(const BackupDevice& device);

// The import's custody record: action, what was read and the hashes as found.
void describeImport(const IPhoneBackupSummary& summary, const std::filesystem::path& backupFolder,
                    CustodyRecord& record);

}  // namespace iphoneBackupImport

}  // namespace bc
