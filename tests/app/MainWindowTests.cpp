#include <QAbstractItemModelTester>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>

#include "AppFixture.h"
#include "app/shell/MainWindow.h"
#include "app/sources/SourceSwitcher.h"
#include "app/transcript/TranscriptModel.h"
#include "custody/CustodySystemInfo.h"
#include "support/Sqlite.h"

namespace bc::app::testing {
namespace {

class WindowTest : public AppTest {
protected:
    // The window on chat 1 of the sample, its first row current.
    void openWindow() {
        model_ = openModel();
        window_ = std::make_unique<MainWindow>(*model_);
        // Every reset and every row the tests cause is checked against Qt's model contract.
        tester_ = std::make_unique<QAbstractItemModelTester>(
            view().model(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        window_->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window_.get()));
        select(*model_, 1);
        QCoreApplication::processEvents();
        window_->transcriptView()->setCurrentIndex(view().model()->index(0, 0));
    }

    QListView& view() const { return *window_->transcriptView(); }
    int currentRow() const { return view().currentIndex().row(); }
    std::optional<size_t> currentDay() const {
        return model_->transcript().timeline.dayIndex(model_->transcript().rows[currentRow()].id);
    }

    std::unique_ptr<AppModel> model_;
    std::unique_ptr<MainWindow> window_;
    std::unique_ptr<QAbstractItemModelTester> tester_;
};

TEST_F(WindowTest, JumpsStepDayByDayAndStopAtTheEnds) {
    openWindow();
    const auto& days = model_->transcript().timeline.days;
    ASSERT_GE(days.size(), 3u);
    window_->jump(1);
    EXPECT_EQ(currentDay(), 1u);
    EXPECT_EQ(static_cast<size_t>(currentRow()), model_->rowOfDay(1));
    auto* tree = window_->findChild<QTreeWidget*>("timeline");
    ASSERT_TRUE(tree->currentItem()) << "the timeline marks the day moved to";
    EXPECT_EQ(tree->currentItem()->childCount(), 0) << "the day itself, not its month";
    EXPECT_EQ(tree->currentItem()->data(0, Qt::UserRole + 1).toLongLong(), days[1].firstMessageID);
    window_->jump(1);
    EXPECT_EQ(currentDay(), 2u);
    window_->jump(-1);
    EXPECT_EQ(currentDay(), 1u);
    window_->jump(-1);
    window_->jump(-1);
    EXPECT_EQ(currentDay(), 0u) << "never before the first day";
    for (size_t step = 0; step <= days.size(); ++step) window_->jump(1);
    EXPECT_EQ(currentDay(), days.size() - 1) << "never past the last day";
}

TEST_F(WindowTest, KeysJumpLikeTheButtons) {
    openWindow();
    QApplication::setActiveWindow(window_.get());
    QTest::keyClick(window_.get(), Qt::Key_BracketRight, Qt::ControlModifier);
    EXPECT_EQ(currentDay(), 1u);
    QTest::keyClick(window_.get(), Qt::Key_Left, Qt::AltModifier);
    EXPECT_EQ(currentDay(), 0u);
}

TEST_F(WindowTest, TheTimelineTreeAndEvidenceSidebarFollowTheModel) {
    openWindow();
    auto* tree = window_->findChild<QTreeWidget*>("timeline");
    ASSERT_NE(tree, nullptr);
    ASSERT_EQ(tree->topLevelItemCount(),
              static_cast<int>(model_->transcript().timeline.roots.size()));
    EXPECT_EQ(tree->topLevelItem(0)->text(0),
              QString::fromStdString(model_->transcript().timeline.roots[0].label));

    auto* evidence = window_->findChild<QListWidget*>("evidence");
    ASSERT_NE(evidence, nullptr);
    EXPECT_EQ(evidence->count(), 0);
    const Message flagged = model_->transcript().messages()[2];
    model_->setNote("Keep this", flagged);
    ASSERT_EQ(evidence->count(), 1);
    EXPECT_TRUE(evidence->item(0)->text().contains("Keep this"));

    // A period the user opened stays open when an event is saved and the tree is built again.
    auto* month = tree->topLevelItem(0)->child(0);
    ASSERT_TRUE(month);
    month->setExpanded(true);
    const auto monthName = month->text(0);
    auto event = *model_->startAddingEvent(flagged.date);
    event.title = "Hearing";
    model_->saveEvent(event);
    ASSERT_TRUE(waitFor([&] {
        return std::any_of(model_->transcript().rows.begin(), model_->transcript().rows.end(),
                           [](const Message& row) { return row.isUserEvent(); });
    }));
    QCoreApplication::processEvents();
    month = tree->topLevelItem(0)->child(0);
    EXPECT_EQ(month->text(0), monthName);
    EXPECT_TRUE(month->isExpanded());
}

TEST_F(WindowTest, AReloadKeepsTheRowAtTheTop) {
    openWindow();
    const int middle = view().model()->rowCount() / 2;
    window_->showMessage(model_->transcript().rows[middle].id);
    QCoreApplication::processEvents();
    const auto top = window_->topRow();
    ASSERT_TRUE(top);
    const auto guid = model_->transcript().rows[*top].guid;
    const auto rows = model_->transcript().rows.size();
    {
        sqlite::Connection writer(database(), sqlite::OpenMode::readWriteCreate);
        writer.execute(
            "INSERT INTO message (ROWID, guid, text, handle_id, date) VALUES "
            "(9002, 'added-9002', 'Later', 1, 1);"
            "INSERT INTO chat_message_join (chat_id, message_id) VALUES (1, 9002);");
    }
    model_->pollForChanges();
    ASSERT_TRUE(waitFor([&] { return model_->transcript().rows.size() == rows + 1; }));
    QCoreApplication::processEvents();
    ASSERT_TRUE(window_->topRow());
    EXPECT_EQ(model_->transcript().rows[*window_->topRow()].guid, guid);
}

}  // namespace
}  // namespace bc::app::testing

