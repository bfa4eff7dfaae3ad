#include <gtest/gtest.h>

#include "PagesTesting.h"
#include "export/pages/LayoutProgress.h"
#include "export/pages/Paginator.h"
#include "export/pages/Rows.h"
#include "export/pages/Text.h"
#include "support/DateFormat.h"

namespace bc::pages {
namespace {

using testing::textMessage;

TEST(PagesRows, FivePhotosArePrintedInThreePieces) {
    Message five = textMessage(12, "holiday", 0);
    for (int64_t id = 1; id <= 6; ++id) five.attachments.push_back({.id = id, .isHidden = id == 3});
    Message two = textMessage(13, "pair", 1);
    two.attachments = {{.id = 7}, {.id = 8}};

    const auto rows = buildRows({five, two}, {});
    ASSERT_EQ(rows.size(), 5u);  // day heading, three pieces, one plain row
    EXPECT_EQ(rows[0].kind, Row::Kind::day);
    const std::vector<std::string> labels{"Message #12 · attachments 1–2 of 5 · continued below",
                                          "Message #12 · attachments 3–4 of 5 · continued below",
                                          "Message #12 · attachments 5–5 of 5"};
    for (size_t piece = 0; piece < 3; ++piece) {
        const Row& row = rows[1 + piece];
        EXPECT_EQ(row.partLabel, labels[piece]);
        EXPECT_EQ(row.firstAttachment, piece * 2);
        EXPECT_EQ(row.attachmentCount, piece < 2 ? 2u : 1u);
        EXPECT_EQ(row.isFirst, piece == 0);
        EXPECT_EQ(row.isFinal, piece == 2);
    }
    EXPECT_FALSE(rows[4].partLabel);
    EXPECT_EQ(rows[4].attachmentCount, 2u);
}

TEST(PagesRows, DayHeadingsFollowTheLocalCalendarAndGapsPrecedeMessages) {
    // 23:30 and 00:30 in New York: one UTC day, two local days.
    const Date lateEvening = Date::fromUnix(1709699400);
    Message first = textMessage(1, "late", 0);
    first.date = lateEvening;
    Message second = textMessage(2, "after midnight", 0);
    second.date = lateEvening + 3600;
    Message third = textMessage(3, "same day", 0);
    third.date = lateEvening + 7200;
    PageExporter::Options options;
    options.omittedBefore = {{3, 3}};
    options.omittedCallsBefore = {{3, 1}};
    options.certificate = "CERTIFICATE\n";

    const auto rows = buildRows({first, second, third}, options);
    std::vector<Row::Kind> kinds;
    for (const auto& row : rows) kinds.push_back(row.kind);
    using K = Row::Kind;
    EXPECT_EQ(kinds, (std::vector<K>{K::day, K::message, K::day, K::message, K::gap, K::message,
                                     K::certificate}));
    EXPECT_EQ(rows[4].omittedMessages, 3);
    EXPECT_EQ(rows[4].omittedCalls, 1);
    EXPECT_EQ(gapText(3, 1), "3 messages and 1 call not included in this exhibit  · · ·");
    EXPECT_EQ(gapText(1, 0), "1 message not included in this exhibit  · · ·");
    EXPECT_EQ(gapText(0, 2), "2 calls not included in this exhibit  · · ·");
}

TEST(PagesPaginator, KeepsRowsWholeAndBreaksOnlyRowsTallerThanAPage) {
    Paginator paginator(10, 110, 5);
    paginator.add(0, {20, 20});                     // 10..50
    paginator.add(1, {40});                         // 55..95
    paginator.add(2, {10, 10});                     // does not fit in 15: next page, whole
    paginator.add(3, std::vector<double>(30, 10));  // 300 tall: broken between lines
    paginator.add(4, {5}, true);                    // starts its own page
    const auto pages = paginator.finish();

    ASSERT_GE(pages.size(), 5u);
    EXPECT_EQ(pages[0].size(), 2u);
    EXPECT_DOUBLE_EQ(pages[0][1].y, 55);
    EXPECT_EQ(pages[1][0].row, 2u);
    EXPECT_DOUBLE_EQ(pages[1][0].y, 10);
    size_t unitsOfTallRow = 0;
    for (const auto& page : pages)
        for (const auto& placement : page) {
            EXPECT_LE(placement.y + placement.height, 110 + 1e-9);
            if (placement.row == 3) unitsOfTallRow += placement.endUnit - placement.firstUnit;
        }
    EXPECT_EQ(unitsOfTallRow, 30u);
    EXPECT_EQ(pages.back().size(), 1u);
    EXPECT_EQ(pages.back()[0].row, 4u);
    EXPECT_DOUBLE_EQ(pages.back()[0].y, 10);
}

TEST(PagesPaginator, AHeadingMovesToTheNextPageWithTheFirstLineOfItsRow) {
    Paginator paginator(10, 110, 5);
    paginator.add(0, {70});             // 10..80
    paginator.add(1, {10}, false, 12);  // fits at 85..95, but its row's first line would not
    paginator.add(2, {12, 12});
    paginator.add(3, {10}, false, 12);  // room for both: stays
    const auto pages = paginator.finish();
    ASSERT_EQ(pages.size(), 2u);
    EXPECT_EQ(pages[0].size(), 1u);
    EXPECT_EQ(pages[1][0].row, 1u);
    EXPECT_EQ(pages[1][1].row, 2u);
    EXPECT_EQ(pages[1][2].row, 3u);
}

TEST(PagesText, LongTextsAreCutIntoPiecesPangoCanMeasure) {
    const auto cut = [](std::string_view text) { return layoutChunks(text, 10); };
    EXPECT_EQ(cut("short"), (std::vector<std::string_view>{"short"}));
    // A line end is the cut and disappears; else the cut follows a blank.
    EXPECT_EQ(cut("abcdef\nghijklmn"), (std::vector<std::string_view>{"abcdef", "ghijklmn"}));
    EXPECT_EQ(cut("abc defghijklmn"), (std::vector<std::string_view>{"abc ", "defghijklm", "n"}));
    // No blank: between characters, never inside one (é is two bytes) nor before its accent.
    const std::string accents = "aaaaaaaaa\u00E9bbbbbbbbbbbbb";
    EXPECT_EQ(cut(accents)[0], "aaaaaaaaa");
    const std::string combining = "aaaaaaaae\u0301bbbbbbbbbbbbb";
    EXPECT_EQ(cut(combining)[0], "aaaaaaaa");

    std::string big;
    for (int i = 0; i < 100'000; ++i) big += i % 50 == 0 ? "\u00E9\n" : "word ";
    size_t total = 0, newlines = 0;
    const auto chunks = layoutChunks(big, 16'000);
    for (const auto chunk : chunks) {
        EXPECT_LE(chunk.size(), 16'000u);
        total += chunk.size();
    }
    for (const char c : big) newlines += c == '\n';
    EXPECT_GT(chunks.size(), 25u);
    EXPECT_EQ(total + chunks.size() - 1, big.size()) << "only the line ends cut at are dropped";
    EXPECT_GT(newlines, chunks.size());
}

TEST(PagesLayoutProgress, CountsInTheLocalesGroupingAgainstAnEstimateNeverBelowTheCount) {
    std::vector<std::string> lines;
    const LayoutProgress progress([&](const std::string& line) { lines.push_back(line); }, 100'000);
    progress.pagesFilled(1'200, 46'000);
    progress.pagesFilled(2'000, 99'000);
    // The share of rows alone would promise no more than is done; the open page still counts.
    progress.pagesFilled(3'000, 100'000);
    EXPECT_EQ(lines, (std::vector<std::string>{"Laying out pages… 1,200 of about 2,609",
                                               "Laying out pages… 2,000 of about 2,020",
                                               "Laying out pages… 3,000 of about 3,001"}));

    const std::string before = dates::currentLocale();
    dates::setCurrentLocale("de_DE");
    EXPECT_EQ(grouped(2'600), "2.600");
    dates::setCurrentLocale(before);
    EXPECT_EQ(grouped(999), "999");
}

}  // namespace
}  // namespace bc::pages
