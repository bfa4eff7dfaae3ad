// Snapshots taken while the source keeps changing, and creation cut off by SIGKILL.
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "custody/PreservationTesting.h"
#include "sources/MessageDatabase.h"
#include "support/Sqlite.h"

namespace bc::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

// Each message goes in with its conversation link in one transaction: a copy that holds one
// without the other was not taken at a single point in time.
void writeMessagesUntil(const fs::path& database, const std::atomic<bool>& stop,
                        std::atomic<int>& written) {
    sqlite::Connection db(database, sqlite::OpenMode::readWriteCreate);
    db.setBusyTimeout(10'000);
    while (!stop.load()) {
        db.execute("BEGIN IMMEDIATE");
        db.prepare("INSERT INTO message (guid, text) VALUES (?, 'written during the snapshot')")
            .bind(1, "writer-" + std::to_string(written.load()))
            .step();
        db.execute(
            "INSERT INTO chat_message_join (chat_id, message_id) VALUES (1, last_insert_rowid())");
        db.execute("COMMIT");
        ++written;
    }
}

int64_t single(sqlite::Connection& db, const std::string& sql) {
    auto statement = db.prepare(sql);
    statement.step();
    return statement.int64(0);
}

TEST_F(PreservationTest, SourceWrittenDuringTheSnapshotGivesAConsistentCopy) {
    sqlite::Connection(sourcePath(), sqlite::OpenMode::readWriteCreate)
        .execute("PRAGMA journal_mode=WAL");
    std::atomic<bool> stop = false;
    std::atomic<int> written = 0;
    std::thread writer(writeMessagesUntil, sourcePath(), std::cref(stop), std::ref(written));
    while (written.load() < 20) std::this_thread::yield();

    MessageDatabase database(sourcePath());
    SnapshotInfo info;
    EXPECT_NO_THROW(info = Preservation::create(database, std::nullopt, "All", nullptr, {}));
    stop = true;
    writer.join();
    ASSERT_FALSE(info.id.empty());

    sqlite::Connection copy(root() / info.id / "chat.db", sqlite::OpenMode::readOnlyImmutable);
    auto check = copy.prepare("PRAGMA integrity_check");
    ASSERT_TRUE(check.step());
    EXPECT_EQ(check.text(0), "ok");
    EXPECT_EQ(single(copy,
                     "SELECT COUNT(*) FROM message m WHERE m.guid LIKE 'writer-%' AND NOT "
                     "EXISTS (SELECT 1 FROM chat_message_join j WHERE j.message_id = "
                     "m.ROWID)"),
              0);
    const int64_t copied = single(copy, "SELECT COUNT(*) FROM message WHERE guid LIKE 'writer-%'");
    EXPECT_GE(copied, 20);
    EXPECT_LE(copied, written.load());
    EXPECT_EQ(info.messageRows, single(copy, "SELECT COUNT(*) FROM message"));
    EXPECT_TRUE(Preservation::verify(info).isIntact());
}

// Enough attachment files that the child is still copying when it is killed.
void addManyAttachments(const fs::path& database, int count) {
    const fs::path folder = database.parent_path() / "Attachments" / "bulk";
    const std::string bytes(256 * 1024, 'b');
    sqlite::Connection db(database, sqlite::OpenMode::readWriteCreate);
    db.execute("BEGIN");
    for (int number = 0; number < count; ++number) {
        const fs::path file = folder / ("file-" + std::to_string(number) + ".bin");
        writeText(file, bytes + std::to_string(number));
        db.prepare("INSERT INTO attachment (filename) VALUES (?)").bind(1, file.string()).step();
    }
    db.execute("COMMIT");
}

bool waitForByte(int fd, int milliseconds) {
    pollfd ready{.fd = fd, .events = POLLIN, .revents = 0};
    char byte = 0;
    return ::poll(&ready, 1, milliseconds) == 1 && ::read(fd, &byte, 1) == 1;
}

TEST_F(PreservationTest, KilledCreateLeavesOnlyAWorkFolderThatTheNextCreateRemoves) {
    addManyAttachments(sourcePath(), 200);
    int pipeFDs[2];
    ASSERT_EQ(::pipe(pipeFDs), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(pipeFDs[0]);
        try {
            MessageDatabase database(sourcePath());
            Preservation::create(database, std::nullopt, "All", nullptr,
                                 [&](const std::string& text) {
                                     if (text.starts_with("Preserving attachments 20 of"))
                                         (void)!::write(pipeFDs[1], "k", 1);
                                 });
        } catch (...) {
        }
        ::_exit(0);
    }
    ::close(pipeFDs[1]);
    const bool midway = waitForByte(pipeFDs[0], 60'000);
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(pipeFDs[0]);
    ASSERT_TRUE(midway);
    ASSERT_TRUE(WIFSIGNALED(status));

    EXPECT_THAT(rootEntries(), ElementsAre("Snapshot 2024-03-05T140709.partial"));
    EXPECT_TRUE(Preservation::list().empty());

    clock_.set(utc("2024-03-05T19:30:00Z"));
    MessageDatabase database(sourcePath());
    const SnapshotInfo info = Preservation::create(database, std::nullopt, "All", nullptr, {});
    EXPECT_EQ(info.attachmentsCopied, 203);
    EXPECT_THAT(rootEntries(), ElementsAre(info.id));
}

}  // namespace
}  // namespace bc::testing
