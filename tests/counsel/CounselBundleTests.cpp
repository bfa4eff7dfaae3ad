#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <zip.h>

#include <csignal>
#include <cstdlib>
#include <random>

#include "counsel/CounselBundle.h"
#include "counsel/ZipReading.h"
#include "custody/CustodyLog.h"
#include "support/Files.h"
#include "support/Process.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
namespace fs = std::filesystem;

constexpr const char* password = "kumquat-Zeppelin-4417";

// The temporary directory and the custody log of one test, each in its own folder.
class CounselBundleTest : public ::testing::Test {
protected:
    void SetUp() override {
        const char* old = std::getenv("TMPDIR");
        oldTemporary_ = old ? std::optional<std::string>(old) : std::nullopt;
        fs::create_directories(temporary());
        ::setenv("TMPDIR", temporary().c_str(), 1);
        CustodyLog::setOverrideURL(log());
        testing::writeText(log(), "");
        CustodyLog::append(sampleLogRecord());
    }
    void TearDown() override {
        CustodyLog::setOverrideURL(std::nullopt);
        if (oldTemporary_)
            ::setenv("TMPDIR", oldTemporary_->c_str(), 1);
        else
            ::unsetenv("TMPDIR");
    }

    static CustodyRecord sampleLogRecord() {
        return {.id = "0F8E3C2A-5B1D-4E6F-9A7B-1C2D3E4F5A6B", .action = "export", .title = "Alex"};
    }

    fs::path temporary() const { return root_ / "tmp"; }
    fs::path log() const { return root_ / "log" / "custody-log.jsonl"; }
    fs::path exports() const { return root_ / "exports"; }
    fs::path out() const { return root_ / "out"; }

    // A PDF with its certificate, an archive folder with its certificate, a file without one.
    std::vector<fs::path> sampleItems() const {
        testing::writeText(exports() / "Alex \u2013 all messages.pdf", "%PDF pretend pages");
        testing::writeText(exports() / "Alex \u2013 all messages \u2013 Certificate.txt", "cert 1");
        testing::writeText(exports() / "Alex archive" / "index.html", "<html>secret words</html>");
        testing::writeText(exports() / "Alex archive" / "attachments" / "IMG_1.jpg", "jpeg");
        testing::writeText(exports() / "Alex archive \u2013 Certificate.txt", "cert 2");
        testing::writeText(exports() / "notes.txt", "no certificate here");
        return {exports() / "Alex \u2013 all messages.pdf", exports() / "Alex archive",
                exports() / "notes.txt"};
    }

    std::vector<std::string> leftovers(const fs::path& folder) const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder))
            names.push_back(entry.path().filename().string());
        return names;
    }

    // Nothing at the destination, nothing staged, no record: the state before the attempt.
    void expectNothingLeft(const std::string& logBefore) const {
        EXPECT_THAT(leftovers(temporary()), ::testing::IsEmpty());
        EXPECT_THAT(leftovers(out()), ::testing::IsEmpty());
        EXPECT_EQ(files::readFile(log()), logBefore);
    }

    CounselBundle::Outcome make(const std::vector<fs::path>& items, const std::string& secret,
                                const CancelFlag& cancel = {}, const ProgressFn& progress = {}) {
        fs::create_directories(out());
        return CounselBundle::make(items, "Alex v. Roe", secret, out() / "bundle.zip", cancel,
                                   progress);
    }

    testing::TempDir root_;
    std::optional<std::string> oldTemporary_;
};

std::optional<std::string> sevenZip() {
    for (const char* name : {"7zz", "7z"})
        if (auto found = findExecutable(name)) return found;
    return std::nullopt;
}

// Every process's argument list, as anyone on the machine can read it.
std::string allArgumentLists() {
    std::string all;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        try {
            all += files::readFile(entry.path() / "cmdline");
        } catch (const std::exception&) {
        }
    }
    return all;
}

TEST(CounselBundlePassword, RulesCountCharactersAndCompareTheConfirmation) {
    EXPECT_EQ(CounselBundle::passwordProblem("1234567", "1234567"), "Use at least 8 characters.");
    EXPECT_EQ(CounselBundle::passwordProblem("\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9",
                                             "\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9"),
              "Use at least 8 characters.");
    EXPECT_EQ(CounselBundle::passwordProblem("12345678", "12345679"), "The passwords don't match.");
    EXPECT_EQ(CounselBundle::passwordProblem("12345678", "12345678"), std::nullopt);
}

TEST_F(CounselBundleTest, CertificateIsTheFileNamedAfterTheItemsBaseName) {
    const auto items = sampleItems();
    EXPECT_EQ(CounselBundle::certificate(items[0]),
              exports() / "Alex \u2013 all messages \u2013 Certificate.txt");
    EXPECT_EQ(CounselBundle::certificate(items[1]),
              exports() / "Alex archive \u2013 Certificate.txt");
    EXPECT_EQ(CounselBundle::certificate(items[2]), std::nullopt);
}

