#include "export/Exporter.h"

#include <gtest/gtest.h>

#include "HTMLExporterSamples.h"
#include "sources/CallHistory.h"
#include "support/Json.h"

namespace bc {
namespace {

using testing::at;
using testing::callRow;
using testing::message;

std::string sender(const Message& m) {
    return m.isFromMe ? "Me" : "Ann";
}

std::vector<Message> sampleRows() {
    Message hello = message(1, at(), "Hello \"there\"\nsecond line");
    hello.attachments = {testing::attachment(5, "/a/IMG_1.jpg", "IMG_1.jpg", "image/jpeg"),
                         testing::attachment(6, "/a/doc.pdf", "doc.pdf", "application/pdf")};
    return {hello, callRow(9, at(60), true), message(2, at(3600), "Bye", true)};
}

// The call history words the summary; these files carry it as it is.
const std::string callSummary = CallHistory::summary(*callRow(9, at(60), true).call);

TEST(ExporterText, writesTitleUnderlineAndOneLinePerRow) {
    EXPECT_EQ(Exporter::render("😀éü", {}, ExportFormat::text, sender), "😀éü\n===\n");
    // The underline is as long as the title looks: a flag, a family and an accented "e" are one
    // character each.
    const std::string flag = "\U0001F1E9\U0001F1EA";
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";
    EXPECT_EQ(Exporter::render(flag + " Flag", {}, ExportFormat::text, sender),
              flag + " Flag\n======\n");
    EXPECT_EQ(Exporter::render(family + "e\u0301", {}, ExportFormat::text, sender),
              family + "e\u0301\n==\n");
    const std::string text = Exporter::render("Ann", sampleRows(), ExportFormat::text, sender);
    EXPECT_EQ(text,
              "Ann\n===\n\n"
              "[2024-03-01 12:05] Ann: Hello \"there\"\nsecond line [Attachment: IMG_1.jpg] "
              "[Attachment: doc.pdf]\n"
              "[2024-03-01 12:06] " +
                  callSummary +
                  " (call record 9)\n"
                  "[2024-03-01 13:05] Me: Bye");
}

TEST(ExporterCSV, quotesEveryFieldAndMarksCalls) {
    const std::string csv = Exporter::render("Ann", sampleRows(), ExportFormat::csv, sender);
    EXPECT_EQ(
        csv,
        "date,sender,handle,is_from_me,text,attachments,record_type\n"
        "\"2024-03-01T17:05:09Z\",\"Ann\",\"+15551234567\",\"0\",\"Hello \"\"there\"\"\nsecond "
        "line\",\"/a/IMG_1.jpg; /a/doc.pdf\",\"message\"\n"
        "\"2024-03-01T17:06:09Z\",\"Ann\",\"\",\"0\",\"" +
            callSummary +
            "\",\"\",\"call record 9\"\n"
            "\"2024-03-01T18:05:09Z\",\"Me\",\"\",\"1\",\"Bye\",\"\",\"message\"");
    EXPECT_EQ(Exporter::render("Ann", {}, ExportFormat::csv, sender),
              "date,sender,handle,is_from_me,text,attachments,record_type");
}

TEST(ExporterJSON, countsRowsAndDescribesMessagesAndCalls) {
    const Json doc =
        json::decode(Exporter::render("Ann", sampleRows(), ExportFormat::json, sender));
    EXPECT_EQ(doc["chat"], "Ann");
    EXPECT_EQ(doc["message_count"], 2);
    EXPECT_EQ(doc["call_count"], 1);
    const Json& first = doc["messages"][0];
    EXPECT_EQ(first.size(), 7u);
    EXPECT_EQ(first["type"], "message");
    EXPECT_EQ(first["date"], "2024-03-01T17:05:09Z");
    EXPECT_EQ(first["is_from_me"], false);
    EXPECT_EQ(
        first["attachments"][1],
        (Json{{"name", "doc.pdf"}, {"path", "/a/doc.pdf"}, {"mime_type", "application/pdf"}}));
    const Json& call = doc["messages"][1];
    EXPECT_EQ(call, (Json{{"type", "call"},
                          {"date", "2024-03-01T17:06:09Z"},
                          {"call_record_id", 9},
                          {"direction", "incoming"},
                          {"answered", true},
                          {"duration_seconds", 125.5},
                          {"service", "Phone"},
                          {"address", "+15551234567"},
                          {"description", callSummary}}));
    EXPECT_EQ(doc["messages"][2]["attachments"], Json::array());

    const Json broken = json::decode(
        Exporter::render("Ann", {message(1, at(), "a\xff")}, ExportFormat::json, sender));
    EXPECT_EQ(broken["messages"][0]["text"], "a\uFFFD");

    const Json empty = json::decode(Exporter::render("Ann", {}, ExportFormat::json, sender));
    EXPECT_EQ(empty["messages"], Json::array());
}

TEST(ExporterFileName, replacesForbiddenCharactersCutsLongTitlesAndNamesFormats) {
    for (ExportFormat format : allExportFormats) EXPECT_EQ(exportFormat(rawValue(format)), format);
    EXPECT_FALSE(exportFormat("pdf"));
    EXPECT_EQ(Exporter::fileName("Ann/Bob", 12, ExportFormat::csv), "Ann-Bob (12).csv");
    EXPECT_EQ(Exporter::fileName("/:\\?%*|\"<>", 1, ExportFormat::text), "---------- (1).txt");
    std::string cut;
    for (int i = 0; i < 80; ++i) cut += "é";
    EXPECT_EQ(Exporter::fileName(cut + "éééé", 3, ExportFormat::json), cut + " (3).json");

    // The 80th character is whole or absent, never half a flag, family or accented letter.
    const std::string flag = "\U0001F1E9\U0001F1EA";
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";
    const std::string start(79, 'a');
    for (const std::string& last : {flag, family, std::string("e\u0301")})
        EXPECT_EQ(Exporter::fileStem(start + last + "and more"), start + last);
}

}  // namespace
}  // namespace bc
