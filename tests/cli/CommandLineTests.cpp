// The built program run as a user runs it: its own home, data and temporary folders per test.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <random>
#include <regex>
#include <thread>

#include "custody/CustodyLog.h"
#include "custody/Preservation.h"
#include "custody/SnapshotLock.h"
#include "demo/DemoData.h"
#include "support/Files.h"
#include "support/Image.h"
#include "support/Json.h"
#include "support/Process.h"
#include "support/Sha256.h"
#include "support/Sqlite.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

extern char** environ;

namespace bc {
namespace {

namespace fs = std::filesystem;

std::string program() {
    const char* path = std::getenv("BC_EXECUTABLE");
    return path ? path : BC_BINARY_DIR "/brindlecourt";
}

// `sha256sum -c checksums.txt` in `folder`.
ProcessResult checkSums(const fs::path& folder) {
    return runProcess(
        {.executable = "/bin/sh",
         .arguments = {"-c", "cd \"$0\" && sha256sum -c checksums.txt", folder.string()}});
}

std::vector<CustodyRecord> custodyRecords(const fs::path& log) {
    CustodyLog::setOverrideURL(log);
    auto records = CustodyLog::readAll();
    CustodyLog::setOverrideURL(std::nullopt);
    return records;
}

// /bin/sh arguments that run the program in `dir` with HOME, XDG_DATA_HOME and TMPDIR inside
// it, so nothing outside is touched; `environment` holds further NAME=value settings.
std::vector<std::string> inside(const fs::path& dir, std::vector<std::string> arguments,
                                const std::vector<std::string>& environment = {}) {
    arguments.insert(arguments.begin(), program());
    arguments.insert(arguments.begin(), environment.begin(), environment.end());
    arguments.insert(arguments.begin(),
                     {"-c",
                      "cd \"$0\" && exec env HOME=\"$0/home\" XDG_DATA_HOME=\"$0/home/data\" "
                      "TMPDIR=\"$0/tmp\" \"$@\"",
                      dir.string()});
    return arguments;
}

class CommandLine : public ::testing::Test {
protected:
    void SetUp() override {
        for (const auto* name : {"home", "tmp"}) fs::create_directories(dir_ / name);
    }

    ProcessResult run(std::vector<std::string> arguments,
                      const std::vector<std::string>& environment = {}) const {
        return runProcess({.executable = "/bin/sh",
                           .arguments = inside(dir_.path(), std::move(arguments), environment),
                           .timeoutSeconds = 300});
    }

    fs::path demoFolder() const { return dir_ / "tmp" / "Kestrove-Demo"; }

    testing::TempDir dir_;
};

TEST_F(CommandLine, ArgumentErrorsStopWithStatusTwoAndTouchNothing) {
    const std::string usage =
        "usage: Brindlecourt --export-html --chats 1,123 --title \"Name\" --out <folder> "
        "[--from yyyy-mm-dd] [--to yyyy-mm-dd]\n";
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"--export-html", "--demo", "--chats", "1"}, usage},
        {{"--export-html", "--demo", "--out", "x", "--chats"}, usage},
        {{"--export-html", "--demo", "--chats", "1,x2", "--out", "x"},
         "error: --chats must be a comma-separated list of chat IDs, got \"1,x2\"\n"},
        {{"--export-html", "--chats", "1,,2", "--out", "x"},
         "error: --chats must be a comma-separated list of chat IDs, got \"1,,2\"\n"},
        {{"--export-html", "--demo", "--chats", "1", "--out", "x", "--from", "2025-3-01"},
         "error: --from must be a date like 2025-03-01, got \"2025-3-01\"\n"},
        {{"--export-html", "--demo", "--chats", "1", "--out", "x", "--to", "2025-02-30"},
         "error: --to must be a date like 2025-03-01, got \"2025-02-30\"\n"},
        {{"--export-html", "--demo", "--snapshot", "--chats", "one"},
         "error: --chats must be a comma-separated list of chat IDs, got \"one\"\n"},
        {{"--export-html", "--demo", "--chats", "1", "--out", "x", "--from"},
         "error: --from needs a value\n"},
        {{"--export-html", "--demo", "--snapshot", "--scope"}, "error: --scope needs a value\n"},
    };
    for (const auto& [arguments, message] : cases) {
        const auto result = run(arguments);
        EXPECT_EQ(result.exitStatus, 2) << arguments.back();
        EXPECT_EQ(result.standardError, message);
    }
    EXPECT_EQ(run({"--frobnicate"}).exitStatus, 2);
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator(dir_.path()), {}), 2)
        << "nothing but the empty home and tmp folders";
}

