#include <gtest/gtest.h>

#include "export/Redactor.h"
#include "model/Message.h"

namespace bc {
namespace {

const std::string block = Redactor::block;

std::string redact(const std::string& text, std::vector<std::string> terms,
                   bool contactDetails = false) {
    return Redactor(std::move(terms), contactDetails).apply(text);
}

TEST(Redactor, MatchesTermsWhateverTheirCaseOrDiacritics) {
    EXPECT_EQ(redact("Anne and ANN", {"ann"}), block + "e and " + block);
    EXPECT_EQ(redact("Änn, A\u0308nn and ann", {"ann"}), block + ", " + block + " and " + block);
    EXPECT_EQ(redact("Zoë met zoe", {"ZOE"}), block + " met " + block);
    EXPECT_EQ(redact("no match here", {"ann"}), "no match here");
}

TEST(Redactor, TermsAreTrimmedAndBlankOnesIgnored) {
    EXPECT_FALSE(Redactor({"", "  ", "\t"}, false).isActive());
    EXPECT_FALSE(Redactor().isActive());
    EXPECT_TRUE(Redactor({}, true).isActive());
    const Redactor redactor({"  Anne Smith \t", ""}, false);
    EXPECT_EQ(redactor.terms(), std::vector<std::string>{"Anne Smith"});
    EXPECT_EQ(redactor.apply("Dear Anne Smith,"), "Dear " + block + ",");
}

TEST(Redactor, OverlappingOrTouchingMatchesBecomeOneBlockOfFixedLength) {
    EXPECT_EQ(redact("Anne Smith Jones left", {"anne smith", "smith jones"}), block + " left");
    EXPECT_EQ(redact("AnneSmith left", {"anne", "smith"}), block + " left");
    EXPECT_EQ(redact("Anne Smith", {"anne", "smith"}), block + " " + block);
    // The block never tells how long the hidden text was.
    EXPECT_EQ(redact("a b", {"a"}), redact("abcdefghijklmnop b", {"abcdefghijklmnop"}));
}

TEST(Redactor, PhoneNumbersAndAddressesOnlyWhenAskedAndOnlyWholeOnes) {
    const std::string text = "Call 555-123-4567 or +1 (555) 123-4567, mail Anne.B@Example.co.uk";
    EXPECT_EQ(redact(text, {}), text);
    EXPECT_EQ(redact(text, {}, true), "Call " + block + " or " + block + ", mail " + block);
    // Digits inside a word, or after a "+" that is part of one, are not a phone number.
    for (const std::string word : {"order5551234567", "5551234567x", "id+5551234567"})
        EXPECT_EQ(redact(word, {}, true), word);
    EXPECT_EQ(redact("(555) 123 4567.", {}, true), block + ".");
}

TEST(Redactor, MessageCopyRedactsItsTextsAndKeepsEverythingElse) {
    Message message{.id = 7, .guid = "g", .sender = "anne@example.com", .text = "Anne said"};
    message.isEdited = true;
    message.editHistory = {{0, Date(), "Anne wrote"}, {0, Date(), std::nullopt}};
    message.recoveredParts = {{1, std::nullopt, "ANNE deleted"}};
    message.attachments = {{.id = 3, .path = "/p/Anne.jpg", .name = "Anne.jpg"}};
    const Message copy = message.redacted(Redactor({"anne"}, false));
    EXPECT_EQ(copy.text, block + " said");
    EXPECT_EQ(copy.editHistory[0].text, block + " wrote");
    EXPECT_EQ(copy.editHistory[1].text, std::nullopt);
    EXPECT_EQ(copy.recoveredParts[0].text, block + " deleted");
    Message expected = copy;
    expected.text = message.text;
    expected.editHistory = message.editHistory;
    expected.recoveredParts = message.recoveredParts;
    EXPECT_EQ(expected, message);
}

}  // namespace
}  // namespace bc
