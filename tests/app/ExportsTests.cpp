#include <cstdlib>
#include <set>

#include <QComboBox>
#include <QDateEdit>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QScopeGuard>
#include <QSettings>
#include <QStandardPaths>
#include <QTest>
#include <QTimer>
#include <QUrl>

#include "AppFixture.h"
#include "app/custody/Snapshots.h"
#include "app/export/ExportMenu.h"
#include "app/export/ExportSheet.h"
#include "app/shell/MainWindow.h"
#include "custody/CustodyLog.h"
#include "custody/Preservation.h"
#include "custody/SnapshotLock.h"
#include "sources/CallHistory.h"
#include "support/Sqlite.h"

namespace bc::app::testing {
namespace {

namespace fs = std::filesystem;

std::set<std::string> namesIn(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.insert(entry.path().filename().string());
    return names;
}

// Every store, the sample call log and the export folder of demo mode in a temporary folder;
// no export settings stored.
class ExportsTest : public AppTest {
protected:
    ExportsTest() {
        DemoData::writeCallLog(folder_ / "CallHistory.storedata", DemoData::sampleCalls(),
                               Clock::now());
        CallHistory::setOverridePath(folder_ / "CallHistory.storedata");
        CustodyLog::setOverrideURL(folder_ / "custody-log.jsonl");
        DemoData::setEnabled(true);
        setenv("KESTROVE_DEMO_EXPORT_DIR", exported().c_str(), 1);
        QSettings().remove(Exports::settingsKey);
    }
    ~ExportsTest() override {
        unsetenv("KESTROVE_DEMO_EXPORT_DIR");
        DemoData::setEnabled(false);
        CustodyLog::setOverrideURL(std::nullopt);
        CallHistory::setOverridePath(std::nullopt);
        QSettings().remove(Exports::settingsKey);
    }

    fs::path exported() const { return folder_ / "Exports"; }

    // The model on chat 1 of the sample.
    std::unique_ptr<AppModel> openOnSample() {
        auto model = openModel();
        select(*model, 1);
        return model;
    }

    // The request the model makes for the selected conversation.
    static ExportRequest made(AppModel& model, RangeExportFormat format,
                              const std::optional<ExportPeriod>& period = std::nullopt) {
        std::optional<ExportRequest> request;
        model.exports().makeRequest(format, period,
                                    [&](ExportRequest ready) { request = std::move(ready); });
        EXPECT_TRUE(waitFor([&] { return request.has_value(); }))
            << model.statusText().toStdString();
        return request.value_or(ExportRequest{});
    }

    static ExportSheet::NameFor nameFor(const AppModel& model) {
        return [&model](const std::string& handle) { return model.nameFor(handle); };
    }

