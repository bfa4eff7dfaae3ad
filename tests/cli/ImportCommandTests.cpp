// --import, --list-sources, exports from a chosen source and the imports' verification, run as
// a user runs the program.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "custody/CustodyLog.h"
#include "custody/Preservation.h"
#include "custody/SnapshotLock.h"
#include "demo/DemoData.h"
#include "demo/DemoWriters.h"
#include "support/Files.h"
#include "support/Process.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;

class ImportCommand : public ::testing::Test {
protected:
    void SetUp() override {
        for (const auto* name : {"home", "tmp"}) fs::create_directories(dir_ / name);
    }
    void TearDown() override {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(importsRoot(), error))
            if (entry.is_directory()) snapshotLock::unlock(entry.path());
    }

    // The program in the test's folder, with its own home and data folders.
    ProcessResult run(std::vector<std::string> arguments) const {
        const char* program = std::getenv("BC_EXECUTABLE");
        arguments.insert(arguments.begin(),
                         {"-c",
                          "cd \"$0\" && exec env HOME=\"$0/home\" XDG_DATA_HOME=\"$0/data\" "
                          "TMPDIR=\"$0/tmp\" \"$@\"",
                          dir_.path().string(), program ? program : BC_BINARY_DIR "/brindlecourt"});
        return runProcess({.executable = "/bin/sh", .arguments = arguments, .timeoutSeconds = 120});
    }

    fs::path importsRoot() const { return dir_ / "data" / "Kestrove" / "Imports"; }
    fs::path demoFolder() const { return dir_ / "tmp" / "Kestrove-Demo"; }

    std::vector<CustodyRecord> records(const fs::path& log) const {
        CustodyLog::setOverrideURL(log);
        auto all = CustodyLog::readAll();
        CustodyLog::setOverrideURL(std::nullopt);
        return all;
    }
    std::vector<CustodyRecord> ownRecords() const {
        return records(dir_ / "data" / "Kestrove" / "custody-log.jsonl");
    }

    // The identifiers --list-sources prints, in its order.
    std::vector<std::string> sources(std::vector<std::string> arguments = {}) const {
        arguments.push_back("--list-sources");
        std::vector<std::string> found;
        std::istringstream lines(run(arguments).standardOutput);
        for (std::string line; std::getline(lines, line);)
            found.push_back(line.substr(0, line.find('\t')));
        return found;
    }

    testing::TempDir dir_;
};

