#include "custody/IPhoneBackupImport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "custody/CustodyLog.h"
#include "custody/Imports.h"
#include "custody/SnapshotLock.h"
#include "demo/DemoData.h"
#include "sources/CallHistory.h"
#include "sources/ContactResolver.h"
#include "sources/IPhoneBackupMessages.h"
#include "support/Files.h"
#include "support/Sha256.h"
#include "testing/IPhoneBackupWriter.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;
using testing::BackupEntry;

class IPhoneBackupImportTest : public ::testing::Test {
protected:
    void SetUp() override {
        Imports::setOverrideRoot(root());
        CustodyLog::setOverrideURL(dir_ / "custody-log.jsonl");
        entries_ = testing::demoBackupEntries(dir_ / "scratch", &absent_);
        std::sort(absent_.begin(), absent_.end());
    }
    void TearDown() override {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(root(), error))
            if (entry.is_directory()) snapshotLock::unlock(entry.path());
        Imports::setOverrideRoot(std::nullopt);
        CustodyLog::setOverrideURL(std::nullopt);
    }

    fs::path root() const { return dir_ / "Imports"; }
    fs::path backup() const { return dir_ / "backup"; }

    // Adds a message that only the database's write-ahead log holds, as a backup taken while
    // Messages ran would have it.
    void addMessageOnlyInLog() {
        const fs::path chat = dir_ / "scratch" / "chat.db";
        testing::writeOnlyToLog(chat,
                                "INSERT INTO message (guid, text, handle_id, is_from_me, date) "
                                "SELECT 'LOG-ONLY', 'Only in the log', handle_id, 0, max(date) "
                                "FROM message; INSERT INTO chat_message_join SELECT 1, ROWID "
                                "FROM message WHERE guid = 'LOG-ONLY';");
        for (auto& entry : entries_)
            if (entry.relativePath == "Library/SMS/sms.db") entry.bytes = files::readFile(chat);
        entries_.push_back(
            {"HomeDomain", "Library/SMS/sms.db-wal", files::readFile(chat.string() + "-wal")});
    }

    std::string refusal(const std::optional<std::string>& password) {
        try {
            Imports::importBackup(backup(), password);
        } catch (...) {
            return Imports::failureText(std::current_exception());
        }
        return "imported";
    }

    void expectNothingKept() {
        std::error_code error;
        EXPECT_TRUE(fs::is_empty(root(), error) || !fs::exists(root()));
        EXPECT_TRUE(CustodyLog::readAll().empty());
    }

    std::string contentSHA256(const std::string& relativePath) const {
        const std::string id = testing::backupFileID({"HomeDomain", relativePath, ""});
        return Sha256::hexOfFile(backup() / id.substr(0, 2) / id);
    }

    testing::TempDir dir_;
    std::vector<BackupEntry> entries_;
    std::vector<std::string> absent_;  // attachments the demo names but never wrote
    testing::FixedClock clock_{testing::utc("2024-03-05T19:07:09Z")};
};

