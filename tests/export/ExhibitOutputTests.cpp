// Exhibits through the whole pipeline: what reaches the files, the certificate and the log.
#include <gtest/gtest.h>
#include <tesseract/baseapi.h>
#include <unicode/unistr.h>

// qpdf's smart-pointer compatibility layer is not used here; this silences its notice.
#define POINTERHOLDER_TRANSITION 4
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFWriter.hh>

#include <cctype>

#include "PagesTesting.h"
#include "custody/CustodyLog.h"
#include "demo/DemoData.h"
#include "export/Exhibit.h"
#include "sources/MessageDatabase.h"
#include "support/Files.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;

// Every way a redacted name may be spelled in the record: the exhibit must show none of them.
const std::vector<std::string> secrets{
    "Anne Dubois", "ANNE DUBOIS", "anne dubois", "Dubois",       "Zoë",
    "ZOË",         "Zoe",         "zoe",         "555-123-4567", "witness@example.com"};

// Every byte of the PDF with its streams decompressed, as qpdf writes it for inspection.
std::string decompressedPDF(const fs::path& file) {
    QPDF pdf;
    pdf.processFile(file.c_str());
    QPDFWriter writer(pdf);
    writer.setOutputMemory();
    writer.setQDFMode(true);
    writer.setObjectStreamMode(qpdf_o_disable);
    writer.setDecodeLevel(qpdf_dl_all);
    writer.write();
    const auto buffer = writer.getBufferSharedPointer();
    return {reinterpret_cast<const char*>(buffer->getBuffer()), buffer->getSize()};
}

// The text as a PDF string in UTF-16 big-endian, the form metadata may take.
std::string utf16BE(const std::string& text) {
    const icu::UnicodeString units = icu::UnicodeString::fromUTF8(text);
    std::string out;
    for (int32_t i = 0; i < units.length(); ++i) {
        out.push_back(static_cast<char>(units[i] >> 8));
        out.push_back(static_cast<char>(units[i] & 0xFF));
    }
    return out;
}

std::string recognisedText(const fs::path& jpg) {
    const image::Bitmap page = image::load(jpg);
    tesseract::TessBaseAPI ocr;
    if (ocr.Init(nullptr, "eng") != 0) return "(tesseract has no English data)";
    ocr.SetImage(reinterpret_cast<const unsigned char*>(page.pixels.data()), page.width,
                 page.height, 4, page.width * 4);
    const std::unique_ptr<char[]> text(ocr.GetUTF8Text());
    ocr.End();
    return text ? text.get() : "";
}

std::string smith(int page) {
    return PageExporter::batesNumber("SMITH", page, 6, 0);
}

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

class ExhibitOutput : public ::testing::Test {
protected:
    void SetUp() override {
        DemoData::writeMessagesDatabase(dir_ / "source" / "chat.db", Clock::now());
        CustodyLog::setOverrideURL(dir_ / "custody-log.jsonl");
        database_ = std::make_unique<MessageDatabase>(dir_ / "source" / "chat.db");
    }
    void TearDown() override { CustodyLog::setOverrideURL(std::nullopt); }

    // The sample conversation, its 11th row flagged and carrying the secrets everywhere a
    // message can hold text, replying to a row that names them too.
    ExportJob exhibitJob(const ExhibitRequest& request) {
        ExportJob whole{.format = request.format, .title = "Anne Dubois"};
        whole.participants = {"Anne Dubois"};
        whole.chatIDs = {1};
        whole.rangeDescription = "Entire conversation";
        whole.sourceDescription = "the test database of Zoë";
        whole.transcript = database_->fetchTranscript({1});
        whole.messages = whole.transcript.messages;
        Message& flagged = whole.messages.at(10);
        flagged.text = "Ask Anne Dubois, or call 555-123-4567, or mail witness@example.com";
        flagged.isEdited = true;
        flagged.editHistory = {{0, flagged.date, "ANNE DUBOIS drafted this"}};
        flagged.recoveredParts = {{1, std::nullopt, "zoë deleted this"}};
        flagged.replyToGUID = whole.messages.at(2).guid;
        whole.transcript.messages.at(2).text = "Zoe said so";
        const EvidenceFlagMap flags{
            {flagged.guid,
             {.guid = flagged.guid, .messageID = flagged.id, .note = "Anne Dubois saw it"}}};
        const auto flaggedID = flagged.id;
        ExportJob job = exhibit::makeJob(request, std::move(whole), flags);
        job.pageOptions.chatLabels[flaggedID] = "Chat with Zoë";
        return job;
    }

    ExportOutcome run(const ExportJob& job, const fs::path& destination) {
        const auto nameFor = [](bool me, const std::string&) {
            return me ? std::string("Me") : std::string("Anne Dubois");
        };
        return ExportPipeline::run(job, destination, {*database_, std::nullopt, nameFor, {}},
                                   cancel_, {});
    }

