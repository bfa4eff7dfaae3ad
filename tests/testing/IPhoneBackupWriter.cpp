#include "testing/IPhoneBackupWriter.h"

#include <openssl/evp.h>
#include <openssl/sha.h>
#include <plist/plist.h>

#include <fstream>
#include <stdexcept>

#include "demo/DemoData.h"
#include "demo/DemoWriters.h"
#include "support/Date.h"
#include "support/Files.h"
#include "support/Sqlite.h"

namespace bc::testing {

namespace fs = std::filesystem;

namespace {

constexpr uint32_t protectionClass = 3;
const std::string classKey(32, '\x33');
const std::string fileKey(32, '\x44');
const std::string salt(20, 's'), passcodeSalt(20, 'p');
constexpr uint32_t iterations = 3, passcodeIterations = 5;

// Plain writes: the benchmark writes tens of thousands of files, each no use until all are there.
void writeBytes(const fs::path& file, const std::string& bytes) {
    std::ofstream out(file, std::ios::binary);
    out << bytes;
    if (!out) throw std::runtime_error("couldn't write " + file.string());
}

std::string hexOf(const unsigned char* bytes, size_t size) {
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < size; ++i) hex += {digits[bytes[i] >> 4], digits[bytes[i] & 15]};
    return hex;
}

std::string cipher(const EVP_CIPHER* type, const std::string& key, const std::string& input,
                   bool wrap) {
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    if (wrap) EVP_CIPHER_CTX_set_flags(context, EVP_CIPHER_CTX_FLAG_WRAP_ALLOW);
    const unsigned char iv[16] = {};
    std::string out(input.size() + 32, '\0');
    int length = 0, last = 0;
    auto* buffer = reinterpret_cast<unsigned char*>(out.data());
    const bool done = EVP_EncryptInit_ex(context, type, nullptr,
                                         reinterpret_cast<const unsigned char*>(key.data()),
                                         wrap ? nullptr : iv) == 1 &&
                      EVP_EncryptUpdate(context, buffer, &length,
                                        reinterpret_cast<const unsigned char*>(input.data()),
                                        static_cast<int>(input.size())) == 1 &&
                      EVP_EncryptFinal_ex(context, buffer + length, &last) == 1;
    EVP_CIPHER_CTX_free(context);
    if (!done) throw std::runtime_error("test encryption failed");
    out.resize(static_cast<size_t>(length + last));
    return out;
}

std::string wrapKey(const std::string& kek, const std::string& key) {
    return cipher(EVP_aes_256_wrap(), kek, key, true);
}

std::string classAndWrapped(const std::string& key) {
    std::string prefix(4, '\0');
    prefix[0] = static_cast<char>(protectionClass);
    return prefix + wrapKey(classKey, key);
}

std::string field(const char* tag, const std::string& value) {
    std::string out(tag, 4);
    for (int shift = 24; shift >= 0; shift -= 8)
        out += static_cast<char>((value.size() >> shift) & 0xFF);
    return out + value;
}

std::string number(uint32_t value) {
    std::string out;
    for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>((value >> shift) & 0xFF);
    return out;
}

std::string keyBag(const std::string& password, const std::string& extra) {
    std::string stretched(32, '\0'), passwordKey(32, '\0');
    PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()),
                      reinterpret_cast<const unsigned char*>(passcodeSalt.data()),
                      static_cast<int>(passcodeSalt.size()), passcodeIterations, EVP_sha256(), 32,
                      reinterpret_cast<unsigned char*>(stretched.data()));
    PKCS5_PBKDF2_HMAC(stretched.data(), 32, reinterpret_cast<const unsigned char*>(salt.data()),
                      static_cast<int>(salt.size()), iterations, EVP_sha1(), 32,
                      reinterpret_cast<unsigned char*>(passwordKey.data()));
    return field("VERS", number(3)) + field("TYPE", number(1)) +
           field("UUID", std::string(16, 'u')) + field("HMCK", std::string(40, 'h')) +
           field("WRAP", number(0)) + field("SALT", salt) + field("ITER", number(iterations)) +
           field("DPWT", number(1)) + field("DPIC", number(passcodeIterations)) +
           field("DPSL", passcodeSalt) + field("UUID", std::string(16, 'c')) +
           field("CLAS", number(protectionClass)) + field("WRAP", number(2)) +
           field("KTYP", number(0)) + field("WPKY", wrapKey(passwordKey, classKey)) + extra;
}

using Plist = std::unique_ptr<void, void (*)(plist_t)>;

std::string toBinary(plist_t root) {
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    std::string out(bytes, length);
    free(bytes);
    return out;
}

