#include "sources/WhatsAppDatabase.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "demo/DemoWriters.h"
#include "support/Errors.h"
#include "support/Sha256.h"
#include "support/Sqlite.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

// One group (chat 1, two members) and one one-to-one chat (chat 2); chat 3 has no messages.
// Every message type the reader treats specially appears once.
const char* const sampleRows = R"(
INSERT INTO ZWACHATSESSION VALUES (1, 1, '120363000000000001@g.us', 'Family');
INSERT INTO ZWACHATSESSION VALUES (2, 0, '4915112345678@s.whatsapp.net', '');
INSERT INTO ZWACHATSESSION VALUES (3, 0, '4400000@s.whatsapp.net', 'Silent');
INSERT INTO ZWAGROUPMEMBER VALUES (1, 1, 'Ann', NULL, '447700900001@s.whatsapp.net');
INSERT INTO ZWAGROUPMEMBER VALUES (2, 1, NULL, 'Bob', 'bob1@s.whatsapp.net');
INSERT INTO ZWAMEDIAITEM VALUES (1, 2048, NULL, NULL, 'Media/1/photo.JPG', NULL, NULL);
INSERT INTO ZWAMEDIAITEM VALUES (2, NULL, NULL, NULL, NULL, NULL, NULL);
INSERT INTO ZWAMEDIAITEM VALUES (3, 10, NULL, NULL, 'Media/2/report.PDF', NULL, NULL);
INSERT INTO ZWAMEDIAITEM VALUES (4, 10, NULL, NULL, 'Media/2/funny.gif', NULL, NULL);
INSERT INTO ZWAMEDIAITEM VALUES (5, NULL, NULL, NULL, NULL, NULL, 'Carla Diaz');
INSERT INTO ZWAMEDIAITEM VALUES (6, NULL, 51.5, -0.125, NULL, NULL, NULL);
INSERT INTO ZWAMEDIAITEM VALUES (7, NULL, NULL, NULL, NULL, 'Example Domain', NULL);
INSERT INTO ZWAMEDIAITEM VALUES (8, 5, NULL, NULL, 'Media/s.webp', NULL, NULL);
INSERT INTO ZWAMESSAGE VALUES (1, 0, 0, 1, 1, 1, NULL, 700000000, '120363000000000001@g.us', 'Annie', 's1', 'hello');
INSERT INTO ZWAMESSAGE VALUES (2, 0, 1, 0, 1, 2, 1, 700000010.5, NULL, NULL, 's2', NULL);
INSERT INTO ZWAMESSAGE VALUES (3, 1, 1, 0, 1, NULL, 2, 700000020, NULL, NULL, 's3', NULL);
INSERT INTO ZWAMESSAGE VALUES (4, 0, 6, 0, 1, NULL, NULL, 700000030, NULL, NULL, 's4', NULL);
INSERT INTO ZWAMESSAGE VALUES (5, 0, 10, 0, 1, NULL, NULL, 700000040, NULL, NULL, 's5', 'Bob joined');
INSERT INTO ZWAMESSAGE VALUES (6, 0, 14, 0, 1, 99, NULL, 700000050, '447700900009@s.whatsapp.net', NULL, 's6', NULL);
INSERT INTO ZWAMESSAGE VALUES (7, 0, 8, 0, 2, NULL, 3, 600000000, NULL, NULL, 's7', NULL);
INSERT INTO ZWAMESSAGE VALUES (8, 0, 8, 0, 2, NULL, 4, 600000001, NULL, NULL, 's8', NULL);
INSERT INTO ZWAMESSAGE VALUES (9, 1, 4, 0, 2, NULL, 5, 600000002, NULL, NULL, 's9', NULL);
INSERT INTO ZWAMESSAGE VALUES (10, 0, 5, 0, 2, NULL, 6, 600000003, NULL, NULL, 's10', NULL);
INSERT INTO ZWAMESSAGE VALUES (11, 0, 5, 0, 2, NULL, NULL, 600000004, NULL, NULL, 's11', NULL);
INSERT INTO ZWAMESSAGE VALUES (12, 0, 7, 0, 2, NULL, 7, 600000005, NULL, NULL, 's12', 'see https://example.com');
INSERT INTO ZWAMESSAGE VALUES (13, 0, 15, 0, 2, NULL, 8, 600000006, NULL, NULL, 's13', NULL);
INSERT INTO ZWAMESSAGE VALUES (14, 0, 0, 0, 2, NULL, NULL, 0, NULL, NULL, 's14', 'undated');
)";

