#include "custody/Imports.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "custody/CustodyLog.h"
#include "custody/SnapshotLock.h"
#include "demo/DemoWriters.h"
#include "sources/WhatsAppDatabase.h"
#include "sources/WhatsAppExportSource.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Sha256.h"
#include "support/Sqlite.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"
#include "testing/Zip.h"

namespace bc {
namespace {

namespace fs = std::filesystem;
using testing::ZipEntry;

const char* const chatText =
    "[13/01/2021, 10:00:00] Ann: hello\r\n"
    "[13/01/2021, 10:01:00] Me: \u200e<attached: 00000001-PHOTO.jpg>\r\n"
    "[13/01/2021, 10:02:00] Ann: bye\r\n";

class ImportsTest : public ::testing::Test {
protected:
    void SetUp() override {
        Imports::setOverrideRoot(root());
        CustodyLog::setOverrideURL(dir_ / "custody-log.jsonl");
    }
    void TearDown() override {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(root(), error))
            if (entry.is_directory()) snapshotLock::unlock(entry.path());
        Imports::setOverrideRoot(std::nullopt);
        CustodyLog::setOverrideURL(std::nullopt);
    }

    fs::path root() const { return dir_ / "Imports"; }
    std::vector<std::string> rootEntries() const {
        std::vector<std::string> names;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(root(), error))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    size_t custodyRecords() const { return CustodyLog::readAll().size(); }

    // The import's failure sentence; the test fails when it succeeds.
    std::string refusal(const fs::path& file, const CancelFlag* cancel = nullptr) {
        try {
            Imports::importFile(file, cancel);
        } catch (...) {
            return Imports::failureText(std::current_exception());
        }
        return "imported";
    }

    // Refused with that reason, nothing kept, nothing logged.
    void expectRefused(const fs::path& file, const std::string& reason) {
        EXPECT_EQ(refusal(file), "Import failed, nothing was kept: " + reason) << file;
        EXPECT_TRUE(rootEntries().empty()) << file;
        EXPECT_EQ(custodyRecords(), 0u);
    }

    fs::path zipOf(const std::string& name, const std::vector<ZipEntry>& entries) {
        const fs::path file = dir_ / name;
        testing::writeZip(file, entries);
        return file;
    }

    testing::TempDir dir_;
    testing::FixedClock clock_{testing::utc("2024-03-05T19:07:09Z")};
};

TEST_F(ImportsTest, ZipExportIsSealedWholeAndLogged) {
    const fs::path zip =
        zipOf("WhatsApp Chat - Ann.zip", {{"_chat.txt", chatText},
                                          {"00000001-PHOTO.jpg", "jpeg bytes"},
                                          {"__MACOSX/._chat.txt", "resource fork"}});
    std::vector<std::string> progress;
    const auto imported = Imports::importFile(
        zip, nullptr, [&](const std::string& text) { progress.push_back(text); });
    const ImportInfo& info = imported.info;
    EXPECT_EQ(info.id, "WhatsApp 2024-03-05T140709");
    EXPECT_EQ(info.kind, ImportInfo::Kind::chatExport);
    EXPECT_EQ(info.originalName, "WhatsApp Chat - Ann.zip");
    EXPECT_EQ(info.originalSHA256, Sha256::hexOfFile(zip));
    EXPECT_EQ(info.originalBytes, static_cast<int64_t>(fs::file_size(zip)));
    EXPECT_EQ(progress, (std::vector<std::string>{"Unpacking the export…", "Sealing the import…"}));
    // The settings file beside the folder holds the day/month order the file decided.
    EXPECT_EQ(rootEntries(),
              (std::vector<std::string>{"WhatsApp 2024-03-05T140709",
                                        "WhatsApp 2024-03-05T140709.settings.json"}));
    const fs::path folder = root() / info.id;
    EXPECT_FALSE(fs::exists(folder / "extracted" / "__MACOSX"));
    std::vector<std::string> paths;
    for (const auto& entry : info.files) {
        paths.push_back(entry.path);
        EXPECT_EQ(entry.sha256, Sha256::hexOfFile(folder / entry.path));
    }
    EXPECT_EQ(paths,
              (std::vector<std::string>{"extracted/00000001-PHOTO.jpg", "extracted/_chat.txt",
                                        "original/WhatsApp Chat - Ann.zip"}));
    EXPECT_EQ(json::decode(files::readFile(folder / "manifest.json")).get<ImportInfo>(), info);
    EXPECT_EQ(Imports::list(), std::vector<ImportInfo>{info});
    EXPECT_EQ(imported.messageCount, 3);
    EXPECT_FALSE(imported.custodyFailure);

    const auto records = CustodyLog::readAll();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].action, "whatsapp-export-import");
    EXPECT_EQ(records[0].source.kind, "upload");
    EXPECT_EQ(records[0].source.databaseSHA256, info.originalSHA256);
    EXPECT_EQ(records[0].outputs.size(), 3u);

    // Sealed: the files can't be written, and verification sees a change made anyway.
    EXPECT_EQ(fs::status(folder / "extracted" / "_chat.txt").permissions() & fs::perms::owner_write,
              fs::perms::none);
    const auto intact = Imports::verify(info);
    EXPECT_TRUE(intact.isIntact());
    EXPECT_EQ(Imports::describe(intact, info),
              "WhatsApp 2024-03-05T140709 verified: all 3 files match their SHA-256.");
    Imports::unlock(info);
    testing::writeText(folder / "extracted" / "_chat.txt", "changed");
    testing::writeText(folder / "extracted" / "added.txt", "new");
    const auto broken = Imports::verify(info);
    EXPECT_EQ(broken.mismatched, std::vector<std::string>{"extracted/_chat.txt"});
    EXPECT_EQ(broken.extra, std::vector<std::string>{"extracted/added.txt"});
    EXPECT_EQ(Imports::describe(broken, info),
              "WARNING: WhatsApp 2024-03-05T140709 failed verification: 1 changed, 1 added.");
}

