#include <gmock/gmock.h>

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include "AppFixture.h"
#include "app/counsel/BundleSheet.h"
#include "app/shell/MainWindow.h"
#include "counsel/ZipReading.h"
#include "custody/CustodyLog.h"

namespace bc::app::testing {
namespace {

namespace fs = std::filesystem;

CustodyRecord::Output output(const fs::path& path) {
    return {.path = path.string(), .bytes = 1, .sha256 = "ab"};
}

TEST(CounselProducts, AnExportsProductIsItsFileOrTheFolderHoldingEveryOutput) {
    EXPECT_EQ(productOf({.outputs = {output("/e/Alex.pdf")}}), fs::path("/e/Alex.pdf"));
    EXPECT_EQ(productOf({.outputs = {output("/e/Alex archive/index.html"),
                                     output("/e/Alex archive/attachments/a/IMG_1.jpg"),
                                     output("/e/Alex archive/checksums.txt")}}),
              fs::path("/e/Alex archive"));
    EXPECT_EQ(
        productOf({.outputs = {output("/e/pages/Alex 1.jpg"), output("/e/pages/Alex 2.jpg")}}),
        fs::path("/e/pages"));
    EXPECT_EQ(productOf({}), std::nullopt);
    EXPECT_EQ(productOf({.outputs = {output("/a.pdf"), output("/b.pdf")}}), std::nullopt)
        << "never the whole disk";
}

QString rowText(const QListWidget& list, int row) {
    return list.item(row)->text();
}

void typePasswords(BundleSheet& sheet, const QString& password, const QString& confirmation) {
    sheet.findChild<QLineEdit*>("password")->setText(password);
    sheet.findChild<QLineEdit*>("confirmation")->setText(confirmation);
    sheet.findChild<QPushButton*>("create")->click();
}

TEST(BundleSheet, PasswordRulesHoldTheRunAndTheChoiceIsWhatIsTicked) {
    application();
    bc::testing::TempDir folder;
    const fs::path pdf = folder / "Alex \u2013 all messages.pdf";
    const fs::path notes = folder / "notes.txt";
    bc::testing::writeText(pdf, "%PDF");
    bc::testing::writeText(folder / "Alex \u2013 all messages \u2013 Certificate.txt", "cert");
    bc::testing::writeText(notes, "mine");

    BundleSheet sheet({.title = "Alex", .items = {pdf}});
    auto& list = *sheet.findChild<QListWidget*>("items");
    ASSERT_EQ(list.count(), 1);
    EXPECT_EQ(rowText(list, 0), "Alex \u2013 all messages.pdf (with its certificate)");
    EXPECT_EQ(list.item(0)->checkState(), Qt::Checked) << "the conversation's exports come chosen";
    sheet.addItems({notes, pdf});
    ASSERT_EQ(list.count(), 2) << "a file already listed is not listed twice";
    EXPECT_EQ(rowText(list, 1), "notes.txt (no certificate beside it)");
    EXPECT_EQ(sheet.findChild<QLabel*>("reminder")->text(),
              "Send the password separately, for example by phone.");

    auto* problem = sheet.findChild<QLabel*>("problem");
    typePasswords(sheet, "1234567", "1234567");
    EXPECT_EQ(problem->text(), "Use at least 8 characters.");
    EXPECT_NE(sheet.result(), QDialog::Accepted);
    typePasswords(sheet, "12345678", "12345679");
    EXPECT_EQ(problem->text(), "The passwords don't match.");
    EXPECT_NE(sheet.result(), QDialog::Accepted);

    auto* create = sheet.findChild<QPushButton*>("create");
    sheet.findChild<QLineEdit*>("title")->setText("  ");
    EXPECT_FALSE(create->isEnabled()) << "a bundle needs a title";
    sheet.findChild<QLineEdit*>("title")->setText("Smith v. Smith");
    list.item(0)->setCheckState(Qt::Unchecked);
    list.item(1)->setCheckState(Qt::Unchecked);
    EXPECT_FALSE(create->isEnabled()) << "nothing to bundle";
    list.item(1)->setCheckState(Qt::Checked);
    typePasswords(sheet, "kumquat-Zeppelin", "kumquat-Zeppelin");
    EXPECT_EQ(sheet.result(), QDialog::Accepted);
    EXPECT_EQ(problem->text(), "");
    EXPECT_EQ(sheet.items(), std::vector<fs::path>{notes});
    EXPECT_EQ(sheet.title(), "Smith v. Smith");
    EXPECT_EQ(sheet.password(), "kumquat-Zeppelin");
}

// The sample's conversation with chat 1, the custody log and demo mode's export folder in the
// test's folder.
class CounselWindowTest : public AppTest {
protected:
    CounselWindowTest() {
        CustodyLog::setOverrideURL(folder_ / "custody-log.jsonl");
        DemoData::setEnabled(true);
        setenv("KESTROVE_DEMO_EXPORT_DIR", exported().c_str(), 1);
        model_ = openModel();
        select(*model_, 1);
    }
    ~CounselWindowTest() override {
        model_.reset();
        unsetenv("KESTROVE_DEMO_EXPORT_DIR");
        DemoData::setEnabled(false);
        CustodyLog::setOverrideURL(std::nullopt);
    }

    fs::path exported() const { return folder_ / "Exports"; }
    std::string title() const { return model_->selectedConversation()->title; }

    QString finish() {
        EXPECT_TRUE(waitFor([&] { return !model_->jobs().isRunning(); }));
        return model_->statusText();
    }

