#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/Date.h"

namespace bc {

class BackupKeyBag;
class CancelFlag;

namespace sqlite {
class Connection;
}

// The phone a backup was made of, from its Info.plist.
struct BackupDevice {
    std::string name;
    std::string productType;  // "iPhone14,2"
    std::string iosVersion;
    std::string serialNumber;
    std::optional<Date> backupDate;

    bool operator==(const BackupDevice&) const = default;
};

// One row of the backup's file list (Manifest.db's Files table).
struct BackupFileRecord {
    std::string fileID;
    std::string domain;
    std::string relativePath;
    int64_t flags = 0;
    int64_t size = 0;
    std::optional<Date> modified;
    std::string encryptionKey;  // protection class + wrapped key, encrypted backups only
};

// An iPhone backup folder as a phone's backup tool writes it, read in place: nothing in it is
// created or changed. An encrypted backup's Manifest.db is decrypted into a private temporary
// folder that goes with this object. Failures throw Error with one sentence.
class IPhoneBackup {
public:
    static constexpr const char* notInBackup = "not in this backup";
    static constexpr const char* messagesDomain = "HomeDomain";
    static constexpr const char* messagesPath = "Library/SMS/sms.db";
    static constexpr const char* callHistoryPath = "Library/CallHistoryDB/CallHistory.storedata";
    static constexpr const char* contactsPath = "Library/AddressBook/AddressBook.sqlitedb";
    static constexpr const char* attachmentsDomain = "MediaDomain";
    static constexpr const char* whatsAppDomain =
        "AppDomainGroup-group.net.whatsapp.WhatsApp.shared";
    static constexpr const char* whatsAppPath = "ChatStorage.sqlite";

    // Whether the folder's Manifest.plist says it is encrypted. Throws Error when the folder is
    // not a backup.
    static bool isEncrypted(const std::filesystem::path& folder);

    // The password is needed only when the backup is encrypted.
    IPhoneBackup(const std::filesystem::path& folder, const std::optional<std::string>& password);
    ~IPhoneBackup();
    IPhoneBackup(const IPhoneBackup&) = delete;
    IPhoneBackup& operator=(const IPhoneBackup&) = delete;

    const std::filesystem::path& folder() const { return folder_; }
    const BackupDevice& device() const { return device_; }
    bool encrypted() const { return keyBag_ != nullptr; }

    std::optional<BackupFileRecord> find(const std::string& domain,
                                         const std::string& relativePath);
    // Files (not folders) of the domain whose path starts with the prefix.
    std::vector<BackupFileRecord> filesUnder(const std::string& domain, const std::string& prefix);
    // "<first two characters>/<fileID>"; may be absent.
    std::filesystem::path contentPath(const BackupFileRecord& file) const;
    // The file's content as the phone had it, decrypted when the backup is encrypted, at a new
    // file `destination`. Throws Error ("… not in this backup") when the content file is missing.
    void extract(const BackupFileRecord& file, const std::filesystem::path& destination,
                 const CancelFlag* cancel) const;

    // Where a path that sms.db stores for an attachment lives in the backup:
    // "~/Library/SMS/Attachments/…" (or the phone's own home folder) -> MediaDomain, the rest.
    static std::optional<std::pair<std::string, std::string>> attachmentLocation(
        const std::string& storedPath);

private:
    std::vector<BackupFileRecord> query(const std::string& where,
                                        const std::vector<std::string>& values);

    std::filesystem::path folder_;
    BackupDevice device_;
    std::unique_ptr<BackupKeyBag> keyBag_;
    std::optional<std::filesystem::path> privateFolder_;
    std::unique_ptr<sqlite::Connection> manifest_;
};

}  // namespace bc
