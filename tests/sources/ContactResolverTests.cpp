#include <gtest/gtest.h>

#include "sources/AddressBookDatabase.h"
#include "sources/ContactResolver.h"
#include "support/Errors.h"
#include "support/Sha256.h"
#include "support/Sqlite.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;

const std::string jpegBytes("\xFF\xD8\xFF\xE0\x00\x10JFIF\x00", 11);

// The Mac's Contacts store, reduced to the tables and columns the reader uses.
void createMacSchema(sqlite::Connection& db) {
    db.execute(
        "CREATE TABLE ZABCDRECORD (Z_PK INTEGER PRIMARY KEY, ZUNIQUEID VARCHAR, ZFIRSTNAME "
        "VARCHAR, "
        "ZLASTNAME VARCHAR, ZORGANIZATION VARCHAR, ZNICKNAME VARCHAR, ZTHUMBNAILIMAGEDATA BLOB);"
        "CREATE TABLE ZABCDPHONENUMBER (Z_PK INTEGER PRIMARY KEY, ZOWNER INTEGER, ZFULLNUMBER "
        "VARCHAR);"
        "CREATE TABLE ZABCDEMAILADDRESS (Z_PK INTEGER PRIMARY KEY, ZOWNER INTEGER, ZADDRESS "
        "VARCHAR);");
}

void addMacPerson(sqlite::Connection& db, int64_t pk, const std::string& first,
                  const std::string& last, const std::optional<std::string>& thumbnail,
                  const std::vector<std::string>& phones, const std::vector<std::string>& emails) {
    auto person = db.prepare(
        "INSERT INTO ZABCDRECORD (Z_PK, ZUNIQUEID, ZFIRSTNAME, ZLASTNAME, ZTHUMBNAILIMAGEDATA) "
        "VALUES (?, ?, ?, ?, ?)");
    person.bind(1, pk).bind(2, std::string_view("P" + std::to_string(pk) + ":ABPerson"));
    person.bind(3, std::string_view(first)).bind(4, std::string_view(last));
    thumbnail ? person.bindBlob(5, *thumbnail) : person.bindNull(5);
    person.step();
    for (const auto& phone : phones) {
        db.prepare("INSERT INTO ZABCDPHONENUMBER (ZOWNER, ZFULLNUMBER) VALUES (?, ?)")
            .bind(1, pk)
            .bind(2, std::string_view(phone))
            .step();
    }
    for (const auto& email : emails) {
        db.prepare("INSERT INTO ZABCDEMAILADDRESS (ZOWNER, ZADDRESS) VALUES (?, ?)")
            .bind(1, pk)
            .bind(2, std::string_view(email))
            .step();
    }
}

TEST(ContactResolverLookup, FallsBackToTheHandleAndGroupsOnePersonsHandles) {
    ContactResolver resolver;
    resolver.load(std::vector<ContactCard>{
        {.identifier = "ana",
         .name = "Ana Ruiz",
         .phones = {"+1 (555) 010-4477"},
         .emails = {"Ana@Example.com"},
         .photo = jpegBytes},
        {.identifier = "nameless", .phones = {"555-010-9999", "not a number"}},
        {.identifier = "impostor", .name = "Someone Else", .phones = {"555 010 4477"}}});

    EXPECT_EQ(resolver.name("5550104477"), "Ana Ruiz");
    EXPECT_EQ(resolver.name(" ana@example.COM"), "Ana Ruiz");
    EXPECT_EQ(resolver.photo("+15550104477"), jpegBytes);
    EXPECT_EQ(resolver.identity("5550104477"), resolver.identity("ana@example.com"));
    EXPECT_EQ(resolver.identity("ana@example.com"), "contact:ana");

    EXPECT_EQ(resolver.name("+1 555 010 9999"), std::nullopt);
    EXPECT_EQ(resolver.identity("+1 555 010 9999"), "contact:nameless");

    EXPECT_EQ(resolver.identity("Stranger@example.org"), "handle:stranger@example.org");
    EXPECT_EQ(resolver.identity("+44 20 7946 0958"), resolver.identity("020 7946 0958"));
    EXPECT_EQ(resolver.identity(" Shortcode "), "handle:Shortcode");
}

