// --import, --list-sources and the imports' verification, run as a user runs the program.
#include <gtest/gtest.h>

#include <cstdlib>

#include "custody/CustodyLog.h"
#include "custody/Preservation.h"
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
            if (entry.is_directory()) Preservation::unlock(entry.path());
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

}  // namespace
}  // namespace bc