    static QString finish(AppModel& model) {
        EXPECT_TRUE(waitFor([&] { return !model.jobs().isRunning(); }));
        return model.statusText();
    }
};

TEST_F(ExportsTest, AnArchiveLandsWholeWithRecordAndCertificateAndASecondGetsTwo) {
    auto model = openOnSample();
    auto& exports = model->exports();
    const auto html = made(*model, RangeExportFormat::html);
    const std::string base = html.baseName();
    EXPECT_EQ(base, html.title + " \u2013 all messages");

    ASSERT_TRUE(exports.startExport(html));
    const auto first = finish(*model).toStdString();
    EXPECT_TRUE(first.starts_with("Exported ")) << first;
    EXPECT_NE(first.find("to \u201C" + base + "\u201D"), std::string::npos) << first;
    EXPECT_TRUE(first.ends_with(" Certificate saved and logged.")) << first;
    ASSERT_TRUE(exports.startExport(html));
    EXPECT_NE(finish(*model).toStdString().find("\u201C" + base + " 2\u201D"), std::string::npos);

    const auto records = CustodyLog::readAll();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_TRUE(CustodyLog::verify().isIntact());
    EXPECT_EQ(records.back().chatIDs, html.chatIDs());
    EXPECT_EQ(records.back().rangeDescription, "Entire conversation");
    // Nothing half-built is left beside the products.
    EXPECT_EQ(namesIn(exported()),
              (std::set<std::string>{base, base + " \u2013 Certificate.txt", base + " 2",
                                     base + " 2 \u2013 Certificate.txt"}));
}

TEST_F(ExportsTest, ACancelledExportLeavesNothingAndASecondOneIsRefusedWhileOneRuns) {
    auto model = openOnSample();
    auto& exports = model->exports();
    auto request = made(*model, RangeExportFormat::jpg);
    request.settings.dpi = ExportSettings::printDPI;
    const auto second = made(*model, RangeExportFormat::csv);
    ASSERT_TRUE(exports.startExport(request));
    EXPECT_TRUE(exports.isExporting());
    EXPECT_FALSE(exports.startExport(second));
    EXPECT_FALSE(exports.exportSelected(ExportFormat::text));
    EXPECT_FALSE(exports.exportAll(ExportFormat::json));
    exports.cancelExport();
    EXPECT_EQ(model->statusText(), Jobs::cancellingText);
    EXPECT_EQ(finish(*model), Exports::cancelledText);
    EXPECT_FALSE(exports.isExporting());
    EXPECT_TRUE(!fs::exists(exported()) || fs::is_empty(exported()));
    EXPECT_TRUE(CustodyLog::readAll().empty());
}

TEST_F(ExportsTest, AnExportFromAnOpenSnapshotReadsItAndNamesItAsTheSource) {
    const fs::path root = folder_ / "Snapshots";
    Preservation::setOverrideRoot(root);
    // Sealed files are immutable for real when tests run as root.
    const auto unlock = qScopeGuard([&] {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(root, error))
            snapshotLock::unlock(entry.path());
        Preservation::setOverrideRoot(std::nullopt);
    });
    auto model = std::make_unique<AppModel>();  // a snapshot is taken from the live source
    model->openSource(database(), AppModel::SourceKind::live);
    ASSERT_TRUE(waitFor([&] { return model->state() == AppModel::State::ready; }));
    ASSERT_TRUE(model->snapshots().take());
    finish(*model);
    model->snapshots().refresh();
    ASSERT_TRUE(waitFor([&] { return !model->snapshots().list().empty(); }));
    const auto snapshot = model->snapshots().list().front();
    model->openSnapshot(snapshot);
    ASSERT_TRUE(waitFor([&] {
        return model->sourceKind() == AppModel::SourceKind::snapshot &&
               model->state() == AppModel::State::ready;
    }));
    select(*model, 1);

    ASSERT_TRUE(model->exports().startExport(made(*model, RangeExportFormat::csv)));
    EXPECT_TRUE(finish(*model).endsWith(" Certificate saved and logged."));
    const auto records = CustodyLog::readAll();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back().source.snapshotID, snapshot.id);
    EXPECT_EQ(records.back().source.databaseSHA256, snapshot.databaseSHA256);
}

TEST_F(ExportsTest, ALogThatCannotBeWrittenKeepsTheFilesAndWarns) {
    bc::testing::writeText(folder_ / "not-a-folder", "a file where the log's folder should be");
    CustodyLog::setOverrideURL(folder_ / "not-a-folder" / "custody-log.jsonl");
    auto model = openOnSample();
    const auto request = made(*model, RangeExportFormat::csv);
    ASSERT_TRUE(model->exports().startExport(request));
    const auto line = finish(*model).toStdString();
    EXPECT_TRUE(line.starts_with("Saved ")) << line;
    EXPECT_NE(line.find(" WARNING: The file WAS saved, but it could NOT be recorded in the "
                        "custody log: "),
              std::string::npos)
        << line;
    const auto names = namesIn(exported());
    EXPECT_TRUE(names.contains(request.baseName() + ".csv"));
    EXPECT_TRUE(names.contains(request.baseName() + ".reactions.csv"));
    EXPECT_FALSE(names.contains(request.baseName() + " \u2013 Certificate.txt"));
}

