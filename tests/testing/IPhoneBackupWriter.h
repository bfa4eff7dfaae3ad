#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace bc::testing {

// A small iPhone backup writer for tests: Info.plist, Manifest.plist (with a key bag made from
// fixed keys and small iteration counts when a password is given), Manifest.db and the hashed
// content layout, every content file encrypted when there is a password.
struct BackupEntry {
    std::string domain;
    std::string relativePath;
    std::string bytes;
};

struct BackupWriterOptions {
    std::optional<std::string> password;
    // Raw fields appended to the key bag, to test a bag the reader does not know.
    std::string extraKeyBagFields;
};

// The content file's name: the SHA-1 of "domain-relativePath", as the phone names it.
std::string backupFileID(const BackupEntry& entry);

void writeIPhoneBackup(const std::filesystem::path& folder, const std::vector<BackupEntry>& entries,
                       const BackupWriterOptions& options = {});

// The demo's Messages database (attachments stored as the phone stores them), its photos, call
// history and a contacts database naming its people, as backup entries. `scratch` holds the
// generated files while they are read. The demo names photos it never wrote; they are left out,
// and `absent` lists them as "MediaDomain <path>".
std::vector<BackupEntry> demoBackupEntries(const std::filesystem::path& scratch,
                                           std::vector<std::string>* absent = nullptr);

// WhatsApp as the phone keeps it: ChatStorage.sqlite with one chat (Z_PK 7, with Ann) of a text
// and a photo, and the photo under Message/Media, whose bytes are `whatsAppPhotoBytes`.
std::vector<BackupEntry> whatsAppBackupEntries(const std::filesystem::path& scratch);
constexpr const char* whatsAppPhotoBytes = "the photo Ann sent";

constexpr const char* backupDeviceName = "Alex's iPhone";

}  // namespace bc::testing