TEST_F(IPhoneBackupImportTest, SealsEveryMessageAttachmentCallAndContactOfTheBackup) {
    addMessageOnlyInLog();
    std::map<std::string, std::string> attachmentBytes;
    for (const auto& entry : entries_)
        if (entry.domain == "MediaDomain") attachmentBytes["~/" + entry.relativePath] = entry.bytes;
    MessageDatabase original(dir_ / "scratch" / "chat.db");

    for (const std::optional<std::string>& password : {std::optional<std::string>(), {"pw"}}) {
        fs::remove_all(backup());
        testing::writeIPhoneBackup(backup(), entries_, {.password = password});
        const auto before = testing::folderState(backup());

        const auto imported = Imports::importBackup(backup(), password);
        EXPECT_EQ(testing::folderState(backup()), before);
        EXPECT_EQ(imported.custodyFailure, std::nullopt);
        EXPECT_TRUE(Imports::verify(imported.info).isIntact());
        EXPECT_EQ(imported.info.backup->notInBackup, absent_);

        const auto source = Imports::open(imported.info);
        int64_t messages = 0;
        for (const auto& chat : original.fetchChats()) {
            const auto expected = original.fetchTranscript({chat.id}).messages;
            const auto actual = source->fetchTranscript({chat.id}).messages;
            ASSERT_EQ(actual.size(), expected.size()) << chat.id;
            for (size_t i = 0; i < actual.size(); ++i) {
                EXPECT_EQ(actual[i].guid, expected[i].guid);
                EXPECT_EQ(actual[i].text, expected[i].text);
                ASSERT_EQ(actual[i].attachments.size(), expected[i].attachments.size());
                for (size_t a = 0; a < actual[i].attachments.size(); ++a) {
                    const auto& sealed = actual[i].attachments[a];
                    EXPECT_EQ(sealed.name, expected[i].attachments[a].name);
                    EXPECT_EQ(fs::path(sealed.path).filename(),
                              fs::path(expected[i].attachments[a].path).filename());
                    const auto sealedFolder = imported.info.folder() / "files" / "MediaDomain";
                    const auto original = attachmentBytes.find(
                        "~/" +
                        fs::path(sealed.path).lexically_relative(sealedFolder).generic_string());
                    if (original == attachmentBytes.end())
                        EXPECT_FALSE(fs::exists(sealed.path)) << sealed.path;
                    else
                        EXPECT_EQ(files::readFile(sealed.path), original->second);
                }
            }
            messages += static_cast<int64_t>(actual.size());
        }
        EXPECT_GT(messages, 10);

        const auto& messagesSource = dynamic_cast<IPhoneBackupMessages&>(*source);
        const auto calls = CallHistory::path(messagesSource);
        ASSERT_TRUE(calls);
        EXPECT_EQ(CallHistory::readAll(*calls).size(), DemoData::sampleCalls().size());
        ContactResolver contacts;
        EXPECT_TRUE(contacts.load({.databases = {*messagesSource.companions().contacts}}).empty());
        EXPECT_EQ(contacts.name("sam.taylor@example.com"), "Samantha Taylor");
        EXPECT_EQ(contacts.name("(415) 555-0190"), "Riley Chen");

        const auto custody = source->custodySource();
        EXPECT_EQ(custody.kind, "iphone-backup-import");
        EXPECT_EQ(custody.note,
                  "Device \u201CAlex's iPhone\u201D, model iPhone14,2, iOS 17.4.1, "
                  "backup date 2024-03-01T15:33:20Z");
    }
}

TEST_F(IPhoneBackupImportTest, RecordsTheDeviceAndEveryFileAsFound) {
    addMessageOnlyInLog();
    testing::writeIPhoneBackup(backup(), entries_, {.password = "pw"});
    const auto imported = Imports::importBackup(backup(), "pw");

    const auto records = CustodyLog::readAll();
    ASSERT_EQ(records.size(), 1u);
    const auto& record = records[0];
    EXPECT_EQ(record.action, "iphone-backup-import");
    EXPECT_EQ(record.messageCount, imported.messageCount);
    EXPECT_EQ(record.source.path, backup().string());
    EXPECT_EQ(record.options.at("Device"), "Alex's iPhone");
    EXPECT_EQ(record.options.at("iOS version"), "17.4.1");
    EXPECT_EQ(record.options.at("Backup date"), "2024-03-01T15:33:20Z");
    EXPECT_EQ(record.options.at("SHA-256 as found: Manifest.db"),
              Sha256::hexOfFile(backup() / "Manifest.db"));
    EXPECT_EQ(record.options.at("SHA-256 as found: Info.plist"),
              Sha256::hexOfFile(backup() / "Info.plist"));
    for (const char* path : {"Library/SMS/sms.db", "Library/SMS/sms.db-wal",
                             "Library/CallHistoryDB/CallHistory.storedata",
                             "Library/AddressBook/AddressBook.sqlitedb"})
        EXPECT_EQ(record.options.at(std::string("SHA-256 as found: HomeDomain ") + path),
                  contentSHA256(path))
            << path;
    EXPECT_EQ(record.outputs.size(), imported.info.files.size());

    const auto listed = Imports::list();
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0], imported.info);
    EXPECT_EQ(listed[0].label(), "Imported iPhone backup (sealed on import)");
    EXPECT_EQ(listed[0].chatName(), "Alex's iPhone");
    EXPECT_EQ(Imports::parts(listed[0]), std::vector{ImportPart::own});
    EXPECT_THROW(Imports::open(listed[0], ImportPart::backupWhatsApp), Error);
}