TEST_F(ImportsTest, ExportSourceReadsWithSettingsAndFixesTheOrder) {
    const fs::path txt = dir_ / "chat.txt";
    testing::writeText(txt, "01/02/2021, 10:00 - Ann: a\n05/06/2021, 10:00 - Me: b\n");
    const ImportInfo info = Imports::importFile(txt).info;
    EXPECT_EQ(info.settings().chatName, "chat");
    Imports::saveSettings(
        info, {.chatName = "Ann", .ownerName = "Me", .timeZone = "UTC", .dayFirst = false});
    EXPECT_EQ(rootEntries(), (std::vector<std::string>{info.id, info.id + ".settings.json"}));
    const auto source = Imports::open(info);
    EXPECT_EQ(source->service(), MessageService::whatsApp);
    const auto chats = source->fetchChats();
    ASSERT_EQ(chats.size(), 1u);
    EXPECT_EQ(chats[0].displayName, "Ann");
    EXPECT_EQ(chats[0].service, "WhatsApp (export)");
    EXPECT_EQ(chats[0].participants, (std::vector<std::string>{"Ann", "Me"}));
    const auto messages = source->fetchMessages(chats[0].id);
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0].date, testing::utc("2021-01-02T10:00:00Z"));
    EXPECT_TRUE(messages[1].isFromMe);
    EXPECT_TRUE(messages[0].guid.starts_with("wa-export:" + info.id));
    EXPECT_EQ(source->dateRange({chats[0].id}), (std::pair{messages[0].date, messages[1].date}));
    EXPECT_TRUE(source->sourceDescription().starts_with("an imported WhatsApp chat export ("));
    const auto custody = source->custodySource();
    EXPECT_EQ(custody.kind, "whatsapp-export-import");
    EXPECT_NE(custody.note->find(", SHA-256 as received. "), std::string::npos);
    // Exports record the source through the log, which must not flatten it into "files".
    EXPECT_EQ(CustodyLog::source(*source, std::nullopt), custody);

    // A file that decides its own order has it stored on first opening (the import's count).
    const fs::path decided = dir_ / "decided.txt";
    testing::writeText(decided, "13/02/2021, 10:00 - Ann: a\n");
    clock_.set(testing::utc("2024-03-05T19:08:00Z"));
    const ImportInfo second = Imports::importFile(decided).info;
    EXPECT_EQ(second.settings().dayFirst, true);
}