TEST_F(CounselBundleTest, BundleOpensWithThePasswordOnlyAndItsChecksumsVerify) {
    const auto tool = sevenZip();
    if (!tool) GTEST_SKIP() << "7-Zip (7zz) is not installed; scripts/install-deps installs it.";
    const auto items = sampleItems();
    const std::string logBefore = files::readFile(log());
    std::string argumentsWhileEncrypting;
    const auto outcome = make(items, password, {}, [&](const std::string& text) {
        if (text == "Encrypting\u2026") argumentsWhileEncrypting = allArgumentLists();
    });
    ASSERT_EQ(outcome.status, CounselBundle::Outcome::Status::saved) << outcome.message;
    EXPECT_EQ(outcome.message,
              "Encrypted bundle saved to \u201Cbundle.zip\u201D (3 items) and logged. Send the "
              "password separately from the file.");

    // The password is nowhere but in the encryption.
    EXPECT_FALSE(argumentsWhileEncrypting.empty());
    EXPECT_THAT(argumentsWhileEncrypting, ::testing::Not(HasSubstr(password)));
    EXPECT_THAT(leftovers(temporary()), ::testing::IsEmpty());
    const std::string logAfter = files::readFile(log());
    EXPECT_THAT(logAfter, ::testing::Not(HasSubstr(password)));
    EXPECT_THAT(outcome.message, ::testing::Not(HasSubstr(password)));
    const std::string bytes = files::readFile(out() / "bundle.zip");
    EXPECT_THAT(bytes, ::testing::Not(HasSubstr(password)));
    EXPECT_THAT(bytes, ::testing::Not(HasSubstr("secret words")));

    for (const auto& entry : testing::zipEntries(out() / "bundle.zip")) {
        if (entry.name.ends_with("/")) continue;
        EXPECT_EQ(entry.encryption, ZIP_EM_AES_256) << entry.name;
        EXPECT_EQ(entry.unixMode & 0777, entry.name.ends_with(".command") ? 0755u : 0644u)
            << entry.name;
    }

    const fs::path opened = root_ / "opened";
    const auto wrong = runProcess({.executable = *tool,
                                   .arguments = {"x", "-pnot-the-password", "-o" + opened.string(),
                                                 (out() / "bundle.zip").string()}});
    EXPECT_NE(wrong.exitStatus, 0);
    const auto right =
        runProcess({.executable = *tool,
                    .arguments = {"x", std::string("-p") + password, "-y", "-o" + opened.string(),
                                  (out() / "bundle.zip").string()}});
    ASSERT_EQ(right.exitStatus, 0) << right.standardOutput << right.standardError;

    const fs::path volume = opened / "Alex v. Roe";
    std::vector<std::string> contents;
    for (const auto& entry : fs::recursive_directory_iterator(volume))
        if (entry.is_regular_file())
            contents.push_back(entry.path().lexically_relative(volume).generic_string());
    std::sort(contents.begin(), contents.end());
    EXPECT_THAT(contents,
                ::testing::ElementsAre(
                    "Alex archive \u2013 Certificate.txt", "Alex archive/attachments/IMG_1.jpg",
                    "Alex archive/index.html", "Alex \u2013 all messages \u2013 Certificate.txt",
                    "Alex \u2013 all messages.pdf", "README.txt", "Verify checksums.command",
                    "checksums.txt", "custody-log.jsonl", "notes.txt"));
    EXPECT_EQ(files::readFile(volume / "custody-log.jsonl"), logBefore);
    EXPECT_EQ(files::readFile(volume / "Verify checksums.command"), CounselBundle::verifyScript);
    for (const char* check : {"sha256sum -c checksums.txt", "shasum -a 256 -c checksums.txt"}) {
        const auto verified = runProcess(
            {.executable = "sh",
             .arguments = {"-c", "cd \"$1\" && " + std::string(check), "sh", volume.string()}});
        EXPECT_EQ(verified.exitStatus, 0) << check << "\n" << verified.standardOutput;
        EXPECT_THAT(verified.standardOutput, HasSubstr("README.txt: OK"));
    }

    const auto records = CustodyLog::readAll();
    ASSERT_EQ(records.size(), 2u);
    const CustodyRecord& record = records.back();
    EXPECT_EQ(record.action, "bundle");
    EXPECT_EQ(record.title, "3 items for counsel");
    EXPECT_EQ(record.source.kind, "files");
    EXPECT_EQ(record.options.at("Encryption"), "AES-256 encrypted zip; the password is not stored");
    EXPECT_EQ(record.options.at("Contents"),
              "Alex \u2013 all messages.pdf; Alex archive; notes.txt; custody-log.jsonl; "
              "checksums.txt; README.txt; Verify checksums.command");
    ASSERT_EQ(record.outputs.size(), 1u);
    EXPECT_EQ(record.outputs[0].path, (out() / "bundle.zip").string());
    EXPECT_EQ(record.outputs[0].bytes, static_cast<int64_t>(bytes.size()));
}

