#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sources/ContactCard.h"

namespace bc {

// Names, photos and same-person identities for bare handles, from the Contacts databases and the
// vCard files the user chose. Lookups never fail: a handle no contact knows falls back to itself.
class ContactResolver {
public:
    struct Sources {
        std::vector<std::filesystem::path>
            databases;  // AddressBook-v22.abcddb or AddressBook.sqlitedb
        std::vector<std::filesystem::path> vCardFiles;  // .vcf
    };

    // This Mac's Contacts databases, when there are any.
    static Sources defaultSources();

    // The key handles, calls and contacts meet on (the call history's normalisation).
    static std::string key(std::string_view handle);

    // Reads every source, then replaces the maps in one step; lookups meanwhile see the old ones.
    // Slow on a large address book: run it off the main thread. A source that cannot be read is
    // skipped; the returned sentences say which and why (for a log, not for the user).
    std::vector<std::string> load(const Sources& sources);
    // The same from cards already read. The first card that has a handle gives its identity; the
    // first with a name or a photo gives those.
    void load(const std::vector<ContactCard>& cards);

    std::optional<std::string> name(std::string_view handle) const;
    std::optional<std::string> photo(std::string_view handle) const;
    // "contact:" + the contact's identifier, shared by all handles of one person; for a handle in
    // no contact "handle:" + its key (or the trimmed handle when the key is empty).
    std::string identity(std::string_view handle) const;

private:
    struct Maps {
        std::unordered_map<std::string, std::string> names;
        std::unordered_map<std::string, std::string> identifiers;
        std::unordered_map<std::string, std::shared_ptr<const std::string>> photos;
    };

    mutable std::shared_mutex mutex_;
    std::shared_ptr<const Maps> maps_ = std::make_shared<Maps>();

    std::shared_ptr<const Maps> current() const;
};

}  // namespace bc
