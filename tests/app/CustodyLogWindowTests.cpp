#include <QAction>
#include <QSettings>

#include "AppFixture.h"
#include "app/custody/CustodyLogWindow.h"
#include "app/shell/MainWindow.h"
#include "custody/CustodyLog.h"
#include "sources/CallHistory.h"
#include "support/Files.h"
#include "support/Uuid.h"

namespace bc::app::testing {
namespace {

namespace fs = std::filesystem;

class CustodyWindowTest : public AppTest {
protected:
    CustodyWindowTest() { CustodyLog::setOverrideURL(log()); }
    ~CustodyWindowTest() override { CustodyLog::setOverrideURL(std::nullopt); }

    fs::path log() const { return folder_ / "custody-log.jsonl"; }

    static void appendExport(const std::string& title, std::vector<int64_t> chatIDs) {
        CustodyRecord record;
        record.id = newUUID();
        record.createdAt = Clock::now();
        record.action = "export";
        record.format = "HTML archive";
        record.title = title;
        record.chatIDs = std::move(chatIDs);
        record.rangeDescription = "Everything";
        record.outputs = {{.path = "/exports/" + title + ".html", .bytes = 12, .sha256 = "ab"}};
        CustodyLog::append(record);
    }
};

TEST_F(CustodyWindowTest, ShowsTheOpenConversationsRecordsAndEveryVerdict) {
    auto model = openModel();
    select(*model, 1);
    CustodyLogWindow window(*model);
    window.verify();
    EXPECT_EQ(window.verdict(), "The custody log is empty.");

    appendExport("First", {1});
    appendExport("Crew", {7});
    appendExport("Second", {2, 1});
    window.showRecords();
    ASSERT_EQ(window.records().size(), 2u);
    EXPECT_EQ(window.records()[0].title, "Second") << "newest first";
    EXPECT_EQ(window.records()[1].title, "First");
    const QString details = describeRecord(window.records()[0]);
    EXPECT_TRUE(details.contains("/exports/Second.html"));
    EXPECT_TRUE(details.contains("This record SHA-256:     " +
                                 QString::fromStdString(window.records()[0].recordSHA256)));
    window.verify();
    EXPECT_EQ(window.verdict(), "Custody log intact: all 3 records chain correctly.");

    // Every record, those of other conversations and snapshots of all of them included.
    appendExport("Snapshot of everything", {});
    window.setShowingEveryRecord(true);
    ASSERT_EQ(window.records().size(), 4u);
    EXPECT_EQ(window.records()[0].title, "Snapshot of everything");
    EXPECT_EQ(window.records()[2].title, "Crew");
    window.setShowingEveryRecord(false);
    EXPECT_EQ(window.records().size(), 2u);

    std::string lines = files::readFile(log());
    lines.replace(lines.find("Crew"), 4, "Crow");
    bc::testing::writeText(log(), lines);
    window.verify();
    EXPECT_EQ(window.verdict(), "WARNING: custody log broken at record 2 of 4.");

    fs::remove(log());
    fs::create_directory(log());
    window.verify();
    EXPECT_TRUE(window.verdict().startsWith("Couldn't read the custody log: "));
    window.showRecords();
    EXPECT_TRUE(window.records().empty());
}

// Calls of the sample call log are offered for the sample database; the setting is kept in the
// preferences and read by the next model.
class CallsSettingTest : public AppTest {
protected:
    CallsSettingTest()
        : calls_(CallHistory::overridePath()), callDatabase_(CallHistory::overrideDatabasePath()) {
        DemoData::writeCallLog(folder_ / "CallHistory.storedata", DemoData::sampleCalls(),
                               Clock::now());
        CallHistory::setOverridePath(folder_ / "CallHistory.storedata");
        CallHistory::setOverrideDatabasePath(database());
    }
    ~CallsSettingTest() override {
        QSettings().remove("calls/isEnabled");
        CallHistory::setEnabled(true);
        CallHistory::setOverridePath(calls_);
        CallHistory::setOverrideDatabasePath(callDatabase_);
    }

    static size_t callRows(const AppModel& model) {
        const auto& rows = model.transcript().rows;
        return std::count_if(rows.begin(), rows.end(),
                             [](const Message& row) { return row.isCall(); });
    }

    std::optional<fs::path> calls_, callDatabase_;
};

TEST_F(CallsSettingTest, TheMenuEntrySwitchesCallRowsAndIsRemembered) {
    auto model = openModel();
    MainWindow window(*model);
    select(*model, 1);
    ASSERT_GT(callRows(*model), 0u);
    auto* entry = window.findChild<QAction*>("includeCalls");
    ASSERT_NE(entry, nullptr);
    EXPECT_TRUE(entry->isChecked());

    entry->trigger();
    ASSERT_TRUE(waitFor([&] { return !model->isBusy() && callRows(*model) == 0; }));
    EXPECT_FALSE(model->transcript().rows.empty());
    window.close();
    model.reset();
    CallHistory::setEnabled(true);  // as at a fresh launch, before the preferences are read

    auto relaunched = openModel();
    EXPECT_FALSE(relaunched->callsIncluded());
    select(*relaunched, 1);
    EXPECT_EQ(callRows(*relaunched), 0u);
    relaunched->setCallsIncluded(true);
    ASSERT_TRUE(waitFor([&] { return !relaunched->isBusy() && callRows(*relaunched) > 0; }));
}

}  // namespace
}  // namespace bc::app::testing