TEST_F(CommandLine, RefusedExportsExitWithStatusOneAndLeaveNothing) {
    fs::create_directories(dir_ / "out");
    const auto exists = run({"--export-html", "--demo", "--chats", "1", "--out", "out"});
    EXPECT_EQ(exists.exitStatus, 1);
    EXPECT_EQ(exists.standardError, "error: out already exists; choose a new folder\n");
    EXPECT_TRUE(fs::is_empty(dir_ / "out"));
    EXPECT_FALSE(fs::exists(dir_ / "out \u2013 Certificate.txt"));
    // Only the record of the sample import that demo mode seals at start.
    const auto records = custodyRecords(demoFolder() / "custody-log.jsonl");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].action, "whatsapp-export-import");

    const auto unreadable =
        run({"--export-html", "--database", "absent.db", "--chats", "1", "--out", "new"});
    EXPECT_EQ(unreadable.exitStatus, 1);
    EXPECT_TRUE(unreadable.standardError.starts_with("error: ")) << unreadable.standardError;
    EXPECT_NE(unreadable.standardError.find((dir_ / "absent.db").string()), std::string::npos)
        << unreadable.standardError;
    EXPECT_FALSE(fs::exists(dir_ / "new"));
}

TEST_F(CommandLine, ArchivesComeWithCertificateAndAnIntactCustodyChain) {
    // A folder named with a trailing slash is the same folder.
    const auto result = run(
        {"--export-html", "--demo", "--chats", "1", "--title", "Flat share", "--out", "archive/"});
    ASSERT_EQ(result.exitStatus, 0) << result.standardError;
    EXPECT_TRUE(result.standardOutput.starts_with(
        "Done.\n  page:           " +
        (dir_ / "archive" / "Flat share \u2013 Messages.html").string() + "\n  messages:       "))
        << result.standardOutput;
    EXPECT_NE(result.standardOutput.find("\n  hash mismatches: 0\n"), std::string::npos);

    const auto check = checkSums(dir_ / "archive");
    EXPECT_TRUE(check.succeeded()) << check.standardOutput;
    EXPECT_TRUE(fs::exists(dir_ / "archive" / "calls.csv"));  // the sample calls were merged

    // After the record of the sample import that demo mode seals at start.
    const auto all = custodyRecords(demoFolder() / "custody-log.jsonl");
    ASSERT_EQ(all.size(), 2u);
    const auto records = std::vector(all.begin() + 1, all.end());
    EXPECT_EQ(records[0].format, "html");
    EXPECT_EQ(records[0].chatIDs, std::vector<int64_t>{1});
    EXPECT_EQ(records[0].outputs, CustodyLog::outputs(dir_ / "archive"));
    const std::string certificate = files::readFile(dir_ / "archive \u2013 Certificate.txt");
    EXPECT_NE(certificate.find(records[0].recordSHA256), std::string::npos);
    EXPECT_NE(certificate.find("\nKind:             Sample Messages database generated for demo "
                               "mode\n"),
              std::string::npos)
        << certificate;

    EXPECT_TRUE(fs::is_empty(dir_ / "home"));  // nothing of the user's was touched

    const auto verified = run({"--export-html", "--demo", "--verify-snapshots"});
    EXPECT_EQ(verified.exitStatus, 0);
    EXPECT_NE(verified.standardOutput.find("custody log: 2 records, chain intact\n"),
              std::string::npos);

    // A database file given by path is recorded as the source, in the user's own custody log.
    fs::copy_file(demoFolder() / "chat.db", dir_ / "copy.db");
    const auto pages = run({"--export-html", "--database", "copy.db", "--chats", "1", "--format",
                            "pdf", "--title", "Ann/Bob", "--out", "pages/"});
    ASSERT_EQ(pages.exitStatus, 0) << pages.standardError;
    const auto own = custodyRecords(dir_ / "home" / "data" / "Kestrove" / "custody-log.jsonl");
    ASSERT_EQ(own.size(), 1u);
    EXPECT_EQ(own[0].source.path, (dir_ / "copy.db").string());
    EXPECT_EQ(own[0].source.kind, "files");
    EXPECT_EQ(own[0].format, "pdf");
    EXPECT_GT(own[0].pageCount.value_or(0), 0);
    // A title is never a path.
    EXPECT_TRUE(fs::exists(dir_ / "pages" / "Ann-Bob.pdf"));
    EXPECT_TRUE(fs::exists(dir_ / "pages" / "Ann-Bob \u2013 Certificate.txt"));
}

TEST_F(CommandLine, ChangedSnapshotFileFailsVerification) {
    const auto made = run({"--export-html", "--demo", "--snapshot"});
    ASSERT_EQ(made.exitStatus, 0) << made.standardError;
    EXPECT_TRUE(made.standardOutput.starts_with("Done. Everything stored at "));
    EXPECT_EQ(run({"--export-html", "--demo", "--verify-snapshots"}).exitStatus, 0);

    Preservation::setOverrideRoot(demoFolder() / "Snapshots");
    const auto snapshots = Preservation::list();
    ASSERT_EQ(snapshots.size(), 1u);
    const fs::path folder = Preservation::folder(snapshots[0]);
    snapshotLock::unlock(folder);
    Preservation::setOverrideRoot(std::nullopt);
    testing::writeText(folder / "chat.db", "changed");

    const auto verified = run({"--export-html", "--demo", "--verify-snapshots"});
    EXPECT_NE(verified.exitStatus, 0);
    EXPECT_NE(verified.standardOutput.find(snapshots[0].id + " failed verification: 1 changed.\n"
                                                             "  changed: chat.db\n"),
              std::string::npos)
        << verified.standardOutput;
    EXPECT_NE(verified.standardOutput.find("custody log: 2 records, chain intact"),
              std::string::npos)
        << verified.standardOutput;

    // A damaged manifest still fails verification instead of hiding the snapshot.
    testing::writeText(folder / "manifest.json", "not json");
    const auto damaged = run({"--export-html", "--demo", "--verify-snapshots"});
    EXPECT_NE(damaged.exitStatus, 0);
    EXPECT_NE(damaged.standardOutput.find("WARNING: Couldn't read the manifest of " +
                                          snapshots[0].id + ": "),
              std::string::npos)
        << damaged.standardOutput;

    // Nor does taking the manifest away hide it.
    fs::remove(folder / "manifest.json");
    const auto manifestless = run({"--export-html", "--demo", "--verify-snapshots"});
    EXPECT_NE(manifestless.exitStatus, 0);
    EXPECT_NE(manifestless.standardOutput.find("WARNING: " + snapshots[0].id +
                                               " has no manifest; it cannot be verified\n"),
              std::string::npos)
        << manifestless.standardOutput;
}

