#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "counsel/CounselStatement.h"
#include "counsel/Docx.h"
#include "counsel/ZipReading.h"
#include "custody/CustodyLogTesting.h"
#include "support/DateFormat.h"
#include "support/Files.h"
#include "support/Process.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using docx::Paragraph;
using docx::Style;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

const Date prepared = testing::utc("2024-03-05T14:07:09Z");

std::string full(Date date) {
    return dates::formatStyled(date, dates::Style::full, dates::Style::full);
}
std::string listed(Date date) {
    return dates::formatStyled(date, dates::Style::long_, dates::Style::short_);
}

CounselStatement::Input sampleInput() {
    return {.conversation = "Alex Doe",
            .participants = {"Alex Doe", "Zo\u00eb Quinn"},
            .chain = CustodyLog::ChainCheck{.records = 4},
            .system = testing::sampleRecord().system,
            .sourcePath = "/data/chat.db",
            .sourceKind = "live",
            .preparedAt = prepared};
}

std::vector<Paragraph> withStyle(const std::vector<Paragraph>& paragraphs, Style style) {
    std::vector<Paragraph> found;
    for (const auto& paragraph : paragraphs)
        if (paragraph.style == style) found.push_back(paragraph);
    return found;
}

// The paragraphs after `heading` up to the next heading.
std::vector<std::string> sectionTexts(const std::vector<Paragraph>& paragraphs,
                                      const std::string& heading) {
    std::vector<std::string> texts;
    bool inside = false;
    for (const auto& paragraph : paragraphs) {
        if (paragraph.style == Style::heading) {
            inside = paragraph.text == heading;
            continue;
        }
        if (inside) texts.push_back(paragraph.text);
    }
    return texts;
}

// The whole draft of a conversation with nothing preserved or exported yet.
std::vector<Paragraph> expectedBareDraft() {
    const std::string bullet = "\u2022  ";
    return {
        {Style::banner, "DRAFT FOR REVIEW BY COUNSEL. NOT A SWORN STATEMENT."},
        {Style::preamble,
         "Prepared by Brindlecourt on " + full(prepared) +
             ". Every fact below comes from Brindlecourt's own records. Items in [BRACKETS] are "
             "things Brindlecourt cannot know: complete or correct them with your attorney, and "
             "delete anything that doesn't apply."},
        {Style::title, "Statement regarding the collection of electronic messages"},
        {Style::heading, "1. Who I am"},
        {Style::body,
         "I, [FULL NAME], am [a party to / a witness in] [CASE NAME AND NUMBER]. I make this "
         "statement from personal knowledge. I am the user of the computer described below and "
         "of the messaging account [ACCOUNT EMAIL OR PHONE NUMBER] on which these messages were "
         "[sent and received / synced]."},
        {Style::heading, "2. The computer and software"},
        {Style::body,
         "The records were collected on a Mac14,2 computer named \u201CAlex's MacBook\u201D, "
         "running Version 14.2.1 (Build 23C71), under the user account \u201CAlex Doe\u201D, "
         "using the application Brindlecourt version dev (0)."},
        {Style::heading, "3. Where the messages came from"},
        {Style::body,
         "The messages with Alex Doe, Zo\u00eb Quinn were read from the Messages database at "
         "/data/chat.db. [Describe where this database came from, for example the Mac or the "
         "iPhone backup it was copied from, and how it was copied to the computer described "
         "below.] Brindlecourt opened the database read-only and did not change it."},
        {Style::heading, "4. Preservation copies"},
        {Style::body,
         "No preservation snapshot is recorded for this conversation. [Consider sealing one "
         "before relying on this statement.]"},
        {Style::heading, "5. Exports produced"},
        {Style::body, "No exports are recorded for this conversation yet."},
        {Style::heading, "6. Integrity of the custody log"},
        {Style::body,
         "Brindlecourt keeps a chain-of-custody log in which each record includes the "
         "fingerprint of the one before it. On " +
             full(prepared) +
             ", all 4 records in the log chained correctly, meaning none had been altered or "
             "removed."},
        {Style::heading, "7. Limits of what the records show"},
        {Style::body, bullet +
                          "Attachments stored only in iCloud and not on this computer could not be "
                          "copied; exports mark each one where it occurs."},
        {Style::body, bullet + "Messages deleted more than about 30 days before collection are no "
                               "longer stored by Messages and cannot be shown."},
        {Style::body, bullet + "Calls, where included, come from the call history read on this "
                               "computer, which holds only calls synced from the iPhone."},
        {Style::body, bullet +
                          "Text read from images and voice-message transcripts, where included, "
                          "are machine-generated and labelled as such."},
        {Style::body, bullet + "[Anything else counsel wants noted.]"},
        {Style::heading, "8. Declaration"},
        {Style::body,
         "I declare under penalty of perjury under the laws of [JURISDICTION] that the foregoing "
         "is true and correct."},
        {Style::body, "Executed on [DATE] at [CITY, STATE]."},
        {Style::signature, "______________________________"},
        {Style::body, "[FULL NAME]"},
    };
}

