#include <atomic>
#include <thread>

#include <QAction>
#include <QListView>
#include <QMenu>
#include <QPushButton>
#include <QScopeGuard>
#include <QTest>

#include "AppFixture.h"
#include "app/custody/Snapshots.h"
#include "app/shell/Availability.h"
#include "app/shell/MainWindow.h"

namespace bc::app::testing {
namespace {

TEST(Availability, ADisabledEntrySaysWhyAndGetsItsOwnTipBackOnceEnabled) {
    application();
    QPushButton button("Save Note");
    button.setToolTip("Saves the note");
    setAvailable(button, "Select a message first.");
    EXPECT_FALSE(button.isEnabled());
    EXPECT_EQ(button.toolTip(), "Select a message first.");
    EXPECT_EQ(button.statusTip(), "Select a message first.");
    setAvailable(button, "Flag it first.");
    setAvailable(button, std::nullopt);
    EXPECT_TRUE(button.isEnabled());
    EXPECT_EQ(button.toolTip(), "Saves the note") << "not the last reason";
    EXPECT_EQ(button.statusTip(), "");

    // An action shows its text again, even when the text changed meanwhile.
    QAction action("Forget Contacts File");
    setAvailable(action, "No contacts file is in use.");
    EXPECT_FALSE(action.isEnabled());
    EXPECT_EQ(action.toolTip(), "No contacts file is in use.");
    action.setText("Forget Contacts File “people.vcf”");
    setAvailable(action, std::nullopt);
    EXPECT_EQ(action.toolTip(), "Forget Contacts File “people.vcf”");

    EXPECT_EQ(firstReason({std::nullopt, reasonIf(false, "no"), reasonIf(true, "yes"), "later"}),
              "yes");
    EXPECT_EQ(firstReason({std::nullopt, reasonIf(false, "no")}), std::nullopt);
}

class AvailabilityTest : public AppTest {
protected:
    void SetUp() override {
        model_ = openModel();
        window_ = std::make_unique<MainWindow>(*model_);
        window_->show();
        select(*model_, 1);
    }
    void TearDown() override {
        window_.reset();
        model_.reset();
    }

    QAction* entry(const QString& menuTitle, const QString& text) {
        for (auto* menu : window_->findChildren<QMenu*>()) {
            if (menu->title() != menuTitle) continue;
            emit menu->aboutToShow();
            for (auto* action : menu->actions())
                if (action->text() == text) return action;
        }
        ADD_FAILURE() << "no " << text.toStdString() << " in " << menuTitle.toStdString();
        return nullptr;
    }
    // The reason a disabled entry gives, or "(enabled)".
    QString reasonOf(const QString& menuTitle, const QString& text) {
        const auto* action = entry(menuTitle, text);
        if (!action) return {};
        EXPECT_EQ(action->statusTip(), action->isEnabled() ? QString() : action->toolTip());
        return action->isEnabled() ? QString("(enabled)") : action->toolTip();
    }
    QString reasonOf(const char* button) {
        const auto* found = window_->findChild<QPushButton*>(button);
        if (!found) return {};
        return found->isEnabled() ? QString("(enabled)") : found->toolTip();
    }

    std::unique_ptr<AppModel> model_;
    std::unique_ptr<MainWindow> window_;
};

TEST_F(AvailabilityTest, WithoutASelectedMessageItsEntriesSayToSelectOne) {
    window_->transcriptView()->setCurrentIndex({});
    const QString select = "Select a message in the conversation first.";
    EXPECT_EQ(reasonOf("Edit", "Copy"), select);
    EXPECT_EQ(reasonOf("flagMessage"), select);
    EXPECT_EQ(reasonOf("saveNote"), select);
    EXPECT_EQ(reasonOf("buildExhibit"),
              "Flag messages first: an exhibit is built from the flagged messages.");
    EXPECT_EQ(reasonOf("File", "Forget Contacts File"), "No contacts file is in use.");
    EXPECT_EQ(reasonOf("Snapshots", "Take Snapshot"), Snapshots::needsLiveText)
        << "a database file is open, not Live Messages";

    window_->transcriptView()->setCurrentIndex(window_->transcriptView()->model()->index(1, 0));
    EXPECT_EQ(reasonOf("Edit", "Copy"), "(enabled)");
    EXPECT_EQ(reasonOf("flagMessage"), "(enabled)");
    EXPECT_EQ(window_->findChild<QPushButton*>("flagMessage")->toolTip(),
              "Flag as evidence: adds this message to the Evidence sidebar");
    window_->findChild<QPushButton*>("flagMessage")->click();
    EXPECT_EQ(reasonOf("buildExhibit"), "(enabled)");
}

TEST_F(AvailabilityTest, WhileAJobRunsTheExportMenuSaysSoAndOnlyCancelIsOffered) {
    std::atomic<bool> release = false;
    const auto releaseJob = qScopeGuard([&] {
        release = true;
        model_->jobs().waitForWork();
    });
    EXPECT_EQ(reasonOf("Export", "PDF…"), "(enabled)");
    EXPECT_EQ(reasonOf("Export", "Cancel Export"), "No export is running.");
    ASSERT_TRUE(model_->jobs().start(
        "Working…",
        [&](const CancelFlag&, const ProgressFn&) {
            while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(5));
            return QString("done");
        },
        [](QString line) { return line; }, [](std::exception_ptr) { return QString(); }));
    for (const char* text : {"PDF…", "Conversation as Text…", "Draft Statement for Counsel…"})
        EXPECT_EQ(reasonOf("Export", text), Jobs::busyText) << text;
    EXPECT_EQ(reasonOf("Snapshots", "Take Snapshot"), Snapshots::needsLiveText);
}

}  // namespace
}  // namespace bc::app::testing
