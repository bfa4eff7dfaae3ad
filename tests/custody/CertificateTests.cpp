#include <gmock/gmock.h>

#include "custody/Certificate.h"
#include "custody/CustodyLog.h"
#include "custody/CustodyLogTesting.h"
#include "support/DateFormat.h"

namespace bc::testing {
namespace {

#ifdef __APPLE__
constexpr const char* systemLines =
    "macOS:            Version 14.2.1 (Build 23C71)\n"
    "Mac:              Mac14,2 \u201CAlex's MacBook\u201D\n";
#else
constexpr const char* systemLines =
    "OS:               Version 14.2.1 (Build 23C71)\n"
    "Computer:         Mac14,2 \u201CAlex's MacBook\u201D\n";
#endif

class CertificateTest : public CustodyLogTest {
protected:
    // A record as append completes it: the first in its log.
    CustodyRecord completed() {
        CustodyRecord record = sampleRecord();
        record.recordSHA256 = "0123456789abcdef" + std::string(48, 'e');
        return record;
    }

    std::string created(const CustodyRecord& record) {
        return dates::formatStyled(record.createdAt, dates::Style::full, dates::Style::full);
    }
};

TEST_F(CertificateTest, StandAloneTextLineByLine) {
    const CustodyRecord record = completed();
    const std::string expected =
        "BRINDLECOURT EXPORT CERTIFICATE\n"
        "===========================\n"
        "\n"
        "Record ID:        0F8E3C2A-5B1D-4E6F-9A7B-1C2D3E4F5A6B\n"
        "Created:          " +
        created(record) +
        "\n"
        "Format:           PDF\n"
        "Conversation:     Alex Doe (Alex Doe, Zoë Quinn)\n"
        "Messages database chat IDs: 7, -3\n"
        "Range:            Entire conversation\n"
        "Messages:         12\n"
        "Attachments:      2\n"
        "Pages:            3\n"
        "Calls included:   Yes\n"
        "\n"
        "SOURCE\n"
        "Kind:             " +
        CustodyLog::describe("live", std::nullopt) +
        "\n"
        "Location:         /Users/alex/Library/Messages/chat.db\n"
        "Database SHA-256: " +
        std::string(64, 'a') +
        "\n"
        "WAL SHA-256:      " +
        std::string(64, 'b') +
        "\n"
        "\n"
        "OUTPUT FILES (SHA-256)\n" +
        std::string(64, 'c') +
        "  1234 bytes  /tmp/out/Alex.pdf\n"
        "\n"
        "SYSTEM\n"
        "App:              Brindlecourt dev (0)\n" +
        systemLines +
        "User:             Alex Doe\n"
        "\n"
        "STATEMENT\n"
        "The records above were read from the source described above, in read-only mode. "
        "Brindlecourt\n"
        "did not modify, add or delete any message. Exported text is reproduced exactly as "
        "stored;\n"
        "any redaction applied is listed in the options above. Machine-generated text (image text\n"
        "recognition, audio transcription), where included, is labelled as such.\n"
        "\n"
        "This record is entry 0123456789abcdef\u2026 in Brindlecourt's hash-chained custody log\n"
        "(" +
        logFile.string() +
        ").\n"
        "Record SHA-256:   " +
        record.recordSHA256 +
        "\n"
        "Previous record:  (first record)\n";
    EXPECT_EQ(certificate::text(record, false), expected);
}

TEST_F(CertificateTest, EmbeddedPageCannotNameItsOwnHash) {
    CustodyRecord record = completed();
    record.previousRecordSHA256 = std::string(64, 'f');
    record.options["Redaction"] = "2 areas";
    const auto page = splitLines(certificate::text(record, true));
    for (const char* absent : {"INTERNAL RECORD", "Record SHA-256", "bytes  /tmp/out"})
        EXPECT_THAT(page, ::testing::Not(::testing::Contains(::testing::HasSubstr(absent))));
    const auto output = std::find(page.begin(), page.end(), "OUTPUT");
    ASSERT_NE(output, page.end());
    EXPECT_EQ(std::vector<std::string>(output + 1, output + 4),
              (std::vector<std::string>{
                  "The SHA-256 of this file is recorded in the certificate saved alongside it and "
                  "in Brindlecourt's",
                  "custody log under record ID 0F8E3C2A-5B1D-4E6F-9A7B-1C2D3E4F5A6B.", ""}));
    EXPECT_EQ(page.back(), "This export is recorded in Brindlecourt's hash-chained custody log (" +
                               logFile.string() + ").");

    const auto standAlone = splitLines(certificate::text(record, false));
    EXPECT_EQ(
        std::vector<std::string>(standAlone.begin() + 3, standAlone.begin() + 6),
        (std::vector<std::string>{
            "INTERNAL RECORD. NOT REDACTED. This certificate describes a redacted exhibit "
            "but itself",
            "names the conversation and participants. Do not produce it with the exhibit.", ""}));
    EXPECT_EQ(standAlone.back(), "Previous record:  " + std::string(64, 'f'));
}

TEST_F(CertificateTest, OptionalLinesAndLongOptionKeys) {
    CustodyRecord record = completed();
    record.pageCount.reset();
    record.chatIDs.clear();
    record.source.walSHA256.reset();
    record.source.note = "Uploaded file, sealed as received";
    record.options = {{"Seventeen chars!!", "a"},
                      {"A much longer option key", "b"},
                      {"Größe", "c"},
                      {"Bates", "ABC-0001"}};
    const auto text = splitLines(certificate::text(record, false));
    EXPECT_THAT(text, ::testing::Contains("Messages database chat IDs: "));
    for (const char* absent : {"Pages:", "WAL SHA-256:"})
        EXPECT_THAT(text, ::testing::Not(::testing::Contains(::testing::StartsWith(absent))));
    EXPECT_THAT(text,
                ::testing::Contains(std::string(18, ' ') + "Uploaded file, sealed as received"));
    const auto attachments = std::find(text.begin(), text.end(), "Attachments:      2");
    ASSERT_NE(attachments, text.end());
    EXPECT_EQ(std::vector<std::string>(attachments + 1, attachments + 5),
              (std::vector<std::string>{"A much longer option key:b", "Bates:            ABC-0001",
                                        "Größe:            c", "Seventeen chars!!:a"}));
}

}  // namespace
}  // namespace bc::testing