CustodyRecord exportRecord(size_t outputs) {
    CustodyRecord record = testing::sampleRecord();
    record.format = "pdf";
    record.title = "Alex Doe \u2013 all messages";
    record.options = {{"Calls included", "Yes"}, {"Contacts at export", "Alex Doe"}};
    record.outputs.clear();
    for (size_t i = 1; i <= outputs; ++i)
        record.outputs.push_back({.path = "/out/page-" + std::to_string(i) + ".jpg",
                                  .bytes = 10,
                                  .sha256 = std::string(64, static_cast<char>('0' + i))});
    return record;
}

CustodyRecord snapshotRecord() {
    CustodyRecord record = testing::sampleRecord();
    record.action = "snapshot";
    record.title = "All conversations";
    record.chatIDs = {};
    record.attachmentCount = 31;
    record.outputs = {
        {.path = "/snaps/S1/manifest.json", .bytes = 1, .sha256 = std::string(64, 'e')},
        {.path = "/snaps/S1/chat.db", .bytes = 1, .sha256 = std::string(64, 'd')}};
    return record;
}

TEST(CounselStatement, BareConversationGetsBothNothingRecordedSentencesAndEveryPlaceholder) {
    testing::ScopedLocale locale("en_US", "America/New_York");
    const auto paragraphs = CounselStatement::document(sampleInput());
    EXPECT_EQ(paragraphs, expectedBareDraft());
}

TEST(CounselStatement, ChainOutcomes) {
    auto input = sampleInput();
    input.chain = CustodyLog::ChainCheck{.records = 5, .firstBroken = 2};
    const auto broken = CounselStatement::document(input);
    EXPECT_THAT(withStyle(broken, Style::warning),
                ElementsAre(Paragraph{Style::warning,
                                      "WARNING: the custody log did not verify. The chain breaks "
                                      "at record 3 of 5. [Discuss with counsel before relying on "
                                      "it.]"}));

    input.chainError = "Permission denied";
    EXPECT_THAT(sectionTexts(CounselStatement::document(input), "6. Integrity of the custody log"),
                ElementsAre("The custody log could not be checked: Permission denied. [Discuss "
                            "with counsel.]"));
    input.chainError = "";
    EXPECT_THAT(sectionTexts(CounselStatement::document(input), "6. Integrity of the custody log"),
                ElementsAre("The custody log could not be checked: unknown error. [Discuss with "
                            "counsel.]"));
}

