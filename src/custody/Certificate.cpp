#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <memory>
#include <string>
#include <vector>

#include "custody/Certificate.h"
#include "custody/CustodyLog.h"
#include "support/DateFormat.h"

namespace bc::certificate {

namespace {

constexpr size_t labelWidth = 18;

// The system lines name the platform that actually made the record.
#ifdef __APPLE__
constexpr const char* systemLabel = "macOS:";
constexpr const char* machineLabel = "Mac:";
#else
constexpr const char* systemLabel = "OS:";
constexpr const char* machineLabel = "Computer:";
#endif

// User-perceived characters, so that accented option keys line up like plain ones.
size_t characterCount(const std::string& text) {
    const auto unicode = icu::UnicodeString::fromUTF8(text);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> characters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status)) return static_cast<size_t>(unicode.countChar32());
    characters->setText(unicode);
    size_t count = 0;
    characters->first();
    while (characters->next() != icu::BreakIterator::DONE) ++count;
    return count;
}

// "Label:" padded so the value starts in column 19; longer labels run straight into it.
std::string field(const std::string& label, const std::string& value) {
    const size_t length = characterCount(label);
    return label + std::string(length < labelWidth ? labelWidth - length : 0, ' ') + value;
}

std::string joined(const std::vector<std::string>& items) {
    std::string out;
    for (const auto& item : items) out += (out.empty() ? "" : ", ") + item;
    return out;
}

std::string joined(const std::vector<int64_t>& numbers) {
    std::vector<std::string> texts;
    texts.reserve(numbers.size());
    for (const int64_t number : numbers) texts.push_back(std::to_string(number));
    return joined(texts);
}

void addRecordLines(std::vector<std::string>& lines, const CustodyRecord& record) {
    lines.push_back(field("Record ID:", record.id));
    lines.push_back(field(
        "Created:", dates::formatStyled(record.createdAt, dates::Style::full, dates::Style::full)));
    lines.push_back(field("Format:", record.format));
    lines.push_back(
        field("Conversation:", record.title + " (" + joined(record.participants) + ")"));
    lines.push_back("Messages database chat IDs: " + joined(record.chatIDs));
    lines.push_back(field("Range:", record.rangeDescription));
    lines.push_back(field("Messages:", std::to_string(record.messageCount)));
    lines.push_back(field("Attachments:", std::to_string(record.attachmentCount)));
    if (record.pageCount) lines.push_back(field("Pages:", std::to_string(*record.pageCount)));
    for (const auto& [key, value] : record.options) lines.push_back(field(key + ":", value));
}

void addSourceLines(std::vector<std::string>& lines, const CustodyRecord::Source& source) {
    lines.insert(lines.end(), {"", "SOURCE"});
    lines.push_back(field("Kind:", CustodyLog::describe(source.kind, source.snapshotID)));
    lines.push_back(field("Location:", source.path));
    lines.push_back(field("Database SHA-256:", source.databaseSHA256));
    if (source.walSHA256) lines.push_back(field("WAL SHA-256:", *source.walSHA256));
    if (source.note) lines.push_back(field("", *source.note));
}

void addOutputLines(std::vector<std::string>& lines, const CustodyRecord& record, bool embedded) {
    lines.emplace_back();
    if (embedded) {
        lines.insert(lines.end(),
                     {"OUTPUT",
                      "The SHA-256 of this file is recorded in the certificate saved alongside "
                      "it and in Brindlecourt's",
                      "custody log under record ID " + record.id + "."});
        return;
    }
    lines.emplace_back("OUTPUT FILES (SHA-256)");
    for (const auto& output : record.outputs)
        lines.push_back(output.sha256 + "  " + std::to_string(output.bytes) + " bytes  " +
                        output.path);
}

void addSystemLines(std::vector<std::string>& lines, const CustodySystemInfo& system) {
    lines.insert(lines.end(), {"", "SYSTEM"});
    lines.push_back(field("App:", "Brindlecourt " + system.appVersion));
    lines.push_back(field(systemLabel, system.macOS));
    lines.push_back(field(machineLabel, system.model + " \u201C" + system.host + "\u201D"));
    lines.push_back(field("User:", system.user));
}

void addChainLines(std::vector<std::string>& lines, const CustodyRecord& record, bool embedded) {
    const std::string logPath = CustodyLog::url().string();
    lines.emplace_back();
    if (embedded) {
        lines.push_back("This export is recorded in Brindlecourt's hash-chained custody log (" +
                        logPath + ").");
        return;
    }
    // Identified by its hash prefix, not a line number: numbers shift if the file is damaged.
    lines.push_back("This record is entry " + record.recordSHA256.substr(0, 16) +
                    "\u2026 in Brindlecourt's hash-chained custody log");
    lines.push_back("(" + logPath + ").");
    lines.push_back(field("Record SHA-256:", record.recordSHA256));
    lines.push_back(field("Previous record:", record.previousRecordSHA256.empty()
                                                  ? "(first record)"
                                                  : record.previousRecordSHA256));
}

}  // namespace

std::string text(const CustodyRecord& record, bool embedded) {
    std::vector<std::string> lines{"BRINDLECOURT EXPORT CERTIFICATE",
                                   "===========================", ""};
    // The exhibit itself is redacted; this page is not, so it must not travel with it.
    if (!embedded && record.options.contains("Redaction")) {
        lines.insert(lines.end(),
                     {"INTERNAL RECORD. NOT REDACTED. This certificate describes a redacted "
                      "exhibit but itself",
                      "names the conversation and participants. Do not produce it with the "
                      "exhibit.",
                      ""});
    }
    addRecordLines(lines, record);
    addSourceLines(lines, record.source);
    addOutputLines(lines, record, embedded);
    addSystemLines(lines, record.system);
    // Each literal is one printed line of the certificate, cut where the page is.
    // NOLINTBEGIN(bugprone-suspicious-missing-comma)
    lines.insert(lines.end(),
                 {"", "STATEMENT",
                  "The records above were read from the source described above, in read-only "
                  "mode. Brindlecourt",
                  "did not modify, add or delete any message. Exported text is reproduced "
                  "exactly as stored;",
                  "any redaction applied is listed in the options above. Machine-generated text "
                  "(image text",
                  "recognition, audio transcription), where included, is labelled as such."});
    // NOLINTEND(bugprone-suspicious-missing-comma)
    addChainLines(lines, record, embedded);
    std::string text;
    for (const auto& line : lines) text += line + "\n";
    return text;
}

}  // namespace bc::certificate