TEST_F(ImportsTest, HostileArchivesAreRefusedBeforeAnythingIsKept) {
    expectRefused(zipOf("climb.zip", {{"_chat.txt", chatText}, {"../../x", "escape"}}),
                  "The .zip contains a path outside its folder, which isn't allowed.");
    expectRefused(zipOf("absolute.zip", {{"/tmp/x", "escape"}}),
                  "The .zip contains a path outside its folder, which isn't allowed.");
    expectRefused(zipOf("drive.zip", {{"C:/x", "escape"}}),
                  "The .zip contains a path outside its folder, which isn't allowed.");
    expectRefused(zipOf("backslash.zip", {{"a\\..\\..\\x", "escape"}}),
                  "The .zip contains a path outside its folder, which isn't allowed.");
    expectRefused(zipOf("link.zip",
                        {{"_chat.txt", chatText}, {"photo.jpg", "/etc", ZipEntry::Kind::symlink}}),
                  "The .zip contains a symbolic link, which isn't allowed.");
    expectRefused(zipOf("locked.zip", {{"_chat.txt", chatText, ZipEntry::Kind::encrypted}}),
                  "The .zip contains an encrypted file, which can't be unpacked.");
    expectRefused(
        zipOf("bomb.zip", {{"_chat.txt", std::string(4 << 20, '\0')}}),
        "The .zip would unpack to more than 100 times its own size, which isn't allowed.");
    expectRefused(zipOf("nochat.zip", {{"photo.jpg", "jpeg"}}),
                  "This doesn't look like a WhatsApp chat export: no chat text file inside.");

    std::vector<ZipEntry> many(100000, ZipEntry{});
    for (size_t i = 0; i < many.size(); ++i) many[i].name = std::to_string(i);
    expectRefused(
        zipOf("many.zip", many),
        "The .zip holds more than 50000 files, which is more than a chat export can hold.");

    const fs::path truncated = zipOf("truncated.zip", {{"_chat.txt", chatText}});
    fs::resize_file(truncated, fs::file_size(truncated) / 2);
    expectRefused(truncated, "The .zip file couldn't be unpacked.");
    testing::writeText(dir_ / "empty.zip", "");
    expectRefused(dir_ / "empty.zip", "The .zip file couldn't be unpacked.");
    testing::writeText(dir_ / "chat.pdf", "x");
    expectRefused(dir_ / "chat.pdf",
                  "Choose a WhatsApp chat export (.zip or .txt) or a ChatStorage.sqlite file.");
    EXPECT_FALSE(fs::exists(dir_ / "x"));
    EXPECT_FALSE(fs::exists("/tmp/x"));
}

TEST_F(ImportsTest, JunkAndEmptyTextIsKeptAndReadWithNotes) {
    const fs::path junk = dir_ / "junk.txt";
    testing::writeText(junk, std::string("\x00\xff\xfe\x01garbage\x80", 12));
    const auto info = Imports::importFile(junk).info;
    WhatsAppExportSource source(Imports::sealedChatExport(info));
    EXPECT_TRUE(source.fetchMessages(WhatsAppExportSource::chatID).empty());
    EXPECT_NE(std::find(source.notes().begin(), source.notes().end(),
                        "No dated messages were found in this file."),
              source.notes().end());
}

TEST_F(ImportsTest, CancelLeavesNoPartialFolder) {
    CancelFlag cancel;
    cancel.cancel();
    EXPECT_EQ(refusal(zipOf("chat.zip", {{"_chat.txt", chatText}}), &cancel),
              "Import cancelled. Nothing was kept.");
    EXPECT_TRUE(rootEntries().empty());
    EXPECT_EQ(custodyRecords(), 0u);
}

