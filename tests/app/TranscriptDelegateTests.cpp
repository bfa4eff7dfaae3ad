#include "app/transcript/TranscriptDelegate.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "demo/DemoData.h"
#include "model/MessageNotes.h"
#include "sources/MessageDatabase.h"
#include "testing/Testing.h"

namespace bc::app {
namespace {

class TranscriptDetails : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        folder_ = std::make_unique<bc::testing::TempDir>();
        DemoData::writeMessagesDatabase(*folder_ / "chat.db", Clock::now());
        messages_ = MessageDatabase(*folder_ / "chat.db").fetchTranscript({1}).messages;
    }
    static void TearDownTestSuite() { folder_.reset(); }

    static QStringList detailsOf(const std::string& guid) {
        const auto found = std::find_if(messages_.begin(), messages_.end(),
                                        [&](const Message& m) { return m.guid == guid; });
        if (found == messages_.end()) throw std::runtime_error("no message " + guid);
        return TranscriptDelegate::details(*found);
    }

    static inline std::unique_ptr<bc::testing::TempDir> folder_;
    static inline std::vector<Message> messages_;
};

TEST_F(TranscriptDetails, EditsShowEveryVersionAsThePagesDo) {
    const QStringList lines = detailsOf("DEMO-MSG-13");
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].startsWith("Original (")) << lines[0].toStdString();
    EXPECT_TRUE(lines[0].endsWith("): Got it, thanks! $400 back by the 15th."));
    EXPECT_TRUE(lines[1].startsWith("Edit 1 (")) << lines[1].toStdString();
    EXPECT_TRUE(lines[1].endsWith("): Got it, thanks! I'll pay you back when I can."));
    EXPECT_FALSE(lines.join("\n").contains("earlier"));
}

TEST_F(TranscriptDetails, RecentlyDeletedAndAppLabelsSayWhatExportsSay) {
    const auto deleted = std::find_if(messages_.begin(), messages_.end(),
                                      [](const Message& m) { return m.guid == "DEMO-MSG-23"; });
    ASSERT_NE(deleted, messages_.end());
    const QStringList lines = detailsOf("DEMO-MSG-23");
    EXPECT_TRUE(lines.contains(QString::fromStdString(*notes::recentlyDeleted(*deleted))))
        << lines.join(" | ").toStdString();
    EXPECT_TRUE(
        lines.contains("Recovered deleted part 1: Fine, I'll pay you when my paycheck clears."));
    EXPECT_TRUE(detailsOf("DEMO-MSG-25").contains("Sent with the iMessage app: Apple Cash"));
}

TEST(TranscriptReactions, NameWhoReactedAndShowAQuestionMarkAsItsReaction) {
    Message message;
    message.reactions = {{.emoji = "❤️", .sender = "+15550100"},
                         {.emoji = "?", .isFromMe = true},
                         {.emoji = "👍", .sender = "jo@example.com"}};
    const auto name = [](const std::string& handle) {
        return handle == "+15550100" ? std::string("Ana Example") : handle;
    };
    EXPECT_EQ(TranscriptDelegate::reactionLine(message, name),
              "❤️ Ana Example  ·  ❓ You  ·  👍 jo@example.com");
}

}  // namespace
}  // namespace bc::app
