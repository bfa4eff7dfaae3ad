#include "sources/IPhoneBackup.h"

#include <openssl/evp.h>
#include <plist/plist.h>
#include <stdlib.h>

#include <fstream>

#include "sources/BackupKeyBag.h"
#include "support/CancelFlag.h"
#include "support/ErrorReason.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Sqlite.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

constexpr int64_t regularFileFlag = 1;
constexpr size_t blockBytes = 16;

struct PlistFree {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

struct CipherFree {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

std::string quotedName(const fs::path& folder) {
    return "\u201C" + folder.filename().string() + "\u201D";
}

PlistPtr parsePlist(const std::string& bytes) {
    if (bytes.empty() || bytes.size() > UINT32_MAX) return nullptr;
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    if (root && plist_get_node_type(root) != PLIST_DICT) {
        plist_free(root);
        return nullptr;
    }
    return PlistPtr(root);
}

// One of the backup's property lists; throws naming it when it is absent or unreadable.
PlistPtr readPlist(const fs::path& folder, const char* name) {
    const fs::path file = folder / name;
    std::error_code error;
    if (!fs::is_regular_file(file, error))
        throw Error("Couldn't read " + quotedName(folder) + " as an iPhone backup: it has no " +
                    name + ".");
    std::string bytes;
    try {
        bytes = files::readFile(file);
    } catch (const std::exception& failure) {
        throw Error("Couldn't read the backup's " + std::string(name) + ": " + reasonOf(failure));
    }
    auto root = parsePlist(bytes);
    if (!root) throw Error("Couldn't read the backup's " + std::string(name) + ": it is damaged.");
    return root;
}

std::string stringValue(plist_t dict, const char* key) {
    plist_t node = plist_dict_get_item(dict, key);
    if (!node || plist_get_node_type(node) != PLIST_STRING) return {};
    char* value = nullptr;
    plist_get_string_val(node, &value);
    std::string text = value ? value : "";
    free(value);
    return text;
}

std::optional<std::string> dataValue(plist_t node) {
    if (!node || plist_get_node_type(node) != PLIST_DATA) return std::nullopt;
    uint64_t length = 0;
    const char* bytes = plist_get_data_ptr(node, &length);
    return std::string(bytes, length);
}

std::optional<uint64_t> uintValue(plist_t node) {
    if (!node || plist_get_node_type(node) != PLIST_UINT) return std::nullopt;
    uint64_t value = 0;
    plist_get_uint_val(node, &value);
    return value;
}

BackupDevice deviceOf(plist_t info) {
    BackupDevice device{.name = stringValue(info, "Device Name"),
                        .productType = stringValue(info, "Product Type"),
                        .iosVersion = stringValue(info, "Product Version"),
                        .serialNumber = stringValue(info, "Serial Number")};
    plist_t date = plist_dict_get_item(info, "Last Backup Date");
    if (date && plist_get_node_type(date) == PLIST_DATE) {
        int32_t seconds = 0, micros = 0;
        plist_get_date_val(date, &seconds, &micros);
        device.backupDate = Date{static_cast<double>(seconds) + micros / 1e6};
    }
    return device;
}

// The object a keyed archive's reference points at.
plist_t archived(plist_t objects, plist_t reference) {
    if (!reference || plist_get_node_type(reference) != PLIST_UID) return nullptr;
    uint64_t index = 0;
    plist_get_uid_val(reference, &index);
    return index < plist_array_get_size(objects)
               ? plist_array_get_item(objects, static_cast<uint32_t>(index))
               : nullptr;
}

// The archived file record of a Files row: size, modification time and, when encrypted, its key.
void readArchivedRecord(const std::string& blob, BackupFileRecord& file) {
    const auto root = parsePlist(blob);
    plist_t objects = root ? plist_dict_get_item(root.get(), "$objects") : nullptr;
    plist_t top = root ? plist_dict_get_item(root.get(), "$top") : nullptr;
    plist_t record = objects && top ? archived(objects, plist_dict_get_item(top, "root")) : nullptr;
    if (!record || plist_get_node_type(record) != PLIST_DICT)
        throw Error("Couldn't read the backup's record of " + file.relativePath +
                    ": it is damaged.");
    file.size = static_cast<int64_t>(uintValue(plist_dict_get_item(record, "Size")).value_or(0));
    if (const auto modified = uintValue(plist_dict_get_item(record, "LastModified")))
        file.modified = Date::fromUnix(static_cast<double>(*modified));
    plist_t key = archived(objects, plist_dict_get_item(record, "EncryptionKey"));
    if (key && plist_get_node_type(key) == PLIST_DICT)
        file.encryptionKey = dataValue(plist_dict_get_item(key, "NS.data")).value_or("");
}

// AES-256-CBC with a zero IV, as the backup stores every encrypted file. `size`, when known,
// cuts the padding the phone added beyond it.
void decryptFile(const fs::path& source, const fs::path& destination, const std::string& key,
                 std::optional<int64_t> size, const CancelFlag* cancel) {
    std::ifstream in(source, std::ios::binary);
    std::ofstream out(destination, std::ios::binary | std::ios::trunc);
    if (!in || !out) throw Error("the file could not be opened");
    std::unique_ptr<EVP_CIPHER_CTX, CipherFree> context(EVP_CIPHER_CTX_new());
    const unsigned char iv[blockBytes] = {};
    if (key.size() != 32 ||
        EVP_DecryptInit_ex(context.get(), EVP_aes_256_cbc(), nullptr,
                           reinterpret_cast<const unsigned char*>(key.data()), iv) != 1)
        throw Error("its key is not usable");
    std::vector<char> input(1 << 20), output(input.size() + blockBytes);
    int64_t written = 0;
    const auto emit = [&](int length) {
        int64_t keep = length;
        if (size) keep = std::max<int64_t>(0, std::min<int64_t>(length, *size - written));
        out.write(output.data(), keep);
        written += keep;
    };
    while (in) {
        if (cancel) cancel->check();
        in.read(input.data(), static_cast<std::streamsize>(input.size()));
        int length = 0;
        if (EVP_DecryptUpdate(context.get(), reinterpret_cast<unsigned char*>(output.data()),
                              &length, reinterpret_cast<const unsigned char*>(input.data()),
                              static_cast<int>(in.gcount())) != 1)
            throw Error("it could not be decrypted");
        emit(length);
    }
    int length = 0;
    if (EVP_DecryptFinal_ex(context.get(), reinterpret_cast<unsigned char*>(output.data()),
                            &length) != 1)
        throw Error("it is truncated or damaged");
    emit(length);
    out.flush();
    if (!out) throw Error("it could not be written");
}

fs::path makePrivateFolder() {
    std::string pattern = (fs::temp_directory_path() / "brindlecourt-backup-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw Error("Couldn't create a private temporary folder: " +
                    std::error_code(errno, std::generic_category()).message());
    return pattern;
}

}  // namespace

bool IPhoneBackup::isEncrypted(const fs::path& folder) {
    const auto manifest = readPlist(folder, "Manifest.plist");
    plist_t flag = plist_dict_get_item(manifest.get(), "IsEncrypted");
    uint8_t value = 0;
    if (flag && plist_get_node_type(flag) == PLIST_BOOLEAN) plist_get_bool_val(flag, &value);
    return value != 0;
}

IPhoneBackup::IPhoneBackup(const fs::path& folder, const std::optional<std::string>& password)
    : folder_(folder) {
    device_ = deviceOf(readPlist(folder, "Info.plist").get());
    const auto manifestPlist = readPlist(folder, "Manifest.plist");
    const fs::path database = folder / "Manifest.db";
    std::error_code error;
    if (!fs::is_regular_file(database, error))
        throw Error("Couldn't read " + quotedName(folder) +
                    " as an iPhone backup: it has no "
                    "Manifest.db.");
    if (!isEncrypted(folder)) {
        try {
            manifest_ =
                std::make_unique<sqlite::Connection>(database, sqlite::OpenMode::readOnlyUntouched);
        } catch (const DBError& failure) {
            throw Error("Couldn't read the backup's Manifest.db: " + failure.text());
        }
    } else {
        if (!password)
            throw Error("Couldn't read the encrypted iPhone backup " + quotedName(folder) +
                        ": no backup password was given.");
        const auto bag = dataValue(plist_dict_get_item(manifestPlist.get(), "BackupKeyBag"));
        const auto manifestKey = dataValue(plist_dict_get_item(manifestPlist.get(), "ManifestKey"));
        if (!bag || !manifestKey)
            throw Error("Couldn't read the encrypted iPhone backup " + quotedName(folder) +
                        ": its Manifest.plist has no key bag.");
        keyBag_ = std::make_unique<BackupKeyBag>(BackupKeyBag::parse(*bag));
        keyBag_->unlock(*password);
        const std::string key = keyBag_->unwrapFileKey(*manifestKey);
        privateFolder_ = makePrivateFolder();
        const fs::path plain = *privateFolder_ / "Manifest.db";
        try {
            decryptFile(database, plain, key, std::nullopt, nullptr);
            manifest_ =
                std::make_unique<sqlite::Connection>(plain, sqlite::OpenMode::readOnlyImmutable);
        } catch (const Error& failure) {
            files::removeAll(*privateFolder_);
            throw Error("Couldn't read the backup's Manifest.db: " + std::string(failure.what()));
        }
    }
    try {
        if (!manifest_->tableExists("Files")) throw DBError::query("it has no Files table");
    } catch (const DBError& failure) {
        manifest_.reset();
        if (privateFolder_) files::removeAll(*privateFolder_);
        throw Error("Couldn't read the backup's Manifest.db: " + failure.text());
    }
}

IPhoneBackup::~IPhoneBackup() {
    manifest_.reset();
    std::error_code ignored;
    if (privateFolder_) fs::remove_all(*privateFolder_, ignored);
}

std::vector<BackupFileRecord> IPhoneBackup::query(const std::string& where,
                                                  const std::vector<std::string>& values) {
    std::vector<BackupFileRecord> found;
    try {
        auto statement = manifest_->prepare(
            "SELECT fileID, domain, relativePath, flags, file FROM Files WHERE " + where +
            " ORDER BY relativePath");
        for (size_t i = 0; i < values.size(); ++i)
            statement.bind(static_cast<int>(i + 1), std::string_view(values[i]));
        while (statement.step()) {
            BackupFileRecord file{.fileID = statement.text(0),
                                  .domain = statement.text(1),
                                  .relativePath = statement.text(2),
                                  .flags = statement.int64(3)};
            if (file.flags != regularFileFlag) continue;
            readArchivedRecord(statement.blob(4), file);
            found.push_back(std::move(file));
        }
    } catch (const DBError& failure) {
        throw Error("Couldn't read the backup's Manifest.db: " + failure.text());
    }
    return found;
}

std::optional<BackupFileRecord> IPhoneBackup::find(const std::string& domain,
                                                   const std::string& relativePath) {
    auto found = query("domain = ? AND relativePath = ?", {domain, relativePath});
    if (found.empty()) return std::nullopt;
    return std::move(found.front());
}

std::vector<BackupFileRecord> IPhoneBackup::filesUnder(const std::string& domain,
                                                       const std::string& prefix) {
    // substr rather than LIKE: paths may hold "%" and "_".
    return query("domain = ? AND substr(relativePath, 1, length(?2)) = ?2", {domain, prefix});
}

fs::path IPhoneBackup::contentPath(const BackupFileRecord& file) const {
    return folder_ / file.fileID.substr(0, 2) / file.fileID;
}

void IPhoneBackup::extract(const BackupFileRecord& file, const fs::path& destination,
                           const CancelFlag* cancel) const {
    const fs::path content = contentPath(file);
    const std::string failure = "Couldn't read " + file.domain + " " + file.relativePath + ": ";
    std::error_code error;
    if (file.fileID.size() < 2 || !fs::is_regular_file(content, error))
        throw Error(failure + "its content file is " + notInBackup + ".");
    if (cancel) cancel->check();
    try {
        fs::create_directories(destination.parent_path());
        if (!keyBag_) {
            fs::copy_file(content, destination);
            return;
        }
        decryptFile(content, destination, keyBag_->unwrapFileKey(file.encryptionKey), file.size,
                    cancel);
    } catch (const CancelledError&) {
        throw;
    } catch (const std::exception& problem) {
        throw Error(failure + reasonOf(problem));
    }
}

std::optional<std::pair<std::string, std::string>> IPhoneBackup::attachmentLocation(
    const std::string& storedPath) {
    for (const std::string& home : {std::string("~"), files::homeFolder().string(),
                                    std::string("/var/mobile"), std::string("/private/var/mobile")})
        if (storedPath.starts_with(home + "/Library/SMS/Attachments/"))
            return std::pair{std::string(attachmentsDomain), storedPath.substr(home.size() + 1)};
    return std::nullopt;
}

}  // namespace bc