// The WhatsApp the phone held is sealed with its media and offered as the import's second source.
TEST_F(IPhoneBackupImportTest, WhatsAppTheBackupHeldIsASecondSourceWithItsMedia) {
    for (auto& entry : testing::whatsAppBackupEntries(dir_ / "scratch"))
        entries_.push_back(std::move(entry));
    testing::writeIPhoneBackup(backup(), entries_, {.password = "pw"});
    const auto imported = Imports::importBackup(backup(), "pw");
    EXPECT_TRUE(Imports::verify(imported.info).isIntact());

    const auto& info = imported.info;
    EXPECT_EQ(Imports::parts(info), (std::vector{ImportPart::own, ImportPart::backupWhatsApp}));
    EXPECT_EQ(Imports::parsePartName(Imports::partName(info, ImportPart::backupWhatsApp)),
              std::pair(info.id, ImportPart::backupWhatsApp));
    EXPECT_EQ(Imports::parsePartName(info.id), std::pair(info.id, ImportPart::own));

    const auto whatsApp = Imports::open(info, ImportPart::backupWhatsApp);
    const auto chats = whatsApp->fetchChats();
    ASSERT_EQ(chats.size(), 1u);
    const auto rows = whatsApp->fetchTranscript({chats[0].id}).messages;
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].text, "hello from the phone");
    ASSERT_EQ(rows[1].attachments.size(), 1u);
    EXPECT_EQ(files::readFile(rows[1].attachments[0].path), testing::whatsAppPhotoBytes);
    EXPECT_EQ(whatsApp->custodySource().kind, "whatsapp-database-import");
    EXPECT_GT(Imports::open(info)->fetchChats().size(), 1u);
}

TEST_F(IPhoneBackupImportTest, NotesAttachmentsTheBackupLacksAndImportsTheRest) {
    testing::writeIPhoneBackup(backup(), entries_);
    const auto missing = std::find_if(entries_.begin(), entries_.end(), [](const auto& entry) {
        return entry.domain == "MediaDomain";
    });
    const std::string id = testing::backupFileID(*missing);
    fs::remove(backup() / id.substr(0, 2) / id);

    const auto imported = Imports::importBackup(backup(), std::nullopt);
    auto expected = absent_;
    expected.push_back("MediaDomain " + missing->relativePath);
    std::sort(expected.begin(), expected.end());
    auto noted = imported.info.backup->notInBackup;
    std::sort(noted.begin(), noted.end());
    EXPECT_EQ(noted, expected);
    EXPECT_FALSE(
        fs::exists(imported.info.folder() / "files" / "MediaDomain" / missing->relativePath));
    EXPECT_TRUE(Imports::verify(imported.info).isIntact());
}

TEST_F(IPhoneBackupImportTest, KeepsNothingWhenTheBackupCannotBeRead) {
    testing::writeIPhoneBackup(backup(), entries_, {.password = "pw"});
    EXPECT_EQ(refusal("wrong"), "The backup password is not correct.");
    expectNothingKept();
    EXPECT_EQ(refusal(std::nullopt),
              "Import failed, nothing was kept: Couldn't read the encrypted iPhone backup "
              "\u201Cbackup\u201D: no backup password was given.");
    expectNothingKept();

    const std::string id = testing::backupFileID({"HomeDomain", "Library/SMS/sms.db", ""});
    fs::remove(backup() / id.substr(0, 2) / id);
    EXPECT_EQ(refusal("pw"),
              "Import failed, nothing was kept: Couldn't read HomeDomain Library/SMS/sms.db: its "
              "content file is not in this backup.");
    expectNothingKept();

    testing::writeText(backup() / id.substr(0, 2) / id, std::string(100, 'x'));
    EXPECT_EQ(refusal("pw"),
              "Import failed, nothing was kept: Couldn't read HomeDomain Library/SMS/sms.db: it "
              "is truncated or damaged");
    expectNothingKept();
}

}  // namespace
}  // namespace bc