    // A PDF of the whole conversation, with its certificate and record; its path.
    fs::path exportPDF() {
        std::optional<ExportRequest> request;
        model_->exports().makeRequest(RangeExportFormat::pdf, std::nullopt,
                                      [&](ExportRequest made) { request = std::move(made); });
        EXPECT_TRUE(waitFor([&] { return request.has_value(); }));
        EXPECT_TRUE(model_->exports().startExport(request.value()));
        finish();
        return exported() / (request->baseName() + ".pdf");
    }

    void trigger(MainWindow& window, const QString& text) {
        auto* menu = window.findChild<QMenu*>("exportMenu");
        for (auto* action : menu->actions())
            if (action->text() == text) return action->trigger();
        ADD_FAILURE() << "no menu entry " << text.toStdString();
    }

    std::unique_ptr<AppModel> model_;
};

TEST_F(CounselWindowTest, TheBundleOfTheConversationsExportLandsEncryptedAndIsRecorded) {
    const fs::path pdf = exportPDF();
    ASSERT_TRUE(fs::exists(pdf));
    EXPECT_EQ(model_->counsel().suggestedBundleItems(), std::vector<fs::path>{pdf});

    MainWindow window(*model_);
    window.show();
    bool refusedShortPassword = false;
    QTimer fillIn;
    QObject::connect(&fillIn, &QTimer::timeout, [&] {
        auto* sheet = qobject_cast<BundleSheet*>(QApplication::activeModalWidget());
        if (!sheet) return;
        EXPECT_EQ(sheet->items(), std::vector<fs::path>{pdf});
        typePasswords(*sheet, "short", "short");
        refusedShortPassword = sheet->isVisible() && !model_->jobs().isRunning();
        typePasswords(*sheet, "kumquat-Zeppelin-4417", "kumquat-Zeppelin-4417");
    });
    fillIn.start(10);
    trigger(window, "Encrypted Bundle for Counsel…");
    ASSERT_TRUE(waitFor([&] { return model_->jobs().isRunning(); }));
    fillIn.stop();
    EXPECT_TRUE(refusedShortPassword);
    const std::string name = title() + " \u2013 Evidence bundle.zip";
    EXPECT_EQ(finish().toStdString(),
              "Encrypted bundle saved to \u201C" + name +
                  "\u201D (1 items) and logged. Send the password separately from the file.");

    std::vector<std::string> names;
    for (const auto& entry : bc::testing::zipEntries(exported() / name)) {
        names.push_back(entry.name);
        if (!entry.name.ends_with("/")) {
            EXPECT_NE(entry.encryption, 0) << entry.name;
        }
    }
    // Everything lies in one folder named after the title.
    for (const auto& expected :
         {pdf.filename().string(), pdf.stem().string() + " \u2013 Certificate.txt",
          std::string("custody-log.jsonl")})
        EXPECT_THAT(names, ::testing::Contains(::testing::EndsWith("/" + expected)));
    const auto records = CustodyLog::readAll();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records.back().action, "bundle");
    EXPECT_EQ(records.back().title, "1 items for counsel");
    EXPECT_EQ(records.back().outputs.at(0).path, (exported() / name).string());
}

TEST_F(CounselWindowTest, TheDraftStatementNamesTheConversationsExportsAndLandsWhole) {
    const fs::path pdf = exportPDF();
    MainWindow window(*model_);
    trigger(window, "Draft Statement for Counsel…");
    const std::string name = title() + " \u2013 Draft statement for counsel.docx";
    EXPECT_EQ(finish().toStdString(), "Draft statement saved to \u201C" + name + "\u201D");
    const auto document = bc::testing::zipEntryText(exported() / name, "word/document.xml");
    ASSERT_TRUE(document);
    EXPECT_NE(document->find(pdf.filename().string()), std::string::npos)
        << "the statement lists the conversation's export";
    EXPECT_NE(document->find("were read from the Messages database"), std::string::npos);
    EXPECT_NE(document->find(database().string()), std::string::npos);
}

TEST_F(CounselWindowTest, TheStatementGoesWhereTheUserSaysOrFailsInOneSentence) {
    unsetenv("KESTROVE_DEMO_EXPORT_DIR");
    QString proposed;
    fs::path answer = folder_ / "for counsel";
    model_->counsel().setDialogs(
        {.saveFile = [&](const QString& name, const QString&) -> std::optional<fs::path> {
            proposed = name;
            return answer;
        }});
    ASSERT_TRUE(model_->counsel().draftStatement());
    EXPECT_EQ(proposed.toStdString(), title() + " \u2013 Draft statement for counsel.docx");
    EXPECT_EQ(finish(), "Draft statement saved to \u201Cfor counsel.docx\u201D");
    ASSERT_TRUE(model_->counsel().draftStatement());
    EXPECT_EQ(finish(), "Draft statement saved to \u201Cfor counsel 2.docx\u201D")
        << "an earlier draft is never replaced";

    answer = folder_ / "no such folder" / "draft.docx";
    ASSERT_TRUE(model_->counsel().draftStatement());
    const auto failed = finish().toStdString();
    EXPECT_TRUE(
        failed.starts_with("Draft statement failed, nothing was saved: Couldn't write "
                           "draft.docx: "))
        << failed;
    EXPECT_FALSE(fs::exists(answer.parent_path()));

    model_->selectConversation(std::nullopt);
    EXPECT_FALSE(model_->counsel().draftStatement());
    EXPECT_EQ(model_->statusText(), Counsel::chooseConversationText);
}

}  // namespace
}  // namespace bc::app::testing