TEST_F(CommandLine, BenchmarkPrintsEveryPhase) {
    const auto result = run({"--benchmark", "--generate", "2000"});  // generated on the spot
    ASSERT_EQ(result.exitStatus, 0) << result.standardError;
    for (const char* phase :
         {"open database", "list conversations", "largest conversation transcript",
          "timeline for it", "HTML archive of it, read again", "change signature",
          "change signature again, nothing changed",
          "floor: one C pass over the rows transcripts read", "every transcript (search index)",
          "attachment paths", "check every attachment file exists"})
        EXPECT_NE(result.standardOutput.find(" s  " + std::string(phase) + "\n"), std::string::npos)
            << phase;
    std::smatch rows;
    ASSERT_TRUE(std::regex_search(result.standardOutput, rows,
                                  std::regex("\n  rows: (\\d+) \\(messages (\\d+), calls 0, "
                                             "reaction events (\\d+)\\)\n")))
        << result.standardOutput;
    EXPECT_EQ(std::stoi(rows[1]), std::stoi(rows[2]) + std::stoi(rows[3]));
    // Every membership, attachment link, attachment, handle and message row of the sample, and
    // the reader's time as a multiple of that pass.
    std::smatch floor;
    ASSERT_TRUE(
        std::regex_search(result.standardOutput, floor,
                          std::regex("\n  rows stepped: (\\d+)\n[^\n]*\n  rows indexed: "
                                     "\\d+, \\d+\\.\\d\\d\u00D7 the floor \\(processor time "
                                     "\\d+\\.\\d+ s, \\d+\\.\\d\\d\u00D7\\)\n")))
        << result.standardOutput;
    EXPECT_GT(std::stoi(floor[1]), 2 * 2000);
    EXPECT_NE(result.standardOutput.find("  same\n"), std::string::npos) << result.standardOutput;
#ifdef __linux__
    EXPECT_TRUE(std::regex_search(
        result.standardOutput,
        std::regex("\n  peak resident memory \\+\\d+ MB, \\d+ bytes per message\n")))
        << result.standardOutput;
#endif
    // Two thousand messages a minute or so apart: one year, not "1 years".
    EXPECT_NE(result.standardOutput.find(" in 1 year, "), std::string::npos)
        << result.standardOutput;
    const auto absent = run({"--benchmark", "--database", "absent.db"});
    EXPECT_EQ(absent.exitStatus, 1);
    EXPECT_EQ(absent.standardError, "error: Couldn't open the Messages database \u201C" +
                                        (dir_ / "absent.db").string() +
                                        "\u201D: unable to open database file\n");
    EXPECT_EQ(run({"--benchmark", "--generate", "many"}).exitStatus, 2);
}

// The sample Messages database copied to `file`, in WAL mode as copies of Apple's files arrive.
void copySample(const fs::path& sample, const fs::path& file) {
    fs::create_directories(file.parent_path());
    fs::copy_file(sample, file);
    testing::makeWalMode(file);
}

const std::string onlyInTheLog =
    "INSERT INTO message (ROWID, guid, text, date) SELECT 9000, 'LOG-ONLY', 'only in the log', "
    "MAX(date) FROM message; INSERT INTO chat_message_join VALUES (1, 9000);";

