#include "sources/IPhoneBackup.h"

#include <gtest/gtest.h>

#include "sources/BackupKeyBag.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "testing/IPhoneBackupWriter.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;
using testing::BackupEntry;

const std::vector<BackupEntry> entries{
    {"HomeDomain", "Library/SMS/sms.db", "pretend database"},
    {"MediaDomain", "Library/SMS/Attachments/00/A/IMG_0001.HEIC", std::string(70000, 'x')},
    {"MediaDomain", "Library/SMS/Attachments/01/B/voice.caf", "exactly sixteen!"},
    {"MediaDomain", "Library/Other/elsewhere.txt", "not an attachment"},
};

// Opening fails with this sentence.
std::string refusal(const fs::path& folder, const std::optional<std::string>& password) {
    try {
        IPhoneBackup backup(folder, password);
    } catch (const Error& error) {
        return error.what();
    }
    return "opened";
}

std::string extracted(IPhoneBackup& backup, const BackupEntry& entry, const fs::path& to) {
    const auto record = backup.find(entry.domain, entry.relativePath);
    if (!record) return "no record";
    backup.extract(*record, to, nullptr);
    return files::readFile(to);
}

TEST(IPhoneBackup, ReadsPlainAndEncryptedBackupsInPlace) {
    for (const std::optional<std::string>& password : {std::optional<std::string>(), {"s3cret"}}) {
        testing::TempDir dir;
        testing::writeIPhoneBackup(dir / "backup", entries, {.password = password});
        const auto before = testing::folderState(dir / "backup");

        EXPECT_EQ(IPhoneBackup::isEncrypted(dir / "backup"), password.has_value());
        {
            IPhoneBackup backup(dir / "backup", password);
            EXPECT_EQ(backup.device().name, testing::backupDeviceName);
            EXPECT_EQ(backup.device().productType, "iPhone14,2");
            EXPECT_EQ(backup.device().iosVersion, "17.4.1");
            EXPECT_EQ(backup.device().serialNumber, "F2LXK0TESTQ1");
            EXPECT_EQ(backup.device().backupDate, Date{731000000});

            const auto attachments = backup.filesUnder("MediaDomain", "Library/SMS/Attachments/");
            ASSERT_EQ(attachments.size(), 2u);
            EXPECT_EQ(attachments[0].size, 70000);
            EXPECT_EQ(attachments[0].fileID, testing::backupFileID(entries[1]));
            EXPECT_EQ(backup.find("HomeDomain", "Library/SMS"), std::nullopt) << "a folder";
            // Whole blocks and padding alike come back exactly.
            for (size_t i = 0; i < 3; ++i)
                EXPECT_EQ(extracted(backup, entries[i], dir / ("out" + std::to_string(i))),
                          entries[i].bytes);
        }
        EXPECT_EQ(testing::folderState(dir / "backup"), before);
    }
}

TEST(IPhoneBackup, RefusesWhatItCannotReadInOneSentence) {
    testing::TempDir dir;
    fs::create_directories(dir / "photos");
    EXPECT_EQ(refusal(dir / "photos", std::nullopt),
              "Couldn't read \u201Cphotos\u201D as an iPhone backup: it has no Info.plist.");

    testing::writeIPhoneBackup(dir / "plain", entries);
    fs::remove(dir / "plain" / "Manifest.db");
    EXPECT_EQ(refusal(dir / "plain", std::nullopt),
              "Couldn't read \u201Cplain\u201D as an iPhone backup: it has no Manifest.db.");
    testing::writeText(dir / "plain" / "Manifest.db", std::string(4096, 'z'));
    EXPECT_EQ(
        refusal(dir / "plain", std::nullopt).rfind("Couldn't read the backup's Manifest.db: ", 0),
        0u);

    testing::writeIPhoneBackup(dir / "locked", entries, {.password = "right"});
    EXPECT_EQ(refusal(dir / "locked", "wrong"), "The backup password is not correct.");
    EXPECT_EQ(refusal(dir / "locked", std::nullopt),
              "Couldn't read the encrypted iPhone backup \u201Clocked\u201D: no backup password "
              "was given.");
    const auto manifest = files::readFile(dir / "locked" / "Manifest.db");
    testing::writeText(dir / "locked" / "Manifest.db", manifest.substr(0, manifest.size() - 5));
    EXPECT_EQ(refusal(dir / "locked", "right").rfind("Couldn't read the backup's Manifest.db: ", 0),
              0u);

    testing::writeIPhoneBackup(
        dir / "odd", entries,
        {.password = "right", .extraKeyBagFields = std::string("ZZZZ\0\0\0\1x", 9)});
    EXPECT_EQ(refusal(dir / "odd", "right"),
              "Couldn't read the backup's key bag: it holds an unknown field \u201CZZZZ\u201D.");
}

TEST(IPhoneBackup, NamesAMissingOrCutContentFile) {
    testing::TempDir dir;
    testing::writeIPhoneBackup(dir / "backup", entries, {.password = "pw"});
    const std::string voice = testing::backupFileID(entries[2]);
    const std::string photo = testing::backupFileID(entries[1]);
    fs::remove(dir / "backup" / voice.substr(0, 2) / voice);
    const fs::path cut = dir / "backup" / photo.substr(0, 2) / photo;
    testing::writeText(cut, files::readFile(cut).substr(0, 1000));

    IPhoneBackup backup(dir / "backup", "pw");
    const auto failure = [&](const BackupEntry& entry) {
        try {
            extracted(backup, entry, dir / "out");
        } catch (const Error& error) {
            return std::string(error.what());
        }
        return std::string("extracted");
    };
    EXPECT_EQ(failure(entries[2]),
              "Couldn't read MediaDomain Library/SMS/Attachments/01/B/voice.caf: its content "
              "file is not in this backup.");
    EXPECT_EQ(failure(entries[1]),
              "Couldn't read MediaDomain Library/SMS/Attachments/00/A/IMG_0001.HEIC: it is "
              "truncated or damaged");
}

TEST(IPhoneBackup, PlacesStoredAttachmentPathsInTheMediaDomain) {
    const auto expected = std::pair<std::string, std::string>{
        "MediaDomain", "Library/SMS/Attachments/ab/12/GUID/IMG_0001.jpg"};
    EXPECT_EQ(IPhoneBackup::attachmentLocation("~/Library/SMS/Attachments/ab/12/GUID/IMG_0001.jpg"),
              expected);
    EXPECT_EQ(
        IPhoneBackup::attachmentLocation(
            (files::homeFolder() / "Library/SMS/Attachments/ab/12/GUID/IMG_0001.jpg").string()),
        expected);
    EXPECT_EQ(IPhoneBackup::attachmentLocation(
                  "/var/mobile/Library/SMS/Attachments/ab/12/GUID/IMG_0001.jpg"),
              expected);
    EXPECT_EQ(IPhoneBackup::attachmentLocation("/Users/alex/Pictures/IMG_0001.jpg"), std::nullopt);
}

}  // namespace
}  // namespace bc
