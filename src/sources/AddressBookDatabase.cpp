#include "sources/AddressBookDatabase.h"

#include <algorithm>
#include <map>

#include "support/Errors.h"
#include "support/Files.h"
#include "support/Sqlite.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

// iOS stores phone numbers and e-mail addresses in one table, told apart by this code.
constexpr int64_t iosPhoneProperty = 3;
constexpr int64_t iosEmailProperty = 4;

// "a, NULL, c": a column this schema lacks reads as NULL instead of failing the statement.
std::string columnsOrNull(sqlite::Connection& db, const std::string& table,
                          std::initializer_list<std::string> columns) {
    std::string list;
    for (const std::string& column : columns) {
        if (!list.empty()) list += ", ";
        list += db.columnExists(table, column) ? column : "NULL";
    }
    return list;
}

std::string optionalText(const sqlite::Statement& row, int column) {
    return row.optionalText(column).value_or("");
}

// Inline thumbnails begin with 0x01; 0x02 names a file kept in the store's external data folder.
std::optional<std::string> macThumbnail(const std::optional<std::string>& blob,
                                        const fs::path& original) {
    if (!blob || blob->empty()) return std::nullopt;
    std::string bytes;
    if ((*blob)[0] == '\x01') {
        bytes = blob->substr(1);
    } else if ((*blob)[0] == '\x02') {
        const std::string name = blob->substr(1, blob->find('\0', 1) - 1);
        const fs::path external =
            original.parent_path() / ".AddressBook-v22_SUPPORT" / "_EXTERNAL_DATA" / name;
        if (name.empty() || name.find('/') != std::string::npos || !fs::is_regular_file(external))
            return std::nullopt;
        try {
            bytes = files::readFile(external);
        } catch (const Error&) {
            return std::nullopt;
        }
    } else {
        bytes = *blob;
    }
    if (!looksLikeImage(bytes)) return std::nullopt;
    return bytes;
}

using CardsByRecord = std::map<int64_t, ContactCard>;

std::vector<ContactCard> inRecordOrder(CardsByRecord& cards) {
    std::vector<ContactCard> list;
    list.reserve(cards.size());
    for (auto& [record, card] : cards) list.push_back(std::move(card));
    return list;
}

// Rows of (owner, value) appended to the owner's list.
void addHandles(sqlite::Connection& db, const std::string& sql, CardsByRecord& cards,
                std::vector<std::string> ContactCard::*list) {
    auto rows = db.prepare(sql);
    while (rows.step()) {
        const auto card = cards.find(rows.int64(0));
        const std::string value = optionalText(rows, 1);
        if (card != cards.end() && !value.empty()) (card->second.*list).push_back(value);
    }
}

std::vector<ContactCard> readMac(sqlite::Connection& db, const fs::path& original) {
    CardsByRecord cards;
    auto records = db.prepare("SELECT Z_PK, " +
                              columnsOrNull(db, "ZABCDRECORD",
                                            {"ZUNIQUEID", "ZFIRSTNAME", "ZLASTNAME",
                                             "ZORGANIZATION", "ZNICKNAME", "ZTHUMBNAILIMAGEDATA"}) +
                              " FROM ZABCDRECORD ORDER BY Z_PK");
    while (records.step()) {
        const int64_t record = records.int64(0);
        const std::string unique = optionalText(records, 1);
        cards[record] = ContactCard{
            .identifier =
                unique.empty() ? original.string() + "#" + std::to_string(record) : unique,
            .name = composeName(optionalText(records, 2), optionalText(records, 3),
                                optionalText(records, 4), optionalText(records, 5)),
            .photo = macThumbnail(records.optionalBlob(6), original)};
    }
    if (db.tableExists("ZABCDPHONENUMBER") && db.columnExists("ZABCDPHONENUMBER", "ZOWNER") &&
        db.columnExists("ZABCDPHONENUMBER", "ZFULLNUMBER")) {
        addHandles(db, "SELECT ZOWNER, ZFULLNUMBER FROM ZABCDPHONENUMBER ORDER BY ZOWNER, Z_PK",
                   cards, &ContactCard::phones);
    }
    if (db.tableExists("ZABCDEMAILADDRESS") && db.columnExists("ZABCDEMAILADDRESS", "ZOWNER") &&
        db.columnExists("ZABCDEMAILADDRESS", "ZADDRESS")) {
        addHandles(db, "SELECT ZOWNER, ZADDRESS FROM ZABCDEMAILADDRESS ORDER BY ZOWNER, Z_PK",
                   cards, &ContactCard::emails);
    }
    return inRecordOrder(cards);
}