TEST_F(CommandLine, NothingAppearsOrChangesBesideASource) {
    const fs::path sample = dir_ / "sample" / "chat.db";
    fs::create_directories(sample.parent_path());
    DemoData::writeMessagesDatabase(sample, Clock::now());
    // A copy without its log, one with "-wal" and "-shm", one in a folder nothing can be
    // created in, and the live database while Messages runs, beside Contacts in the same state.
    const fs::path copied = dir_ / "copied" / "chat.db";
    const fs::path logged = dir_ / "logged" / "chat.db";
    const fs::path locked = dir_ / "locked" / "chat.db";
    const fs::path live = dir_ / "home" / "Library" / "Messages" / "chat.db";
    const fs::path contacts = dir_ / "home" / "Library" / "Application Support" / "AddressBook" /
                              "AddressBook-v22.abcddb";
    for (const auto& file : {copied, logged, locked, live}) copySample(sample, file);
    testing::writeOnlyToLog(logged, onlyInTheLog);
    testing::writeOnlyToLog(live, onlyInTheLog);
    fs::create_directories(contacts.parent_path());
    testing::writeOnlyToLog(contacts,
                            "CREATE TABLE ZABCDRECORD (Z_PK INTEGER PRIMARY KEY, ZFIRSTNAME TEXT);"
                            "INSERT INTO ZABCDRECORD VALUES (1, 'Ana');");
    const testing::ImmutableFolder lockedFolder(locked.parent_path());
    EXPECT_TRUE(lockedFolder.isLocked()) << "only root can lock a folder; this case is weaker";

    // Messages and every reader share the live database's index: only its "-shm" may change.
    const auto stateOf = [&](const fs::path& folder) {
        auto state = testing::folderState(folder);
        if (folder == live.parent_path()) state.erase("chat.db-shm");
        return state;
    };
    int runs = 0;
    for (const auto& file : {copied, logged, locked, live}) {
        const std::vector<std::string> source = file == live
                                                    ? std::vector<std::string>{}
                                                    : std::vector<std::string>{"--database", file};
        const auto with = [&](std::vector<std::string> arguments) {
            arguments.insert(arguments.begin() + 1, source.begin(), source.end());
            return arguments;
        };
        const std::string out = "out-" + std::to_string(++runs);
        for (const auto& command :
             {with({"--export-html", "--chats", "1", "--out", out + "-html"}),
              with({"--export-html", "--chats", "1", "--format", "pdf", "--out", out + "-pdf"}),
              with({"--export-html", "--snapshot"}), with({"--benchmark"})}) {
            const auto before =
                std::pair(stateOf(file.parent_path()), stateOf(contacts.parent_path()));
            const auto result = run(command);
            EXPECT_EQ(result.exitStatus, 0) << file << " " << command[0] << result.standardError;
            EXPECT_EQ(std::pair(stateOf(file.parent_path()), stateOf(contacts.parent_path())),
                      before)
                << file << " " << command.back();
        }
        const auto records =
            custodyRecords(dir_ / "home" / "data" / "Kestrove" / "custody-log.jsonl");
        ASSERT_FALSE(records.empty());
        const auto& recorded = records.back().source;
        EXPECT_EQ(recorded.path, file.string());
        const fs::path wal = sqlite::writeAheadLog(file);
        EXPECT_EQ(recorded.walSHA256,
                  fs::exists(wal) ? std::optional(Sha256::hexOfFile(wal)) : std::nullopt);
        const std::string rows = files::readFile(dir_ / (out + "-html") / "messages.csv");
        EXPECT_EQ(rows.find("only in the log") != std::string::npos, file == logged || file == live)
            << file;
    }
    for (const auto& entry : fs::directory_iterator(dir_ / "tmp"))
        EXPECT_FALSE(entry.path().filename().string().starts_with("brindlecourt-read-"))
            << "private copies are removed";
}

TEST_F(CommandLine, DemoJobsLeaveTheUsersHomeAndDataAsTheyWere) {
    // Data of the user's own, which the demo must neither read into its record nor change.
    const fs::path data = dir_ / "home" / "data" / "Kestrove";
    testing::writeText(data / "custody-log.jsonl", "");
    testing::writeText(data / "evidence.json", "{}");
    const auto before = testing::folderState(dir_ / "home");
    for (const auto& command : std::vector<std::vector<std::string>>{
             {"--export-html", "--demo", "--snapshot"},
             {"--export-html", "--demo", "--chats", "1", "--out", "html"},
             {"--export-html", "--demo", "--exhibit", "--chats", "1", "--out", "exhibit"},
             {"--search", "movers", "--demo", "--out", "found", "--format", "csv"},
             {"--list-sources", "--demo"},
             {"--export-html", "--demo", "--verify-snapshots"}}) {
        const auto result = run(command);
        EXPECT_EQ(result.exitStatus, 0) << command[2] << result.standardError;
        EXPECT_EQ(testing::folderState(dir_ / "home"), before) << command[2];
    }
    EXPECT_FALSE(custodyRecords(demoFolder() / "custody-log.jsonl").empty());
    // Its people are named from the sample's own card file, as the window names them.
    EXPECT_NE(files::readFile(dir_ / "html" / "messages.csv").find(",\"Sam Taylor\","),
              std::string::npos);

    // The window, shown until its screenshots are taken, keeps its preferences in the demo folder.
    fs::create_directories(dir_ / "shots");
    const auto window =
        run({"--demo"}, {"QT_QPA_PLATFORM=offscreen", "XDG_CACHE_HOME=" + (dir_ / "cache").string(),
                         "BRINDLECOURT_SCREENSHOTS=" + (dir_ / "shots").string()});
    EXPECT_EQ(window.exitStatus, 0) << window.standardError;
    EXPECT_TRUE(fs::exists(dir_ / "shots" / "main-window.png"));
    EXPECT_EQ(testing::folderState(dir_ / "home"), before);
}