namespace bc::app::testing {
namespace {

TEST_F(WindowTest, RemovedAttachmentsRaiseTheWarningWithItsAdvice) {
    openWindow();
    auto* warning = window_->findChild<QLabel*>("evictionText");
    ASSERT_NE(warning, nullptr);
    // The sample database sits at the live database's place, so the model watches it itself.
    ASSERT_TRUE(waitFor([&] { return model_->evictionReport().has_value(); }));
    EXPECT_FALSE(warning->isVisible()) << "the first check has nothing to compare with";

    std::filesystem::remove(database().parent_path() / "Attachments" / "demo-photo-2.jpg");
    model_->checkAttachmentsStillHere();
    ASSERT_TRUE(waitFor([&] { return warning->isVisible(); }));
    EXPECT_TRUE(warning->text().contains(AppModel::evictionHeading));
    EXPECT_TRUE(warning->text().contains("1 attachment file disappeared since the last check"))
        << warning->text().toStdString();
    EXPECT_TRUE(warning->text().contains("Click Check Again here, then seal a snapshot."));
}

// The text of the damaged-store dialog once it is up; empty when none appeared.
QString storeProblemsShown(MainWindow& window) {
    QMessageBox* box = nullptr;
    waitFor([&] { return (box = window.findChild<QMessageBox*>("storeProblems")) != nullptr; },
            std::chrono::seconds(5));
    if (!box) return {};
    const QString text = box->informativeText();
    delete box;
    return text;
}

TEST_F(WindowTest, EveryDamagedStoreIsShownOnceTheWindowIsUpAndLogged) {
    ::testing::internal::CaptureStderr();
    bc::testing::writeText(folder_ / "evidence.json", "{ not json");
    bc::testing::writeText(folder_ / "events.json", "[{\"id\": 3}]");
    openWindow();
    const std::string logged = ::testing::internal::GetCapturedStderr();

    const QString shown = storeProblemsShown(*window_);
    for (const QString store : {"evidence", "events"}) {
        const QString line =
            store + ".json couldn't be read and was kept as " + store + ".corrupt-";
        EXPECT_TRUE(shown.contains(line)) << shown.toStdString();
        EXPECT_NE(logged.find(line.toStdString()), std::string::npos) << logged;
    }
    EXPECT_TRUE(shown.contains(
        "Kept in " + QString::fromStdString((folder_ / "evidence.json").parent_path().string())));
    EXPECT_TRUE(model_->takeStoreProblems().isEmpty()) << "each problem is shown once";

    // The attachment record is read later, by the watch: its damage is shown when found.
    bc::testing::writeText(folder_ / "attachment-presence.json", "[]");
    model_->startAttachmentWatch();
    const QString later = storeProblemsShown(*window_);
    EXPECT_TRUE(later.contains("attachment-presence.json couldn't be read and was kept as "))
        << later.toStdString();
    EXPECT_FALSE(later.contains("evidence.json"));
}

TEST_F(WindowTest, AboutNamesTheCertifiedVersionAndTheLicencesOfTheLibraries) {
    openWindow();
    auto* help = window_->findChild<QMenu*>("helpMenu");
    ASSERT_TRUE(help);
    EXPECT_TRUE(window_->menuBar()->actions().contains(help->menuAction()));
    for (auto* action : help->actions())
        if (action->text() == "About Brindlecourt") action->trigger();
    auto* about = window_->findChild<QDialog*>("about");
    ASSERT_TRUE(about);
    const auto version = about->findChild<QLabel*>("aboutVersion")->text();
    EXPECT_TRUE(version.contains(QString::fromStdString(custodySystemInfo::appVersion())));
    EXPECT_FALSE(version.contains("dev")) << "a build names its real version";
    const auto notices = about->findChild<QPlainTextEdit*>()->toPlainText();
    for (const char* library : {"Qt 6", "OpenSSL", "SQLite", "LGPL-3.0-only", "Apache-2.0"})
        EXPECT_TRUE(notices.contains(library)) << library;
}

TEST_F(WindowTest, AFileThatFailsToOpenLeavesTheWorkingSourceOpenAndSaysWhyInFull) {
    openWindow();
    const auto conversations = model_->conversations().size();
    const auto source = model_->sourceText();
    auto* picker = window_->findChild<SourceSwitcher*>();
    ASSERT_TRUE(picker);
    const auto picked = picker->currentText();
    auto* retry = window_->findChild<QPushButton*>("tryAgain");
    ASSERT_TRUE(retry);
    EXPECT_TRUE(retry->isHidden()) << "nothing has failed yet";

    const auto broken = folder_ / "notes.db";
    bc::testing::writeText(broken, "this is not a database, only text long enough to be read");
    model_->openSource(broken, AppModel::SourceKind::file);
    QMessageBox* shown = nullptr;
    ASSERT_TRUE(waitFor([&] { return (shown = window_->findChild<QMessageBox*>("openFailure")); }));
    EXPECT_TRUE(shown->text().startsWith("Couldn't open the Messages database: "))
        << shown->text().toStdString();
    EXPECT_EQ(model_->state(), AppModel::State::ready);
    EXPECT_EQ(model_->conversations().size(), conversations);
    EXPECT_EQ(model_->sourceText(), source);
    EXPECT_EQ(picker->currentText(), picked);
    EXPECT_EQ(window_->findChild<QListWidget*>("conversations")->count(),
              static_cast<int>(conversations));
    shown->close();
}

TEST_F(WindowTest, ATypedNoteIsKeptWithoutSavingWhenTheSelectionMovesOnOrTheWindowCloses) {
    openWindow();
    auto* note = window_->findChild<QPlainTextEdit*>("note");
    ASSERT_TRUE(note);
    const auto first = model_->transcript().rows[0];
    const auto second = model_->transcript().rows[1];
    ASSERT_FALSE(first.isUserEvent() || second.isUserEvent());

    QTest::keyClicks(note, "Said this twice");
    window_->transcriptView()->setCurrentIndex(view().model()->index(1, 0));
    EXPECT_EQ(model_->noteFor(first), "Said this twice");
    EXPECT_TRUE(model_->isFlagged(first)) << "a note flags its message";
    EXPECT_TRUE(note->toPlainText().isEmpty()) << "the next message has no note yet";

    QTest::keyClicks(note, "Typed and left");
    ASSERT_TRUE(waitFor([&] { return model_->noteFor(second) == "Typed and left"; }))
        << "saved once typing pauses";
    QTest::keyClicks(note, ", then closed");
    window_->close();
    EXPECT_EQ(model_->noteFor(second), "Typed and left, then closed");
}

TEST_F(WindowTest, AChosenContactsFileNamesTheConversationsAndTheFilterFindsThem) {
    openWindow();
    auto* list = window_->findChild<QListWidget*>("conversations");
    const auto shown = [list] {
        QStringList rows;
        for (int row = 0; row < list->count(); ++row)
            if (!list->isRowHidden(row)) rows << list->item(row)->text().section('\n', 0, 0);
        return rows;
    };
    const auto cards = folder_ / "people.vcf";
    bc::testing::writeText(cards,
                           "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Sam Taylor\r\n"
                           "EMAIL:sam.taylor@example.com\r\nEND:VCARD\r\n");
    model_->chooseContactsFile(cards);
    ASSERT_TRUE(waitFor([&] { return shown().contains("Sam Taylor"); }));
    EXPECT_EQ(AppModel().contactsFile(), cards) << "remembered for the next start";

    auto* filter = window_->findChild<QLineEdit*>("conversationFilter");
    filter->setText("TAYLOR");
    EXPECT_EQ(shown(), QStringList{"Sam Taylor"});
    filter->setText("(202) 555-0143");
    EXPECT_EQ(shown(), (QStringList{"+12025550143", "Weekend Crew"})) << "a member's number";
    filter->clear();
    EXPECT_EQ(shown().size(), list->count());

    model_->forgetContactsFile();
    ASSERT_TRUE(waitFor([&] { return shown().contains("sam.taylor@example.com"); }));
    EXPECT_FALSE(model_->contactsFile().has_value());
}

}  // namespace
}  // namespace bc::app::testing
