#include "AppFixture.h"
#include "app/shell/Jobs.h"
#include "app/shell/MainWindow.h"
#include "app/sources/IPhoneBackupMenu.h"
#include "app/sources/SourceSwitcher.h"
#include "app/sources/WhatsAppSources.h"
#include "custody/CustodyLog.h"
#include "custody/SnapshotLock.h"
#include "testing/IPhoneBackupWriter.h"

namespace bc::app::testing {
namespace {

namespace fs = std::filesystem;

class IPhoneBackupMenuTest : public AppTest {
protected:
    IPhoneBackupMenuTest() {
        Imports::setOverrideRoot(folder_ / "Imports");
        CustodyLog::setOverrideURL(folder_ / "custody-log.jsonl");
        auto entries = bc::testing::demoBackupEntries(folder_ / "scratch");
        for (auto& entry : bc::testing::whatsAppBackupEntries(folder_ / "scratch"))
            entries.push_back(std::move(entry));
        bc::testing::writeIPhoneBackup(folder_ / "backup", entries);
        model_ = openModel();
        window_ = std::make_unique<MainWindow>(*model_);
        QObject::connect(&model_->jobs(), &Jobs::finished,
                         [this](const QString& line) { finishedLine_ = line; });
        QObject::connect(&model_->whatsApp(), &WhatsAppSources::statusReported,
                         [this](const QString& line) { finishedLine_ = line; });
    }
    ~IPhoneBackupMenuTest() override {
        window_.reset();
        model_.reset();
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(folder_ / "Imports", error))
            if (entry.is_directory()) snapshotLock::unlock(entry.path());
        Imports::setOverrideRoot(std::nullopt);
        CustodyLog::setOverrideURL(std::nullopt);
    }

    std::unique_ptr<AppModel> model_;
    std::unique_ptr<MainWindow> window_;
    QString finishedLine_;
};

TEST_F(IPhoneBackupMenuTest, AnImportedBackupOpensNamedByThePhonesContacts) {
    importIPhoneBackup(*model_, folder_ / "photos", window_.get());
    EXPECT_EQ(finishedLine_.toStdString(),
              "Import failed, nothing was kept: Couldn't read \u201Cphotos\u201D as an iPhone "
              "backup: it has no Manifest.plist.");
    EXPECT_FALSE(model_->jobs().isRunning());

    importIPhoneBackup(*model_, folder_ / "backup", window_.get());
    ASSERT_TRUE(waitFor([&] { return !model_->jobs().isRunning(); }));
    EXPECT_TRUE(finishedLine_.startsWith("Imported backup as iPhone "))
        << finishedLine_.toStdString();
    ASSERT_TRUE(waitFor([&] {
        return model_->sourceKind() == AppModel::SourceKind::import &&
               model_->state() == AppModel::State::ready && !model_->isBusy() &&
               model_->nameFor("sam.taylor@example.com") == "Samantha Taylor";
    })) << model_->statusText().toStdString();
    ASSERT_TRUE(model_->openedImport() && model_->openedImport()->backup);
    EXPECT_EQ(model_->openedImport()->backup->device.name, "Alex's iPhone");

    // The WhatsApp the phone held is the picker's next entry, and opens as a source of its own.
    auto& picker = *window_->findChild<SourceSwitcher*>("sourceSwitcher");
    const QString whatsApp =
        "WhatsApp of an imported iPhone backup (sealed on import): Alex's iPhone";
    EXPECT_EQ(picker.findText(whatsApp), picker.currentIndex() + 1);
    picker.choose(picker.findText(whatsApp));
    ASSERT_TRUE(waitFor([&] {
        return model_->openedImportPart() == ImportPart::backupWhatsApp &&
               model_->state() == AppModel::State::ready && !model_->isBusy();
    })) << model_->statusText().toStdString();
    EXPECT_EQ(picker.currentText(), whatsApp);
    ASSERT_EQ(model_->conversations().size(), 1u);
    EXPECT_EQ(model_->transcript().messages().front().text, "hello from the phone");
}

}  // namespace
}  // namespace bc::app::testing