    static ExhibitRequest redacting(RangeExportFormat format) {
        return {.id = "R",
                .label = "Exhibit A (Zoë)",
                .batesPrefix = "SMITH",
                .redactionTerms = "  anne dubois\nZOE\n",
                .redactContactDetails = true,
                .includeNotes = true,
                .format = format,
                .settings = {PageExporter::Paper::letter, 300}};
    }

    static void expectNoSecret(const std::string& text, const std::string& where) {
        for (const std::string& secret : secrets) {
            EXPECT_EQ(text.find(secret), std::string::npos) << secret << " in " << where;
            EXPECT_EQ(text.find(utf16BE(secret)), std::string::npos) << secret << " in " << where;
        }
    }

    testing::TempDir dir_;
    std::unique_ptr<MessageDatabase> database_;
    CancelFlag cancel_;
};

TEST_F(ExhibitOutput, RedactedPDFHoldsNoTraceOfARedactedTerm) {
    const auto outcome = run(exhibitJob(redacting(RangeExportFormat::pdf)), dir_ / "out.pdf");
    ASSERT_EQ(outcome.status, ExportOutcome::Status::saved) << outcome.message;
    const std::string text = testing::pdfText(dir_ / "out.pdf");
    expectNoSecret(text, "the text layer");
    expectNoSecret(decompressedPDF(dir_ / "out.pdf"), "the decompressed PDF");
    expectNoSecret(testing::pdfInfo(dir_ / "out.pdf"), "the metadata");
    for (const auto& [key, value] : outcome.record->options) expectNoSecret(value, key);
    EXPECT_NE(text.find("Contains redactions"), std::string::npos);
    EXPECT_NE(text.find("BRINDLECOURT EXPORT CERTIFICATE"), std::string::npos);
    EXPECT_NE(text.find("\u2588\u2588\u2588\u2588\u2588\u2588 drafted this"), std::string::npos)
        << text;

    // The stand-alone certificate is the internal record and says so.
    const std::string certificate = files::readFile(*outcome.certificate);
    EXPECT_NE(certificate.find("INTERNAL RECORD. NOT REDACTED."), std::string::npos);

    // The same exhibit unredacted shows what the check above would catch.
    ExhibitRequest open = redacting(RangeExportFormat::pdf);
    open.redactionTerms.clear();
    open.redactContactDetails = false;
    ASSERT_TRUE(run(exhibitJob(open), dir_ / "open.pdf").filesKept());
    const std::string shown = testing::pdfText(dir_ / "open.pdf");
    for (const std::string secret : {"Anne Dubois", "ANNE DUBOIS", "zoë", "Zoe said", "Zoë"})
        EXPECT_NE(shown.find(secret), std::string::npos) << secret;
}

TEST_F(ExhibitOutput, RedactedPageImagesCannotBeReadBack) {
    const auto outcome = run(exhibitJob(redacting(RangeExportFormat::jpg)), dir_ / "pages");
    ASSERT_EQ(outcome.status, ExportOutcome::Status::saved) << outcome.message;
    std::string read;
    for (int page = 1; page <= outcome.pages->pages; ++page)
        read += recognisedText(dir_ / "pages" / ("page-" + std::to_string(page) + ".jpg"));
    EXPECT_NE(lower(read).find("flagged"), std::string::npos) << read;
    for (const std::string secret : {"anne", "dubois", "zoe", "zoë", "555-123", "witness@"})
        EXPECT_EQ(lower(read).find(secret), std::string::npos) << secret << " in:\n" << read;
}

TEST_F(ExhibitOutput, BatesNumbersRunOverEveryPageAndTheNextExhibitContinues) {
    ExhibitRequest request = redacting(RangeExportFormat::pdf);
    request.redactionTerms.clear();
    const auto first = run(exhibitJob(request), dir_ / "first.pdf");
    ASSERT_EQ(first.status, ExportOutcome::Status::saved) << first.message;
    const int pages = first.pages->pages;
    ASSERT_GE(pages, 2);  // the messages, then the certificate page
    for (int page = 1; page <= pages; ++page)
        EXPECT_NE(testing::pdfText(dir_ / "first.pdf", page).find(smith(page)), std::string::npos)
            << smith(page);
    const std::string range = smith(1) + "\u2013" + smith(pages);
    EXPECT_EQ(first.record->options.at("Bates"), range);
    EXPECT_NE(files::readFile(*first.certificate).find("Bates:            " + range),
              std::string::npos);

    request.batesStart = exhibit::nextBatesNumber("SMITH", CustodyLog::readAll());
    EXPECT_EQ(request.batesStart, pages + 1);
    const auto second = run(exhibitJob(request), dir_ / "second.pdf");
    ASSERT_TRUE(second.filesKept()) << second.message;
    EXPECT_EQ(second.pages->batesFirst, smith(pages + 1));
}

}  // namespace
}  // namespace bc
