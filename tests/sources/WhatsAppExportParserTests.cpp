#include "sources/WhatsAppExportParser.h"

#include <gtest/gtest.h>

#include "support/Files.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;
using testing::utc;
using Result = WhatsAppExportParser::Result;

Result parse(const std::string& text, WhatsAppExportParser::Options options = {}) {
    if (options.timeZone.empty()) options.timeZone = "UTC";
    if (options.guidPrefix.empty()) options.guidPrefix = "wa-export:test:";
    return WhatsAppExportParser::parse(text, options);
}

bool hasNote(const Result& result, const std::string& note) {
    return std::find(result.notes.begin(), result.notes.end(), note) != result.notes.end();
}

const char* const minuteNote =
    "Some timestamps have minute precision only (Android export format).";

TEST(WhatsAppExportParser, BracketedAndDashFormsReadTheSameMessage) {
    const Result iphone =
        parse("[03/04/21, 9:05:07 PM] Ann: hi\r\n[13/04/21, 9:05:08 PM] Ann: x\r\n");
    ASSERT_EQ(iphone.messages.size(), 2u);
    EXPECT_EQ(iphone.messages[0].date, utc("2021-04-03T21:05:07Z"));
    EXPECT_EQ(iphone.messages[0].sender, "Ann");
    EXPECT_EQ(iphone.messages[0].text, "hi");
    EXPECT_FALSE(iphone.messages[0].systemNotice);
    EXPECT_EQ(iphone.messages[0].guid, "wa-export:test:1");
    EXPECT_EQ(iphone.dayFirst, true);
    EXPECT_FALSE(hasNote(iphone, minuteNote));
    EXPECT_TRUE(hasNote(iphone, "WhatsApp exports have no time zone; times read as UTC"));

    const Result android = parse("03/04/2021, 21:05 - Ann: hi\n03/14/2021, 21:05 - Ann: x\n");
    EXPECT_EQ(android.messages[0].date, utc("2021-03-04T21:05:00Z"));
    EXPECT_EQ(android.messages[0].text, "hi");
    EXPECT_EQ(android.dayFirst, false);
    EXPECT_TRUE(hasNote(android, minuteNote));
    EXPECT_TRUE(hasNote(android,
                        "Dates read as month/day (the file contains days above 12 in "
                        "the second position)."));
    EXPECT_EQ(android.notes.size(), 3u);
}

TEST(WhatsAppExportParser, RegionalFormsYearFirstDotsTwelveHourClocksAndMarks) {
    const Result yearFirst = parse("2021-04-03 21:05:07 - Ann: hi\n");
    EXPECT_EQ(yearFirst.messages[0].date, utc("2021-04-03T21:05:07Z"));
    EXPECT_TRUE(hasNote(yearFirst, "Dates read as year-month-day."));
    EXPECT_FALSE(yearFirst.dayFirst);

    const Result dotted = parse("[20.06.19, 16:00:15] Ann: dots\n");
    EXPECT_EQ(dotted.messages[0].date, utc("2019-06-20T16:00:15Z"));
    EXPECT_TRUE(hasNote(dotted,
                        "Dates read as day/month (the file contains days above 12 in the "
                        "first position)."));

    // Narrow no-break space before "p.m.", a left-to-right mark before the line and the sender.
    const Result marks = parse(
        "\u200e[13/4/21, 12:30\u202fa.m.] \u200eAnn: midnight\n"
        "13/4/21, 12:30\u00a0P.M. - Ann: noon\n"
        "13/4/21, 1:15 pm - Ann: after\n");
    ASSERT_EQ(marks.messages.size(), 3u);
    EXPECT_EQ(marks.messages[0].date, utc("2021-04-13T00:30:00Z"));
    EXPECT_EQ(marks.messages[0].sender, "Ann");
    EXPECT_EQ(marks.messages[1].date, utc("2021-04-13T12:30:00Z"));
    EXPECT_EQ(marks.messages[2].date, utc("2021-04-13T13:15:00Z"));

    const Result berlin = parse("13/04/2021, 21:05 - Ann: hi\n", {.timeZone = "Europe/Berlin"});
    EXPECT_EQ(berlin.messages[0].date, utc("2021-04-13T19:05:00Z"));
    EXPECT_TRUE(hasNote(berlin, "WhatsApp exports have no time zone; times read as Europe/Berlin"));
}

TEST(WhatsAppExportParser, AmbiguousOrderComesFromTheOverrideOrTheRegion) {
    const std::string text = "01/02/21, 10:00 - Ann: a\n05/06/21, 10:00 - Ann: b\n";
    const Result fixed = parse(text, {.dayFirstOverride = false});
    EXPECT_EQ(fixed.messages[0].date, utc("2021-01-02T10:00:00Z"));
    EXPECT_FALSE(fixed.dayFirst);
    EXPECT_TRUE(hasNote(fixed,
                        "Day/month order couldn't be determined from the file; read as "
                        "month/day, as fixed when it was first opened."));
    {
        testing::ScopedLocale us("en_US");
        const Result region = parse(text);
        EXPECT_EQ(region.messages[1].date, utc("2021-05-06T10:00:00Z"));
        EXPECT_TRUE(hasNote(region,
                            "Day/month order couldn't be determined from the file; read "
                            "as month/day based on this Mac's region."));
    }
    testing::ScopedLocale uk("en_GB");
    const Result region = parse(text);
    EXPECT_EQ(region.messages[1].date, utc("2021-06-05T10:00:00Z"));
    EXPECT_TRUE(hasNote(region,
                        "Day/month order couldn't be determined from the file; read as "
                        "day/month based on this Mac's region."));
}

