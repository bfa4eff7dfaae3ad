#include "export/ExportJob.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "HTMLExporterSamples.h"
#include "PagesTesting.h"
#include "custody/CustodyLog.h"
#include "demo/DemoData.h"
#include "export/Exporter.h"
#include "model/MessageNotes.h"
#include "sources/MessageDatabase.h"
#include "support/DateFormat.h"
#include "support/Files.h"
#include "support/Machine.h"
#include "support/Sqlite.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;

Date day(const char* iso) {
    return *dates::parseIso8601(iso);
}

ExportRequest requestOver(Date earliest, Date latest) {
    return {.title = "Sam",
            .earliest = earliest,
            .latest = latest,
            .from = day("2024-03-01T05:00:00Z"),  // New York midnights
            .to = day("2024-03-10T05:00:00Z")};
}

TEST(ExportRequest, NamesTheRangeItCovers) {
    auto request = requestOver(day("2024-03-01T15:00:00Z"), day("2024-03-10T23:00:00Z"));
    EXPECT_TRUE(request.isEntireRange());
    EXPECT_EQ(request.baseName(), "Sam \u2013 all messages");
    EXPECT_EQ(request.rangeDescription(), "Entire conversation");

    request.to = day("2024-03-09T05:00:00Z");  // one day less
    EXPECT_FALSE(request.isEntireRange());
    EXPECT_EQ(request.baseName(), "Sam \u2013 2024-03-01 to 2024-03-09");
    EXPECT_EQ(request.rangeDescription(), "March 1, 2024 \u2013 March 9, 2024 (inclusive)");

    request.to = request.from;
    EXPECT_EQ(request.baseName(), "Sam \u2013 2024-03-01");
    request.fileLabel = "2024-03";
    EXPECT_EQ(request.baseName(), "Sam \u2013 2024-03");
    // A name is one file or folder: a slash in a group's name must not make a path of it.
    request.title = "Mum/Dad: plans";
    EXPECT_EQ(request.baseName(), "Mum-Dad- plans \u2013 2024-03");
    // Cut at 80 characters as a reader counts them: the flag stays whole.
    const std::string flag = "\U0001F1E9\U0001F1EA";
    request.title = std::string(79, 'a') + flag + " family";
    EXPECT_EQ(request.baseName(), std::string(79, 'a') + flag + " \u2013 2024-03");
}

TEST(ExportRequest, UniqueNamesAndSettingsDefaults) {
    testing::TempDir dir;
    EXPECT_EQ(uniqueURL(dir / "Sam", ""), dir / "Sam");
    fs::create_directory(dir / "Sam");
    EXPECT_EQ(uniqueURL(dir / "Sam", ""), dir / "Sam 2");
    fs::create_directory(dir / "Sam 2");
    EXPECT_EQ(uniqueURL(dir / "Sam", ""), dir / "Sam 3");
    testing::writeText(dir / "Sam.pdf", "");
    EXPECT_EQ(uniqueURL(dir / "Sam", "pdf"), dir / "Sam 2.pdf");

    EXPECT_EQ(ExportSettings::decoded("not json"), ExportSettings{});
    const ExportSettings print{.paper = PageExporter::Paper::a4, .dpi = ExportSettings::printDPI};
    EXPECT_EQ(ExportSettings::decoded(print.encoded()), print);
    EXPECT_EQ(ExportSettings::decoded(R"({"paper":"folio","dpi":300})"), ExportSettings{});
}

// The sample conversation through the pipeline, with a custody log of the test's own.
class ExportPipelineTest : public ::testing::Test {
protected:
    void SetUp() override {
        DemoData::writeMessagesDatabase(dir_ / "source" / "chat.db", Clock::now());
        CustodyLog::setOverrideURL(dir_ / "custody-log.jsonl");
        database_ = std::make_unique<MessageDatabase>(dir_ / "source" / "chat.db");
        fs::create_directories(out());
    }
    void TearDown() override { CustodyLog::setOverrideURL(std::nullopt); }

    fs::path out() const { return dir_ / "out"; }