TEST_F(CommandLine, OddDatabaseFilesAreRefusedInOneSentenceAndNothingIsWritten) {
    const fs::path odd = dir_ / "odd";
    fs::create_directories(odd / "folder.db");
    testing::writeText(odd / "empty.db", "");
    testing::writeText(odd / "text.db", std::string(8192, 'x'));
    DemoData::writeMessagesDatabase(odd / "truncated.db", Clock::now());
    fs::resize_file(odd / "truncated.db", 3 * fs::file_size(odd / "truncated.db") / 4);
    sqlite::Connection(odd / "nochat.db", sqlite::OpenMode::readWriteCreate)
        .execute(
            "CREATE TABLE message (ROWID INTEGER PRIMARY KEY, date INTEGER);"
            "CREATE TABLE chat_message_join (chat_id INTEGER, message_id INTEGER);");
    const std::vector<std::pair<std::string, std::string>> cases{
        {"empty.db", "Couldn't open the Messages database “%”: no such table: message"},
        {"text.db", "Couldn't open the Messages database “%”: file is not a database"},
        {"truncated.db",
         "Couldn't open the Messages database “%”: database disk image is malformed"},
        {"nochat.db", "Couldn't read the Messages database “%”: no such table: chat"},
        {"absent.db", "Couldn't open the Messages database “%”: unable to open database file"},
        {"folder.db", "Couldn't open the Messages database “%”: disk I/O error"},
    };
    const auto before = testing::folderState(odd);
    for (const auto& [name, sentence] : cases) {
        for (const auto& format : {"html", "pdf"}) {
            const auto result = run({"--export-html", "--database", (odd / name).string(),
                                     "--chats", "1", "--format", format, "--out", "out"});
            EXPECT_EQ(result.exitStatus, 1) << name;
            const std::string expected =
                std::regex_replace(sentence, std::regex("%"), (odd / name).string());
            // A file that opens but cannot be read through fails once reading has begun.
            const std::string reading =
                expected.starts_with("Couldn't read") ? "Reading messages\u2026\n" : "";
            EXPECT_EQ(result.standardError, reading + "error: " + expected + "\n") << name;
            EXPECT_FALSE(fs::exists(dir_ / "out")) << name;
        }
    }
    EXPECT_EQ(testing::folderState(odd), before);
    EXPECT_TRUE(fs::is_empty(dir_ / "home"));
}

// The live database with a call history that is not one: messages are exported and the reason
// calls are missing is told on the terminal, in the archive and in its certificate.
TEST_F(CommandLine, UnreadableCallHistoryIsToldEverywhere) {
    const fs::path live = dir_ / "home" / "Library" / "Messages" / "chat.db";
    fs::create_directories(live.parent_path());
    DemoData::writeMessagesDatabase(live, Clock::now());
    testing::writeText(dir_ / "home" / "Library" / "Application Support" / "CallHistoryDB" /
                           "CallHistory.storedata",
                       std::string(8192, 'x'));
    const std::string issue =
        "Calls aren't shown: The call log has an unexpected format: file is not a database";
    for (const auto& format : {"html", "pdf"}) {
        const auto result =
            run({"--export-html", "--chats", "1", "--format", format, "--out", format});
        ASSERT_EQ(result.exitStatus, 0) << result.standardError;
        EXPECT_NE(result.standardError.find("\n" + issue + "\n"), std::string::npos)
            << result.standardError;
    }
    const std::string certificate = files::readFile(dir_ / "html \u2013 Certificate.txt");
    EXPECT_NE(certificate.find("\nCalls:            " + issue + "\n"), std::string::npos)
        << certificate;
    const std::string page = files::readFile(dir_ / "html" / "Messages \u2013 Messages.html");
    EXPECT_NE(page.find("<dt>Calls</dt><dd>Calls aren&#39;t shown: The call log has an unexpected "
                        "format: file is not a database</dd>"),
              std::string::npos);
    EXPECT_NE(files::readFile(dir_ / "pdf" / "Messages \u2013 Certificate.txt")
                  .find("\nCalls:            " + issue + "\n"),
              std::string::npos);
}

bool hasHiddenEntry(const fs::path& folder) {
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.path().filename().string().starts_with(".")) return true;
    return false;
}