TEST(WhatsAppExportParser, InvalidDatesRollOverAndNameTheirLine) {
    const Result result = parse("15/01/2021, 10:00 - Ann: ok\n\n31/02/2021, 10:00 - Ann: rolled\n");
    ASSERT_EQ(result.messages.size(), 2u);
    EXPECT_EQ(result.messages[0].text, "ok\n");  // the empty line continues the first message
    EXPECT_EQ(result.messages[1].date, utc("2021-03-03T10:00:00Z"));
    EXPECT_TRUE(hasNote(result,
                        "The timestamp on line 3 of the export isn't a valid date; it is "
                        "shown as the calendar reads it."));
}

TEST(WhatsAppExportParser, SendersSystemMessagesContinuationsAndTheOwner) {
    const std::string longName(81, 'x');
    const Result result = parse(
        "13/01/2021, 10:00 - Ann created group \"Trip\"\n"
        "13/01/2021, 10:01 - Me: first line\nsecond line\n"
        "13/01/2021, 10:02 - " +
            longName +
            ": not a sender\n"
            "13/01/2021, 10:03 - Bob: see: this\n"
            "13/01/2021, 10:04 - Ann: x\n",
        {.ownerName = "Me"});
    ASSERT_EQ(result.messages.size(), 5u);
    EXPECT_EQ(result.messages[0].sender, "");
    EXPECT_EQ(result.messages[0].text, "Ann created group \"Trip\"");
    EXPECT_EQ(result.messages[0].systemNotice, "WhatsApp system message.");
    EXPECT_TRUE(result.messages[1].isFromMe);
    EXPECT_EQ(result.messages[1].text, "first line\nsecond line");
    EXPECT_EQ(result.messages[2].systemNotice, "WhatsApp system message.");
    EXPECT_EQ(result.messages[3].sender, "Bob");
    EXPECT_EQ(result.messages[3].text, "see: this");
    EXPECT_EQ(result.participants, (std::vector<std::string>{"Me", "Bob", "Ann"}));
}

// Lines whose reading turns on characters beyond ASCII, on digit runs of odd length and on
// line separators inside a line are read exactly as the line pattern reads them.
TEST(WhatsAppExportParser, UnusualDigitsSpacesAndRunsReadAsThePatternSays) {
    const Result result = parse(
        "[\u0661\u0663/\u0660\u0664/\u0662\u0661, \u0669:\u0660\u0665:\u0660\u0667] Ann: "
        "arabic digits\n"
        "\U0001F600 a continuation that begins with an emoji\n"
        "[13/04/21, 9:05:07\u2009PM] Ann: thin space\n"
        "13/04/2021, 21:055 - Ann: three minute digits\n"
        "13/04/20211, 10:00 - Ann: five year digits\n"
        "13/04/2021, 10:00 - Ann: a\rb\n"
        "\u200e13/04/2021, 10:01\u00a0p.m. - Ann: marked\n"
        "13/04/2021,\u202f10:02 - Ann: narrow space before the hour\n");
    ASSERT_EQ(result.messages.size(), 5u);
    EXPECT_EQ(result.messages[0].date, utc("2021-04-13T09:05:07Z"));
    EXPECT_EQ(result.messages[0].text,
              "arabic digits\n\U0001F600 a continuation that begins with an emoji");
    EXPECT_EQ(result.messages[1].date, utc("2021-04-13T21:05:07Z"));
    EXPECT_EQ(result.messages[1].text, "thin space");
    // Minutes are exactly two digits; what follows them starts the body.
    EXPECT_EQ(result.messages[2].date, utc("2021-04-13T21:05:00Z"));
    EXPECT_EQ(result.messages[2].sender, "5 - Ann");
    // A five-digit year and a carriage return inside a line make no message of their own.
    EXPECT_EQ(result.messages[2].text,
              "three minute digits\n13/04/20211, 10:00 - Ann: five year digits\n"
              "13/04/2021, 10:00 - Ann: a\rb");
    EXPECT_EQ(result.messages[3].date, utc("2021-04-13T22:01:00Z"));
    EXPECT_EQ(result.messages[3].text, "marked");
    EXPECT_EQ(result.messages[4].date, utc("2021-04-13T10:02:00Z"));
}