TEST(CounselStatement, SourceParagraphFollowsTheKindInUse) {
    auto input = sampleInput();
    const auto origin = [&] {
        return sectionTexts(CounselStatement::document(input), "3. Where the messages came from")
            .at(0);
    };
    input.sourceKind = "whatsapp-live";
    input.participants.clear();
    EXPECT_EQ(origin(),
              "The messages with [PHONE NUMBER OR EMAIL] were read from the WhatsApp database at "
              "/data/chat.db. [Describe how this database came to be on the computer described "
              "below and how WhatsApp is linked to your phone.] Brindlecourt opened the database "
              "read-only and did not change it.");
    input.sourceKind = "whatsapp-export-import";
    input.sourcePath = "/imports/chat.zip";
    EXPECT_EQ(origin(),
              "The messages with [PHONE NUMBER OR EMAIL] were read from a file I provided, "
              "Imported WhatsApp chat export (sealed on import), stored at /imports/chat.zip. "
              "Brindlecourt recorded its SHA-256 fingerprint when it was imported and sealed it. "
              "[Describe where the file came from and how you obtained it.]");
    input.sourceKind = "snapshot";
    EXPECT_THAT(origin(), HasSubstr("were read from the Messages database at /imports/chat.zip."));
    input.sourceKind = "iphone-backup-import";
    input.sourcePath = "/imports/iPhone/sms.db";
    input.sourceNote = "Device \u201CAlex's iPhone\u201D, model iPhone14,2, iOS 17.4.1";
    EXPECT_EQ(origin(),
              "The messages with [PHONE NUMBER OR EMAIL] were read from a backup of an iPhone "
              "that I provided (Device \u201CAlex's iPhone\u201D, model iPhone14,2, iOS 17.4.1). "
              "Brindlecourt decrypted it where it was encrypted, recorded the SHA-256 fingerprint "
              "of each file as it was in the backup, and sealed the Messages database, call "
              "history, contacts and attachments it holds at /imports/iPhone/sms.db. [Describe "
              "how and when the backup was made, and on which computer.]");
}

TEST(CounselStatement, SnapshotsAndExportsAreListedWithTheirFingerprints) {
    testing::ScopedLocale locale("en_US", "America/New_York");
    auto input = sampleInput();
    auto fromSnapshot = exportRecord(5);
    fromSnapshot.source.kind = "snapshot";
    fromSnapshot.source.snapshotID = "2024-03-01-120000";
    auto live = exportRecord(2);
    live.pageCount.reset();
    live.options.clear();
    input.records = {snapshotRecord(), fromSnapshot, live};
    const auto paragraphs = CounselStatement::document(input);
    const Date made = testing::sampleRecord().createdAt;

    EXPECT_THAT(
        sectionTexts(paragraphs, "4. Preservation copies"),
        ElementsAre("Brindlecourt made 1 sealed copies (snapshots). Each copies the database and "
                    "every attachment on this computer in one pass, records the SHA-256 "
                    "fingerprint of each file, and locks the copy against changes:",
                    "\u2022  " + listed(made) +
                        ": All conversations. 31 attachments preserved. "
                        "Database SHA-256 " +
                        std::string(64, 'd') + "."));
    const std::string six = "      ";
    EXPECT_THAT(
        sectionTexts(paragraphs, "5. Exports produced"),
        ElementsAre(
            "Each export below was drawn directly from the database or from a snapshot, not from "
            "screenshots. Each file's SHA-256 fingerprint was recorded when it was made, so any "
            "later change to the file can be detected:",
            "\u2022  " + listed(made) +
                ": pdf (Alex Doe \u2013 all messages) from the snapshot 2024-03-01-120000. Entire "
                "conversation. 12 messages, 3 pages.",
            six + "page-1.jpg: SHA-256 " + std::string(64, '1'),
            six + "page-2.jpg: SHA-256 " + std::string(64, '2'),
            six + "page-3.jpg: SHA-256 " + std::string(64, '3'),
            six + "\u2026and 2 more files, each listed with its SHA-256 in the custody log.",
            six + "Contacts at export: Alex Doe", six + "Calls included: Yes",
            "\u2022  " + listed(made) +
                ": pdf (Alex Doe \u2013 all messages) from the live Messages database on this "
                "computer. Entire conversation. 12 messages.",
            six + "page-1.jpg: SHA-256 " + std::string(64, '1'),
            six + "page-2.jpg: SHA-256 " + std::string(64, '2')));
}

TEST(CounselStatement, RecordsOfTheConversationIncludeSnapshotsOfEveryConversation) {
    auto other = exportRecord(1);
    other.chatIDs = {99};
    const auto found =
        CounselStatement::recordsFor({snapshotRecord(), other, exportRecord(1)}, {7});
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].action, "snapshot");
    EXPECT_EQ(found[1].chatIDs, exportRecord(1).chatIDs);
    EXPECT_EQ(CounselStatement::defaultFileName("Ann/Bob"),
              "Ann-Bob \u2013 Draft statement for counsel.docx");
}