struct SampleDatabase {
    TempDir dir;
    fs::path file = dir / "ChatStorage.sqlite";
    SampleDatabase() { demo::writeChatStorage(file, sampleRows); }
    WhatsAppDatabase open(
        WhatsAppDatabase::Origin origin = WhatsAppDatabase::Origin::sealedImport) const {
        return WhatsAppDatabase(file, dir / "media", origin, "sample");
    }
};

const Message& byID(const Transcript& transcript, int64_t id) {
    const auto found = std::find_if(transcript.messages.begin(), transcript.messages.end(),
                                    [&](const Message& m) { return m.id == id; });
    if (found == transcript.messages.end()) throw std::runtime_error("no message");
    return *found;
}

std::string openFailure(const fs::path& file) {
    try {
        WhatsAppDatabase db(file, std::nullopt, WhatsAppDatabase::Origin::chosenFile, "x");
    } catch (const DBError& error) {
        return error.text();
    }
    return "opened";
}

TEST(WhatsAppHandles, PhoneAccountsGetAPlusOtherJIDsStayAsTheyAre) {
    EXPECT_EQ(whatsapp::handle("4915112345678@s.whatsapp.net"), "+4915112345678");
    EXPECT_EQ(whatsapp::handle("49151a2345678@s.whatsapp.net"), "49151a2345678@s.whatsapp.net");
    EXPECT_EQ(whatsapp::handle("@s.whatsapp.net"), "@s.whatsapp.net");
    EXPECT_EQ(whatsapp::handle("120363000000000001@g.us"), "120363000000000001@g.us");
    EXPECT_EQ(whatsapp::handle("4915112345678@broadcast"), "4915112345678@broadcast");
    EXPECT_EQ(whatsapp::handle("status"), "status");
    EXPECT_TRUE(whatsapp::isGroupJID("1@g.us"));
    EXPECT_FALSE(whatsapp::isGroupJID("1@s.whatsapp.net"));
}

TEST(WhatsAppHandles, MimeTypesFollowTheExtensionLists) {
    EXPECT_EQ(whatsapp::mimeTypeForPath("a/b.JPG"), "image/jpeg");
    EXPECT_EQ(whatsapp::mimeTypeForPath("b.heic"), "image/heic");
    EXPECT_EQ(whatsapp::mimeTypeForPath("b.mov"), "video/mov");
    EXPECT_EQ(whatsapp::mimeTypeForPath("b.opus"), "audio/opus");
    EXPECT_EQ(whatsapp::mimeTypeForPath("b.PDF"), "application/octet-stream");
    EXPECT_EQ(whatsapp::mimeTypeForPath("noextension"), "application/octet-stream");
}

TEST(WhatsAppDatabase, ChatsAreNewestFirstWithMembersOrTheOneHandle) {
    const SampleDatabase sample;
    auto db = sample.open();
    const auto chats = db.fetchChats();
    ASSERT_EQ(chats.size(), 2u);  // chat 3 has no message
    EXPECT_EQ(chats[0].id, 1);
    EXPECT_EQ(chats[0].displayName, "Family");
    EXPECT_EQ(chats[0].service, "WhatsApp");
    EXPECT_EQ(chats[0].messageCount, 6);
    EXPECT_EQ(chats[0].lastDate, Date{700000050});
    EXPECT_EQ(chats[0].participants,
              (std::vector<std::string>{"+447700900001", "bob1@s.whatsapp.net"}));
    EXPECT_EQ(chats[1].identifier, "4915112345678@s.whatsapp.net");
    EXPECT_EQ(chats[1].displayName, "");
    EXPECT_EQ(chats[1].participants, std::vector<std::string>{"+4915112345678"});
}

