#pragma once

#include <filesystem>
#include <vector>

#include "sources/ContactCard.h"

namespace bc {

// Contacts read straight from the databases the Contacts app keeps: the Mac's
// AddressBook-v22.abcddb and an iPhone's AddressBook.sqlitedb (from a backup). Each is read so
// that nothing beside it changes, recent edits held only in its write-ahead log included (see
// sqlite::OpenMode::readOnlyUntouched).
class AddressBookDatabase {
public:
    // Throws bc::Error naming the file when it cannot be copied, opened or is no Contacts database.
    // Columns a newer or older schema lacks are left out; what remains is read.
    static std::vector<ContactCard> read(const std::filesystem::path& database);

    // The Mac's Contacts databases: the main one and one per account under "Sources/".
    static std::vector<std::filesystem::path> macDatabases(
        const std::filesystem::path& addressBookFolder);
    // ~/Library/Application Support/AddressBook
    static std::filesystem::path defaultFolder();
};

}  // namespace bc