// The program started in the background with `arguments`, its errors kept in a file.
class BackgroundRun {
public:
    BackgroundRun(const fs::path& root, std::vector<std::string> arguments) {
        arguments = inside(root, std::move(arguments));
        std::vector<char*> argv{const_cast<char*>("/bin/sh")};
        for (auto& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        stderrFile_ = root / "stderr.txt";
        posix_spawn_file_actions_addopen(&actions, 2, stderrFile_.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
        spawned_ = posix_spawn(&pid_, "/bin/sh", &actions, nullptr, argv.data(), environ) == 0;
        posix_spawn_file_actions_destroy(&actions);
    }

    // Sends `signal` `delayMs` after `ready` holds (at once when it is empty). The exit status,
    // or -signal when the signal ended it.
    int interrupt(int signal, int delayMs, const std::function<bool()>& ready = {}) {
        if (!spawned_) return -1000;
        int status = 0;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        bool ended = false;
        while (ready && !ready() && std::chrono::steady_clock::now() < deadline)
            if ((ended = ::waitpid(pid_, &status, WNOHANG) == pid_))
                break;
            else
                std::this_thread::sleep_for(std::chrono::microseconds(200));
        if (!ended) {
            std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
            ::kill(pid_, signal);
            ::waitpid(pid_, &status, 0);
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    std::string errors() const { return files::readFile(stderrFile_); }

private:
    fs::path stderrFile_;
    pid_t pid_ = 0;
    bool spawned_ = false;
};

// An export of the sample conversation into parent/name.
std::vector<std::string> exportTo(const fs::path& out, const std::string& format = "html") {
    fs::create_directories(out.parent_path());
    return {"--export-html", "--demo", "--chats", "1", "--format", format, "--out", out.string()};
}

// What a run killed at a random moment left: the whole export (files that check, their custody
// record and certificate) or nothing under its name. Returns whether the export was there.
bool wholeOrNothing(const fs::path& out, const fs::path& log, bool pdf) {
    if (!fs::exists(fs::symlink_status(out))) return false;
    const fs::path product = pdf ? out / "Messages.pdf" : out;
    const fs::path certificate =
        pdf ? out / "Messages \u2013 Certificate.txt"
            : out.parent_path() / (out.filename().string() + " \u2013 Certificate.txt");
    if (!pdf) {
        EXPECT_TRUE(checkSums(out).succeeded()) << out;
    }
    const auto outputs = CustodyLog::outputs(product);
    const auto records = custodyRecords(log);
    const auto record = std::find_if(records.begin(), records.end(),
                                     [&](const auto& r) { return r.outputs == outputs; });
    EXPECT_NE(record, records.end()) << out << " is there without its custody record";
    EXPECT_TRUE(fs::exists(certificate)) << out << " is there without its certificate";
    if (record != records.end() && fs::exists(certificate)) {
        EXPECT_NE(files::readFile(certificate).find(record->recordSHA256), std::string::npos);
    }
    return true;
}

// Killed at any moment, an export leaves the whole result or nothing under the chosen name; the
// hidden temporaries of killed runs go with the next export into the same folder, and a killed
// PDF export never leaves a folder that blocks the same command.
TEST_F(CommandLine, KilledExportsLeaveTheWholeResultOrNothing) {
    const auto timed = std::chrono::steady_clock::now();
    ASSERT_EQ(run({"--export-html", "--demo", "--chats", "1", "--out", "first"}).exitStatus, 0);
    const auto fullRun = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - timed);
    const fs::path log = demoFolder() / "custody-log.jsonl";
    const fs::path parent = dir_ / "exports";
    std::mt19937 random(16);
    std::uniform_int_distribution<int> moment(0, static_cast<int>(fullRun.count() * 3 / 2000));
    int present = 0, killed = 0;
    for (int trial = 0; trial < 30; ++trial) {
        const bool pdf = trial % 4 == 3;
        const std::string name = (pdf ? "pdf-" : "archive-") + std::to_string(trial);
        BackgroundRun job(dir_.path(), exportTo(parent / name, pdf ? "pdf" : "html"));
        killed += job.interrupt(SIGKILL, moment(random)) == -SIGKILL;
        if (wholeOrNothing(parent / name, log, pdf)) {
            ++present;
        } else if (pdf) {
            const auto again = run({"--export-html", "--demo", "--chats", "1", "--format", "pdf",
                                    "--out", (parent / name).string()});
            EXPECT_EQ(again.exitStatus, 0) << again.standardError;
        }
    }
    EXPECT_GT(killed, 0);
    EXPECT_LT(present, 30) << "no run was cut short";

    const auto last = run({"--export-html", "--demo", "--chats", "1", "--out", "exports/last"});
    ASSERT_EQ(last.exitStatus, 0) << last.standardError;
    EXPECT_FALSE(hasHiddenEntry(parent)) << "the next export removes what killed runs left";
    const auto verified = run({"--export-html", "--demo", "--verify-snapshots"});
    EXPECT_NE(verified.standardOutput.find("chain intact"), std::string::npos)
        << verified.standardOutput;
}

TEST_F(CommandLine, TerminationRequestCancelsAndRemovesEverything) {
    ASSERT_EQ(run({"--export-html", "--demo", "--snapshot"}).exitStatus, 0);
    // The sample export takes milliseconds and may finish before the signal lands; such a run
    // proves nothing about cancelling, so it is tried again.
    for (int attempt = 0; attempt < 10; ++attempt) {
        const fs::path parent = dir_ / ("parent-" + std::to_string(attempt));
        BackgroundRun job(dir_.path(), exportTo(parent / "archive"));
        const int status = job.interrupt(SIGTERM, 0, [&] { return hasHiddenEntry(parent); });
        if (status == 0) continue;
        EXPECT_EQ(status, 1);
        const std::string errors = job.errors();
        ASSERT_NE(errors.find("error: "), std::string::npos) << errors;
        EXPECT_EQ(errors.substr(errors.find("error: ")),
                  "error: Export cancelled. Nothing was saved.\n");
        EXPECT_TRUE(fs::is_empty(parent));
        return;
    }
    FAIL() << "every export finished before the termination request reached it";
}

std::string pdfText(const fs::path& pdf, int page) {
    const std::string number = std::to_string(page);
    return runProcess(
               {.executable = "pdftotext",
                .arguments = {"-f", number, "-l", number, "-enc", "UTF-8", pdf.string(), "-"}})
        .standardOutput;
}

TEST_F(CommandLine, PageOptionsAreCheckedBeforeAnythingIsTouched) {
    const std::vector<std::string> export_{"--export-html", "--demo", "--chats", "1", "--out", "x"};
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"--paper", "legal"}, "error: --paper must be letter or a4, got \"legal\"\n"},
        {{"--dpi", "200"}, "error: --dpi must be 144 or 300, got \"200\"\n"},
        {{"--bates-start", "-3"},
         "error: --bates-start must be a whole number of at least 0, got \"-3\"\n"},
        {{"--bates-digits", "six"},
         "error: --bates-digits must be a whole number of at least 1, got \"six\"\n"},
        {{"--exhibit", "--context-after", "2x"},
         "error: --context-after must be a whole number of at least 0, got \"2x\"\n"},
        {{"--exhibit", "--format", "html"}, "error: --exhibit makes pdf or jpg pages\n"},
    };
    for (const auto& [options, message] : cases) {
        std::vector<std::string> arguments = export_;
        arguments.insert(arguments.end(), options.begin(), options.end());
        const auto result = run(arguments);
        EXPECT_EQ(result.exitStatus, 2) << options.front();
        EXPECT_EQ(result.standardError, message);
    }
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator(dir_.path()), {}), 2)
        << "nothing but the empty home and tmp folders";
}

