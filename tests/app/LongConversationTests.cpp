#include <gtest/gtest.h>

#include "app/AppFixture.h"
#include "demo/LargeSample.h"

namespace bc::app::testing {
namespace {

// Large enough that its biggest conversation shows its newest rows before the whole.
constexpr int64_t sampleMessages = 6 * AppModel::recentFirstAbove;

class LongConversationTest : public AppTest {
protected:
    static void SetUpTestSuite() {
        folder_ = std::make_unique<bc::testing::TempDir>();
        demo::LargeSample{.messages = sampleMessages}.write(large());
    }
    static void TearDownTestSuite() { folder_.reset(); }
    static std::filesystem::path large() { return *folder_ / "large.db"; }

    std::unique_ptr<AppModel> openLarge() {
        auto model = std::make_unique<AppModel>();
        model->openSource(large(), AppModel::SourceKind::file);
        EXPECT_TRUE(waitFor([&] { return model->state() == AppModel::State::ready; }));
        return model;
    }

    static size_t longest(const AppModel& model) {
        const auto& list = model.conversations();
        for (size_t index = 0; index < list.size(); ++index)
            if (list[index].messageCount > AppModel::recentFirstAbove) return index;
        ADD_FAILURE() << "no conversation is long enough";
        return 0;
    }

    struct Shown {
        bool keepPosition;
        std::shared_ptr<const OpenTranscript> view;
        size_t wholeRows;  // what the model itself holds at that moment
    };

    static std::vector<Shown> record(AppModel& model) {
        auto shown = std::make_shared<std::vector<Shown>>();
        QObject::connect(&model, &AppModel::transcriptChanged, [&model, shown](bool keep) {
            shown->push_back({keep, model.shownTranscript(), model.transcript().rows.size()});
        });
        model.selectConversation(longest(model));
        EXPECT_TRUE(waitFor([&] { return !model.isBusy(); }));
        return *shown;
    }

    static inline std::unique_ptr<bc::testing::TempDir> folder_;
};

TEST_F(LongConversationTest, NewestRowsShowFirstAndTheWholeReplacesThemInPlace) {
    auto model = openLarge();
    model->selectConversation(std::nullopt);
    ASSERT_TRUE(waitFor([&] { return !model->isBusy(); }));
    const auto shown = record(*model);

    ASSERT_EQ(shown.size(), 3u) << "cleared, newest rows, whole";
    EXPECT_TRUE(shown[0].view->rows.empty());
    const auto& recent = shown[1].view->rows;
    EXPECT_FALSE(shown[1].keepPosition);
    EXPECT_GT(recent.size(), AppModel::recentRows / 2);
    EXPECT_LE(recent.size(), AppModel::recentRows);
    EXPECT_EQ(shown[1].wholeRows, 0u) << "nothing acts on part of a conversation";
    EXPECT_TRUE(shown[2].keepPosition) << "the rows on screen stay where they are";

    const auto& whole = model->transcript().rows;
    EXPECT_EQ(model->shownTranscript()->rows.size(), whole.size());
    ASSERT_GT(whole.size(), recent.size());
    const std::vector<Message> end(whole.end() - static_cast<std::ptrdiff_t>(recent.size()),
                                   whole.end());
    EXPECT_EQ(recent, end) << "the newest rows are shown as the whole shows them";
}

TEST_F(LongConversationTest, CancellingLeavesNoPartOfTheConversationOnScreen) {
    auto model = openLarge();
    model->selectConversation(std::nullopt);
    ASSERT_TRUE(waitFor([&] { return !model->isBusy(); }));
    model->selectConversation(longest(*model));
    ASSERT_TRUE(waitFor([&] { return !model->shownTranscript()->rows.empty(); }));
    if (!model->isBusy()) GTEST_SKIP() << "the whole was read before it could be cancelled";
    model->cancel();
    EXPECT_TRUE(model->shownTranscript()->rows.empty());
    ASSERT_TRUE(waitFor([&] { return !model->isBusy(); }));
    QCoreApplication::processEvents();
    EXPECT_TRUE(model->shownTranscript()->rows.empty());
    EXPECT_TRUE(model->transcript().rows.empty());
}

TEST_F(LongConversationTest, ShortConversationsAreReadWholeAtOnce) {
    auto model = openModel();
    int changes = 0;
    QObject::connect(model.get(), &AppModel::transcriptChanged, [&](bool) { ++changes; });
    select(*model, 1);
    EXPECT_EQ(changes, 2) << "cleared, then the whole";
}

}  // namespace
}  // namespace bc::app::testing
