#include "app/lock/Passphrase.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <vector>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include "support/Errors.h"
#include "support/Json.h"
#include "support/SafeStore.h"

namespace bc::app {

namespace {

constexpr size_t saltBytes = 16;
constexpr size_t hashBytes = 32;

std::mutex costMutex;
std::optional<ScryptCost> costOverride;

std::string base64(const std::vector<unsigned char>& bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3), '\0');
    const int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()), bytes.data(),
                                        static_cast<int>(bytes.size()));
    out.resize(static_cast<size_t>(written));
    return out;
}

std::vector<unsigned char> fromBase64(const std::string& text, size_t expected) {
    std::vector<unsigned char> bytes(3 * (text.size() / 4) + 3);
    const int decoded =
        EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                        static_cast<int>(text.size()));
    // The decoder counts padding as zero bytes; the stored lengths are fixed, so they tell.
    const auto padding = static_cast<size_t>(std::count(text.begin(), text.end(), '='));
    if (decoded < 0 || static_cast<size_t>(decoded) - padding != expected)
        throw Error("the stored passphrase hash is damaged");
    bytes.resize(expected);
    return bytes;
}

std::vector<unsigned char> scrypt(const std::string& passphrase,
                                  const std::vector<unsigned char>& salt, const ScryptCost& cost) {
    std::vector<unsigned char> out(hashBytes);
    // scrypt needs 128·N·r bytes; allow that and a margin rather than OpenSSL's 32 MiB default.
    const uint64_t memory = 256 * cost.n * cost.r * cost.p;
    if (EVP_PBE_scrypt(passphrase.data(), passphrase.size(), salt.data(), salt.size(), cost.n,
                       cost.r, cost.p, memory, out.data(), out.size()) != 1)
        throw Error("the passphrase couldn't be hashed");
    return out;
}

Json loadStored() {
    const auto file = PassphraseStore::location().path();
    auto loaded = SafeStore::load<Json>(file);
    if (loaded.error) throw Error("Couldn't read the passphrase: " + loaded.error->message);
    if (!loaded.value) throw Error("No Brindlecourt passphrase is set.");
    return *loaded.value;
}

}  // namespace

ScryptCost ScryptCost::current() {
    std::lock_guard guard(costMutex);
    return costOverride.value_or(ScryptCost{});
}

void ScryptCost::setCurrent(std::optional<ScryptCost> cost) {
    std::lock_guard guard(costMutex);
    costOverride = cost;
}

StoreLocation& PassphraseStore::location() {
    static StoreLocation location("lock-passphrase.json");
    return location;
}

bool PassphraseStore::isSet() {
    std::error_code error;
    return std::filesystem::exists(location().path(), error);
}

void PassphraseStore::save(const std::string& passphrase) {
    try {
        std::vector<unsigned char> salt(saltBytes);
        if (RAND_bytes(salt.data(), static_cast<int>(salt.size())) != 1)
            throw Error("no random salt could be made");
        const ScryptCost cost = ScryptCost::current();
        const Json stored = {{"salt", base64(salt)},
                             {"hash", base64(scrypt(passphrase, salt, cost))},
                             {"scrypt", {{"N", cost.n}, {"r", cost.r}, {"p", cost.p}}}};
        files::writeFileAtomically(location().path(), json::encodePretty(stored));
    } catch (const std::exception& error) {
        throw Error("Couldn't save the passphrase: " + std::string(error.what()));
    }
}

void PassphraseStore::remove() {
    std::error_code error;
    std::filesystem::remove(location().path(), error);
    if (error) throw Error("Couldn't remove the passphrase: " + error.message());
}

bool PassphraseStore::matches(const std::string& passphrase) {
    const Json stored = loadStored();
    try {
        const auto& params = stored.at("scrypt");
        const ScryptCost cost{params.at("N").get<uint64_t>(), params.at("r").get<uint64_t>(),
                              params.at("p").get<uint64_t>()};
        const auto salt = fromBase64(stored.at("salt").get<std::string>(), saltBytes);
        const auto expected = fromBase64(stored.at("hash").get<std::string>(), hashBytes);
        const auto actual = scrypt(passphrase, salt, cost);
        return CRYPTO_memcmp(actual.data(), expected.data(), hashBytes) == 0;
    } catch (const std::exception& error) {
        throw Error("Couldn't check the passphrase: " + std::string(error.what()));
    }
}

std::optional<std::string> PassphraseCheck::check(const std::string& passphrase) {
    const Date now = Clock::now();
    if (retryAt_ && now < *retryAt_) {
        const auto wait = static_cast<long long>(std::ceil(*retryAt_ - now));
        return "Too many wrong passphrases. Try again in " + std::to_string(wait) + " seconds.";
    }
    try {
        if (PassphraseStore::matches(passphrase)) {
            wrongInARow_ = 0;
            retryAt_.reset();
            return std::nullopt;
        }
    } catch (const std::exception& error) {
        return error.what();
    }
    ++wrongInARow_;
    if (wrongInARow_ >= freeAttempts) {
        const double delay =
            std::min(longestDelay, firstDelay * std::pow(2.0, wrongInARow_ - freeAttempts));
        retryAt_ = now + delay;
    }
    return "The passphrase is wrong.";
}

}  // namespace bc::app