// ---------------------------------------------------------------------------------------------
// The written file.

std::vector<std::string> paragraphsOf(const std::string& xml) {
    std::vector<std::string> texts;
    for (size_t at = 0; (at = xml.find("<w:p>", at)) != std::string::npos; ++at) {
        const size_t end = xml.find("</w:p>", at);
        const std::string paragraph = xml.substr(at, end - at);
        texts.push_back(paragraph);
    }
    return texts;
}

TEST(Docx, PackageHoldsItsPartsAndRedRunsAreRed) {
    testing::TempDir folder;
    auto input = sampleInput();
    input.chain = CustodyLog::ChainCheck{.records = 2, .firstBroken = 0};
    const fs::path file = folder / "draft.docx";
    docx::write(CounselStatement::document(input), file);

    std::vector<std::string> names;
    for (const auto& entry : testing::zipEntries(file)) names.push_back(entry.name);
    EXPECT_THAT(names,
                ::testing::IsSupersetOf({"[Content_Types].xml", "_rels/.rels", "word/document.xml",
                                         "word/styles.xml", "word/_rels/document.xml.rels"}));
    const auto xml = testing::zipEntryText(file, "word/document.xml").value();
    const std::string redRun = std::string("<w:color w:val=\"") + docx::red + "\"/>";
    std::vector<std::string> red;
    for (const auto& paragraph : paragraphsOf(xml))
        if (paragraph.find(redRun) != std::string::npos)
            red.push_back(paragraph.substr(paragraph.find("<w:t")));
    ASSERT_EQ(red.size(), 2u);
    EXPECT_THAT(red[0], HasSubstr("DRAFT FOR REVIEW BY COUNSEL."));
    EXPECT_THAT(red[1], HasSubstr("WARNING: the custody log did not verify."));
    EXPECT_THAT(testing::zipEntryText(file, "word/styles.xml").value(),
                HasSubstr("w:styleId=\"Title\"><w:name w:val=\"Title\"/><w:basedOn "
                          "w:val=\"Normal\"/><w:qFormat/><w:pPr><w:spacing w:before=\"0\" "
                          "w:after=\"240\"/></w:pPr><w:rPr><w:b/><w:color w:val=\"000000\"/><w:sz "
                          "w:val=\"32\"/>"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1)
        << "the temporary package is moved, not left beside it";
}

TEST(Docx, EscapesMarkupAndControlCharacters) {
    const auto xml = docx::documentXml({{Style::body,
                                         "a < b & c > d\x01"
                                         "e"}});
    EXPECT_THAT(xml, HasSubstr(">a &lt; b &amp; c &gt; d e</w:t>"));
}

// LibreOffice reads the file back as plain text, one line per paragraph.
TEST(Docx, OpensInLibreOfficeWithEveryParagraph) {
    const auto office = findExecutable("soffice");
    if (!office)
        GTEST_SKIP() << "LibreOffice (soffice) is not installed; scripts/install-deps "
                        "installs it where the package is available.";
    testing::ScopedLocale locale("en_US", "America/New_York");
    testing::TempDir folder;
    const fs::path file = folder / "Alex \u2013 Draft statement for counsel.docx";
    docx::write(CounselStatement::document(sampleInput()), file);
    const auto result =
        runProcess({.executable = *office,
                    .arguments = {"-env:UserInstallation=file://" + (folder / "profile").string(),
                                  "--headless", "--convert-to", "txt:Text (encoded):UTF8",
                                  "--outdir", (folder / "text").string(), file.string()},
                    .timeoutSeconds = 240});
    ASSERT_TRUE(result.succeeded()) << result.standardError;
    std::string text =
        files::readFile(folder / "text" / "Alex \u2013 Draft statement for counsel.txt");
    if (text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);
    std::erase(text, '\r');
    std::vector<std::string> expected;
    for (const auto& paragraph : expectedBareDraft()) expected.push_back(paragraph.text);
    EXPECT_EQ(testing::splitLines(text), expected);
}

}  // namespace
}  // namespace bc
