#include <gtest/gtest.h>

#include <unordered_set>

#include "model/Message.h"
#include "model/MessageSource.h"
#include "testing/SourceDouble.h"

namespace bc {
namespace {

Message sample() {
    Message m;
    m.id = 1;
    m.guid = "G1";
    m.text = "hello";
    m.attachments = {Attachment{.id = 1, .name = "a.jpg"}, Attachment{.id = 2, .isHidden = true},
                     Attachment{.id = 3, .name = "c.heic"}};
    m.reactions = {Reaction{.emoji = "\xE2\x9D\xA4\xEF\xB8\x8F", .isFromMe = true}};
    m.editHistory = {EditVersion{.part = 0, .date = Date{5}, .text = "hallo"}};
    return m;
}

TEST(MessageRecords, VisibleAttachmentsKeepOrderAndDropHidden) {
    const auto visible = sample().visibleAttachments();
    ASSERT_EQ(visible.size(), 2u);
    EXPECT_EQ(visible[0].id, 1);
    EXPECT_EQ(visible[1].id, 3);
}

TEST(MessageRecords, EqualityAndHashSeeNestedFields) {
    const Message base = sample();
    std::vector<Message> variants(6, base);
    variants[0].reactions[0].sender = "+15550100";
    variants[1].editHistory[0].text = std::nullopt;
    variants[2].attachments[1].isHidden = false;
    variants[3].call = CallInfo{.duration = 0};
    variants[4].userEvent = TimelineEvent{.title = "x"};
    variants[5].recoveredParts = {RecoveredPart{}};
    std::unordered_set<size_t> hashes{std::hash<Message>{}(base)};
    for (const auto& variant : variants) {
        EXPECT_NE(variant, base);
        hashes.insert(std::hash<Message>{}(variant));
    }
    EXPECT_EQ(hashes.size(), variants.size() + 1);
    EXPECT_EQ(sample(), base);
    EXPECT_EQ(std::hash<Message>{}(sample()), std::hash<Message>{}(base));
    EXPECT_TRUE(variants[3].isCall());
    EXPECT_TRUE(variants[4].isUserEvent());
}

// A source whose transcript records which conversations were asked for.
class RecordingSource : public testing::SourceDouble {
public:
    RecordingSource() : SourceDouble("/x", false) {}
    std::vector<int64_t> asked;
    Transcript fetchTranscript(const std::vector<int64_t>& chatIDs) override {
        asked = chatIDs;
        return Transcript{.messages = {sample()}, .reactionEvents = {ReactionEvent{}}};
    }
};

TEST(MessageSource, FetchMessagesAsksForTheOneConversation) {
    RecordingSource source;
    const auto messages = source.fetchMessages(42);
    EXPECT_EQ(source.asked, std::vector<int64_t>{42});
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], sample());
}

}  // namespace
}  // namespace bc

namespace bc {
namespace {

TEST(AttachmentMarks, DroppedWhereverTheyStandAndNothingElseChanges) {
    EXPECT_EQ(withoutAttachmentMarks("\xEF\xBF\xBC"
                                     "This is the room.\xEF\xBF\xBC"),
              "This is the room.");
    EXPECT_EQ(withoutAttachmentMarks("a\xEF\xBF\xBC\xEF\xBF\xBC"
                                     "b"),
              "ab");
    EXPECT_EQ(withoutAttachmentMarks("\xEF\xBF\xBD stays"), "\xEF\xBF\xBD stays");
    EXPECT_EQ(withoutAttachmentMarks(""), "");
}

}  // namespace
}  // namespace bc

namespace bc {
namespace {

TEST(IndirectMembers, CopiesAreDeepAndCompareByValue) {
    Message original;
    original.call = CallInfo{.recordID = 7};
    Message copy = original;
    copy.call->recordID = 8;  // must not reach the original through a shared pointer
    EXPECT_EQ(original.call->recordID, 7);
    EXPECT_NE(copy, original);
    copy.call->recordID = 7;
    EXPECT_EQ(copy, original);
    copy.call = std::nullopt;
    EXPECT_FALSE(copy.isCall());
    EXPECT_TRUE(copy.call == std::nullopt);
    EXPECT_LT(sizeof(Message), 600u);  // what keeps a 200,000-message transcript under 1 KB each
}

}  // namespace
}  // namespace bc