// The keyed archive of one file's metadata, as the Files table's `file` column holds it.
std::string archivedFile(const BackupEntry& entry, bool encrypted) {
    Plist root(plist_new_dict(), plist_free);
    plist_t objects = plist_new_array();
    plist_array_append_item(objects, plist_new_string("$null"));
    plist_t file = plist_new_dict();
    plist_dict_set_item(file, "Size", plist_new_uint(entry.bytes.size()));
    plist_dict_set_item(file, "LastModified", plist_new_uint(1700000000));
    plist_dict_set_item(file, "ProtectionClass", plist_new_uint(protectionClass));
    plist_array_append_item(objects, file);
    if (encrypted) {
        plist_dict_set_item(file, "EncryptionKey", plist_new_uid(2));
        plist_t data = plist_new_dict();
        const std::string key = classAndWrapped(fileKey);
        plist_dict_set_item(data, "NS.data", plist_new_data(key.data(), key.size()));
        plist_array_append_item(objects, data);
    }
    plist_t top = plist_new_dict();
    plist_dict_set_item(top, "root", plist_new_uid(1));
    plist_dict_set_item(root.get(), "$archiver", plist_new_string("NSKeyedArchiver"));
    plist_dict_set_item(root.get(), "$top", top);
    plist_dict_set_item(root.get(), "$objects", objects);
    return toBinary(root.get());
}

void writeManifestDB(const fs::path& file, const std::vector<BackupEntry>& entries,
                     bool encrypted) {
    sqlite::Connection db(file, sqlite::OpenMode::readWriteCreate);
    db.execute(
        "CREATE TABLE Files (fileID TEXT PRIMARY KEY, domain TEXT, relativePath TEXT, flags "
        "INTEGER, file BLOB); CREATE INDEX FilesDomainIdx ON Files(domain);");
    db.prepare("INSERT INTO Files VALUES ('folder', 'HomeDomain', 'Library/SMS', 2, NULL)").step();
    for (const auto& entry : entries)
        db.prepare("INSERT INTO Files VALUES (?, ?, ?, 1, ?)")
            .bind(1, std::string_view(backupFileID(entry)))
            .bind(2, std::string_view(entry.domain))
            .bind(3, std::string_view(entry.relativePath))
            .bindBlob(4, archivedFile(entry, encrypted))
            .step();
}

void writePlists(const fs::path& folder, const std::optional<std::string>& manifestBag,
                 const std::string& manifestKey) {
    Plist info(plist_new_dict(), plist_free);
    plist_dict_set_item(info.get(), "Device Name", plist_new_string(backupDeviceName));
    plist_dict_set_item(info.get(), "Product Type", plist_new_string("iPhone14,2"));
    plist_dict_set_item(info.get(), "Product Version", plist_new_string("17.4.1"));
    plist_dict_set_item(info.get(), "Serial Number", plist_new_string("F2LXK0TESTQ1"));
    plist_dict_set_item(info.get(), "Last Backup Date", plist_new_date(731000000, 0));
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(info.get(), &xml, &length);
    writeBytes(folder / "Info.plist", std::string(xml, length));
    free(xml);

    Plist manifest(plist_new_dict(), plist_free);
    plist_dict_set_item(manifest.get(), "IsEncrypted", plist_new_bool(manifestBag.has_value()));
    if (manifestBag) {
        plist_dict_set_item(manifest.get(), "BackupKeyBag",
                            plist_new_data(manifestBag->data(), manifestBag->size()));
        plist_dict_set_item(manifest.get(), "ManifestKey",
                            plist_new_data(manifestKey.data(), manifestKey.size()));
    }
    writeBytes(folder / "Manifest.plist", toBinary(manifest.get()));
}

std::string encrypt(const std::string& bytes) {
    return cipher(EVP_aes_256_cbc(), fileKey, bytes, false);
}

}  // namespace

std::string backupFileID(const BackupEntry& entry) {
    const std::string name = entry.domain + "-" + entry.relativePath;
    unsigned char digest[SHA_DIGEST_LENGTH];
    SHA1(reinterpret_cast<const unsigned char*>(name.data()), name.size(), digest);
    return hexOf(digest, sizeof digest);
}

