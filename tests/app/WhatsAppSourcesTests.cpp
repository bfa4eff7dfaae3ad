#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>

#include "AppFixture.h"
#include "app/shell/Jobs.h"
#include "app/shell/MainWindow.h"
#include "app/sources/ImportSettingsSheet.h"
#include "app/sources/SourceSwitcher.h"
#include "app/sources/WhatsAppSources.h"
#include "custody/CustodyLog.h"
#include "custody/SnapshotLock.h"
#include "demo/DemoWriters.h"
#include "sources/WhatsAppDatabase.h"

namespace bc::app::testing {
namespace {

namespace fs = std::filesystem;

const char* const chatText =
    "[13/01/2021, 10:00:00] Ann: hello\r\n"
    "[13/01/2021, 10:01:00] Bo: the keys are with me\r\n"
    "[13/01/2021, 10:02:00] Ann: bye\r\n";

// Imports, the custody log and demo mode's folders in the test's folder; the window on the
// sample Messages database.
class WhatsAppSourcesTest : public AppTest {
protected:
    WhatsAppSourcesTest() {
        Imports::setOverrideRoot(folder_ / "Imports");
        CustodyLog::setOverrideURL(folder_ / "custody-log.jsonl");
        bc::testing::writeText(chat(), chatText);
        model_ = openModel();
        window_ = std::make_unique<MainWindow>(*model_);
        // The job's own last line: the opening that follows an import may replace it in the
        // status line before the test looks.
        QObject::connect(&model_->jobs(), &Jobs::finished,
                         [this](const QString& line) { finishedLine_ = line; });
    }
    ~WhatsAppSourcesTest() override {
        window_.reset();
        model_.reset();
        // Sealed folders are locked (immutable as root): unlocked so the folder can go.
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(folder_ / "Imports", error))
            if (entry.is_directory()) snapshotLock::unlock(entry.path());
        Imports::setOverrideRoot(std::nullopt);
        CustodyLog::setOverrideURL(std::nullopt);
    }

    fs::path chat() const { return folder_ / "WhatsApp Chat with Ann.txt"; }
    SourceSwitcher& picker() { return *window_->findChild<SourceSwitcher*>("sourceSwitcher"); }

    QString finish() {
        EXPECT_TRUE(waitFor([&] { return !model_->jobs().isRunning(); }));
        return finishedLine_;
    }
    // Waits for the source of that kind to open with its first conversation read.
    void waitForOpen(AppModel::SourceKind kind) {
        ASSERT_TRUE(waitFor([&] {
            return model_->sourceKind() == kind && model_->state() == AppModel::State::ready &&
                   !model_->isBusy() && !model_->transcript().rows.empty();
        })) << model_->statusText().toStdString();
    }
    ImportInfo importChat() {
        EXPECT_TRUE(model_->whatsApp().importFile(chat()));
        const auto line = finish().toStdString();
        EXPECT_TRUE(line.starts_with("Imported WhatsApp Chat with Ann.txt as WhatsApp ")) << line;
        waitForOpen(AppModel::SourceKind::import);
        return model_->openedImport().value_or(ImportInfo{});
    }
    void choose(const QString& text) {
        const int index = picker().findText(text);
        ASSERT_GE(index, 0) << text.toStdString();
        picker().choose(index);
    }
    std::vector<std::string> texts() {
        std::vector<std::string> texts;
        for (const auto& row : model_->transcript().messages())
            texts.push_back((row.isFromMe ? "me: " : row.sender + ": ") + row.text);
        return texts;
    }