TEST_F(ExportsTest, SettingsAreSavedWhenAnExportStartsAndReadAtLaunch) {
    QSettings().setValue(Exports::settingsKey, "{not json");
    auto model = openOnSample();
    EXPECT_EQ(model->exports().settings(), ExportSettings{}) << "undecodable: the defaults";

    // Outside demo mode the panel asks; cancelling it starts nothing and says nothing, but the
    // choice of paper and dpi is kept.
    DemoData::setEnabled(false);
    int asked = 0;
    model->exports().setDialogs({.saveFile = {}, .chooseFolder = [&](const QString&) {
                                     ++asked;
                                     return std::optional<fs::path>();
                                 }});
    auto request = made(*model, RangeExportFormat::jpg);
    request.settings = {.paper = PageExporter::Paper::a4, .dpi = ExportSettings::printDPI};
    const auto before = model->statusText();
    EXPECT_FALSE(model->exports().startExport(request));
    EXPECT_EQ(asked, 1);
    EXPECT_FALSE(model->jobs().isRunning());
    EXPECT_EQ(model->statusText(), before);

    AppModel relaunched;
    EXPECT_EQ(relaunched.exports().settings(), request.settings);
    EXPECT_EQ(made(*model, RangeExportFormat::pdf).settings, request.settings);
}

TEST_F(ExportsTest, AConversationWithoutDatedMessagesGetsNoSheet) {
    auto model = openOnSample();
    {
        sqlite::Connection writer(database(), sqlite::OpenMode::readWriteCreate);
        writer.execute(
            "DELETE FROM chat_message_join WHERE chat_id = 1;"
            "DELETE FROM chat_recoverable_message_join WHERE chat_id = 1;");
    }
    int sheets = 0;
    QObject::connect(&model->exports(), &Exports::optionsRequested, [&] { ++sheets; });
    model->exports().showExportOptions(RangeExportFormat::html, std::nullopt);
    ASSERT_TRUE(waitFor([&] { return model->statusText() == Exports::dateRangeProblem; }));
    QCoreApplication::processEvents();
    EXPECT_EQ(sheets, 0);
}

TEST_F(ExportsTest, PanelsProposeTheNameAndNeverGiveAnExistingPlace) {
    DemoData::setEnabled(false);
    auto model = openOnSample();
    QString proposed, filter, message;
    model->exports().setDialogs({.saveFile =
                                     [&](const QString& name, const QString& types) {
                                         proposed = name;
                                         filter = types;
                                         return std::optional(folder_ / "chosen");
                                     },
                                 .chooseFolder =
                                     [&](const QString& text) {
                                         message = text;
                                         return std::optional(folder_.path());
                                     }});
    auto& exports = model->exports();
    EXPECT_EQ(exports.chooseDestination(RangeExportFormat::pdf, "Ann \u2013 2024-03"),
              folder_ / "chosen.pdf");
    EXPECT_EQ(proposed, "Ann – 2024-03.pdf");
    EXPECT_EQ(filter, "PDF (*.pdf)");
    bc::testing::writeText(folder_ / "chosen.csv", "an earlier export");
    EXPECT_EQ(exports.chooseDestination(RangeExportFormat::csv, "Ann"), folder_ / "chosen 2.csv");

    EXPECT_EQ(exports.chooseDestination(RangeExportFormat::html, "Ann"), folder_ / "Ann");
    EXPECT_EQ(message, Exports::htmlFolderMessage);
}

TEST_F(ExportsTest, TheSheetsBaseNameFollowsTheChoicesAndItsRequestCarriesThem) {
    auto model = openOnSample();
    const Date last = model->transcript().messages().back().date;
    const auto month = ExportPeriod::containing(last, ExportPeriod::Kind::month);
    const auto request = made(*model, RangeExportFormat::html, month);
    ASSERT_EQ(request.fileLabel, month.fileLabel);
    EXPECT_EQ(request.from, month.from);
    EXPECT_EQ(request.to, month.to);

    ExportSheet sheet(request, model->exports().saveFolder(), nameFor(*model));
    auto* baseName = sheet.findChild<QLabel*>("baseName");
    auto* title = sheet.findChild<QLineEdit*>("title");
    auto* dpi = sheet.findChild<QComboBox*>("dpi");
    auto* exportButton = sheet.findChild<QPushButton*>("export");
    EXPECT_EQ(baseName->text().toStdString(), request.title + " \u2013 " + month.fileLabel);
    EXPECT_EQ(dpi->currentIndex(), -1) << "216 dpi is neither preset";
    EXPECT_FALSE(dpi->isEnabled());

    title->selectAll();
    QTest::keyClicks(title, "Flat share");
    EXPECT_EQ(baseName->text(), "Flat share – " + QString::fromStdString(month.fileLabel));

    const QDate day = sheet.findChild<QDateEdit*>("to")->date();
    sheet.findChild<QDateEdit*>("from")->setDate(day);
    EXPECT_EQ(baseName->text(), "Flat share – " + day.toString(Qt::ISODate));
    EXPECT_FALSE(sheet.request().fileLabel);
    EXPECT_EQ(sheet.request().from, sheet.request().to);

    auto* format = sheet.findChild<QComboBox*>("format");
    format->setCurrentIndex(format->findText("JPG"));
    EXPECT_TRUE(dpi->isEnabled());
    dpi->setCurrentIndex(dpi->findText(ExportSheet::printDPILabel));
    auto* paper = sheet.findChild<QComboBox*>("paper");
    paper->setCurrentIndex(paper->findText("A4"));
    EXPECT_EQ(sheet.request().format, RangeExportFormat::jpg);
    EXPECT_EQ(sheet.request().settings,
              (ExportSettings{.paper = PageExporter::Paper::a4, .dpi = 300}));

    EXPECT_TRUE(exportButton->isEnabled());
    auto* sources = sheet.findChild<QListWidget*>("sources");
    ASSERT_EQ(sources->count(), static_cast<int>(request.sources.size()));
    for (int row = 0; row < sources->count(); ++row)
        sources->item(row)->setCheckState(Qt::Unchecked);
    EXPECT_TRUE(sheet.request().chatIDs().empty());
    EXPECT_FALSE(exportButton->isEnabled()) << "nothing to export";
}