    // The sample changed to hold a rarer row, read afresh.
    void change(const std::string& sql) {
        database_.reset();
        sqlite::Connection(dir_ / "source" / "chat.db", sqlite::OpenMode::readWriteCreate)
            .execute(sql);
        database_ = std::make_unique<MessageDatabase>(dir_ / "source" / "chat.db");
    }

    // What each format says: the archive page, the PDF's text, messages.csv and plain text.
    struct Said {
        std::string page, pdf, csv, text;
    };
    Said everyFormat() {
        Said said;
        const auto html = run(job(RangeExportFormat::html), out() / "Sample");
        EXPECT_EQ(html.status, ExportOutcome::Status::saved) << html.message;
        said.page = files::readFile(html.html->htmlURL);
        said.csv = files::readFile(out() / "Sample" / "messages.csv");
        const auto pdf = run(job(RangeExportFormat::pdf), out() / "Pages.pdf");
        EXPECT_EQ(pdf.status, ExportOutcome::Status::saved) << pdf.message;
        said.pdf = testing::pdfText(out() / "Pages.pdf");
        said.text = Exporter::render("Sample", job(RangeExportFormat::csv).messages,
                                     ExportFormat::text, [](const Message&) { return "Sam"; });
        return said;
    }

    ExportJob job(RangeExportFormat format) {
        auto transcript = database_->fetchTranscript({1});
        ExportRequest request{.format = format,
                              .title = "Sample",
                              .sources = {{database_->fetchChats().front(), true}},
                              .earliest = transcript.messages.front().date,
                              .latest = transcript.messages.back().date};
        request.from = request.earliest - 86400;
        request.to = request.latest + 86400;
        return ExportJob::make(request, std::move(transcript), {"Sam"}, "the sample");
    }

    ExportOutcome run(const ExportJob& job, const fs::path& destination,
                      const ProgressFn& progress = {}, const CancelFlag* cancel = nullptr,
                      manifest::MachineText machineText = {}) {
        const auto nameFor = [](bool me, const std::string& handle) {
            return me ? std::string("Me") : handle;
        };
        return ExportPipeline::run(job, destination,
                                   {*database_, std::nullopt, nameFor, std::move(machineText)},
                                   cancel ? *cancel : cancel_, progress);
    }

    testing::TempDir dir_;
    std::unique_ptr<MessageDatabase> database_;
    CancelFlag cancel_;
};

TEST_F(ExportPipelineTest, ArchiveIsHashedLoggedAndCertified) {
    const auto job = this->job(RangeExportFormat::html);
    const auto outcome = run(job, out() / "Sample");
    ASSERT_EQ(outcome.status, ExportOutcome::Status::saved) << outcome.message;
    EXPECT_TRUE(outcome.message.ends_with(" Certificate saved and logged.")) << outcome.message;
    EXPECT_TRUE(outcome.message.starts_with("Exported " + std::to_string(job.messageCount()) +
                                            " messages and "));
    const auto records = CustodyLog::readAll();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0], *outcome.record);
    EXPECT_EQ(records[0].outputs, CustodyLog::outputs(out() / "Sample"));
    EXPECT_EQ(records[0].messageCount, job.messageCount());
    EXPECT_EQ(outcome.certificate, out() / "Sample \u2013 Certificate.txt");
    EXPECT_EQ(outcome.html->htmlURL.parent_path(), out() / "Sample");

    // The whole sample conversation is in the archive: every row, reaction and stored file.
    const auto& summary = *outcome.html;
    const std::string page = files::readFile(summary.htmlURL);
    int64_t present = 0;
    for (const auto& m : job.messages) {
        EXPECT_NE(page.find("id=\"m" + std::to_string(m.id) + "\""), std::string::npos) << m.id;
        for (const auto& a : m.visibleAttachments()) present += fs::exists(a.path);
    }
    EXPECT_GT(present, 0);
    EXPECT_EQ(summary.attachmentsCopied, present);
    EXPECT_EQ(present + static_cast<int64_t>(summary.attachmentsMissing.size()),
              job.attachmentCount());
    EXPECT_TRUE(summary.attachmentsFailed.empty());
    EXPECT_EQ(summary.hashMismatches, 0);
    const std::string reactions = files::readFile(out() / "Sample" / "reactions.csv");
    EXPECT_EQ(static_cast<size_t>(std::count(reactions.begin(), reactions.end(), '\r')),
              job.reactionEvents.size() + 1);

    // The same name again is the application's to make unique, never the pipeline's to reuse.
    EXPECT_EQ(run(job, out() / "Sample").status, ExportOutcome::Status::failed);
    EXPECT_EQ(destinationIn(out(), RangeExportFormat::html, "Sample"), out() / "Sample 2");
}