    std::unique_ptr<AppModel> model_;
    std::unique_ptr<MainWindow> window_;
    QString finishedLine_;
};

TEST_F(WhatsAppSourcesTest, AnImportedChatOpensWithItsNotesAndStaysInThePicker) {
    const auto info = importChat();
    const QString entry =
        "Imported WhatsApp chat export (sealed on import): WhatsApp Chat with Ann";
    EXPECT_EQ(picker().currentText(), entry);
    EXPECT_EQ(model_->sourceText(), entry + " (" + QString::fromStdString(info.id) + ")");
    EXPECT_EQ(texts(),
              (std::vector<std::string>{"Ann: hello", "Bo: the keys are with me", "Ann: bye"}));
    ASSERT_FALSE(model_->readingNotes().empty());
    auto* notes = window_->findChild<QLabel*>("readingNotes");
    EXPECT_TRUE(notes->isVisibleTo(window_.get()));
    EXPECT_TRUE(notes->text().contains(
        QString::fromStdString(model_->readingNotes().front()).toHtmlEscaped()));
    EXPECT_EQ(CustodyLog::readAll().back().action, "whatsapp-export-import");

    choose(SourceSwitcher::liveText);
    ASSERT_TRUE(waitFor([&] { return model_->sourceKind() == AppModel::SourceKind::live; }));
    EXPECT_FALSE(notes->isVisibleTo(window_.get())) << "the notes belong to the import";
    EXPECT_EQ(model_->openedImport(), std::nullopt);
    choose(entry);
    waitForOpen(AppModel::SourceKind::import);
    EXPECT_EQ(model_->openedImport()->id, info.id);
}

TEST_F(WhatsAppSourcesTest, ANewSettingReadsTheTranscriptAgainWithIt) {
    const auto info = importChat();
    ImportSettingsSheet sheet(info.settings(), model_->importSenders());
    auto& owner = *sheet.findChild<QComboBox*>("owner");
    ASSERT_EQ(owner.count(), 3) << "nobody, then every sender";
    owner.setCurrentIndex(owner.findText("Bo"));
    sheet.findChild<QLineEdit*>("chatName")->setText("Ann, landlord");
    auto& zone = *sheet.findChild<QComboBox*>("timeZone");
    zone.setCurrentIndex(zone.findText("Asia/Tokyo"));
    const auto settings = sheet.settings();
    EXPECT_EQ(settings.ownerName, "Bo");
    EXPECT_EQ(settings.timeZone, "Asia/Tokyo");
    EXPECT_EQ(settings.dayFirst, true) << "the order the file decided stays";

    const Date before = model_->transcript().messages().front().date;
    model_->whatsApp().saveSettings(info, settings);
    const auto readAsMine = [&] {
        const auto shown = texts();
        return shown.size() == 3 && shown[1] == "me: the keys are with me";
    };
    ASSERT_TRUE(waitFor(readAsMine));
    EXPECT_EQ(model_->selectedConversation()->title, "Ann, landlord");
    EXPECT_NE(model_->transcript().messages().front().date, before) << "read in Tokyo time";
    EXPECT_TRUE(fs::exists(info.settingsURL()));
    EXPECT_EQ(Imports::verify(info).mismatched.size(), 0u) << "the sealed folder is untouched";

    ImportSettingsSheet again(model_->openedImport()->settings(), model_->importSenders());
    EXPECT_EQ(again.findChild<QComboBox*>("owner")->currentText(), "Bo");
    EXPECT_EQ(again.settings(), settings);
}

TEST_F(WhatsAppSourcesTest, AnImportVerifiesAndGoesToTheTrashOnlyWhenNotOpen) {
    const auto info = importChat();
    ASSERT_TRUE(model_->whatsApp().verify(info));
    EXPECT_EQ(finish().toStdString(), info.id + " verified: all " +
                                          std::to_string(info.files.size()) +
                                          " files match their SHA-256.");

    // Its entry under the Trash says why it is disabled before anything is confirmed.
    auto* trashMenu = window_->findChild<QMenu*>("trashImport");
    ASSERT_TRUE(trashMenu);
    emit trashMenu->aboutToShow();
    ASSERT_EQ(trashMenu->actions().size(), 1);
    const QAction* entry = trashMenu->actions().front();
    EXPECT_FALSE(entry->isEnabled());
    EXPECT_EQ(entry->toolTip(), "Close this import first: it is the open source.");
    EXPECT_EQ(entry->statusTip(), entry->toolTip());
    EXPECT_FALSE(model_->whatsApp().moveToTrash(info));
    EXPECT_TRUE(
        model_->statusText().endsWith("it is the open source. Switch to another source "
                                      "first."));
    choose(SourceSwitcher::liveText);
    ASSERT_TRUE(waitFor([&] { return model_->sourceKind() == AppModel::SourceKind::live; }));
    ASSERT_TRUE(model_->whatsApp().moveToTrash(info));
    EXPECT_EQ(finish().toStdString(), info.id + " moved to the Trash.");
    EXPECT_FALSE(fs::exists(info.folder()));
    ASSERT_TRUE(waitFor([&] { return model_->whatsApp().list().empty(); }));
    EXPECT_EQ(picker().findText("Imported WhatsApp chat export (sealed on import): WhatsApp Chat "
                                "with Ann"),
              -1);
}

TEST_F(WhatsAppSourcesTest, AFileThatIsNoChatIsRefusedAndTheSourceStays) {
    const fs::path other = folder_ / "notes.pdf";
    bc::testing::writeText(other, "%PDF");
    ASSERT_TRUE(model_->whatsApp().importFile(other));
    EXPECT_EQ(finish().toStdString(),
              "Import failed, nothing was kept: Choose a WhatsApp chat export (.zip or .txt) or a "
              "ChatStorage.sqlite file.");
    EXPECT_EQ(model_->sourceKind(), AppModel::SourceKind::file);
    EXPECT_TRUE(Imports::list().empty());
}

TEST_F(WhatsAppSourcesTest, WhatsAppForMacIsOfferedOnlyWhenItsDatabaseExists) {
    auto* menu = window_->findChild<QMenu*>("whatsAppMenu");
    ASSERT_TRUE(menu);
    const auto seal = [&] {
        for (auto* action : menu->actions())
            if (action->text() == "Seal a Copy of WhatsApp for Mac") return action;
        return static_cast<QAction*>(nullptr);
    };
    emit menu->aboutToShow();
    ASSERT_TRUE(seal());
    EXPECT_FALSE(seal()->isEnabled());
    EXPECT_EQ(seal()->toolTip(), "WhatsApp for Mac's database is not on this computer.");
    EXPECT_EQ(picker().findText(SourceSwitcher::whatsAppMacText), -1);

    fs::create_directories(WhatsAppDatabase::macContainer());
    demo::writeChatStorage(
        WhatsAppDatabase::macDatabasePath(),
        "INSERT INTO ZWACHATSESSION VALUES (1, 0, '1@s.whatsapp.net', 'Ann');"
        "INSERT INTO ZWAMESSAGE (Z_PK, ZCHATSESSION, ZMESSAGETYPE, ZMESSAGEDATE, ZTEXT) "
        "VALUES (1, 1, 0, 700000000, 'from the Mac');");
    emit menu->aboutToShow();
    EXPECT_TRUE(seal()->isEnabled());
    EXPECT_EQ(seal()->toolTip(), seal()->text()) << "enabled, its own tip is back";
    seal()->trigger();
    EXPECT_EQ(finish(), WhatsAppSources::sealedMacText);
    waitForOpen(AppModel::SourceKind::import);
    EXPECT_EQ(model_->openedImport()->kind, ImportInfo::Kind::database);
    EXPECT_EQ(CustodyLog::readAll().back().action, "whatsapp-database-import");

    choose(SourceSwitcher::whatsAppMacText);
    waitForOpen(AppModel::SourceKind::whatsAppMac);
    ASSERT_EQ(texts().size(), 1u);
    EXPECT_TRUE(texts()[0].ends_with(": from the Mac")) << texts()[0];
    EXPECT_EQ(picker().currentText(), SourceSwitcher::whatsAppMacText);
}

}  // namespace
}  // namespace bc::app::testing