TEST(WhatsAppDatabase, GroupTranscriptSendersStarsMediaAndNotices) {
    const SampleDatabase sample;
    auto db = sample.open();
    const auto transcript = db.fetchTranscript({1});
    ASSERT_EQ(transcript.messages.size(), 6u);

    const Message& hello = transcript.messages[0];
    EXPECT_EQ(hello.guid, "s1");
    EXPECT_EQ(hello.sender, "+447700900001");  // the member wins over the from-JID
    EXPECT_EQ(hello.appLabel, "Starred in WhatsApp");
    EXPECT_EQ(hello.chatID, 1);

    const Message& photo = byID(transcript, 2);
    EXPECT_EQ(photo.date, Date{700000010.5});
    EXPECT_EQ(photo.sender, "bob1@s.whatsapp.net");
    ASSERT_EQ(photo.attachments.size(), 1u);
    EXPECT_EQ(photo.attachments[0].path, (sample.dir / "media" / "Media/1/photo.JPG").string());
    EXPECT_EQ(photo.attachments[0].name, "photo.JPG");
    EXPECT_EQ(photo.attachments[0].mimeType, "image/jpeg");
    EXPECT_EQ(photo.attachments[0].guid, "wa-media:s2");
    EXPECT_EQ(photo.attachments[0].totalBytes, 2048);

    const Message& neverDownloaded = byID(transcript, 3);
    EXPECT_TRUE(neverDownloaded.isFromMe);
    EXPECT_EQ(neverDownloaded.sender, "");
    EXPECT_EQ(neverDownloaded.attachments[0].name, "Photo");
    EXPECT_EQ(neverDownloaded.attachments[0].path, "");
    EXPECT_EQ(neverDownloaded.attachments[0].mimeType, "image/jpeg");
    EXPECT_EQ(neverDownloaded.attachments[0].totalBytes, -1);

    // No member and no from-JID: the chat's own JID names the sender.
    EXPECT_EQ(byID(transcript, 4).sender, "120363000000000001@g.us");
    EXPECT_EQ(byID(transcript, 4).systemNotice,
              "WhatsApp system notice (type 6); no text is stored for it.");
    EXPECT_EQ(byID(transcript, 5).text, "Bob joined");
    EXPECT_FALSE(byID(transcript, 5).systemNotice);

    const Message& deleted = byID(transcript, 6);
    EXPECT_EQ(deleted.sender, "+447700900009");  // unknown member: the from-JID
    EXPECT_TRUE(deleted.isUnsent);
    EXPECT_EQ(deleted.systemNotice,
              "Deleted in WhatsApp (\"This message was deleted\"); the original content is not "
              "kept.");
}

TEST(WhatsAppDatabase, OneToOneTranscriptDocumentsCardsLocationsAndPreviews) {
    const SampleDatabase sample;
    auto db = sample.open();
    const auto transcript = db.fetchTranscript({2});
    ASSERT_EQ(transcript.messages.size(), 8u);
    EXPECT_EQ(transcript.messages[0].id, 14);  // a zero date sorts first and means no date
    EXPECT_EQ(transcript.messages[0].date, Date{});
    EXPECT_EQ(byID(transcript, 7).sender, "+4915112345678");
    EXPECT_EQ(byID(transcript, 7).attachments[0].mimeType, "application/octet-stream");
    EXPECT_EQ(byID(transcript, 8).attachments[0].mimeType, "image/gif");
    EXPECT_EQ(byID(transcript, 9).appLabel, "Shared contact card: Carla Diaz");
    EXPECT_EQ(byID(transcript, 10).appLabel, "Shared location: 51.500000, -0.125000");
    EXPECT_EQ(byID(transcript, 11).systemNotice,
              "WhatsApp message of type 5 with no text or media stored.");
    EXPECT_EQ(byID(transcript, 12).text, "see https://example.com\nLink preview: Example Domain");
    EXPECT_EQ(byID(transcript, 12).textAsStored, "see https://example.com");
    EXPECT_TRUE(byID(transcript, 13).attachments[0].isSticker);
    EXPECT_EQ(byID(transcript, 13).attachments[0].mimeType, "image/jpeg");

    const auto both = db.fetchTranscript({1, 2});
    EXPECT_EQ(both.messages.size(), 14u);
    EXPECT_TRUE(std::is_sorted(both.messages.begin(), both.messages.end(),
                               [](const Message& a, const Message& b) { return a.date < b.date; }));
}

TEST(WhatsAppDatabase, DateRangeSkipsZeroStartsAndSignatureSeesDeletions) {
    const SampleDatabase sample;
    {
        auto db = sample.open();
        EXPECT_EQ(db.dateRange({2}), (std::pair{Date{600000000}, Date{600000006}}));
        EXPECT_FALSE(db.dateRange({3}));
        EXPECT_EQ(db.changeSignature(), "14:14:1");
    }
    {
        sqlite::Connection writer(sample.file, sqlite::OpenMode::readWriteCreate);
        writer.execute("UPDATE ZWAMESSAGE SET ZMESSAGETYPE = 14 WHERE Z_PK = 7");
    }
    EXPECT_EQ(sample.open(WhatsAppDatabase::Origin::live).changeSignature(), "14:14:2");
}