TEST(WhatsAppExportParser, AttachmentsStayInsideTheMediaFolder) {
    const Result result = parse(
        "[13/01/2021, 10:00:00] Ann: \u200e<attached: 00000001-PHOTO-2021.jpg>\n"
        "13/01/2021, 10:01 - Bob: IMG-20210113-WA0001.jpg (file attached)\n"
        "[13/01/2021, 10:02:00] Ann: <attached: ../../secret.txt>\n"
        "[13/01/2021, 10:03:00] Ann: <attached: ..>\n",
        {.mediaFolder = fs::path("/imports/x/extracted")});
    ASSERT_EQ(result.messages.size(), 4u);
    const Attachment& photo = result.messages[0].attachments.at(0);
    EXPECT_EQ(photo.name, "00000001-PHOTO-2021.jpg");
    EXPECT_EQ(photo.path, "/imports/x/extracted/00000001-PHOTO-2021.jpg");
    EXPECT_EQ(photo.mimeType, "image/jpeg");
    EXPECT_EQ(photo.id, 100);
    EXPECT_EQ(result.messages[1].attachments.at(0).path,
              "/imports/x/extracted/IMG-20210113-WA0001.jpg");
    EXPECT_EQ(result.messages[2].attachments.at(0).name, "../../secret.txt");
    EXPECT_EQ(result.messages[2].attachments.at(0).path, "");
    EXPECT_EQ(result.messages[3].attachments.at(0).path, "");
}

TEST(WhatsAppExportParser, DeletedEditedAndOmittedMedia) {
    const Result result = parse(
        "13/01/2021, 10:00 - Ann: This message was deleted\n"
        "13/01/2021, 10:01 - Ann: You deleted this message\n"
        "13/01/2021, 10:02 - Ann: fixed it <This message was edited>\n"
        "13/01/2021, 10:03 - Ann: <Media omitted>\n"
        "[13/01/2021, 10:04:00] Ann: \u200eimage omitted\n"
        "[13/01/2021, 10:05:00] Ann: report.pdf \u2022 3 pages \u200edocument omitted\n"
        "13/01/2021, 10:06 - Ann: my image omitted yesterday\n");
    const auto& m = result.messages;
    ASSERT_EQ(m.size(), 7u);
    EXPECT_TRUE(m[0].isUnsent);
    EXPECT_EQ(m[0].systemNotice, "Deleted in WhatsApp; the original content is not in the export.");
    EXPECT_TRUE(m[1].isUnsent);
    EXPECT_TRUE(m[2].isEdited);
    EXPECT_EQ(m[2].text, "fixed it");
    EXPECT_EQ(m[3].systemNotice,
              "Media was not included in this WhatsApp export (<Media omitted>).");
    EXPECT_EQ(m[4].systemNotice, "Media was not included in this WhatsApp export (image omitted).");
    EXPECT_EQ(m[5].systemNotice,
              "Media was not included in this WhatsApp export (report.pdf "
              "\u2022 3 pages document omitted).");
    EXPECT_FALSE(m[6].systemNotice);
}

TEST(WhatsAppExportParser, TextWithoutTimestampsIsReportedNotInvented) {
    const Result none = parse("Sample User: hello\nTestBot: hi\n");
    EXPECT_TRUE(none.messages.empty());
    EXPECT_TRUE(hasNote(none, "No dated messages were found in this file."));
    EXPECT_TRUE(
        hasNote(none, "The first 2 lines of text come before any timestamp and are not shown."));
    EXPECT_TRUE(parse("").messages.empty());
}

TEST(WhatsAppExportParser, DecodesUtf16AndRepairsBadBytes) {
    const std::string utf16le(
        "\xFF\xFE"
        "A\0:\0 \0\xAC\x20",
        10);
    EXPECT_EQ(WhatsAppExportParser::decode(utf16le), "A: \u20ac");
    const std::string utf16be("\xFE\xFF\0A", 4);
    EXPECT_EQ(WhatsAppExportParser::decode(utf16be), "A");
    EXPECT_EQ(WhatsAppExportParser::decode("\xEF\xBB\xBFok\xFF"), "ok\uFFFD");
}

TEST(WhatsAppExportParser, ReadsARealAndroidExport) {
    const auto fixtures = testing::fixturesFolder();
    if (!fixtures) GTEST_SKIP() << "shared fixtures are not present";
    const std::string text = WhatsAppExportParser::decode(
        files::readFile(*fixtures / "whatsapp-export" / "android-2017-short-chat.txt"));
    const Result result = parse(text);
    ASSERT_EQ(result.messages.size(), 5u);
    EXPECT_EQ(result.messages[0].systemNotice, "WhatsApp system message.");
    EXPECT_EQ(result.messages[2].sender, "Sample User");
    EXPECT_EQ(result.messages[4].sender, "+410123456789");
    EXPECT_EQ(result.messages[4].text, "How are you?\n\nIs everything alright?");
    EXPECT_EQ(result.participants,
              (std::vector<std::string>{"Sample User", "TestBot", "+410123456789"}));
    EXPECT_TRUE(hasNote(result, minuteNote));
}

}  // namespace
}  // namespace bc
