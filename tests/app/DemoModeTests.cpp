#include <sys/stat.h>

#include <cstdlib>

#include "AppFixture.h"
#include "custody/CustodyLog.h"
#include "custody/Imports.h"
#include "custody/Preservation.h"
#include "demo/DemoStores.h"
#include "sources/CallHistory.h"

namespace bc::app::testing {
namespace {

// Puts every store back where it was, so later tests are not redirected.
class RestoredStores {
public:
    RestoredStores()
        : evidence_(EvidenceStore::location().override()),
          events_(TimelineEventStore::location().override()),
          presence_(AttachmentWatch::location().override()),
          calls_(CallHistory::overridePath()),
          callDatabase_(CallHistory::overrideDatabasePath()) {}
    ~RestoredStores() {
        EvidenceStore::location().setOverride(evidence_);
        TimelineEventStore::location().setOverride(events_);
        AttachmentWatch::location().setOverride(presence_);
        CallHistory::setOverridePath(calls_);
        CallHistory::setOverrideDatabasePath(callDatabase_);
        CustodyLog::setOverrideURL(std::nullopt);
        Preservation::setOverrideRoot(std::nullopt);
        Imports::setOverrideRoot(std::nullopt);
        DemoData::setEnabled(false);
    }

private:
    std::optional<std::filesystem::path> evidence_, events_, presence_, calls_, callDatabase_;
};

// The window's demo start-up: nothing of the user's is read or written.
TEST(DemoMode, EveryStoreLivesInTheDemoFolderWithASampleCallLog) {
    bc::testing::TempDir temporary;
    const auto previousTemp = std::getenv("TMPDIR");
    setenv("TMPDIR", temporary.path().c_str(), 1);
    RestoredStores restore;
    redirectStoresToDemo();
    const auto folder = DemoData::folder();
    if (previousTemp)
        setenv("TMPDIR", previousTemp, 1);
    else
        unsetenv("TMPDIR");

    EXPECT_EQ(folder.parent_path(), temporary.path());
    EXPECT_EQ(EvidenceStore::location().path(), folder / "evidence.json");
    EXPECT_EQ(TimelineEventStore::url(), folder / "events.json");
    EXPECT_EQ(AttachmentWatch::location().path(), folder / "attachment-presence.json");
    EXPECT_EQ(CustodyLog::url(), folder / "custody-log.jsonl");
    EXPECT_EQ(Preservation::root(), folder / "Snapshots");
    EXPECT_EQ(CallHistory::overridePath(), folder / "CallHistory.storedata");
    EXPECT_FALSE(CallHistory::readAll(folder / "CallHistory.storedata").empty());
}

ino_t fileNumber(const std::filesystem::path& file) {
    struct stat status {};
    EXPECT_EQ(::stat(file.c_str(), &status), 0) << file;
    return status.st_ino;
}

// The sample databases are written once per start: a rewrite would replace the files.
TEST(DemoMode, SwitchingBackToTheSampleDatabaseDoesNotWriteItAgain) {
    bc::testing::TempDir temporary;
    const bc::testing::ScopedEnvironment temp("TMPDIR", temporary.path().string());
    RestoredStores restore;
    application();
    const auto database = redirectStoresToDemo();
    const auto calls = DemoData::folder() / "CallHistory.storedata";
    const auto written = std::pair(fileNumber(database), fileNumber(calls));
    const auto other = temporary / "other" / "chat.db";
    DemoData::writeMessagesDatabase(other, Clock::now());

    AppModel model;
    model.setLiveDatabase(database);
    const auto open = [&](const std::function<void()>& opening, const std::filesystem::path& path) {
        opening();
        ASSERT_TRUE(waitFor([&] {
            return model.state() == AppModel::State::ready && model.source() &&
                   model.source()->path() == path.string();
        })) << model.stateMessage().toStdString();
    };
    open([&] { model.openLive(); }, database);
    open([&] { model.openSource(other, AppModel::SourceKind::file); }, other);
    open([&] { model.openLive(); }, database);
    EXPECT_EQ(model.sourceKind(), AppModel::SourceKind::live);
    EXPECT_EQ(std::pair(fileNumber(database), fileNumber(calls)), written);
}

}  // namespace
}  // namespace bc::app::testing