TEST_F(CommandLine, ExhibitOfTheSampleFlagsIsNumberedRedactedAndLogged) {
    const auto result = run({"--export-html", "--demo", "--exhibit", "--chats", "1",
                             "--bates-prefix", "SMITH", "--redact", "Movers", "--include-notes",
                             "--context-before", "1", "--context-after", "1", "--out", "one"});
    ASSERT_EQ(result.exitStatus, 0) << result.standardError;
    const fs::path pdf = dir_ / "one" / "Flagged messages.pdf";
    const std::string first = pdfText(pdf, 1);
    EXPECT_NE(first.find("SMITH000001"), std::string::npos) << first;
    EXPECT_NE(first.find("Exhibit A"), std::string::npos);
    EXPECT_NE(first.find("not included in this exhibit"), std::string::npos) << first;
    EXPECT_NE(first.find("The promise: $400 back by the 15th."), std::string::npos) << first;
    const std::string all = pdfText(pdf, 0) + files::readFile(demoFolder() / "custody-log.jsonl");
    EXPECT_EQ(all.find("movers"), std::string::npos);
    EXPECT_EQ(all.find("Movers"), std::string::npos);
    EXPECT_NE(result.standardOutput.find("  Bates:          SMITH000001 \u2013 SMITH"),
              std::string::npos)
        << result.standardOutput;

    // Page images of an ordinary export continue the same production where the exhibit ended.
    const auto next =
        run({"--export-html", "--demo", "--chats", "1", "--format", "jpg", "--dpi", "144",
             "--paper", "a4", "--bates-prefix", "SMITH", "--bates-digits", "4", "--out", "two"});
    ASSERT_EQ(next.exitStatus, 0) << next.standardError;
    // After the record of the sample import that demo mode seals at start.
    const auto logged = custodyRecords(demoFolder() / "custody-log.jsonl");
    ASSERT_EQ(logged.size(), 3u);
    const auto records = std::vector(logged.begin() + 1, logged.end());
    EXPECT_EQ(records[0].action, "exhibit");
    EXPECT_EQ(records[0].options.at("Redaction"), "1 term; the unredacted record is unchanged");
    EXPECT_EQ(records[0].options.at("Context"), "1 before, 1 after");
    const std::string firstRange = records[0].options.at("Bates");
    const int64_t lastPage = std::stoll(firstRange.substr(firstRange.rfind("SMITH") + 5));
    EXPECT_EQ(lastPage, *records[0].pageCount);
    EXPECT_TRUE(records[1].options.at("Bates").starts_with(
        "SMITH" + std::string(lastPage + 1 < 10 ? "000" : "00") + std::to_string(lastPage + 1)))
        << records[1].options.at("Bates");
    // 595 × 842 points at 144 dpi.
    const auto page = image::load(dir_ / "two" / "page-1.jpg");
    EXPECT_EQ(std::pair(page.width, page.height), std::pair(1190, 1684));
}

// Enough attachments that a snapshot of `database` is still copying when it is interrupted.
void addManyAttachments(const fs::path& database, int count) {
    const std::string bytes(256 * 1024, 'b');
    sqlite::Connection db(database, sqlite::OpenMode::readWriteCreate);
    db.execute("BEGIN");
    for (int number = 0; number < count; ++number) {
        const fs::path file = database.parent_path() / "Attachments" / std::to_string(number);
        testing::writeText(file, bytes + std::to_string(number));
        db.prepare("INSERT INTO attachment (filename) VALUES (?)").bind(1, file.string()).step();
    }
    db.execute("COMMIT");
}