TEST_F(ExportPipelineTest, ArchiveSummarySetsEachAttachmentCountApartAlike) {
    auto job = this->job(RangeExportFormat::html);
    // Every stored file present, but one of them a folder, which cannot be copied.
    std::string photo;
    for (const auto& m : job.messages)
        for (const auto& a : m.visibleAttachments())
            if (photo.empty() && fs::exists(a.path)) photo = a.path;
    ASSERT_FALSE(photo.empty());
    fs::create_directories(dir_ / "a folder.jpg");
    bool first = true;
    for (auto& m : job.messages)
        for (auto& a : m.attachments)
            a.path = !a.isHidden && std::exchange(first, false) ? (dir_ / "a folder.jpg").string()
                                                                : photo;
    const auto failedOnly = run(job, out() / "Failed");
    EXPECT_NE(
        failedOnly.message.find("\u201CFailed\u201D. 1 attachments could not be copied (listed in "
                                "attachments.csv). Certificate"),
        std::string::npos)
        << failedOnly.message;

    job.messages.back().attachments.push_back({.path = (dir_ / "gone.jpg").string()});
    const auto both = run(job, out() / "Both");
    EXPECT_NE(both.message.find("\u201CBoth\u201D. 1 attachments aren't stored on " +
                                std::string(thisMachine) +
                                " (marked in the page). 1 attachments could not be copied"),
              std::string::npos)
        << both.message;
}

// A period's rows move into the job; the rest of the conversation stays with it, so a reply to a
// message before the period is still named on the page. The whole conversation is held once.
TEST_F(ExportPipelineTest, APeriodTakesItsRowsAndKeepsTheRestForReplies) {
    Transcript transcript;
    transcript.messages = {testing::message(1, testing::at(0), "Before the period"),
                           testing::message(2, testing::at(3 * 86400), "In it"),
                           testing::message(3, testing::at(3 * 86400 + 60), "Reply in it", true)};
    transcript.messages[2].replyToGUID = "G1";
    auto request = requestOver(testing::at(0), testing::at(3 * 86400 + 60));
    request.format = RangeExportFormat::html;
    request.from = request.to = day("2024-03-04T05:00:00Z");
    const auto job = ExportJob::make(request, transcript, {"Sam"}, "test data");
    ASSERT_EQ(job.messages.size(), 2u);
    EXPECT_EQ(job.messages[0].id, 2);
    ASSERT_EQ(job.transcript.messages.size(), 1u);
    EXPECT_EQ(job.transcript.messages[0].id, 1);

    const auto outcome = run(job, out() / "Period");
    ASSERT_EQ(outcome.status, ExportOutcome::Status::saved) << outcome.message;
    const std::string page = files::readFile(outcome.html->htmlURL);
    EXPECT_NE(page.find("Before the period\u201D, outside this export's date range)"),
              std::string::npos);
    EXPECT_EQ(page.find("id=\"m1\""), std::string::npos);

    request.from = day("2024-03-01T05:00:00Z");
    const auto whole = ExportJob::make(request, transcript, {"Sam"}, "test data");
    EXPECT_EQ(whole.messages.size(), 3u);
    EXPECT_TRUE(whole.transcript.messages.empty());
}

