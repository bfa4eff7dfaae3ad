#include <gtest/gtest.h>

#include "support/Text.h"
#include "support/Uuid.h"

namespace bc {
namespace {

TEST(RepairUtf8, ValidTextIsUntouchedAndEachBadSequenceBecomesOneReplacement) {
    const std::string valid = "plain, \xC3\xA9, \xE2\x82\xAC, \xF0\x9F\x98\x80";
    EXPECT_EQ(text::repairUtf8(valid), valid);
    EXPECT_TRUE(text::isValidUtf8(valid));
    EXPECT_EQ(text::repairUtf8("a\xFF"
                               "b"),
              "a\xEF\xBF\xBD"
              "b");
    EXPECT_EQ(text::repairUtf8("trunc\xE2\x82"), "trunc\xEF\xBF\xBD");    // cut-off sequence
    EXPECT_EQ(text::repairUtf8("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD");  // overlong "/"
    EXPECT_EQ(text::repairUtf8("\xED\xA0\x80"),
              "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");  // surrogate
    EXPECT_EQ(text::repairUtf8(std::string("nul\0in", 6)), std::string("nul\0in", 6));
    EXPECT_FALSE(text::isValidUtf8("\xFF"));
}

// A flag is two code points, this family seven, and "é" here a letter and a combining accent.
const std::string flag = "\U0001F1E9\U0001F1EA";
const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";
const std::string accented = "e\u0301";

TEST(Graphemes, CountAndCutWhatAReaderSeesAsOneCharacter) {
    EXPECT_EQ(text::graphemeCount(""), 0u);
    EXPECT_EQ(text::graphemeCount(flag + " Flag"), 6u);
    EXPECT_EQ(text::graphemeCount(family + accented + "x"), 3u);
    EXPECT_EQ(text::graphemeCount("\r\n"), 1u);

    const std::string mixed = "a" + flag + family + accented + "z";
    EXPECT_EQ(text::firstGraphemes(mixed, 2), "a" + flag);
    EXPECT_EQ(text::firstGraphemes(mixed, 3), "a" + flag + family);
    EXPECT_EQ(text::firstGraphemes(mixed, 4), "a" + flag + family + accented);
    EXPECT_EQ(text::firstGraphemes(mixed, 99), mixed);
    EXPECT_EQ(text::firstGraphemes(mixed, 0), "");
    // A byte limit inside the family keeps only what comes before it.
    EXPECT_EQ(text::firstGraphemes(mixed, 99, 1 + flag.size() + 10), "a" + flag);
    EXPECT_EQ(text::firstGraphemes(mixed, 99, 1 + flag.size() + family.size()),
              "a" + flag + family);
}

TEST(Uuid, UpperCaseVersionFourAndUnique) {
    const auto a = newUUID(), b = newUUID();
    ASSERT_EQ(a.size(), 36u);
    EXPECT_EQ(a[14], '4');
    EXPECT_NE(std::string("89AB").find(a[19]), std::string::npos);
    EXPECT_EQ(a.find_first_of("abcdef"), std::string::npos);
    EXPECT_NE(a, b);
}

}  // namespace
}  // namespace bc