TEST_F(ImportsTest, DatabaseImportFoldsInTheWriteAheadLog) {
    const fs::path live = dir_ / "live" / "ChatStorage.sqlite";
    fs::create_directories(live.parent_path());
    demo::writeChatStorage(live,
                           "INSERT INTO ZWACHATSESSION VALUES (1, 0, '1@s.whatsapp.net', 'A');"
                           "INSERT INTO ZWAMESSAGE (Z_PK, ZCHATSESSION, ZMESSAGETYPE, "
                           "ZMESSAGEDATE, ZTEXT) VALUES (1, 1, 0, 700000000, 'old');");
    sqlite::Connection writer(live, sqlite::OpenMode::readWriteCreate);
    writer.execute("PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0;");
    writer.execute(
        "INSERT INTO ZWAMESSAGE (Z_PK, ZCHATSESSION, ZMESSAGETYPE, ZMESSAGEDATE, ZTEXT) "
        "VALUES (2, 1, 0, 700000001, 'pending');");
    ASSERT_TRUE(fs::exists(live.string() + "-wal"));

    const auto imported = Imports::importFile(live);
    EXPECT_EQ(imported.messageCount, 2);
    const fs::path folder = imported.info.folder();
    EXPECT_FALSE(fs::exists(folder / "database" / "ChatStorage.sqlite-wal"));
    const auto source = Imports::open(imported.info);
    EXPECT_FALSE(source->isLive());
    EXPECT_EQ(source->fetchMessages(1).back().text, "pending");
    EXPECT_EQ(source->custodySource().kind, "whatsapp-database-import");
    EXPECT_EQ(CustodyLog::readAll().at(0).action, "whatsapp-database-import");
    EXPECT_TRUE(Imports::verify(imported.info).isIntact());
}

TEST_F(ImportsTest, MessagesDatabaseFailsAtTheProbe) {
    const fs::path file = dir_ / "chat.sqlite";
    {
        sqlite::Connection messages(file, sqlite::OpenMode::readWriteCreate);
        messages.execute("CREATE TABLE message (ROWID INTEGER PRIMARY KEY)");
    }
    expectRefused(file,
                  "Not a WhatsApp ChatStorage database, or it can't be read: no such "
                  "table: ZWAMESSAGE");
}

TEST_F(ImportsTest, PartialFoldersAreNeverListed) {
    fs::create_directories(root() / "WhatsApp 2024-01-01T000000.partial");
    testing::writeText(root() / "WhatsApp 2024-01-01T000000.partial" / "manifest.json", "{}");
    EXPECT_TRUE(Imports::list().empty());
}

TEST_F(ImportsTest, RealExportsImportWithTheirMedia) {
    const auto fixtures = testing::fixturesFolder();
    if (!fixtures) GTEST_SKIP() << "shared fixtures are not present";
    for (const char* name :
         {"ios-2019-example.zip", "android-2017-rwhatsapp.zip", "not-a-whatsapp-chat.txt"})
        fs::copy_file(*fixtures / "whatsapp-export" / name, dir_ / name);

    const auto ios = Imports::importFile(dir_ / "ios-2019-example.zip");
    EXPECT_FALSE(fs::exists(ios.info.folder() / "extracted" / "__MACOSX"));
    WhatsAppExportSource iosSource(Imports::sealedChatExport(ios.info));
    const auto messages = iosSource.fetchMessages(WhatsAppExportSource::chatID);
    EXPECT_GT(messages.size(), 10u);
    int resolved = 0;
    for (const auto& message : messages)
        for (const auto& attachment : message.attachments)
            resolved += fs::exists(attachment.path) ? 1 : 0;
    EXPECT_EQ(resolved, 4);

    clock_.set(testing::utc("2024-03-05T19:08:00Z"));
    const auto android = Imports::importFile(dir_ / "android-2017-rwhatsapp.zip");
    WhatsAppExportSource androidSource(Imports::sealedChatExport(android.info));
    const auto androidMessages = androidSource.fetchMessages(WhatsAppExportSource::chatID);
    ASSERT_EQ(androidMessages.size(), 9u);
    EXPECT_EQ(androidMessages[2].systemNotice,
              "Media was not included in this WhatsApp export (<Media omitted>).");
    EXPECT_EQ(androidMessages[4].text, "It's fun doing text analysis with R\nisn't it?");
    EXPECT_EQ(android.info.settings().dayFirst, true);

    clock_.set(testing::utc("2024-03-05T19:09:00Z"));
    const auto notChat = Imports::importFile(dir_ / "not-a-whatsapp-chat.txt");
    EXPECT_EQ(notChat.messageCount, 0);
    EXPECT_EQ(CustodyLog::readAll().size(), 3u);
}

}  // namespace
}  // namespace bc