TEST_F(ExportPipelineTest, CancelFailureOrNoRowsLeavesNothing) {
    for (const auto format : rangeExportFormat::allCases) {
        for (const bool cancelling : {true, false}) {
            CancelFlag cancel;
            const auto job = this->job(format);
            const fs::path destination = destinationIn(out(), format, "Sample");
            int step = 0;
            const auto interrupt = [&](const std::string&) {
                if (++step < 2) return;  // after the source was recorded
                if (cancelling)
                    cancel.cancel();
                else
                    throw Error("Disk full");
            };
            const auto outcome = run(job, destination, interrupt, &cancel);
            EXPECT_EQ(outcome.status, cancelling ? ExportOutcome::Status::cancelled
                                                 : ExportOutcome::Status::failed);
            EXPECT_EQ(outcome.message, cancelling ? "Export cancelled. Nothing was saved."
                                                  : "Export failed, nothing was saved: Disk full");
            EXPECT_TRUE(fs::is_empty(out())) << rangeExportFormat::rawValue(format);
        }
    }
    auto empty = job(RangeExportFormat::html);
    empty.messages.clear();
    const auto outcome = run(empty, out() / "Sample");
    EXPECT_EQ(outcome.status, ExportOutcome::Status::nothingToExport);
    EXPECT_EQ(outcome.message, "No messages to export; nothing was saved.");
    EXPECT_TRUE(fs::is_empty(out()));
    EXPECT_FALSE(fs::exists(dir_ / "custody-log.jsonl"));
}

TEST_F(ExportPipelineTest, CSVWritesSideFilesAndCallsOnlyWhenThereAreCalls) {
    const auto outcome = run(job(RangeExportFormat::csv), out() / "Sample.csv");
    ASSERT_EQ(outcome.status, ExportOutcome::Status::saved) << outcome.message;
    EXPECT_TRUE(fs::exists(out() / "Sample.reactions.csv"));
    EXPECT_FALSE(fs::exists(out() / "Sample.calls.csv"));
    EXPECT_EQ(outcome.record->outputs.size(), 2u);

    auto withCall = job(RangeExportFormat::csv);
    Message call{
        .id = 999, .guid = "call", .date = withCall.messages.back().date, .call = CallInfo{}};
    withCall.messages.push_back(call);
    const auto second = run(withCall, out() / "Sample 2.csv");
    ASSERT_EQ(second.status, ExportOutcome::Status::saved) << second.message;
    EXPECT_TRUE(fs::exists(out() / "Sample 2.calls.csv"));
    EXPECT_NE(second.message.find(", calls \u201CSample 2.calls.csv\u201D)"), std::string::npos)
        << second.message;
}

TEST_F(ExportPipelineTest, MachineTextGoesToItsOwnSideFileAndTheRecordNamesItsEngines) {
    const std::string engine = "Tesseract OCR 5.3.0 text recognition (on this computer)";
    auto withPhoto = job(RangeExportFormat::csv);
    withPhoto.messages.back().attachments.push_back(
        {.id = 77, .path = (dir_ / "receipt.jpg").string(), .guid = "R"});
    const auto outcome = run(withPhoto, out() / "Sample.csv", {}, nullptr,
                             {{77, {.text = "TOTAL 52.40", .engine = engine, .fileBytes = 10}}});
    ASSERT_EQ(outcome.status, ExportOutcome::Status::saved) << outcome.message;
    const std::string side = files::readFile(out() / "Sample.machine-text.csv");
    EXPECT_NE(side.find("\"77\",\"imageText\",\"" + engine + "\""), std::string::npos) << side;
    EXPECT_EQ(outcome.record->options.at("Machine text"), engine);
    const std::string certificate = files::readFile(*outcome.certificate);
    EXPECT_NE(certificate.find("Machine text:     " + engine), std::string::npos) << certificate;

    const auto plain = run(job(RangeExportFormat::csv), out() / "Plain.csv");
    EXPECT_FALSE(plain.record->options.contains("Machine text"));
    EXPECT_FALSE(fs::exists(out() / "Plain.machine-text.csv"));
}

TEST_F(ExportPipelineTest, FailedCustodyAppendKeepsTheFilesAndSaysSo) {
    testing::writeText(dir_ / "blocker", "");
    CustodyLog::setOverrideURL(dir_ / "blocker" / "custody-log.jsonl");
    const auto outcome = run(job(RangeExportFormat::pdf), out() / "Sample.pdf");
    EXPECT_EQ(outcome.status, ExportOutcome::Status::savedNotLogged);
    EXPECT_NE(outcome.message.find(" WARNING: The file WAS saved, but it could NOT be recorded in "
                                   "the custody log: "),
              std::string::npos)
        << outcome.message;
    EXPECT_TRUE(fs::exists(out() / "Sample.pdf"));
    EXPECT_FALSE(outcome.certificate);
}