TEST_F(ExportsTest, ATimelinePeriodExportsStraightUnderItsName) {
    auto model = openOnSample();
    const auto week = ExportPeriod::containing(model->transcript().messages().back().date,
                                               ExportPeriod::Kind::week);
    QMenu menu;
    addPeriodExports(menu, *model, week);
    QAction* quick = nullptr;
    for (auto* action : menu.actions())
        if (action->text() == "Export " + QString::fromStdString(week.label) + " as CSV")
            quick = action;
    ASSERT_TRUE(quick);
    quick->trigger();
    ASSERT_TRUE(waitFor([&] { return model->exports().isExporting(); }));
    const auto line = finish(*model).toStdString();
    const auto title = model->selectedConversation()->title;
    EXPECT_NE(line.find("\u201C" + title + " \u2013 " + week.fileLabel + ".csv\u201D"),
              std::string::npos)
        << line;
    const auto records = CustodyLog::readAll();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].rangeDescription, "Entire conversation");
    EXPECT_LT(records[0].messageCount, static_cast<int64_t>(model->transcript().messages().size()));
}

TEST_F(ExportsTest, PlainExportsWriteOneFilePerConversationWithoutTheUsersEvents) {
    auto model = openOnSample();
    auto event = *model->startAddingEvent(model->transcript().messages().back().date);
    event.title = "Hearing at the county court";
    model->saveEvent(event);
    ASSERT_GT(model->transcript().rows.size(), model->transcript().messages().size());

    ASSERT_TRUE(model->exports().exportSelected(ExportFormat::text));
    const auto* conversation = model->selectedConversation();
    const auto name =
        Exporter::fileName(conversation->title, conversation->chatIDs.front(), ExportFormat::text);
    // Calls are counted apart from messages, as the JSON document counts them.
    const auto rows = model->transcript().messages();
    const auto calls = std::count_if(rows.begin(), rows.end(), [](auto& m) { return m.isCall(); });
    EXPECT_EQ(finish(*model).toStdString(), "Exported " + std::to_string(rows.size() - calls) +
                                                " messages and " + std::to_string(calls) +
                                                " calls to " + name);
    const auto text = files::readFile(exported() / name);
    EXPECT_EQ(text.find("county court"), std::string::npos);
    EXPECT_TRUE(CustodyLog::readAll().empty()) << "the plain path keeps no custody record";

    ASSERT_TRUE(model->exports().exportAll(ExportFormat::json));
    const auto count = model->conversations().size();
    EXPECT_EQ(finish(*model).toStdString(),
              "Exported " + std::to_string(count) + " conversations to " + exported().string());
    size_t json = 0;
    for (const auto& file : namesIn(exported())) json += file.ends_with(".json");
    EXPECT_EQ(json, count);
}

