#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <map>
#include <thread>

#include "custody/PreservationTesting.h"
#include "custody/SnapshotLock.h"
#include "sources/MessageDatabase.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Machine.h"
#include "support/Sha256.h"
#include "support/Sqlite.h"

namespace bc::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::optional<SnapshotInfo::FileEntry> entry(const SnapshotInfo& info, const std::string& path) {
    for (const auto& file : info.files)
        if (file.path == path) return file;
    return std::nullopt;
}

void append(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary | std::ios::app) << bytes;
}

TEST_F(PreservationTest, CreateSealsTheDatabaseEveryPhotoAndTheMissingListReadOnly) {
    std::vector<std::string> progress;
    MessageDatabase database(sourcePath());
    const SnapshotInfo info =
        Preservation::create(database, std::nullopt, "All conversations", nullptr,
                             [&](const std::string& text) { progress.push_back(text); });

    EXPECT_EQ(info.id, "Snapshot 2024-03-05T140709");
    EXPECT_THAT(rootEntries(), ElementsAre(info.id));
    const fs::path folder = root() / info.id;
    EXPECT_EQ(info.attachmentsCopied, 3);
    EXPECT_EQ(info.attachmentsMissing, 1);
    EXPECT_EQ(info.attachmentsFailed, 0);
    EXPECT_EQ(info.messageRows, database.messageRowCount());
    for (int number = 1; number <= 3; ++number) {
        const std::string relative = "Attachments/demo-photo-" + std::to_string(number) + ".jpg";
        ASSERT_TRUE(entry(info, relative)) << relative;
        EXPECT_EQ(entry(info, relative)->sha256, Sha256::hexOfFile(photo(number)));
        EXPECT_EQ(Sha256::hexOfFile(folder / relative), Sha256::hexOfFile(photo(number)));
    }
    EXPECT_EQ(files::readFile(folder / "missing-attachments.csv"),
              "\xEF\xBB\xBF\"path_listed_in_messages\"\r\n\"" + photo(4).string() + "\"\r\n");
    EXPECT_EQ(json::decode(files::readFile(folder / "attachment-map.json"))[photo(2).string()],
              "Attachments/demo-photo-2.jpg");
    EXPECT_EQ(info.databaseSHA256, Sha256::hexOfFile(folder / "chat.db"));
    EXPECT_EQ(info.files.size(), 7u);

    auto manifest = json::decode(files::readFile(folder / "manifest.json")).get<SnapshotInfo>();
    manifest.folder = folder;
    EXPECT_EQ(manifest, info);
    const std::string readme = files::readFile(folder / "README.txt");
    EXPECT_THAT(readme, HasSubstr("Attachments:    3 copied and verified by SHA-256\n"
                                  "                1 listed in the database but not stored on " +
                                  std::string(thisMachine) +
                                  " (e.g. iCloud-only); listed in missing-attachments.csv\n"
                                  "                0 could not be read\n"));
    EXPECT_THAT(Preservation::list(), ElementsAre(info));

    EXPECT_EQ(progress.front(), "Copying the Messages database…");
    EXPECT_THAT(progress, Contains("Preserving attachments 4 of 4"));
    EXPECT_EQ(progress.back(), "Sealing the snapshot…");

    // Sealed files refuse changes until unlocked; root ignores permissions, so this holds
    // through the immutable flag when run as root.
    const fs::path photoCopy = folder / "Attachments" / "demo-photo-1.jpg";
    struct stat status {};
    ASSERT_EQ(::stat(photoCopy.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0444u);
    EXPECT_FALSE(std::ofstream(photoCopy, std::ios::app));
    EXPECT_THROW(fs::remove(photoCopy), fs::filesystem_error);
    snapshotLock::unlock(folder);
    EXPECT_TRUE(std::ofstream(photoCopy, std::ios::app));
}

TEST_F(PreservationTest, OpenedSnapshotReadsTheSealedCopyAndNamesItAsTheSource) {
    MessageDatabase database(sourcePath());
    const SnapshotInfo info = Preservation::create(database, std::nullopt, "All", nullptr, {});
    // Later changes to the live files must not reach a reader of the snapshot.
    append(photo(1), "changed later");

    const auto snapshot = Preservation::open(info);
    EXPECT_FALSE(snapshot->isLive());
    const fs::path folder = root() / info.id;
    std::vector<int64_t> chatIDs;
    for (const auto& chat : snapshot->fetchChats()) chatIDs.push_back(chat.id);
    int withFile = 0, withoutFile = 0;
    for (const auto& message : snapshot->fetchTranscript(chatIDs).messages)
        for (const auto& attachment : message.attachments) {
            if (attachment.path.empty()) {
                ++withoutFile;
                continue;
            }
            ++withFile;
            EXPECT_TRUE(attachment.path.starts_with((folder / "Attachments").string() + "/"))
                << attachment.path;
            EXPECT_EQ(
                Sha256::hexOfFile(attachment.path),
                entry(info, fs::path(attachment.path).lexically_relative(folder).string())->sha256);
        }
    EXPECT_EQ(withFile, 3);
    EXPECT_EQ(withoutFile, 1);

    const auto source = snapshot->custodySource();
    EXPECT_EQ(source.snapshotID, info.id);
    EXPECT_EQ(source.note, "Matches the SHA-256 recorded when the snapshot was sealed.");
}

TEST_F(PreservationTest, VerifyReportsEveryChangedMissingAndAddedFile) {
    MessageDatabase database(sourcePath());
    const SnapshotInfo info = Preservation::create(database, std::nullopt, "All", nullptr, {});
    const auto fresh = Preservation::verify(info);
    EXPECT_TRUE(fresh.isIntact());
    EXPECT_FALSE(fresh.crossCheckedWithLog);
    EXPECT_EQ(Preservation::describe(fresh, info),
              info.id +
                  " verified: all 7 files match their SHA-256. (No custody-log record found to "
                  "cross-check.)");

    const auto record = CustodyLog::append(Preservation::custodyRecord(info, database));
    EXPECT_EQ(record.messageCount, info.messageRows);
    EXPECT_EQ(Preservation::describe(Preservation::verify(info), info),
              info.id +
                  " verified: all 7 files match their SHA-256, and the manifest matches the "
                  "custody log.");

    const fs::path folder = root() / info.id;
    snapshotLock::unlock(folder);
    append(folder / "Attachments" / "demo-photo-1.jpg", "x");
    fs::remove(folder / "Attachments" / "demo-photo-2.jpg");
    writeText(folder / "Attachments" / "planted.jpg", "planted");
    writeText(folder / "chat.db-shm", "engine scratch");
    std::vector<std::string> progress;
    const auto tampered = Preservation::verify(
        info, nullptr, [&](const std::string& text) { progress.push_back(text); });
    EXPECT_EQ(tampered.checked, 7);
    EXPECT_THAT(tampered.mismatched, ElementsAre("Attachments/demo-photo-1.jpg"));
    EXPECT_THAT(tampered.missing, ElementsAre("Attachments/demo-photo-2.jpg"));
    EXPECT_THAT(tampered.extra, ElementsAre("Attachments/planted.jpg"));
    EXPECT_TRUE(tampered.manifestDisagreesWithLog.empty());
    EXPECT_EQ(Preservation::describe(tampered, info),
              "WARNING: " + info.id + " failed verification: 1 changed, 1 missing, 1 added.");
    EXPECT_EQ(progress.size(), 7u);
}

TEST_F(PreservationTest, ManifestRewrittenToMatchAChangedFileDisagreesWithTheLog) {
    MessageDatabase database(sourcePath());
    const SnapshotInfo info = Preservation::create(database, std::nullopt, "All", nullptr, {});
    CustodyLog::append(Preservation::custodyRecord(info, database));

    // A careful forger changes a photo and the manifest together: only the log tells.
    const fs::path folder = root() / info.id;
    snapshotLock::unlock(folder);
    const fs::path changed = folder / "Attachments" / "demo-photo-3.jpg";
    append(changed, "forged");
    SnapshotInfo forged = info;
    for (auto& file : forged.files)
        if (file.path == "Attachments/demo-photo-3.jpg") file.sha256 = Sha256::hexOfFile(changed);
    files::writeFileAtomically(folder / "manifest.json", json::encodePretty(forged));

    const auto verification = Preservation::verify(info);
    EXPECT_TRUE(verification.crossCheckedWithLog);
    EXPECT_TRUE(verification.mismatched.empty());
    EXPECT_THAT(verification.manifestDisagreesWithLog, ElementsAre("Attachments/demo-photo-3.jpg"));
    EXPECT_EQ(Preservation::describe(verification, info),
              "WARNING: " + info.id +
                  " failed verification: 1 manifest entries differ from the custody log.");
}

// Rows a real database may hold: files outside the Messages folder with clashing names, and a
// listed "file" that cannot be copied.
TEST_F(PreservationTest, OutsideFilesKeepDistinctNamesAndUncopyableOnesCountAsFailed) {
    const fs::path elsewhere = dir_ / "Downloads";
    writeText(elsewhere / "a" / "scan.pdf", "first");
    writeText(elsewhere / "b" / "SCAN.pdf", "second");
    fs::create_directories(elsewhere / "folder.pdf");
    {
        sqlite::Connection db(sourcePath(), sqlite::OpenMode::readWriteCreate);
        int64_t row = 100;
        for (const auto& path :
             {elsewhere / "a" / "scan.pdf", elsewhere / "b" / "SCAN.pdf", elsewhere / "folder.pdf"})
            db.prepare("INSERT INTO attachment (ROWID, filename) VALUES (?, ?)")
                .bind(1, row++)
                .bind(2, path.string())
                .step();
    }
    MessageDatabase database(sourcePath());
    const SnapshotInfo info = Preservation::create(database, std::nullopt, "All", nullptr, {});
    EXPECT_EQ(info.attachmentsCopied, 5);
    EXPECT_EQ(info.attachmentsFailed, 1);
    const Json map = json::decode(files::readFile(root() / info.id / "attachment-map.json"));
    EXPECT_EQ(map[(elsewhere / "a" / "scan.pdf").string()], "Attachments/_other/scan.pdf");
    EXPECT_EQ(map[(elsewhere / "b" / "SCAN.pdf").string()], "Attachments/_other/SCAN 2.pdf");
    EXPECT_FALSE(map.contains((elsewhere / "folder.pdf").string()));
    EXPECT_THAT(
        files::readFile(root() / info.id / "README.txt"),
        HasSubstr("                1 could not be read; listed in failed-attachments.csv\n"));
    const auto failed = Preservation::failedAttachments(info);
    ASSERT_EQ(failed.size(), 1u);
    EXPECT_EQ(failed[0].path, (elsewhere / "folder.pdf").string());
    EXPECT_FALSE(failed[0].error.empty());
    EXPECT_THAT(files::readFile(root() / info.id / "failed-attachments.csv"),
                HasSubstr("\"" + failed[0].path + "\",\"" + failed[0].error + "\"\r\n"));
    EXPECT_TRUE(Preservation::verify(info).isIntact());
}

// A copied Messages folder keeps its attachments beside chat.db, listed as in the user's home.
TEST_F(PreservationTest, AttachmentsListedUnderTheHomeFolderAreReadBesideTheDatabase) {
    const fs::path copied = dir_ / "Copied Messages" / "chat.db";
    fs::create_directories(copied.parent_path());
    fs::copy_file(sourcePath(), copied);
    fs::copy(sourcePath().parent_path() / "Attachments", copied.parent_path() / "Attachments",
             fs::copy_options::recursive);
    writeText(copied.parent_path() / "Attachments" / "ab" / "12" / "IMG_1.jpg", "photo bytes");
    sqlite::Connection(copied, sqlite::OpenMode::readWriteCreate)
        .prepare("INSERT INTO attachment (ROWID, filename) VALUES (200, ?)")
        .bind(1, std::string("~/Library/Messages/Attachments/ab/12/IMG_1.jpg"))
        .step();
    MessageDatabase database(copied);
    const SnapshotInfo info = Preservation::create(database, std::nullopt, "All", nullptr, {});
    EXPECT_EQ(info.attachmentsCopied, 4);
    const Json map = json::decode(files::readFile(root() / info.id / "attachment-map.json"));
    EXPECT_EQ(map[(files::homeFolder() / "Library/Messages/Attachments/ab/12/IMG_1.jpg").string()],
              "Attachments/ab/12/IMG_1.jpg");
    EXPECT_EQ(files::readFile(root() / info.id / "Attachments/ab/12/IMG_1.jpg"), "photo bytes");
}

TEST_F(PreservationTest, ListIsNewestFirstSkipsWorkFoldersAndReportsDamagedOrMissingManifests) {
    MessageDatabase database(sourcePath());
    const SnapshotInfo older = Preservation::create(database, std::nullopt, "All", nullptr, {});
    clock_.set(utc("2024-03-06T10:00:00Z"));
    const SnapshotInfo newer = Preservation::create(database, std::nullopt, "All", nullptr, {});
    fs::create_directories(root() / "Snapshot 2024-03-07T000000.partial");
    EXPECT_THAT(Preservation::list(), ElementsAre(newer, older));
    EXPECT_TRUE(Preservation::unreadable().empty());

    // A damaged manifest leaves the list but is reported, never silently dropped.
    snapshotLock::unlock(root() / older.id);
    writeText(root() / older.id / "manifest.json", "{ truncated");
    EXPECT_THAT(Preservation::list(), ElementsAre(newer));
    const auto damaged = Preservation::unreadable();
    ASSERT_EQ(damaged.size(), 1u);
    EXPECT_THAT(damaged[0], HasSubstr("Couldn't read the manifest of " + older.id + ": "));

    // Without its manifest a snapshot cannot be verified: reported, not skipped.
    snapshotLock::unlock(root() / newer.id);
    fs::remove(root() / newer.id / "manifest.json");
    EXPECT_THROW(Preservation::verify(newer), Error);
    EXPECT_THAT(Preservation::list(), ElementsAre());
    EXPECT_THAT(Preservation::unreadable(),
                Contains(newer.id + " has no manifest; it cannot be verified"));
}

// Snapshots started within the same second, one after another or at once, all get a folder.
TEST_F(PreservationTest, SnapshotsOfTheSameSecondGetDistinctIDs) {
    MessageDatabase database(sourcePath());
    const SnapshotInfo first = Preservation::create(database, std::nullopt, "All", nullptr, {});
    std::vector<std::string> ids(3);
    std::vector<std::thread> threads;
    for (auto& id : ids)
        threads.emplace_back([&] {
            MessageDatabase own(sourcePath());
            id = Preservation::create(own, std::nullopt, "All", nullptr, {}).id;
        });
    for (auto& thread : threads) thread.join();
    std::sort(ids.begin(), ids.end());
    EXPECT_THAT(ids, ElementsAre(first.id + " 2", first.id + " 3", first.id + " 4"));
    for (const auto& snapshot : Preservation::list())
        EXPECT_TRUE(Preservation::verify(snapshot).isIntact()) << snapshot.id;
}

TEST_F(PreservationTest, EveryFolderIsVerifiedWhereItLies) {
    MessageDatabase database(sourcePath());
    const SnapshotInfo info = Preservation::create(database, std::nullopt, "All", nullptr, {});
    CustodyLog::append(Preservation::custodyRecord(info, database));
    const fs::path original = root() / info.id;
    const fs::path copy = root() / (info.id + " copy");
    fs::copy(original, copy, fs::copy_options::recursive);
    snapshotLock::unlock(copy);
    append(copy / "chat.db", "changed");
    fs::remove(copy / "Attachments" / "demo-photo-2.jpg");
    writeText(copy / "added.txt", "added");

    std::map<std::string, std::string> verdicts;
    for (const auto& snapshot : Preservation::list())
        verdicts[Preservation::folder(snapshot).filename().string()] =
            Preservation::describe(Preservation::verify(snapshot), snapshot);
    EXPECT_EQ(verdicts.size(), 2u);
    EXPECT_EQ(verdicts[info.id + " copy"], "WARNING: " + info.id +
                                               " copy failed verification: 1 changed, 1 missing, "
                                               "1 added.");
    EXPECT_THAT(verdicts[info.id], HasSubstr("and the manifest matches the custody log."));

    // Renamed, the snapshot still verifies by its manifest; the log's record names a folder
    // that is gone, and that is reported.
    snapshotLock::unlock(original);
    fs::rename(original, root() / "Renamed");
    snapshotLock::lock(root() / "Renamed");
    const auto listed = Preservation::list();
    const auto renamed = std::find_if(listed.begin(), listed.end(), [&](const auto& snapshot) {
        return Preservation::folder(snapshot) == root() / "Renamed";
    });
    ASSERT_NE(renamed, listed.end());
    EXPECT_TRUE(Preservation::verify(*renamed).isIntact());
    EXPECT_THAT(
        Preservation::unreadable(),
        ElementsAre("The custody log records the snapshot " + original.string() + " (record " +
                    CustodyLog::readAll().front().id + "), but its folder no longer exists"));
}

TEST_F(PreservationTest, LinksNeverPassVerification) {
    MessageDatabase database(sourcePath());
    const SnapshotInfo info = Preservation::create(database, std::nullopt, "All", nullptr, {});
    const fs::path folder = root() / info.id;
    snapshotLock::unlock(folder);
    // The same bytes, but kept somewhere the seal does not reach.
    fs::remove(folder / "Attachments" / "demo-photo-1.jpg");
    fs::create_symlink(photo(1), folder / "Attachments" / "demo-photo-1.jpg");
    fs::create_directory_symlink(dir_ / "Messages", folder / "Attachments" / "linked");
    const auto verification = Preservation::verify(info);
    EXPECT_THAT(verification.mismatched, ElementsAre("Attachments/demo-photo-1.jpg"));
    EXPECT_THAT(verification.extra, ElementsAre("Attachments/linked"));
    EXPECT_THAT(Preservation::findings(verification),
                ElementsAre("changed: Attachments/demo-photo-1.jpg", "added: Attachments/linked"));

    // A whole folder swapped for a link to identical copies.
    fs::rename(folder / "Attachments", dir_ / "moved");
    fs::create_directory_symlink(dir_ / "moved", folder / "Attachments");
    const auto swapped = Preservation::verify(info);
    EXPECT_EQ(swapped.mismatched.size(), 3u);
    EXPECT_THAT(swapped.extra, ElementsAre("Attachments"));
}

TEST_F(PreservationTest, CancelledCreateKeepsNothing) {
    MessageDatabase database(sourcePath());
    CancelFlag cancel;
    EXPECT_THROW(Preservation::create(database, std::nullopt, "All", &cancel,
                                      [&](const std::string& text) {
                                          if (text == "Preserving attachments 2 of 4")
                                              cancel.cancel();
                                      }),
                 CancelledError);
    EXPECT_TRUE(rootEntries().empty());
}

}  // namespace
}  // namespace bc::testing