const Message& byGUID(const std::vector<Message>& messages, const std::string& guid) {
    return *std::find_if(messages.begin(), messages.end(),
                         [&](const Message& m) { return m.guid == guid; });
}

TEST_F(ExportPipelineTest, RecentlyDeletedAppLabelsAndPartsSayTheSameInEveryFormat) {
    const auto messages = job(RangeExportFormat::html).messages;
    const std::string deleted = *notes::recentlyDeleted(byGUID(messages, "DEMO-MSG-23"));
    const Said said = everyFormat();
    for (const auto& [format, text] :
         {std::pair{"page", said.page}, {"text", said.text}, {"pdf", said.pdf}}) {
        EXPECT_NE(text.find(format == std::string("page") ? "Messages&#39; Recently Deleted"
                                                          : "Messages' Recently Deleted"),
                  std::string::npos)
            << format;
        if (format == std::string("text")) {
            EXPECT_NE(text.find(deleted), std::string::npos);
            continue;
        }
        EXPECT_NE(text.find("Sent with the iMessage app: Apple Cash"), std::string::npos) << format;
        EXPECT_NE(text.find("Recovered deleted part 1"), std::string::npos) << format;
        EXPECT_EQ(text.find("Recovered deleted part 0"), std::string::npos) << format;
    }
    // Only the archive has a messages.csv to point to.
    EXPECT_NE(said.page.find("included in messages.csv"), std::string::npos);
    EXPECT_EQ(said.pdf.find("messages.csv"), std::string::npos);
    EXPECT_NE(said.pdf.find("could not be decoded by this app."), std::string::npos);
}

TEST_F(ExportPipelineTest, ASystemRowThatStoresTextKeepsIt) {
    change(
        "UPDATE message SET text = 'Sam named the conversation Flat' "
        "WHERE guid = 'DEMO-MSG-20'");
    const Said said = everyFormat();
    for (const auto& text : {said.page, said.pdf, said.text, said.csv}) {
        EXPECT_NE(text.find("Sam named the conversation Flat"), std::string::npos);
        EXPECT_EQ(text.find("System notice recorded by Messages"), std::string::npos);
    }
}

TEST_F(ExportPipelineTest, AnUndatedRowIsLabelledAndNeverDated2001) {
    change("UPDATE message SET date = 0 WHERE guid = 'DEMO-MSG-21'");
    const Said said = everyFormat();
    for (const auto& text : {said.page, said.pdf, said.text, said.csv})
        EXPECT_EQ(text.find("2001"), std::string::npos) << text.substr(0, 3000);
    EXPECT_NE(said.page.find(std::string(notes::undated)), std::string::npos);
    EXPECT_NE(said.text.find("[" + std::string(notes::undated) + "] Sam: Reminder: rent is due"),
              std::string::npos);
    EXPECT_NE(said.pdf.find("Undated"), std::string::npos);
    EXPECT_NE(said.csv.find("\"DEMO-MSG-21\",\"1\",\"\","), std::string::npos);
    // Undated rows lead, in the source's order; the dated ones follow by date.
    EXPECT_LT(said.pdf.find("Reminder: rent is due"), said.pdf.find("spare room in your flat"));
}

TEST_F(ExportPipelineTest, EveryFormatPrintsRowsInOneDateOrder) {
    // The same instant stored in seconds among nanosecond dates: the source lists it first.
    change("UPDATE message SET date = date / 1000000000 WHERE guid = 'DEMO-MSG-12'");
    ASSERT_EQ(database_->fetchTranscript({1}).messages.front().guid, "DEMO-MSG-12");
    const Said said = everyFormat();
    for (const auto& text : {said.page, said.pdf, said.text, said.csv}) {
        const size_t before = text.find("Could you lend me $400");
        const size_t row = text.find("Sure, sending it now.");
        const size_t after = text.find("Got it, thanks! I&#39;ll pay you back");
        const size_t afterPlain = text.find("Got it, thanks! I'll pay you back");
        EXPECT_LT(before, row);
        EXPECT_LT(row, std::min(after, afterPlain));
    }
}

}  // namespace
}  // namespace bc