void writeIPhoneBackup(const fs::path& folder, const std::vector<BackupEntry>& entries,
                       const BackupWriterOptions& options) {
    fs::create_directories(folder);
    const bool encrypted = options.password.has_value();
    for (const auto& entry : entries) {
        const std::string id = backupFileID(entry);
        fs::create_directories(folder / id.substr(0, 2));
        writeBytes(folder / id.substr(0, 2) / id, encrypted ? encrypt(entry.bytes) : entry.bytes);
    }
    const fs::path manifest = folder / "Manifest.db";
    writeManifestDB(encrypted ? folder / "Manifest.plain" : manifest, entries, encrypted);
    if (encrypted) {
        writeBytes(manifest, encrypt(files::readFile(folder / "Manifest.plain")));
        fs::remove(folder / "Manifest.plain");
    }
    writePlists(folder,
                encrypted ? std::optional(keyBag(*options.password, options.extraKeyBagFields))
                          : std::nullopt,
                classAndWrapped(fileKey));
}

std::vector<BackupEntry> whatsAppBackupEntries(const fs::path& scratch) {
    const fs::path database = scratch / "ChatStorage.sqlite";
    const std::string domain = "AppDomainGroup-group.net.whatsapp.WhatsApp.shared";
    const std::string photo = "Media/4915112345678@s.whatsapp.net/a/b/photo.jpg";
    demo::writeChatStorage(
        database,
        "INSERT INTO ZWACHATSESSION (Z_PK, ZCONTACTJID, ZPARTNERNAME, ZSESSIONTYPE) VALUES "
        "(7, '4915112345678@s.whatsapp.net', 'Ann', 0);"
        "INSERT INTO ZWAMEDIAITEM (Z_PK, ZMEDIALOCALPATH) VALUES (1, '" +
            photo +
            "');"
            "INSERT INTO ZWAMESSAGE (Z_PK, ZCHATSESSION, ZMESSAGETYPE, ZMESSAGEDATE, ZTEXT, "
            "ZISFROMME, ZSTANZAID, ZMEDIAITEM) VALUES (1, 7, 0, 700000000, 'hello from the "
            "phone', 0, 's1', NULL), (2, 7, 1, 700000060, NULL, 0, 's2', 1);");
    return {{domain, "ChatStorage.sqlite", files::readFile(database)},
            {domain, "Message/" + photo, whatsAppPhotoBytes}};
}

std::vector<BackupEntry> demoBackupEntries(const fs::path& scratch,
                                           std::vector<std::string>* absent) {
    const Date now = Clock::now();
    const fs::path chatDB = scratch / "chat.db";
    DemoData::writeMessagesDatabase(chatDB, now);
    std::vector<BackupEntry> entries;
    {
        sqlite::Connection db(chatDB, sqlite::OpenMode::readWriteCreate);
        std::vector<std::pair<int64_t, std::string>> stored;
        auto rows = db.prepare("SELECT ROWID, guid, filename FROM attachment");
        while (rows.step()) {
            const fs::path original = rows.text(2);
            stored.emplace_back(rows.int64(0),
                                "Library/SMS/Attachments/0" + std::to_string(rows.int64(0) % 10) +
                                    "/" + rows.text(1) + "/" + original.filename().string());
            if (fs::exists(original))
                entries.push_back({"MediaDomain", stored.back().second, files::readFile(original)});
            else if (absent)
                absent->push_back("MediaDomain " + stored.back().second);
        }
        for (const auto& [id, path] : stored)
            db.prepare("UPDATE attachment SET filename = ? WHERE ROWID = ?")
                .bind(1, std::string_view("~/" + path))
                .bind(2, id)
                .step();
    }
    entries.push_back({"HomeDomain", "Library/SMS/sms.db", files::readFile(chatDB)});

    const fs::path calls = scratch / "CallHistory.storedata";
    DemoData::writeCallLog(calls, DemoData::sampleCalls(), now);
    entries.push_back(
        {"HomeDomain", "Library/CallHistoryDB/CallHistory.storedata", files::readFile(calls)});

    const fs::path contacts = scratch / "AddressBook.sqlitedb";
    sqlite::Connection(contacts, sqlite::OpenMode::readWriteCreate)
        .execute(
            "CREATE TABLE ABPerson (ROWID INTEGER PRIMARY KEY, guid TEXT, First TEXT, Last TEXT);"
            "CREATE TABLE ABMultiValue (ROWID INTEGER PRIMARY KEY, record_id INTEGER, property "
            "INTEGER, value TEXT);"
            "INSERT INTO ABPerson VALUES (1, 'P1', 'Samantha', 'Taylor'), (2, 'P2', 'Riley', "
            "'Chen');"
            "INSERT INTO ABMultiValue VALUES (1, 1, 4, 'sam.taylor@example.com'), (2, 2, 3, "
            "'+1 415 555 0190');");
    entries.push_back(
        {"HomeDomain", "Library/AddressBook/AddressBook.sqlitedb", files::readFile(contacts)});
    return entries;
}

}  // namespace bc::testing
