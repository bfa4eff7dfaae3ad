#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <QTimer>

#include "AppFixture.h"
#include "app/export/ExhibitSheet.h"
#include "app/shell/MainWindow.h"
#include "custody/CustodyLog.h"

namespace bc::app::testing {
namespace {

namespace fs = std::filesystem;

QCheckBox* box(const QWidget& sheet, const QString& text) {
    for (auto* found : sheet.findChildren<QCheckBox*>())
        if (found->text() == text) return found;
    ADD_FAILURE() << text.toStdString();
    return nullptr;
}

TEST(ExhibitSheet, EditsEveryFieldOfTheRequestAndProposesTheNextBatesNumber) {
    application();
    ExhibitSheet sheet(ExhibitRequest{.id = "R", .flaggedCount = 12},
                       [](const std::string& prefix) { return prefix == "SMITH" ? 42 : 1; });
    EXPECT_EQ(sheet.findChild<QLabel*>("summary")->text(),
              "12 flagged messages, each shown with surrounding messages so nothing is out of "
              "context.");
    auto* label = sheet.findChild<QLineEdit*>("label");
    EXPECT_EQ(label->text(), "Exhibit A");
    label->clear();
    QTest::keyClicks(label, "Exhibit 7");

    auto* prefix = sheet.findChild<QLineEdit*>("batesPrefix");
    EXPECT_EQ(prefix->placeholderText(), "e.g. SMITH (leave empty for none)");
    auto* start = sheet.findChild<QSpinBox*>("batesStart");
    EXPECT_FALSE(start->isEnabled()) << "no prefix, no numbers";
    QTest::keyClicks(prefix, "SMITH");
    EXPECT_TRUE(start->isEnabled());
    EXPECT_EQ(start->value(), 42);

    sheet.findChild<QSpinBox*>("contextBefore")->setValue(2);
    sheet.findChild<QSpinBox*>("contextAfter")->setValue(5);
    auto* terms = sheet.findChild<QPlainTextEdit*>("redactionTerms");
    EXPECT_EQ(terms->placeholderText(), "One name or phrase per line.");
    terms->setPlainText("Anne\nBob");
    box(sheet, "Redact phone numbers and email addresses")->setChecked(true);
    box(sheet, "Include my private notes")->setChecked(true);
    box(sheet, "Add a certificate page")->setChecked(false);
    auto* format = sheet.findChild<QComboBox*>("format");
    EXPECT_EQ(format->count(), 2) << "exhibits are pages";
    EXPECT_FALSE(sheet.findChild<QComboBox*>("dpi")->isEnabled());
    format->setCurrentIndex(format->findData("jpg"));
    EXPECT_TRUE(sheet.findChild<QComboBox*>("dpi")->isEnabled());
    auto* paper = sheet.findChild<QComboBox*>("paper");
    paper->setCurrentIndex(paper->findText("A4"));

    const ExhibitRequest& request = sheet.request();
    EXPECT_EQ(request.label, "Exhibit 7");
    EXPECT_EQ(request.batesPrefix, "SMITH");
    EXPECT_EQ(request.batesStart, 42);
    EXPECT_EQ(request.contextBefore, 2);
    EXPECT_EQ(request.contextAfter, 5);
    EXPECT_EQ(request.redactionTerms, "Anne\nBob");
    EXPECT_TRUE(request.redactContactDetails);
    EXPECT_TRUE(request.includeNotes);
    EXPECT_FALSE(request.includeCertificate);
    EXPECT_EQ(request.format, RangeExportFormat::jpg);
    EXPECT_EQ(request.settings.paper, PageExporter::Paper::a4);

    ExhibitSheet none(ExhibitRequest{.flaggedCount = 0}, {});
    EXPECT_FALSE(none.findChild<QPushButton*>("build")->isEnabled());
}

class ExhibitWindowTest : public AppTest {
protected:
    ExhibitWindowTest() {
        CustodyLog::setOverrideURL(folder_ / "custody-log.jsonl");
        DemoData::setEnabled(true);
        setenv("KESTROVE_DEMO_EXPORT_DIR", (folder_ / "Exports").c_str(), 1);
    }
    ~ExhibitWindowTest() override {
        unsetenv("KESTROVE_DEMO_EXPORT_DIR");
        DemoData::setEnabled(false);
        CustodyLog::setOverrideURL(std::nullopt);
    }
};

TEST_F(ExhibitWindowTest, EvidencePanelBuildsTheExhibitThroughTheJobRunner) {
    auto model = openModel();
    select(*model, 1);
    MainWindow window(*model);
    window.show();
    auto* build = window.findChild<QPushButton*>("buildExhibit");
    ASSERT_TRUE(build);
    EXPECT_FALSE(build->isEnabled());
    EXPECT_EQ(build->text(), "No Flagged Messages");

    const auto messages = model->transcript().messages();
    model->toggleFlag(messages.at(3));
    model->setNote("the deposit", messages.at(8));
    ASSERT_TRUE(build->isEnabled());
    EXPECT_EQ(build->text(), "Build Exhibit…");

    QTimer pressBuild;
    QObject::connect(&pressBuild, &QTimer::timeout, [] {
        auto* sheet = qobject_cast<ExhibitSheet*>(QApplication::activeModalWidget());
        if (!sheet) return;
        EXPECT_EQ(sheet->request().flaggedCount, 2);
        QTest::keyClicks(sheet->findChild<QLineEdit*>("batesPrefix"), "DOE");
        sheet->findChild<QPushButton*>("build")->click();
    });
    pressBuild.start(10);
    build->click();
    ASSERT_TRUE(waitFor([&] { return model->exports().isExporting(); }));
    pressBuild.stop();
    ASSERT_TRUE(waitFor([&] { return !model->jobs().isRunning(); }));
    const std::string line = model->statusText().toStdString();
    EXPECT_NE(line.find("Exhibit A \u2013 Flagged messages.pdf"), std::string::npos) << line;
    EXPECT_NE(line.find("Bates DOE000001 \u2013 DOE"), std::string::npos) << line;

    const auto records = CustodyLog::readAll();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].action, "exhibit");
    EXPECT_EQ(records[0].title, "Flagged messages");
    EXPECT_EQ(Exports::nextBatesNumber("DOE"), *records[0].pageCount + 1);
}

}  // namespace
}  // namespace bc::app::testing