TEST_F(CommandLine, CancelledSnapshotSaysNothingWasKept) {
    ASSERT_EQ(run({"--export-html", "--demo", "--snapshot"}).exitStatus, 0);  // sample written
    const fs::path database = dir_ / "Messages" / "chat.db";
    fs::create_directories(database.parent_path());
    fs::copy_file(demoFolder() / "chat.db", database);
    addManyAttachments(database, 400);
    const fs::path root = dir_ / "home" / "data" / "Kestrove" / "Snapshots";
    BackgroundRun job(dir_.path(),
                      {"--export-html", "--database", database.string(), "--snapshot"});
    const int status = job.interrupt(SIGTERM, 0, [&] {
        std::error_code error;
        return !fs::is_empty(root, error) && !error;
    });
    EXPECT_EQ(status, 1);
    EXPECT_TRUE(job.errors().ends_with("error: Snapshot cancelled. Nothing was kept.\n"))
        << job.errors();
    EXPECT_TRUE(fs::is_empty(root));
}

TEST_F(CommandLine, SearchListsItsHitsAndExportsThemWithTheirRecord) {
    const auto listed = run({"--search", " MOVERS ", "--demo"});
    ASSERT_EQ(listed.exitStatus, 0) << listed.standardError;
    EXPECT_NE(listed.standardOutput.find(": Could you lend me $400 for the movers?"),
              std::string::npos)
        << listed.standardOutput;
    EXPECT_TRUE(listed.standardOutput.ends_with("\n2 hits in 1 conversations\n"))
        << listed.standardOutput;

    EXPECT_EQ(run({"--search", " \n ", "--demo"}).exitStatus, 2);
    EXPECT_EQ(run({"--search", "x", "--sender", "nobody", "--demo"}).exitStatus, 2);
    const auto machine = run({"--search", "movers", "--machine-text", "--demo"});
    EXPECT_NE(machine.standardError.find("No text has been recognised"), std::string::npos);

    const auto exported =
        run({"--search", "movers", "--demo", "--out", "found", "--format", "csv"});
    ASSERT_EQ(exported.exitStatus, 0) << exported.standardError;
    EXPECT_TRUE(fs::exists(dir_ / "found" / "Search results (\u201Cmovers\u201D).csv"));
    const auto records = custodyRecords(demoFolder() / "custody-log.jsonl");
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back().title, "Search results (\u201Cmovers\u201D)");
    EXPECT_EQ(records.back().messageCount, 2);
    EXPECT_EQ(records.back().options.at("Search"), "\u201Cmovers\u201D");
}

// Voice messages go to a stand-in for whisper.cpp, so the run needs no speech model; photos are
// read by the real text recognition.
TEST_F(CommandLine, AnalyzeReadsPendingAttachmentsWhichSearchAndExportsThenShow) {
    fs::create_directories(dir_ / "bin");
    testing::writeText(dir_ / "bin" / "whisper-cli", "#!/bin/sh\necho ' Booked for nine.'\n");
    fs::permissions(dir_ / "bin" / "whisper-cli", fs::perms::owner_all);
    testing::writeText(dir_ / "model.bin", "model");
    testing::ScopedEnvironment path("PATH", (dir_ / "bin").string() + ":" + std::getenv("PATH"));

    EXPECT_EQ(run({"--analyze", "--demo"}).exitStatus, 2);  // which conversations?
    const auto analysed = run(
        {"--analyze", "--chats", "1", "--demo", "--whisper-model", (dir_ / "model.bin").string()});
    ASSERT_EQ(analysed.exitStatus, 0) << analysed.standardError;
    EXPECT_NE(analysed.standardError.find("Read 0 of "), std::string::npos)
        << analysed.standardError;
    EXPECT_TRUE(analysed.standardOutput.starts_with("Read the text of "))
        << analysed.standardOutput;
    EXPECT_NE(analysed.standardOutput.find(" still pending."), std::string::npos)  // photo 4
        << analysed.standardOutput;
    const Json stored = json::decode(files::readFile(demoFolder() / "machine-text.json"));
    const std::string receipt = stored.at("DEMO-ATTACHMENT-2").at("text");
    EXPECT_NE(receipt.find("TOTAL"), std::string::npos) << receipt;
    if (stored.contains("DEMO-ATTACHMENT-VOICE-1")) {  // espeak-ng recorded it at demo start
        EXPECT_EQ(stored.at("DEMO-ATTACHMENT-VOICE-1").at("text"), "Booked for nine.");
    }

    const auto found = run({"--search", "harbour hardware", "--machine-text", "--demo"});
    ASSERT_EQ(found.exitStatus, 0) << found.standardError;
    EXPECT_TRUE(found.standardOutput.ends_with("\n1 hits in 1 conversations\n"))
        << found.standardOutput;
    EXPECT_EQ(run({"--search", "harbour hardware", "--demo"}).standardOutput,
              "0 hits in 0 conversations\n");

    const auto exported = run({"--export-html", "--chats", "1", "--demo", "--out", "archive"});
    ASSERT_EQ(exported.exitStatus, 0) << exported.standardError;
    const std::string csv = files::readFile(dir_ / "archive" / "machine-text.csv");
    EXPECT_NE(csv.find("\"2\",\"imageText\",\"Tesseract OCR "), std::string::npos) << csv;
    const std::string certificate = files::readFile(dir_ / "archive \u2013 Certificate.txt");
    EXPECT_NE(certificate.find("Machine text:     Tesseract OCR "), std::string::npos)
        << certificate;
}

}  // namespace
}  // namespace bc
