#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QTest>

#include "AppFixture.h"
#include "app/evidence/SearchPanel.h"
#include "app/shell/MainWindow.h"
#include "app/transcript/TranscriptModel.h"
#include "custody/CustodyLog.h"

namespace bc::app::testing {
namespace {

class SearchWindowTest : public AppTest {
protected:
    SearchWindowTest() { CustodyLog::setOverrideURL(folder_ / "custody-log.jsonl"); }
    ~SearchWindowTest() override { CustodyLog::setOverrideURL(std::nullopt); }

    // Types the text into the field and presses Return; waits for the hits.
    static void search(SearchPanel& panel, const AppModel& model, const QString& text) {
        auto* field = panel.findChild<QLineEdit*>("searchField");
        field->clear();
        QTest::keyClicks(field, text);
        QTest::keyClick(field, Qt::Key_Return);
        ASSERT_TRUE(waitFor([&] { return !model.searches().isSearching(); }));
    }
};

TEST_F(SearchWindowTest, HitsAreListedRevealedInTheirConversationAndExported) {
    auto model = openModel();
    select(*model, 2);
    MainWindow window(*model);
    window.show();
    auto* panel = window.findChild<SearchPanel*>();
    ASSERT_TRUE(panel);
    auto* results = panel->findChild<QListWidget*>("searchResults");

    search(*panel, *model, "  MOVERS ");
    ASSERT_EQ(results->count(), 2);
    const auto hits = model->searches().searchResults();
    EXPECT_NE(hits.at(1).text.find("movers"), std::string::npos);
    EXPECT_EQ(model->searches().lastSearchQuery()->text, "  MOVERS ");

    // Only the open conversation: it holds none of them, and the earlier hits are replaced.
    panel->findChild<QComboBox*>("searchScope")->setCurrentIndex(1);
    search(*panel, *model, "movers");
    EXPECT_EQ(results->count(), 0);
    panel->findChild<QComboBox*>("searchScope")->setCurrentIndex(0);
    search(*panel, *model, "movers");
    ASSERT_EQ(results->count(), 2);

    // Choosing a hit opens its conversation and selects the message there.
    results->itemActivated(results->item(1));
    auto* view = window.transcriptView();
    ASSERT_TRUE(waitFor([&] {
        const auto current = view->currentIndex();
        return current.isValid() &&
               model->transcript().rows.at(size_t(current.row())).id == hits.at(1).id;
    }));
    EXPECT_EQ(model->selectedIndex(), model->conversationOfChat(hits.at(1).chatID));

    const auto destination = folder_ / "found.csv";
    model->exports().setDialogs(
        {.saveFile = [&](const QString&, const QString&) { return std::optional(destination); },
         .chooseFolder = {}});
    ASSERT_TRUE(model->exports().exportSearchResults(RangeExportFormat::csv));
    ASSERT_TRUE(waitFor([&] { return !model->jobs().isRunning(); }));
    EXPECT_TRUE(std::filesystem::exists(destination)) << model->statusText().toStdString();
    const auto records = CustodyLog::readAll();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(records[0].title.starts_with("Search results (\u201Cmovers\u201D"));
    EXPECT_EQ(records[0].messageCount, 2);
}

}  // namespace
}  // namespace bc::app::testing
