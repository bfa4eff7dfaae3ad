#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "support/Date.h"
#include "support/Files.h"

namespace bc::app {

// The cost of one scrypt hash. New passphrases take `current()`; a stored hash keeps the cost it
// was made with, so raising the default never locks anyone out.
struct ScryptCost {
    uint64_t n = uint64_t{1} << 17;
    uint64_t r = 8;
    uint64_t p = 1;

    static ScryptCost current();
    // Tests make hashing cheap with this; nothing else calls it.
    static void setCurrent(std::optional<ScryptCost> cost);
};

// The passphrase that unlocks Brindlecourt where the system can't verify its owner: kept only
// as a salted scrypt hash, with its cost, in the data folder.
class PassphraseStore {
public:
    static StoreLocation& location();
    static bool isSet();
    static void save(const std::string& passphrase);
    static void remove();
    // Throws when no passphrase is set or the stored one can't be read.
    static bool matches(const std::string& passphrase);
};

// Checks passphrases against the store. After five wrong ones in a row each further attempt
// waits longer, so guessing is slow; a right one resets the count.
class PassphraseCheck {
public:
    static constexpr int freeAttempts = 5;
    static constexpr double firstDelay = 30;
    static constexpr double longestDelay = 3600;

    // Nothing when the passphrase is right, else why not, as one sentence.
    std::optional<std::string> check(const std::string& passphrase);

private:
    int wrongInARow_ = 0;
    std::optional<Date> retryAt_;
};

}  // namespace bc::app
