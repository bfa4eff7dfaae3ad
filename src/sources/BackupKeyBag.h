#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "support/Errors.h"

namespace bc {

// The password does not open the key bag; callers may ask again.
class WrongBackupPassword : public Error {
public:
    WrongBackupPassword() : Error("The backup password is not correct.") {}
};

// The key bag of an encrypted iPhone backup (Manifest.plist's "BackupKeyBag"): tag, big-endian
// length, value, repeated; one group per protection class, each opened by its "UUID".
class BackupKeyBag {
public:
    // Throws Error naming what could not be read, an unknown field included.
    static BackupKeyBag parse(std::string_view bytes);

    // Derives the password key and unwraps every class key with it. Throws WrongBackupPassword
    // when any of them fails its integrity check. The password is not kept.
    void unlock(const std::string& password);

    // A file's or the manifest's key: 4 bytes of protection class (little-endian) then the key
    // wrapped with that class's key. Throws Error when the class is unknown or the key damaged.
    std::string unwrapFileKey(std::string_view classAndWrappedKey) const;

private:
    struct ClassKey {
        uint32_t wrap = 0;
        std::string wrapped;
        std::string key;  // filled by unlock
    };

    std::string salt_;
    uint64_t iterations_ = 0;
    std::string passcodeSalt_;
    uint64_t passcodeIterations_ = 0;
    std::map<uint32_t, ClassKey> classes_;
};

namespace backupcrypto {

// RFC 3394 AES key unwrap; empty when the integrity check fails.
std::string unwrapKey(std::string_view kek, std::string_view wrapped);

}  // namespace backupcrypto

}  // namespace bc