TEST_F(ImportCommand, ImportsListsAndVerifies) {
    testing::writeText(dir_ / "chat.txt",
                       "01/02/2021, 10:00 - Ann: a\n05/06/2021, 10:00 - Me: b\n");
    const auto imported = run({"--import", "chat.txt", "--chat-name", "Ann", "--owner", "Me",
                               "--time-zone", "UTC", "--month-first"});
    ASSERT_EQ(imported.exitStatus, 0) << imported.standardError;
    const std::string& out = imported.standardOutput;
    EXPECT_TRUE(out.starts_with("Done. WhatsApp ")) << out;
    EXPECT_NE(out.find(importsRoot().string()), std::string::npos) << out;
    EXPECT_NE(out.find("  note: Day/month order couldn't be determined from the file; read as "
                       "month/day, as fixed when it was first opened.\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("  note: WhatsApp exports have no time zone; times read as UTC\n"),
              std::string::npos);
    EXPECT_TRUE(out.ends_with("  messages: 2\n")) << out;

    const auto listed = run({"--list-sources"});
    ASSERT_EQ(listed.exitStatus, 0) << listed.standardError;
    EXPECT_TRUE(listed.standardOutput.starts_with("messages\tLive Messages ("));
    EXPECT_NE(listed.standardOutput.find("\nimport:WhatsApp "), std::string::npos);
    EXPECT_NE(
        listed.standardOutput.find("\tImported WhatsApp chat export (sealed on import): Ann\n"),
        std::string::npos)
        << listed.standardOutput;

    const auto verified = run({"--export-html", "--verify-snapshots"});
    EXPECT_EQ(verified.exitStatus, 0) << verified.standardOutput;
    EXPECT_NE(verified.standardOutput.find(" verified: all 2 files match their SHA-256.\n"),
              std::string::npos)
        << verified.standardOutput;
}

TEST_F(ImportCommand, FailuresSayNothingWasKept) {
    testing::writeText(dir_ / "notes.pdf", "x");
    const auto refused = run({"--import", "notes.pdf"});
    EXPECT_EQ(refused.exitStatus, 1);
    EXPECT_EQ(refused.standardError,
              "error: Import failed, nothing was kept: Choose a WhatsApp chat export (.zip or "
              ".txt) or a ChatStorage.sqlite file.\n");
    EXPECT_FALSE(fs::exists(importsRoot()));
    EXPECT_EQ(run({"--import", "chat.txt", "--day-first", "--month-first"}).exitStatus, 2);
}

TEST_F(ImportCommand, ExportsReadTheChosenSourceAndRecordWhatItWas) {
    const fs::path live = dir_ / "home" / "Library" / "Messages" / "chat.db";
    fs::create_directories(live.parent_path());
    DemoData::writeMessagesDatabase(live, Clock::now());
    testing::writeText(dir_ / "chat.txt",
                       "13/02/2021, 10:00 - Ann: a\n14/02/2021, 10:00 - Me: b\n");
    ASSERT_EQ(run({"--import", "chat.txt", "--owner", "Me"}).exitStatus, 0);
    ASSERT_EQ(run({"--export-html", "--snapshot"}).exitStatus, 0);
    const auto listed = sources();
    ASSERT_EQ(listed.size(), 3u);
    EXPECT_EQ(listed[0], "messages");
    ASSERT_TRUE(listed[1].starts_with("snapshot:Snapshot "));
    ASSERT_TRUE(listed[2].starts_with("import:WhatsApp "));

    struct Case {
        std::string source, kind, certificateKind;
        size_t messages;
    };
    const std::vector<Case> cases{
        {"messages", "live", "Live Messages database on this computer", 0},
        {listed[1], "snapshot", "Preservation snapshot " + listed[1].substr(9), 0},
        {listed[2], "whatsapp-export-import", "Imported WhatsApp chat export (sealed on import)",
         2},
    };
    int run_ = 0;
    for (const auto& [source, kind, certificateKind, messages] : cases) {
        const std::string out = "out-" + std::to_string(++run_);
        const auto exported = run(
            {"--export-html", "--source", source, "--chats", "1", "--title", "Chat", "--out", out});
        ASSERT_EQ(exported.exitStatus, 0) << source << exported.standardError;
        if (messages > 0) {
            EXPECT_NE(exported.standardOutput.find("\n  messages:       2\n"), std::string::npos)
                << exported.standardOutput;
        }
        const auto record = ownRecords().back();
        EXPECT_EQ(record.source.kind, kind) << source;
        const std::string certificate = files::readFile(dir_ / (out + " \u2013 Certificate.txt"));
        EXPECT_NE(certificate.find("\nKind:             " + certificateKind + "\n"),
                  std::string::npos)
            << certificate;
    }
    const auto importRecord = ownRecords().back().source;
    EXPECT_NE(importRecord.note->find("Uploaded file chat.txt, "), std::string::npos);

    // Sources that are not there, now or any more: one sentence, status 1, nothing written.
    const std::string whatsApp = (dir_ / "home" / "Library" / "Group Containers" /
                                  "group.net.whatsapp.WhatsApp.shared" / "ChatStorage.sqlite")
                                     .string();
    const std::vector<std::pair<std::string, std::string>> absent{
        {"import:Nope",
         "Couldn't open the source \u201Cimport:Nope\u201D: there is no import "
         "with that identifier (--list-sources lists them)."},
        {"snapshot:Nope",
         "Couldn't open the source \u201Csnapshot:Nope\u201D: there is no "
         "snapshot with that identifier (--list-sources lists them)."},
        {"whatsapp",
         "Couldn't open the source \u201Cwhatsapp\u201D: there is no WhatsApp for "
         "Mac database at " +
             whatsApp + "."},
    };
    for (const auto& [source, sentence] : absent) {
        const auto refused =
            run({"--export-html", "--source", source, "--chats", "1", "--out", "never"});
        EXPECT_EQ(refused.exitStatus, 1) << source;
        EXPECT_EQ(refused.standardError, "error: " + sentence + "\n");
    }
    snapshotLock::unlock(importsRoot() / listed[2].substr(7));
    fs::remove_all(importsRoot() / listed[2].substr(7));
    const auto vanished =
        run({"--export-html", "--source", listed[2], "--chats", "1", "--out", "never"});
    EXPECT_EQ(vanished.exitStatus, 1);
    EXPECT_NE(vanished.standardError.find("there is no import with that identifier"),
              std::string::npos);
    for (const auto& wrong :
         {std::vector<std::string>{"--source", "imports:x"},
          std::vector<std::string>{"--source", "snapshot:"},
          std::vector<std::string>{"--source", "messages", "--database", "x"}}) {
        auto arguments =
            std::vector<std::string>{"--export-html", "--chats", "1", "--out", "never"};
        arguments.insert(arguments.end(), wrong.begin(), wrong.end());
        EXPECT_EQ(run(arguments).exitStatus, 2) << wrong[1];
    }
    EXPECT_FALSE(fs::exists(dir_ / "never"));
    EXPECT_EQ(ownRecords().size(), 5u);  // the import, the snapshot and three exports
}

// A ChatStorage file given with --database is read as WhatsApp's and recorded as a file the user
// chose; its folder stays exactly as it was.
TEST_F(ImportCommand, DatabaseOptionTakesAChatStorageFile) {
    const fs::path file = dir_ / "copied" / "ChatStorage.sqlite";
    fs::create_directories(file.parent_path());
    demo::writeChatStorage(
        file,
        "INSERT INTO ZWACHATSESSION (Z_PK, ZCONTACTJID, ZPARTNERNAME, ZSESSIONTYPE) VALUES "
        "(7, '4915112345678@s.whatsapp.net', 'Ann', 0);"
        "INSERT INTO ZWAMESSAGE (Z_PK, ZCHATSESSION, ZMESSAGETYPE, ZMESSAGEDATE, ZTEXT, "
        "ZISFROMME, ZSTANZAID) VALUES (1, 7, 0, 700000000, 'hello', 0, 's1'),"
        "(2, 7, 0, 700000060, 'hi Ann', 1, 's2');");
    const auto before = testing::folderState(file.parent_path());
    const auto exported =
        run({"--export-html", "--database", file.string(), "--chats", "7", "--out", "wa"});
    ASSERT_EQ(exported.exitStatus, 0) << exported.standardError;
    EXPECT_NE(exported.standardOutput.find("\n  messages:       2\n"), std::string::npos);
    EXPECT_EQ(testing::folderState(file.parent_path()), before);
    const auto record = ownRecords().at(0);
    EXPECT_EQ(record.source.kind, "files");
    EXPECT_EQ(record.source.path, file.string());
    EXPECT_NE(files::readFile(dir_ / "wa" / "messages.csv").find("hi Ann"), std::string::npos);
    EXPECT_NE(files::readFile(dir_ / "wa \u2013 Certificate.txt")
                  .find("\nKind:             Files chosen by the user\n"),
              std::string::npos);
    EXPECT_NE(files::readFile(dir_ / "wa" / "Messages \u2013 Messages.html")
                  .find("the WhatsApp database file " + file.string() + " (read-only)"),
              std::string::npos);
}

// Demo mode seals its sample WhatsApp export once, through the import path, and lists it.
TEST_F(ImportCommand, DemoModeHoldsOneSealedSampleImport) {
    const auto listed = run({"--demo", "--list-sources"});
    ASSERT_EQ(listed.exitStatus, 0) << listed.standardError;
    EXPECT_EQ(listed.standardError, "");
    EXPECT_NE(listed.standardOutput.find("\tImported WhatsApp chat export (sealed on import): "
                                         "Sam Taylor (WhatsApp)\n"),
              std::string::npos)
        << listed.standardOutput;
    const auto again = sources({"--demo"});
    ASSERT_EQ(again.size(), 2u);
    EXPECT_TRUE(again[1].starts_with("import:WhatsApp "));
    const auto log = records(demoFolder() / "custody-log.jsonl");
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].action, "whatsapp-export-import");
    EXPECT_FALSE(fs::exists(demoFolder() / "WhatsApp Chat - Sam Taylor.zip"));

    const auto exported =
        run({"--demo", "--export-html", "--source", again[1], "--chats", "1", "--out", "wa"});
    ASSERT_EQ(exported.exitStatus, 0) << exported.standardError;
    EXPECT_NE(exported.standardOutput.find("\n  messages:       11\n  attachments:    2 copied, "
                                           "0 not on "),
              std::string::npos)
        << exported.standardOutput;
    const std::string page = files::readFile(dir_ / "wa" / "messages.csv");
    EXPECT_NE(page.find("Sam Taylor"), std::string::npos);
    const auto verified = run({"--demo", "--export-html", "--verify-snapshots"});
    EXPECT_EQ(verified.exitStatus, 0) << verified.standardOutput;
    EXPECT_NE(verified.standardOutput.find("custody log: 2 records, chain intact\n"),
              std::string::npos)
        << verified.standardOutput;
    for (const auto& entry : fs::directory_iterator(demoFolder() / "Imports"))
        if (entry.is_directory()) snapshotLock::unlock(entry.path());
}

}  // namespace
}  // namespace bc
