#include <gtest/gtest.h>

#include "support/Text.h"
#include "support/Uuid.h"

namespace bc {
namespace {

TEST(RepairUtf8, ValidTextIsUntouchedAndEachBadSequenceBecomesOneReplacement) {
    const std::string valid = "plain, \xC3\xA9, \xE2\x82\xAC, \xF0\x9F\x98\x80";
    EXPECT_EQ(text::repairUtf8(valid), valid);
    EXPECT_TRUE(text::isValidUtf8(valid));
    EXPECT_EQ(text::repairUtf8("a\xFF" "b"), "a\xEF\xBF\xBD" "b");
    EXPECT_EQ(text::repairUtf8("trunc\xE2\x82"), "trunc\xEF\xBF\xBD");         // cut-off sequence
    EXPECT_EQ(text::repairUtf8("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD");       // overlong "/"
    EXPECT_EQ(text::repairUtf8("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");  // surrogate
    EXPECT_EQ(text::repairUtf8(std::string("nul\0in", 6)), std::string("nul\0in", 6));
    EXPECT_FALSE(text::isValidUtf8("\xFF"));
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