// Thumbnails of an iPhone live in a second database beside the first.
// Photos are extras: when this file is missing or unreadable the names still count.
void addIOSThumbnails(const fs::path& original, CardsByRecord& cards) {
    const fs::path images = original.parent_path() / "AddressBookImages.sqlitedb";
    if (!fs::is_regular_file(images)) return;
    try {
        sqlite::Connection db(images, sqlite::OpenMode::readOnlyUntouched);
        if (!db.tableExists("ABThumbnailImage")) return;
        auto rows =
            db.prepare("SELECT record_id, data FROM ABThumbnailImage ORDER BY record_id, format");
        while (rows.step()) {
            const auto card = cards.find(rows.int64(0));
            auto bytes = rows.optionalBlob(1);
            if (card != cards.end() && !card->second.photo && bytes && looksLikeImage(*bytes)) {
                card->second.photo = std::move(bytes);
            }
        }
    } catch (const DBError&) {
    } catch (const fs::filesystem_error&) {
    }
}

std::vector<ContactCard> readIOS(sqlite::Connection& db, const fs::path& original) {
    CardsByRecord cards;
    auto people = db.prepare(
        "SELECT ROWID, " +
        columnsOrNull(db, "ABPerson", {"guid", "First", "Last", "Organization", "Nickname"}) +
        " FROM ABPerson ORDER BY ROWID");
    while (people.step()) {
        const int64_t record = people.int64(0);
        const std::string guid = optionalText(people, 1);
        cards[record] = ContactCard{
            .identifier = guid.empty() ? original.string() + "#" + std::to_string(record) : guid,
            .name = composeName(optionalText(people, 2), optionalText(people, 3),
                                optionalText(people, 4), optionalText(people, 5))};
    }
    if (db.tableExists("ABMultiValue") && db.columnExists("ABMultiValue", "record_id") &&
        db.columnExists("ABMultiValue", "property") && db.columnExists("ABMultiValue", "value")) {
        auto values = db.prepare(
            "SELECT record_id, property, value FROM ABMultiValue ORDER BY record_id, ROWID");
        while (values.step()) {
            const auto card = cards.find(values.int64(0));
            const std::string value = optionalText(values, 2);
            if (card == cards.end() || value.empty()) continue;
            if (values.int64(1) == iosPhoneProperty) card->second.phones.push_back(value);
            if (values.int64(1) == iosEmailProperty) card->second.emails.push_back(value);
        }
    }
    addIOSThumbnails(original, cards);
    return inRecordOrder(cards);
}

}  // namespace

std::vector<ContactCard> AddressBookDatabase::read(const fs::path& database) {
    const std::string failure =
        "Couldn't read the contacts in “" + database.filename().string() + "”: ";
    try {
        sqlite::Connection db(database, sqlite::OpenMode::readOnlyUntouched);
        db.setBusyTimeout(10000);
        if (db.tableExists("ZABCDRECORD")) return readMac(db, database);
        if (db.tableExists("ABPerson")) return readIOS(db, database);
        throw Error(failure + "it is not a Contacts database this program knows");
    } catch (const DBError& error) {
        throw Error(failure + error.text());
    } catch (const fs::filesystem_error& error) {
        throw Error(failure + error.code().message());
    }
}

std::vector<fs::path> AddressBookDatabase::macDatabases(const fs::path& addressBookFolder) {
    static const std::string name = "AddressBook-v22.abcddb";
    std::vector<fs::path> found;
    std::error_code error;
    if (fs::is_regular_file(addressBookFolder / name, error))
        found.push_back(addressBookFolder / name);
    std::vector<fs::path> accounts;
    for (const auto& entry : fs::directory_iterator(addressBookFolder / "Sources", error)) {
        if (fs::is_regular_file(entry.path() / name, error))
            accounts.push_back(entry.path() / name);
    }
    // Directory order varies between file systems; a fixed order decides which card wins a shared
    // handle.
    std::sort(accounts.begin(), accounts.end());
    found.insert(found.end(), accounts.begin(), accounts.end());
    return found;
}

fs::path AddressBookDatabase::defaultFolder() {
    return files::homeFolder() / "Library/Application Support/AddressBook";
}

}  // namespace bc