TEST_F(ExportsTest, TheWindowsMenuOpensTheSheetAndExportsWhatItSays) {
    auto model = openOnSample();
    MainWindow window(*model);
    window.show();
    auto* menu = window.findChild<QMenu*>("exportMenu");
    ASSERT_TRUE(menu);
    EXPECT_TRUE(window.menuBar()->actions().contains(menu->menuAction()));

    // The sheet opens on the request once its dates are read; pressing Export starts it.
    QTimer pressExport;
    QObject::connect(&pressExport, &QTimer::timeout, [] {
        if (auto* sheet = qobject_cast<ExportSheet*>(QApplication::activeModalWidget()))
            sheet->findChild<QPushButton*>("export")->click();
    });
    pressExport.start(10);
    for (auto* action : menu->actions())
        if (action->text() == "PDF…") action->trigger();
    ASSERT_TRUE(waitFor([&] { return model->exports().isExporting(); }));
    pressExport.stop();
    const auto line = finish(*model).toStdString();
    EXPECT_TRUE(line.ends_with(".pdf\u201D. Certificate saved and logged.")) << line;
}

TEST_F(ExportsTest, AFinishedExportOffersTheFolderThatHoldsItWhereTheSheetSaidItWouldGo) {
    auto model = openOnSample();
    MainWindow window(*model);
    window.show();
    std::vector<QUrl> opened;
    auto dialogs = ExportDialogs::native(&window);
    dialogs.showFolder = [&](const QUrl& folder) { opened.push_back(folder); };
    model->exports().setDialogs(dialogs);
    auto* showInFolder = window.findChild<QPushButton*>("showInFolder");
    ASSERT_TRUE(showInFolder);
    EXPECT_FALSE(showInFolder->isVisibleTo(&window)) << "nothing exported yet";

    const auto request = made(*model, RangeExportFormat::pdf);
    const ExportSheet sheet(request, model->exports().saveFolder(), nameFor(*model));
    EXPECT_EQ(sheet.findChild<QLabel*>("folder")->text().toStdString(), exported().string());
    ASSERT_TRUE(model->exports().startExport(request));
    EXPECT_FALSE(showInFolder->isVisibleTo(&window)) << "still running";
    finish(*model);
    ASSERT_TRUE(showInFolder->isVisibleTo(&window)) << model->statusText().toStdString();
    showInFolder->click();
    EXPECT_EQ(opened, std::vector<QUrl>{QUrl::fromLocalFile(QString::fromStdString(exported()))});

    // A cancelled export saved nothing, so nothing is offered.
    auto pages = made(*model, RangeExportFormat::jpg);
    pages.settings.dpi = ExportSettings::printDPI;
    ASSERT_TRUE(model->exports().startExport(pages));
    model->exports().cancelExport();
    EXPECT_EQ(finish(*model), Exports::cancelledText);
    EXPECT_TRUE(
        waitFor([&] { return !showInFolder->isVisibleTo(&window); }, std::chrono::seconds(2)));
}

TEST_F(ExportsTest, WithoutTheDemoFolderTheSavePanelStartsInDocuments) {
    unsetenv("KESTROVE_DEMO_EXPORT_DIR");
    auto model = openOnSample();
    const auto documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    EXPECT_FALSE(documents.isEmpty());
    EXPECT_EQ(model->exports().saveFolder(), documents);
    EXPECT_NE(model->exports().saveFolder(), QDir::currentPath());
}

TEST_F(ExportsTest, ContactsReadAfterTheConversationOpenedNameItInTheSheet) {
    auto model = openOnSample();
    ASSERT_EQ(model->selectedConversation()->title, "sam.taylor@example.com");
    // The sample's own contacts, as demo mode reads them once the window is up.
    model->loadContacts();
    ASSERT_TRUE(waitFor([&] { return model->nameFor("sam.taylor@example.com") == "Sam Taylor"; }));

    const auto request = made(*model, RangeExportFormat::pdf);
    EXPECT_EQ(request.title, "Sam Taylor");
    const ExportSheet sheet(request, model->exports().saveFolder(), nameFor(*model));
    const auto* sources = sheet.findChild<QListWidget*>("sources");
    ASSERT_EQ(sources->count(), 1);
    EXPECT_EQ(sources->item(0)->text().toStdString(),
              "Sam Taylor · sam.taylor@example.com · iMessage · 21 messages");
}

}  // namespace
}  // namespace bc::app::testing
