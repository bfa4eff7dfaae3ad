#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>

#include "demo/DemoData.h"
#include "demo/DemoWriters.h"
#include "model/MessageNotes.h"
#include "sources/EditHistory.h"
#include "sources/MessageDecoding.h"

namespace bc::messages {
namespace {

using namespace std::string_literals;

const std::string replacement = "\xEF\xBF\xBD";

TEST(MessageDecodingBody, ReadsEveryLengthFormTheWriterProduces) {
    for (const size_t length :
         {size_t{0}, size_t{127}, size_t{128}, size_t{65536}, size_t{200000}}) {
        std::string text(length, 'a');
        if (length > 2) text[length / 2] = 'Z';
        EXPECT_EQ(decodeAttributedBody(DemoData::demoBody(text)), text) << length;
    }
    EXPECT_EQ(decodeAttributedBody(DemoData::demoBody("Ünïcødé 👀 \xEF\xBF\xBC")),
              "Ünïcødé 👀 \xEF\xBF\xBC");
}

TEST(MessageDecodingBody, ScanRulesAtTheirBoundaries) {
    // "+" as the 17th byte after the marker is found; as the 18th it is not.
    EXPECT_EQ(decodeAttributedBody("NSString" + std::string(16, 'x') + "+\x02hi"), "hi");
    EXPECT_EQ(decodeAttributedBody("NSString" + std::string(17, 'x') + "+\x02hi"), std::nullopt);
    // Only the first marker counts, even when a later one would decode.
    EXPECT_EQ(decodeAttributedBody("NSString" + std::string(20, 'x') + "NSString+\x02hi"),
              std::nullopt);
    // Two-byte and four-byte lengths are little-endian and skip their own width.
    EXPECT_EQ(decodeAttributedBody("NSString+\x81\x03\x00"
                                   "abcd"s),
              "abc");
    EXPECT_EQ(decodeAttributedBody("NSString+\x82\x02\x00\x00\x00xyz"s), "xy");
    // An exact fit is read; one byte short is nothing, never a partial text.
    EXPECT_EQ(decodeAttributedBody("NSString+\x03"
                                   "abc"),
              "abc");
    EXPECT_EQ(decodeAttributedBody("NSString+\x04"
                                   "abc"),
              std::nullopt);
    // A length near the top of the range must not wrap around.
    EXPECT_EQ(decodeAttributedBody("NSString+\x82\xFF\xFF\xFF\xFF"
                                   "abc"),
              std::nullopt);
    EXPECT_EQ(decodeAttributedBody("NSString+\x02\xFF"
                                   "a"),
              replacement + "a");
}

TEST(MessageDecodingBody, EveryTruncationGivesNothingOrTheWholeText) {
    const std::string text = "The deposit is $575 each 👍";
    const std::string body = DemoData::demoBody(text);
    for (size_t cut = 0; cut <= body.size(); ++cut) {
        const auto decoded = decodeAttributedBody(std::string_view(body).substr(0, cut));
        if (decoded) {
            EXPECT_EQ(*decoded, text) << cut;
        }
    }
}

StoredRow reactionRow(int64_t type, std::string target, std::string sender = "+12025550143") {
    return StoredRow{.rowID = 9,
                     .date = 700'000'000,
                     .sender = std::move(sender),
                     .associatedType = type,
                     .associatedGUID = std::move(target),
                     .associatedEmoji = "🎉"};
}

TEST(MessageDecodingReactions, RowsBecomeEventsWithTheirEmojiAndTarget) {
    EXPECT_FALSE(isReaction(1999));
    EXPECT_TRUE(isReaction(2000));
    EXPECT_TRUE(isReaction(3999));
    EXPECT_FALSE(isReaction(4000));
    EXPECT_EQ(reactionTarget("p:0/ABC"), "ABC");
    EXPECT_EQ(reactionTarget("ABC"), "ABC");

    const auto loved = reactionEvent(reactionRow(2000, "p:0/G"));
    EXPECT_EQ(loved.emoji, "❤️");
    EXPECT_EQ(loved.targetGUID, "G");
    EXPECT_FALSE(loved.isRemoval);
    EXPECT_EQ(reactionEvent(reactionRow(2006, "G")).emoji, "🎉");
    EXPECT_EQ(reactionEvent(reactionRow(2007, "G")).emoji, "(sticker)");
    const auto removed = reactionEvent(reactionRow(3005, "bp:G"));
    EXPECT_TRUE(removed.isRemoval);
    EXPECT_EQ(removed.emoji, "❓");
    EXPECT_EQ(reactionEvent(reactionRow(2042, "G")).emoji, "");
    EXPECT_EQ(tapbackName(3), "Laughed at");
    EXPECT_EQ(tapbackName(8), std::nullopt);
}

TEST(MessageDecodingReactions, FoldKeepsOneReactionPerPersonInForce) {
    std::vector<Message> messages(2);
    messages[0].guid = "A";
    messages[1].guid = "B";
    const auto event = [](int64_t type, std::string target, std::string sender) {
        return reactionEvent(reactionRow(type, std::move(target), std::move(sender)));
    };
    foldReactions(messages,
                  {
                      event(2000, "p:0/A", "x"),  // x loves A
                      event(2001, "p:0/A", "y"),  // y likes A
                      event(2003, "p:0/A", "x"),  // x changes to laughing
                      event(3000, "p:0/A", "x"),  // removing the love x no longer has: no effect
                      event(3001, "p:0/A", "y"),  // y takes the like back
                      event(2001, "p:0/B", "y"),
                      event(2000, "p:0/missing", "y"),
                  });
    ASSERT_EQ(messages[0].reactions.size(), 1u);
    EXPECT_EQ(messages[0].reactions[0], (Reaction{"😂", false, "x"}));
    ASSERT_EQ(messages[1].reactions.size(), 1u);
    EXPECT_EQ(messages[1].reactions[0].emoji, "👍");
}

// A summary property list built by hand, for encodings the sample writer doesn't use.
std::string summary(const std::vector<std::pair<std::string, std::vector<plist_t>>>& parts) {
    plist_t root = plist_new_dict();
    plist_t ec = plist_new_dict();
    for (const auto& [key, versions] : parts) {
        plist_t list = plist_new_array();
        for (plist_t version : versions) plist_array_append_item(list, version);
        plist_dict_set_item(ec, key.c_str(), list);
    }
    plist_dict_set_item(root, "ec", ec);
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    plist_free(root);
    std::string out(bytes, length);
    std::free(bytes);
    return out;
}

plist_t version(const std::string& text, plist_t date) {
    plist_t node = plist_new_dict();
    plist_dict_set_item(node, "t", plist_new_data(text.data(), text.size()));
    plist_dict_set_item(node, "d", date);
    return node;
}

TEST(MessageDecodingEdits, VersionsComeInNumericPartOrderWithEveryDateEncoding) {
    const auto bytes = summary({
        {"10", {version(DemoData::demoBody("ten"), plist_new_real(5.5))}},
        {"2",
         {version(DemoData::demoBody("two a"), plist_new_uint(700'000'000'000'000'000)),
          version("not an archive", plist_new_date(100, 500000))}},
        {"x", {version(DemoData::demoBody("dropped"), plist_new_real(1))}},
    });
    const auto history = editHistory(bytes);
    ASSERT_EQ(history.size(), 3u);
    EXPECT_EQ(history[0], (EditVersion{2, Date{700'000'000}, "two a"}));
    EXPECT_EQ(history[1], (EditVersion{2, Date{100.5}, std::nullopt}));
    EXPECT_EQ(history[2], (EditVersion{10, Date{5.5}, "ten"}));

    const auto demo = editHistory(demo::editSummary({{"old", 1'000'000'000'000'000}, {"new", 2}}));
    ASSERT_EQ(demo.size(), 2u);
    EXPECT_EQ(demo[0].text, "old");
    EXPECT_EQ(demo[0].date, Date{1'000'000});
}

TEST(MessageDecodingEdits, MalformedPropertyListsGiveNoHistory) {
    const auto good = demo::editSummary({{"old", 1}, {"new", 2}});
    for (size_t cut = 0; cut < good.size(); ++cut)
        EXPECT_NO_THROW(editHistory(good.substr(0, cut)));
    EXPECT_TRUE(editHistory("").empty());
    // {"ec": {"é\0": []}}: a UTF-16 key with a NUL inside once aborted the property-list library.
    const std::string nulKey =
        "bplist00\xD1\x01\x02\x52"
        "ec\xD1\x03\x04\x62\x00\xE9\x00\x00\xA0\x08\x0B\x0E\x11\x16"s +
        std::string(6, '\0') + "\x01\x01"s + std::string(7, '\0') + "\x05"s +
        std::string(15, '\0') + "\x17"s;
    EXPECT_TRUE(editHistory(nulKey).empty());
    // Real summaries without edits: {"amc": 0, "ust": 1}.
    EXPECT_TRUE(editHistory(summary({})).empty());
}

Message plain(StoredRow row, std::vector<Attachment> attachments = {}) {
    Message result;
    fillMessage(result, std::move(row), std::move(attachments), {});
    return result;
}

TEST(MessageDecodingText, NoticesStandInOnlyWhereNothingElseWouldShow) {
    const auto bodyOnly = plain({.attributedBody = DemoData::demoBody("from the body")});
    EXPECT_EQ(bodyOnly.text, "from the body");
    const auto stored = plain({.text = "plain", .attributedBody = DemoData::demoBody("other")});
    EXPECT_EQ(stored.text, "plain");

    const auto undecodable = plain({.attributedBody = "\x04\x0bstreamtyped"s});
    EXPECT_EQ(undecodable.text, undecodableNotice);
    EXPECT_EQ(undecodable.undecodedBody, "\x04\x0bstreamtyped"s);

    EXPECT_EQ(plain({}).text, emptyMessageNotice);
    EXPECT_EQ(plain({.text = "\xEF\xBF\xBC"}).text, placeholderNotice);
    EXPECT_EQ(plain({.text = "\xEF\xBF\xBC"}, {Attachment{.id = 1}}).text, "\xEF\xBF\xBC");
    EXPECT_EQ(plain({}, {Attachment{.id = 1}}).text, "");

    const auto system = plain({.itemType = 6});
    EXPECT_EQ(system.systemNotice,
              "System notice recorded by Messages (item_type 6); no text is stored for it.");
    EXPECT_EQ(system.text, system.systemNotice);
    const auto named = plain({.text = "named the group", .itemType = 2});
    EXPECT_EQ(named.text, "named the group");
    EXPECT_EQ(named.systemNotice, std::nullopt);
}

TEST(MessageDecodingText, RowFieldsMapToTheRecord) {
    const auto m = plain({.rowID = 4,
                          .guid = "G",
                          .date = 1'000'000'000'001,
                          .isFromMe = true,
                          .sender = "+12025550143",
                          .text = "t",
                          .threadOriginatorGUID = "R",
                          .dateEdited = 5,
                          .dateRetracted = 6,
                          .balloonBundleID = "com.apple.messages.URLBalloonProvider",
                          .chatID = 3,
                          .error = 22,
                          .sendStyle = "com.apple.messages.effect.CKConfettiEffect",
                          .dateDelivered = 7,
                          .dateRead = 0,
                          .deleted = -1});
    EXPECT_EQ(m.date, Date{1000.000000001});
    EXPECT_EQ(m.sender, "");
    EXPECT_EQ(m.replyToGUID, "R");
    EXPECT_TRUE(m.isEdited);
    EXPECT_TRUE(m.isUnsent);
    EXPECT_EQ(m.effect, "Confetti");
    EXPECT_EQ(m.dateRead, std::nullopt);
    EXPECT_TRUE(m.isInRecentlyDeleted);
    EXPECT_EQ(m.deletedAt, std::nullopt);
    EXPECT_EQ(notes::recentlyDeleted(m),
              "Deleted on an unknown date. Still stored in Messages' Recently Deleted (kept about "
              "30 days).");
    EXPECT_EQ(deliveryErrorNotice(m.errorCode)->rfind("Not delivered (error 22)", 0), 0u);

    const auto dated = plain({.text = "t", .deleted = 700'000'000});
    EXPECT_EQ(dated.deletedAt, Date{700'000'000});
    EXPECT_EQ(notes::recentlyDeleted(dated),
              "Deleted on March 8, 2023 at 3:26\u202FPM. Still stored in Messages' Recently "
              "Deleted (kept about 30 days).");
    EXPECT_EQ(notes::recentlyDeleted(plain({.text = "t"})), std::nullopt);
}

TEST(MessageDecodingText, AppLabelsEffectsAndRecoveredParts) {
    EXPECT_EQ(appLabel("com.apple.messages.URLBalloonProvider"), std::nullopt);
    EXPECT_EQ(appLabel("com.apple.messages.MSMessageExtensionBalloonPlugin:0000000000:"
                       "com.apple.PassbookUIService.PeerPaymentMessagesExtension"),
              "Apple Cash");
    EXPECT_EQ(appLabel("com.apple.Passwords.CredentialSharing"), "Passwords");
    EXPECT_EQ(appLabel("com.apple.messages.MSMessageExtensionBalloonPlugin:ABC:com.example.chess"),
              "com.example.chess");
    EXPECT_EQ(effectName("com.apple.MobileSMS.expressivesend.invisibleink"), "Invisible Ink");
    EXPECT_EQ(effectName("com.example.newstyle"), "com.example.newstyle");
    EXPECT_EQ(recoveredPartText(DemoData::demoBody("gone")), "gone");
    EXPECT_EQ(recoveredPartText("plain words"), "plain words");
    EXPECT_EQ(recoveredPartText("\xFF\x00\x01"s), std::nullopt);
}

}  // namespace
}  // namespace bc::messages