TEST_F(CounselBundleTest, ReadmeListsEveryItemAndTheKit) {
    const auto items = sampleItems();
    EXPECT_EQ(
        CounselBundle::readme("Alex v. Roe", testing::utc("2024-03-05T14:07:09Z"), items, true),
        "Brindlecourt evidence bundle: Alex v. Roe\n"
        "Created 2024-03-05T14:07:09Z\n"
        "\n"
        "Contents\n"
        "  - Alex \u2013 all messages.pdf, with its certificate \u201CAlex \u2013 all messages "
        "\u2013 Certificate.txt\u201D\n"
        "  - Alex archive, with its certificate \u201CAlex archive \u2013 Certificate.txt\u201D\n"
        "  - notes.txt\n"
        "  - custody-log.jsonl: Brindlecourt's hash-chained chain-of-custody log at the time of "
        "bundling\n"
        "  - checksums.txt: the SHA-256 of every file in this bundle\n"
        "\n"
        "Checking that nothing has changed\n"
        "  On a Mac: double-click \"Verify checksums.command\" (or run: shasum -a 256 -c "
        "checksums.txt).\n"
        "  Every line should end in \"OK\".\n"
        "  On Windows: certutil -hashfile <file> SHA256, and compare with checksums.txt.\n"
        "  Each export's certificate lists the SHA-256 recorded when the export was made.\n");
    EXPECT_THAT(CounselBundle::readme("T", Date{}, {}, false),
                ::testing::Not(HasSubstr("custody-log.jsonl")));
}

TEST_F(CounselBundleTest, RefusalsAndFailuresLeaveNothingBehind) {
    const auto items = sampleItems();
    const std::string logBefore = files::readFile(log());

    auto outcome = make(items, "seven77");
    EXPECT_EQ(outcome.message, "Bundle failed, nothing was saved: Use at least 8 characters.");
    expectNothingLeft(logBefore);

    outcome = make({items[0], exports() / "gone.pdf"}, password);
    EXPECT_EQ(outcome.status, CounselBundle::Outcome::Status::failed);
    EXPECT_EQ(outcome.message,
              "Bundle failed, nothing was saved: Couldn't make the bundle: \u201Cgone.pdf\u201D no "
              "longer exists.");
    expectNothingLeft(logBefore);

    CancelFlag cancel;
    outcome = make(items, password, cancel, [&](const std::string& text) {
        if (text == "Encrypting\u2026") cancel.cancel();
    });
    EXPECT_EQ(outcome.status, CounselBundle::Outcome::Status::cancelled);
    EXPECT_EQ(outcome.message, "Bundle cancelled. Nothing was saved.");
    expectNothingLeft(logBefore);
}

// A full disk, as the file-size limit makes it: the staged copies fit, the bundle does not.
TEST_F(CounselBundleTest, FullDiskAtTheDestinationLeavesNothingBehind) {
    std::mt19937 random(7);
    std::string noise(150 * 1024, '\0');
    for (char& c : noise) c = static_cast<char>(random());
    testing::writeText(exports() / "a.bin", noise);
    testing::writeText(exports() / "b.bin", noise + "b");
    const std::string logBefore = files::readFile(log());

    rlimit old{};
    ::getrlimit(RLIMIT_FSIZE, &old);
    const auto oldSignal = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = old;
    small.rlim_cur = 200 * 1024;
    ::setrlimit(RLIMIT_FSIZE, &small);
    const auto outcome = make({exports() / "a.bin", exports() / "b.bin"}, password);
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, oldSignal);

    EXPECT_EQ(outcome.status, CounselBundle::Outcome::Status::failed);
    EXPECT_THAT(outcome.message, StartsWith("Bundle failed, nothing was saved: Couldn't write "));
    EXPECT_THAT(outcome.message, HasSubstr("File too large"));
    expectNothingLeft(logBefore);
}

TEST_F(CounselBundleTest, FolderOfTenThousandFilesIsBundledWhole) {
    const fs::path folder = exports() / "many";
    fs::create_directories(folder);
    for (int i = 0; i < 10'000; ++i) testing::writeText(folder / (std::to_string(i) + ".txt"), "x");
    const auto outcome = make({folder}, password);
    ASSERT_EQ(outcome.status, CounselBundle::Outcome::Status::saved) << outcome.message;
    const auto entries = testing::zipEntries(out() / "bundle.zip");
    // The files, the volume and item folders, the README, script, checksums and custody log.
    EXPECT_EQ(entries.size(), 10'000u + 2 + 4);
    EXPECT_THAT(leftovers(temporary()), ::testing::IsEmpty());
}

TEST_F(CounselBundleTest, LeftoverStagingFoldersAreRemovedAndNothingElse) {
    testing::writeText(temporary() / "KestroveBundle-1234" / "copy.pdf", "x");
    testing::writeText(temporary() / "someone-else" / "keep.txt", "x");
    CounselBundle::removeLeftovers();
    EXPECT_THAT(leftovers(temporary()), ::testing::ElementsAre("someone-else"));
}

}  // namespace
}  // namespace bc
