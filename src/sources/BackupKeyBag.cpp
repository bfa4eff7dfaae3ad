#include "sources/BackupKeyBag.h"

#include <openssl/evp.h>

#include <memory>
#include <optional>
#include <set>

namespace bc {

namespace {

constexpr const char* readFailure = "Couldn't read the backup's key bag: ";
// The class key is wrapped with the key derived from the backup password.
constexpr uint32_t wrappedByPassword = 2;
constexpr size_t keyBytes = 32;

const std::set<std::string, std::less<>> bagTags{"VERS", "TYPE", "HMCK", "SALT",
                                                 "ITER", "DPWT", "DPIC", "DPSL"};
const std::set<std::string, std::less<>> classTags{"CLAS", "WRAP", "WPKY", "KTYP", "PBKY"};

struct CipherFree {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

uint64_t bigEndian(std::string_view tag, std::string_view value) {
    if (value.empty() || value.size() > 8)
        throw Error(std::string(readFailure) + "its field " + std::string(tag) +
                    " is not a number.");
    uint64_t number = 0;
    for (const char byte : value) number = (number << 8) | static_cast<unsigned char>(byte);
    return number;
}

std::string derive(std::string_view secret, std::string_view salt, uint64_t iterations,
                   const EVP_MD* digest) {
    std::string key(keyBytes, '\0');
    if (iterations == 0 || iterations > INT32_MAX ||
        PKCS5_PBKDF2_HMAC(secret.data(), static_cast<int>(secret.size()),
                          reinterpret_cast<const unsigned char*>(salt.data()),
                          static_cast<int>(salt.size()), static_cast<int>(iterations), digest,
                          static_cast<int>(key.size()),
                          reinterpret_cast<unsigned char*>(key.data())) != 1)
        throw Error(std::string(readFailure) + "its key derivation settings are not usable.");
    return key;
}

}  // namespace

std::string backupcrypto::unwrapKey(std::string_view kek, std::string_view wrapped) {
    if (kek.size() != keyBytes || wrapped.size() < 24 || wrapped.size() % 8 != 0) return {};
    std::unique_ptr<EVP_CIPHER_CTX, CipherFree> context(EVP_CIPHER_CTX_new());
    std::string key(wrapped.size(), '\0');
    int length = 0, last = 0;
    EVP_CIPHER_CTX_set_flags(context.get(), EVP_CIPHER_CTX_FLAG_WRAP_ALLOW);
    const auto* in = reinterpret_cast<const unsigned char*>(wrapped.data());
    auto* out = reinterpret_cast<unsigned char*>(key.data());
    if (EVP_DecryptInit_ex(context.get(), EVP_aes_256_wrap(), nullptr,
                           reinterpret_cast<const unsigned char*>(kek.data()), nullptr) != 1 ||
        EVP_DecryptUpdate(context.get(), out, &length, in, static_cast<int>(wrapped.size())) <= 0 ||
        EVP_DecryptFinal_ex(context.get(), out + length, &last) != 1)
        return {};
    key.resize(static_cast<size_t>(length) + static_cast<size_t>(last));
    return key;
}

BackupKeyBag BackupKeyBag::parse(std::string_view bytes) {
    BackupKeyBag bag;
    bool seenBagUUID = false;
    std::optional<uint32_t> currentClass;
    ClassKey current;
    const auto finishClass = [&] {
        if (currentClass) bag.classes_[*currentClass] = current;
        currentClass.reset();
        current = {};
    };
    size_t at = 0;
    while (at < bytes.size()) {
        if (bytes.size() - at < 8) throw Error(std::string(readFailure) + "it is cut short.");
        const std::string tag(bytes.substr(at, 4));
        const uint64_t length = bigEndian(tag, bytes.substr(at + 4, 4));
        if (length > bytes.size() - at - 8)
            throw Error(std::string(readFailure) + "it is cut short.");
        const std::string_view value = bytes.substr(at + 8, length);
        at += 8 + length;
        if (tag == "UUID") {
            // The first names the bag; each later one opens a class.
            if (seenBagUUID) finishClass();
            seenBagUUID = true;
            current = {};
            currentClass = 0;
        } else if (tag == "WRAP" && !currentClass) {
            // The bag's own wrapping type; the classes carry theirs.
        } else if (currentClass && classTags.contains(tag)) {
            if (tag == "CLAS") currentClass = static_cast<uint32_t>(bigEndian(tag, value));
            if (tag == "WRAP") current.wrap = static_cast<uint32_t>(bigEndian(tag, value));
            if (tag == "WPKY") current.wrapped = std::string(value);
        } else if (bagTags.contains(tag)) {
            if (tag == "SALT") bag.salt_ = std::string(value);
            if (tag == "ITER") bag.iterations_ = bigEndian(tag, value);
            if (tag == "DPSL") bag.passcodeSalt_ = std::string(value);
            if (tag == "DPIC") bag.passcodeIterations_ = bigEndian(tag, value);
        } else {
            throw Error(std::string(readFailure) + "it holds an unknown field \u201C" + tag +
                        "\u201D.");
        }
    }
    finishClass();
    if (bag.salt_.empty() || bag.iterations_ == 0 || bag.classes_.empty())
        throw Error(std::string(readFailure) + "it lacks its salt, iteration count or keys.");
    return bag;
}

void BackupKeyBag::unlock(const std::string& password) {
    // Newer backups stretch the password once more before the older derivation.
    const std::string stretched =
        passcodeSalt_.empty() ? password
                              : derive(password, passcodeSalt_, passcodeIterations_, EVP_sha256());
    const std::string passwordKey = derive(stretched, salt_, iterations_, EVP_sha1());
    for (auto& [protectionClass, entry] : classes_) {
        if (!(entry.wrap & wrappedByPassword)) continue;
        entry.key = backupcrypto::unwrapKey(passwordKey, entry.wrapped);
        if (entry.key.empty()) throw WrongBackupPassword();
    }
}

std::string BackupKeyBag::unwrapFileKey(std::string_view classAndWrappedKey) const {
    if (classAndWrappedKey.size() < 4 + 24)
        throw Error("Couldn't unwrap a file key of the backup: it is too short.");
    uint32_t protectionClass = 0;
    for (int i = 3; i >= 0; --i)
        protectionClass =
            (protectionClass << 8) | static_cast<unsigned char>(classAndWrappedKey[i]);
    const auto found = classes_.find(protectionClass);
    if (found == classes_.end() || found->second.key.empty())
        throw Error("Couldn't unwrap a file key of the backup: its protection class " +
                    std::to_string(protectionClass) + " has no key.");
    std::string key = backupcrypto::unwrapKey(found->second.key, classAndWrappedKey.substr(4));
    if (key.empty()) throw Error("Couldn't unwrap a file key of the backup: the key is damaged.");
    return key;
}

}  // namespace bc
