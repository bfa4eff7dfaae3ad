#include <gmock/gmock.h>
#include <unistd.h>

#include "custody/CustodyLog.h"
#include "custody/CustodySystemInfo.h"
#include "model/MessageSource.h"
#include "support/Errors.h"
#include "support/Sha256.h"
#include "testing/SourceDouble.h"
#include "testing/Testing.h"

namespace bc::testing {
namespace {

namespace fs = std::filesystem;

// Only what a record's source needs of a database: where it is and what kind it is.
using DatabaseDouble = testing::SourceDouble;

TEST(CustodyLogSource, LiveDatabaseIsHashedWithItsLogAndUnreadableOnesAreNoted) {
    TempDir dir;
    writeText(dir / "chat.db", "database bytes");
    writeText(dir / "chat.db-wal", "wal bytes");
    DatabaseDouble database(dir / "chat.db", true);
    EXPECT_EQ(database.custodySource(),
              (CustodyRecord::Source{.kind = "live",
                                     .path = (dir / "chat.db").string(),
                                     .databaseSHA256 = Sha256::hex("database bytes"),
                                     .walSHA256 = Sha256::hex("wal bytes")}));

    fs::remove(dir / "chat.db-wal");
    const auto withoutWal = CustodyLog::source(database, std::nullopt);
    EXPECT_FALSE(withoutWal.walSHA256);
    EXPECT_FALSE(withoutWal.note);
    EXPECT_EQ(CustodyLog::source(DatabaseDouble(dir / "chat.db", false), std::nullopt).kind,
              "files");

    // A path that exists but cannot be read as a file is noted, not fatal.
    fs::create_directories(dir / "folder" / "chat.db");
    const auto source =
        CustodyLog::source(DatabaseDouble(dir / "folder" / "chat.db", true), std::nullopt);
    EXPECT_EQ(source.databaseSHA256, "unreadable");
    EXPECT_EQ(source.note, "chat.db could not be read.");
}

TEST(CustodyLogSource, SnapshotIsRehashedAndComparedWithItsSeal) {
    TempDir dir;
    const fs::path folder = dir / "Snapshot 2024-03-05T140709";
    writeText(folder / "chat.db", "sealed");
    const DatabaseDouble live(dir / "elsewhere.db", true);
    SealedSnapshot snapshot{.id = "Snapshot 2024-03-05T140709",
                            .folder = folder,
                            .databaseSHA256 = Sha256::hex("sealed")};

    const auto matching = CustodyLog::source(live, snapshot);
    EXPECT_EQ(matching,
              (CustodyRecord::Source{.kind = "snapshot",
                                     .path = (folder / "chat.db").string(),
                                     .snapshotID = snapshot.id,
                                     .databaseSHA256 = Sha256::hex("sealed"),
                                     .note = "Matches the SHA-256 recorded when the snapshot was "
                                             "sealed."}));

    writeText(folder / "chat.db", "changed");
    EXPECT_EQ(CustodyLog::source(live, snapshot).note,
              "WARNING: differs from the SHA-256 recorded when the snapshot was sealed (" +
                  Sha256::hex("sealed") + ")");

    fs::remove(folder / "chat.db");
    EXPECT_EQ(CustodyLog::source(live, snapshot).databaseSHA256, "unreadable");
}

TEST(CustodyLogOutputs, FileFolderAndMissing) {
    TempDir dir;
    EXPECT_TRUE(CustodyLog::outputs(dir / "absent").empty());

    writeText(dir / "export.csv", "a,b\n");
    EXPECT_EQ(
        CustodyLog::outputs(dir / "export.csv"),
        (std::vector<CustodyRecord::Output>{
            {.path = (dir / "export.csv").string(), .bytes = 4, .sha256 = Sha256::hex("a,b\n")}}));

    const fs::path pages = dir / "pages";
    writeText(pages / "b.jpg", "bb");
    writeText(pages / "a/z.jpg", "z");
    writeText(pages / "a.jpg", "a");
    fs::create_symlink(dir / "export.csv", pages / "link.csv");
    std::vector<std::string> paths;
    for (const auto& output : CustodyLog::outputs(pages)) {
        paths.push_back(fs::relative(output.path, pages).string());
        EXPECT_EQ(output.sha256, Sha256::hexOfFile(output.path));
    }
    EXPECT_EQ(paths, (std::vector<std::string>{"a.jpg", "a/z.jpg", "b.jpg"}));
}

TEST(CustodyLogOutputs, ArchiveTakesItsListedDigests) {
    TempDir dir;
    const fs::path archive = dir / "Archive";
    writeText(archive / "index.html", "<html>");
    writeText(archive / "attachments/photo one.jpg", "jpeg");
    writeText(archive / "unlisted.txt", "not in the manifest");
    const std::string listed(64, 'd');
    writeText(archive / "checksums.txt", "  " + listed + "  index.html  \n\n" +
                                             Sha256::hex("jpeg") + "  attachments/photo one.jpg\n");
    EXPECT_EQ(CustodyLog::outputs(archive),
              (std::vector<CustodyRecord::Output>{
                  {.path = (archive / "index.html").string(), .bytes = 6, .sha256 = listed},
                  {.path = (archive / "attachments/photo one.jpg").string(),
                   .bytes = 4,
                   .sha256 = Sha256::hex("jpeg")}}));

    for (const char* bad : {"no separator\n", "abc  ../outside.txt\n", "abc  missing.txt\n"}) {
        writeText(archive / "checksums.txt", bad);
        EXPECT_THROW(CustodyLog::outputs(archive), Error) << bad;
    }
}

TEST(CustodyLogSystemInfo, DescribesThisMachineAndBuild) {
    EXPECT_EQ(custodySystemInfo::appVersion("1.4", "212"), "1.4 (212)");
    const CustodySystemInfo info = custodySystemInfo::current();
    char host[256] = {};
    ::gethostname(host, sizeof host - 1);
    EXPECT_EQ(info.host, host);
    EXPECT_FALSE(info.macOS.empty() || info.model.empty() || info.user.empty());
}

}  // namespace
}  // namespace bc::testing
