#include <QAction>
#include <QMenu>

#include "AppFixture.h"
#include "app/evidence/MachineTextMenu.h"
#include "evidence/MachineText.h"

namespace bc::app::testing {
namespace {

class MachineTextMenuTest : public AppTest {
protected:
    bc::testing::ScopedOverride texts_{AnalysisStore::location(), folder_ / "machine-text.json"};
};

TEST_F(MachineTextMenuTest, ReadingTheConversationKeepsTheTextShowsItAndSearchFindsIt) {
    auto model = openModel();
    select(*model, 1);
    const auto messages = model->transcript().messages();
    // Photos 1 to 3 are on disk; photo 4 is listed but missing and still counts as unread.
    EXPECT_EQ(pendingCountText(messages, {}), "4 photos or voice messages not read yet");
    EXPECT_NE(machineTextListing(messages, {}).indexOf("IMG_4102.jpg\nNot read yet."), -1);

    ASSERT_TRUE(readPhotosAndVoiceMessages(*model));
    EXPECT_FALSE(readPhotosAndVoiceMessages(*model));  // one job at a time
    ASSERT_TRUE(waitFor([&] { return !model->jobs().isRunning(); }, std::chrono::seconds(60)));
    EXPECT_TRUE(model->statusText().startsWith("Read the text of "))
        << qPrintable(model->statusText());

    const auto stored = AnalysisStore::load();
    ASSERT_TRUE(stored.contains("DEMO-ATTACHMENT-2"));
    const QString listing = machineTextListing(messages, stored);
    EXPECT_NE(listing.indexOf("IMG_4102.jpg\nText in image (machine-generated, may contain "
                              "errors): \nHARBOUR HARDWARE"),
              -1)
        << qPrintable(listing);
    EXPECT_NE(listing.indexOf("(Tesseract OCR "), -1);

    auto query = SearchQuery{.text = "harbour hardware"};
    model->runSearch(query);
    ASSERT_TRUE(waitFor([&] { return !model->searches().isSearching(); }));
    EXPECT_TRUE(model->searches().searchResults().empty());
    query.includeMachineText = true;
    model->runSearch(query);
    ASSERT_TRUE(waitFor([&] { return !model->searches().isSearching(); }));
    ASSERT_EQ(model->searches().searchResults().size(), 1u);
    EXPECT_NE(model->searches().searchResults().front().text.find("Keys are under the mat"),
              std::string::npos);
}

}  // namespace
}  // namespace bc::app::testing
