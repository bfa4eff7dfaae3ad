// "--statement" and "--bundle" run as a user runs them, each test with its own home and
// temporary folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "counsel/ZipReading.h"
#include "support/Files.h"
#include "support/Process.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using ::testing::HasSubstr;
namespace fs = std::filesystem;

constexpr const char* password = "quince-Marmalade-0093";

class CounselCommands : public ::testing::Test {
protected:
    void SetUp() override {
        for (const auto* name : {"home", "tmp", "items"}) fs::create_directories(dir_ / name);
    }

    ProcessResult brindlecourt(std::vector<std::string> arguments,
                               const std::string& input = "") const {
        const char* built = std::getenv("BC_EXECUTABLE");
        arguments.insert(arguments.begin(), {"HOME=" + (dir_ / "home").string(),
                                             "XDG_DATA_HOME=" + (dir_ / "home" / "data").string(),
                                             "TMPDIR=" + (dir_ / "tmp").string(),
                                             built ? built : BC_BINARY_DIR "/brindlecourt"});
        return runProcess({.executable = "env",
                           .arguments = std::move(arguments),
                           .standardInput = input,
                           .timeoutSeconds = 300});
    }

    fs::path log() const { return dir_ / "tmp" / "Kestrove-Demo" / "custody-log.jsonl"; }

    testing::TempDir dir_;
};

TEST_F(CounselCommands, StatementOfADemoConversation) {
    const fs::path draft = dir_ / "draft.docx";
    auto result = brindlecourt({"--demo", "--statement", "--chats", "1"});
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_THAT(result.standardError, HasSubstr("usage: brindlecourt --statement"));

    result = brindlecourt({"--demo", "--statement", "--chats", "1", "--out", draft.string()});
    ASSERT_EQ(result.exitStatus, 0) << result.standardError;
    EXPECT_EQ(result.standardOutput, "Draft statement saved to \u201Cdraft.docx\u201D\n");
    const auto xml = testing::zipEntryText(draft, "word/document.xml").value();
    EXPECT_THAT(xml, HasSubstr("No exports are recorded for this conversation yet."));
    EXPECT_THAT(xml, HasSubstr("were read from the Messages database at " +
                               (dir_ / "tmp" / "Kestrove-Demo" / "chat.db").string()));

    result = brindlecourt({"--demo", "--statement", "--chats", "1", "--out", draft.string()});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.standardError, HasSubstr("already exists; choose a new file"));
}

TEST_F(CounselCommands, BundleReadsThePasswordFromStandardInputOnly) {
    testing::writeText(dir_ / "items" / "export.pdf", "%PDF pretend");
    const fs::path bundle = dir_ / "bundle.zip";
    const std::vector<std::string> arguments{"--demo",
                                             "--bundle",
                                             "--title",
                                             "Case 12",
                                             "--out",
                                             bundle.string(),
                                             (dir_ / "items" / "export.pdf").string()};

    auto result = brindlecourt(arguments, "seven77\n");
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.standardError, "error: Use at least 8 characters.\n");
    auto withPassword = arguments;
    withPassword.insert(withPassword.begin() + 2, {"--password", password});
    result = brindlecourt(withPassword, std::string(password) + "\n");
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_THAT(result.standardError, HasSubstr("Unknown option --password."));
    EXPECT_FALSE(fs::exists(bundle));

    result = brindlecourt(arguments, std::string(password) + "\n");
    ASSERT_EQ(result.exitStatus, 0) << result.standardError;
    EXPECT_EQ(result.standardOutput,
              "Encrypted bundle saved to \u201Cbundle.zip\u201D (1 items) and logged. Send the "
              "password separately from the file.\n");
    EXPECT_THAT(result.standardError, HasSubstr("Encrypting\u2026\n"));
    EXPECT_THAT(result.standardOutput + result.standardError + files::readFile(log()),
                ::testing::Not(HasSubstr(password)));
    EXPECT_THAT(files::readFile(log()), HasSubstr("\"action\":\"bundle\""));
    const auto entries = testing::zipEntries(bundle);
    EXPECT_TRUE(std::any_of(entries.begin(), entries.end(),
                            [](const auto& entry) { return entry.name == "Case 12/export.pdf"; }));
    const std::vector<fs::path> temporary(fs::directory_iterator(dir_ / "tmp"), {});
    EXPECT_THAT(temporary, ::testing::ElementsAre(dir_ / "tmp" / "Kestrove-Demo"));
}

TEST_F(CounselCommands, BundleOfAMissingItemFailsAndLeavesNothing) {
    const fs::path bundle = dir_ / "bundle.zip";
    const auto result = brindlecourt({"--bundle", "--title", "Case", "--out", bundle.string(),
                                      (dir_ / "items" / "gone.pdf").string()},
                                     std::string(password) + "\n");
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.standardError,
              "error: Bundle failed, nothing was saved: Couldn't make the "
              "bundle: \u201Cgone.pdf\u201D no longer exists.\n");
    EXPECT_FALSE(fs::exists(bundle));
    EXPECT_TRUE(fs::is_empty(dir_ / "tmp"));
}

}  // namespace
}  // namespace bc