TEST(WhatsAppDatabase, ProbeRefusesOtherDatabasesAndFiles) {
    TempDir dir;
    {
        sqlite::Connection messages(dir / "chat.db", sqlite::OpenMode::readWriteCreate);
        messages.execute("CREATE TABLE message (ROWID INTEGER PRIMARY KEY, text TEXT)");
    }
    EXPECT_EQ(openFailure(dir / "chat.db"),
              "Not a WhatsApp ChatStorage database, or it can't be read: no such table: "
              "ZWAMESSAGE");
    testing::writeText(dir / "junk.sqlite", std::string(4096, 'x'));
    EXPECT_EQ(openFailure(dir / "junk.sqlite"),
              "Not a WhatsApp ChatStorage database, or it can't be read: file is not a database");
    EXPECT_EQ(openFailure(dir / "absent.sqlite"), "unable to open database file");
}

TEST(WhatsAppDatabase, CustodySourceNamesLiveImportedAndChosenFiles) {
    const SampleDatabase sample;
    const std::string sha = Sha256::hexOfFile(sample.file);
    auto imported = sample.open();
    const auto source = imported.custodySource();
    EXPECT_EQ(source.kind, "whatsapp-database-import");
    EXPECT_EQ(source.databaseSHA256, sha);
    EXPECT_FALSE(source.walSHA256);
    EXPECT_EQ(sample.open(WhatsAppDatabase::Origin::chosenFile).custodySource().kind, "files");
    WhatsAppDatabase live(sample.file, std::nullopt, WhatsAppDatabase::Origin::live,
                          WhatsAppDatabase::liveLabel);
    testing::writeText(fs::path(sample.file.string() + "-wal"), "");
    EXPECT_EQ(live.custodySource().kind, "whatsapp-live");
    EXPECT_EQ(live.custodySource().walSHA256, Sha256::hex(""));
    EXPECT_EQ(live.sourceDescription(), "WhatsApp for Mac's database (read-only)");
}

TEST(WhatsAppDatabase, ReadsTheRealChatStorageWithoutChangingIt) {
    const auto fixtures = testing::fixturesFolder();
    if (!fixtures) GTEST_SKIP() << "shared fixtures are not present";
    TempDir dir;
    for (const char* suffix : {"", "-wal", "-shm"})
        fs::copy_file(
            *fixtures / "whatsapp-database" / ("ChatStorage.sqlite" + std::string(suffix)),
            dir / ("ChatStorage.sqlite" + std::string(suffix)));
    const fs::path file = dir / "ChatStorage.sqlite";
    const std::string before = Sha256::hexOfFile(file);
    WhatsAppDatabase db(file, std::nullopt, WhatsAppDatabase::Origin::chosenFile, "fixture");
    const auto chats = db.fetchChats();
    EXPECT_EQ(chats.size(), 5u);
    std::vector<int64_t> ids;
    int64_t counted = 0;
    for (const auto& chat : chats) {
        ids.push_back(chat.id);
        counted += chat.messageCount;
    }
    const auto transcript = db.fetchTranscript(ids);
    EXPECT_EQ(transcript.messages.size(), 32u);
    EXPECT_EQ(counted, 32);
    // Integer and real dates are one time line.
    EXPECT_TRUE(std::is_sorted(transcript.messages.begin(), transcript.messages.end(),
                               [](const Message& a, const Message& b) { return a.date < b.date; }));
    const auto here = std::find_if(transcript.messages.begin(), transcript.messages.end(),
                                   [](const Message& m) { return m.text == "I\u2019m here!"; });
    ASSERT_NE(here, transcript.messages.end());
    EXPECT_DOUBLE_EQ(here->date.seconds, 704735807.221498);
    const auto person = std::find_if(chats.begin(), chats.end(), [](const Chat& chat) {
        return chat.identifier == "19198887386@s.whatsapp.net";
    });
    ASSERT_NE(person, chats.end());
    EXPECT_EQ(person->participants, std::vector<std::string>{"+19198887386"});
    EXPECT_TRUE(db.dateRange(ids));
    EXPECT_EQ(Sha256::hexOfFile(file), before);
}

}  // namespace
}  // namespace bc
