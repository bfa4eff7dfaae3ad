// --import BACKUP_FOLDER as a user runs it: the password on standard input, never an argument.
#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "custody/SnapshotLock.h"
#include "support/Files.h"
#include "support/Process.h"
#include "testing/IPhoneBackupWriter.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;

class BackupImportCommand : public ::testing::Test {
protected:
    void SetUp() override {
        for (const auto* name : {"home", "tmp"}) fs::create_directories(dir_ / name);
        entries_ = testing::demoBackupEntries(dir_ / "scratch");
    }
    void TearDown() override {
        std::error_code error;
        for (const auto& entry :
             fs::directory_iterator(dir_ / "data" / "Kestrove" / "Imports", error))
            if (entry.is_directory()) snapshotLock::unlock(entry.path());
    }

    ProcessResult run(const std::vector<std::string>& arguments,
                      const std::string& standardInput = {}) const {
        const char* program = std::getenv("BC_EXECUTABLE");
        std::vector<std::string> shell{"-c",
                                       "cd \"$0\" && exec env HOME=\"$0/home\" "
                                       "XDG_DATA_HOME=\"$0/data\" TMPDIR=\"$0/tmp\" \"$@\"",
                                       dir_.path().string(),
                                       program ? program : BC_BINARY_DIR "/brindlecourt"};
        shell.insert(shell.end(), arguments.begin(), arguments.end());
        return runProcess({.executable = "/bin/sh",
                           .arguments = shell,
                           .standardInput = standardInput,
                           .timeoutSeconds = 120});
    }
    ProcessResult importBackup(const std::string& standardInput) const {
        return run({"--import", "backup"}, standardInput);
    }

    testing::TempDir dir_;
    std::vector<testing::BackupEntry> entries_;
};

TEST_F(BackupImportCommand, ReadsThePasswordFromStandardInputAndNamesWhatIsMissing) {
    const auto& photo = entries_.front();
    ASSERT_EQ(photo.domain, "MediaDomain");
    testing::writeIPhoneBackup(dir_ / "backup", entries_, {.password = "correct horse"});
    const std::string id = testing::backupFileID(photo);
    fs::remove(dir_ / "backup" / id.substr(0, 2) / id);

    const auto wrong = importBackup("battery staple\n");
    EXPECT_EQ(wrong.exitStatus, 1);
    EXPECT_EQ(wrong.standardOutput, "");
    EXPECT_NE(wrong.standardError.find("error: The backup password is not correct.\n"),
              std::string::npos)
        << wrong.standardError;
    EXPECT_EQ(wrong.standardError.find("battery"), std::string::npos);

    const auto none = importBackup("");
    EXPECT_EQ(none.exitStatus, 1);
    EXPECT_NE(none.standardError.find("no backup password was given."), std::string::npos)
        << none.standardError;
    EXPECT_FALSE(fs::exists(dir_ / "data" / "Kestrove" / "custody-log.jsonl"));

    const auto imported = importBackup("correct horse\n");
    ASSERT_EQ(imported.exitStatus, 0) << imported.standardError;
    const std::string& out = imported.standardOutput;
    EXPECT_TRUE(out.starts_with("Done. iPhone ")) << out;
    EXPECT_NE(out.find("  Device \u201CAlex's iPhone\u201D, model iPhone14,2, iOS 17.4.1"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("  MediaDomain " + photo.relativePath + ": not in this backup\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(imported.standardError.find("correct horse"), std::string::npos);
}

TEST_F(BackupImportCommand, TheWhatsAppOfABackupIsASourceOfItsOwn) {
    for (auto& entry : testing::whatsAppBackupEntries(dir_ / "scratch"))
        entries_.push_back(std::move(entry));
    testing::writeIPhoneBackup(dir_ / "backup", entries_);
    ASSERT_EQ(importBackup("").exitStatus, 0);

    const auto listed = run({"--list-sources"}).standardOutput;
    const std::regex whatsAppLine(
        "\nimport:(iPhone [^\t/]+)/whatsapp\tWhatsApp of an imported "
        "iPhone backup \\(sealed on import\\): Alex's iPhone\n");
    std::smatch found;
    ASSERT_TRUE(std::regex_search(listed, found, whatsAppLine)) << listed;
    EXPECT_NE(listed.find("\nimport:" + found[1].str() + "\tImported iPhone backup"),
              std::string::npos)
        << listed;

    const auto exported =
        run({"--export-html", "--source", "import:" + found[1].str() + "/whatsapp", "--chats", "7",
             "--out", "wa"});
    ASSERT_EQ(exported.exitStatus, 0) << exported.standardError;
    EXPECT_NE(exported.standardOutput.find("\n  messages:       2\n"), std::string::npos)
        << exported.standardOutput;
    EXPECT_NE(files::readFile(dir_ / "wa" / "messages.csv").find("hello from the phone"),
              std::string::npos);
}

}  // namespace
}  // namespace bc