TEST(ContactResolverLoad, ReadsMacDatabasesIncludingAccountsAndLogOnlyRows) {
    testing::TempDir dir;
    const fs::path folder = dir / "AddressBook";
    fs::create_directories(folder / "Sources" / "B");
    fs::create_directories(folder / "Sources" / "A");
    fs::create_directories(folder / ".AddressBook-v22_SUPPORT" / "_EXTERNAL_DATA");
    testing::writeText(folder / ".AddressBook-v22_SUPPORT" / "_EXTERNAL_DATA" / "1B2C", jpegBytes);
    {
        sqlite::Connection main(folder / "AddressBook-v22.abcddb",
                                sqlite::OpenMode::readWriteCreate);
        createMacSchema(main);
        addMacPerson(main, 1, "Ana", "Ruiz", "\x01" + jpegBytes, {"+1 (555) 010-4477"},
                     {"Ana@Example.com"});
        addMacPerson(main, 2, "Bo", "",
                     std::string("\x02"
                                 "1B2C\0",
                                 6),
                     {"555 010 2222"}, {});
        addMacPerson(main, 3, "Cy", "", "\x01not an image", {"555 010 3333"}, {});
    }
    sqlite::Connection account(folder / "Sources" / "B" / "AddressBook-v22.abcddb",
                               sqlite::OpenMode::readWriteCreate);
    account.execute("PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0");
    createMacSchema(account);
    // Still open: this person exists only in the write-ahead log.
    addMacPerson(account, 1, "Dee", "Okafor", std::nullopt, {"555 010 4444"}, {"dee@example.org"});
    const fs::path accountFile = folder / "Sources" / "B" / "AddressBook-v22.abcddb";

    const auto databases = AddressBookDatabase::macDatabases(folder);
    ASSERT_EQ(databases, (std::vector<fs::path>{folder / "AddressBook-v22.abcddb", accountFile}));
    const auto before = testing::folderState(folder);
    ContactResolver resolver;
    EXPECT_EQ(resolver.load({.databases = databases}), std::vector<std::string>{});
    EXPECT_EQ(testing::folderState(folder), before);

    EXPECT_EQ(resolver.name("5550104477"), "Ana Ruiz");
    EXPECT_EQ(resolver.photo("5550104477"), jpegBytes);
    EXPECT_EQ(resolver.photo("5550102222"), jpegBytes);
    EXPECT_EQ(resolver.name("5550103333"), "Cy");
    EXPECT_EQ(resolver.photo("5550103333"), std::nullopt);
    EXPECT_EQ(resolver.name("dee@example.org"), "Dee Okafor");
}

TEST(ContactResolverLoad, KeepsWhatItCanFromUnknownSchemasAndUnreadableFiles) {
    testing::TempDir dir;
    {
        // An older or newer layout: fewer name columns, no e-mail table.
        sqlite::Connection odd(dir / "odd.abcddb", sqlite::OpenMode::readWriteCreate);
        odd.execute(
            "CREATE TABLE ZABCDRECORD (Z_PK INTEGER PRIMARY KEY, ZFIRSTNAME VARCHAR, ZFUTURE BLOB);"
            "CREATE TABLE ZABCDPHONENUMBER (Z_PK INTEGER PRIMARY KEY, ZOWNER INTEGER, ZFULLNUMBER "
            "VARCHAR);"
            "INSERT INTO ZABCDRECORD VALUES (7, 'Eve', x'00');"
            "INSERT INTO ZABCDPHONENUMBER VALUES (1, 7, '555 010 5555');"
            "INSERT INTO ZABCDPHONENUMBER VALUES (2, 99, '555 010 6666');");
        sqlite::Connection(dir / "foreign.db", sqlite::OpenMode::readWriteCreate)
            .execute("CREATE TABLE people (name TEXT)");
    }
    testing::writeText(dir / "garbage.abcddb", std::string(5000, 'g'));
    testing::writeText(dir / "people.vcf", "BEGIN:VCARD\nFN:Fay\nTEL:555 010 7777\nEND:VCARD\n");

    ContactResolver resolver;
    const auto skipped =
        resolver.load({.databases = {dir / "odd.abcddb", dir / "foreign.db", dir / "garbage.abcddb",
                                     dir / "missing.abcddb"},
                       .vCardFiles = {dir / "people.vcf", dir / "missing.vcf"}});
    ASSERT_EQ(skipped.size(), 4u);
    EXPECT_EQ(skipped[0],
              "Couldn't read the contacts in “foreign.db”: it is not a Contacts database this "
              "program knows");
    EXPECT_EQ(skipped[1].rfind("Couldn't read the contacts in “garbage.abcddb”: ", 0), 0u)
        << skipped[1];
    EXPECT_NE(skipped[3].find("missing.vcf"), std::string::npos) << skipped[3];

    EXPECT_EQ(resolver.name("5550105555"), "Eve");
    EXPECT_EQ(resolver.name("5550106666"), std::nullopt);
    EXPECT_EQ(resolver.name("5550107777"), "Fay");
}

TEST(ContactResolverLoad, ReadsAnIPhoneContactsDatabaseFromABackup) {
    const auto fixtures = testing::fixturesFolder();
    if (!fixtures || !fs::exists(*fixtures / "contacts-ios" / "AddressBook.sqlitedb")) {
        GTEST_SKIP() << "shared fixtures are not present";
    }
    const fs::path database = *fixtures / "contacts-ios" / "AddressBook.sqlitedb";
    const auto cards = AddressBookDatabase::read(database);
    EXPECT_EQ(cards.size(), 9u);
    EXPECT_EQ(Sha256::hexOfFile(database),
              "6391fa76842e2b2b1584fc155823f9984f790a46b58aaa3a4f8cab3c520b3d15");

    ContactResolver resolver;
    EXPECT_TRUE(resolver.load({.databases = {database}}).empty());
    EXPECT_EQ(resolver.name("9195790479"), "Josh Hickman");
    EXPECT_EQ(resolver.identity("JoshuaHickman957@gmail.com"),
              "contact:122812EA-4A87-4D38-A4AD-3A08DCBFA3E4");
    EXPECT_EQ(resolver.identity("9195790479"), resolver.identity("joshuahickman957@gmail.com"));
    EXPECT_EQ(resolver.name("1-800-MY-APPLE"), "Apple Inc.");
    // Two cards share this number; the first one read gives the identity.
    EXPECT_EQ(resolver.identity("9198887386"), "contact:C678C313-36EC-470E-A7A4-E0FC83730439");
}

}  // namespace
}  // namespace bc
