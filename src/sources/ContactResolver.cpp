#include "sources/ContactResolver.h"

#include <mutex>

#include "sources/AddressBookDatabase.h"
#include "sources/CallHistory.h"
#include "sources/VCard.h"
#include "support/Errors.h"
#include "support/Text.h"

namespace bc {

ContactResolver::Sources ContactResolver::defaultSources() {
    return Sources{.databases =
                       AddressBookDatabase::macDatabases(AddressBookDatabase::defaultFolder())};
}

std::string ContactResolver::key(std::string_view handle) {
    return CallHistory::normalize(handle);
}

std::vector<std::string> ContactResolver::load(const Sources& sources) {
    std::vector<ContactCard> cards;
    std::vector<std::string> skipped;
    const auto add = [&](auto reader, const std::filesystem::path& file) {
        try {
            auto read = reader(file);
            cards.insert(cards.end(), std::make_move_iterator(read.begin()),
                         std::make_move_iterator(read.end()));
        } catch (const Error& error) {
            skipped.emplace_back(error.what());
        }
    };
    for (const auto& database : sources.databases) add(AddressBookDatabase::read, database);
    for (const auto& file : sources.vCardFiles) add(VCard::readFile, file);
    load(cards);
    return skipped;
}

void ContactResolver::load(const std::vector<ContactCard>& cards) {
    auto maps = std::make_shared<Maps>();
    for (const ContactCard& card : cards) {
        const auto photo = card.photo ? std::make_shared<const std::string>(*card.photo) : nullptr;
        for (const auto* list : {&card.phones, &card.emails}) {
            for (const std::string& handle : *list) {
                const std::string handleKey = key(handle);
                if (handleKey.empty()) continue;
                maps->identifiers.try_emplace(handleKey, card.identifier);
                if (!card.name.empty()) maps->names.try_emplace(handleKey, card.name);
                if (photo) maps->photos.try_emplace(handleKey, photo);
            }
        }
    }
    std::unique_lock lock(mutex_);
    maps_ = std::move(maps);
}

std::shared_ptr<const ContactResolver::Maps> ContactResolver::current() const {
    std::shared_lock lock(mutex_);
    return maps_;
}

std::optional<std::string> ContactResolver::name(std::string_view handle) const {
    const auto maps = current();
    const auto found = maps->names.find(key(handle));
    if (found == maps->names.end()) return std::nullopt;
    return found->second;
}

std::optional<std::string> ContactResolver::photo(std::string_view handle) const {
    const auto maps = current();
    const auto found = maps->photos.find(key(handle));
    if (found == maps->photos.end()) return std::nullopt;
    return *found->second;
}

std::string ContactResolver::identity(std::string_view handle) const {
    const std::string handleKey = key(handle);
    const auto maps = current();
    if (const auto found = maps->identifiers.find(handleKey); found != maps->identifiers.end()) {
        return "contact:" + found->second;
    }
    return "handle:" + (handleKey.empty() ? text::trim(handle) : handleKey);
}

}  // namespace bc
