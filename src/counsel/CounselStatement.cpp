#include "counsel/CounselStatement.h"

#include <algorithm>

#include "export/Exporter.h"
#include "support/DateFormat.h"

namespace bc::CounselStatement {

namespace {

using docx::Paragraph;
using docx::Style;

// The statement names the platform it was actually made on.
struct PlatformWords {
    const char* userOf;            // section 1
    const char* operatingSystem;   // prefix of the version text
    const char* messagesDatabase;  // section 3, before the path
    const char* messagesOrigin;    // section 3, after the path
    const char* whatsAppDatabase;
    const char* whatsAppOrigin;
    const char* machine;  // "this Mac"
};

#ifdef __APPLE__
constexpr PlatformWords platform{
    .userOf =
        "I am the user of the Mac described below and of the Apple account [APPLE ACCOUNT "
        "EMAIL]",
    .operatingSystem = "macOS ",
    .messagesDatabase = " were read from the Messages database kept by macOS at ",
    .messagesOrigin =
        ". Messages on this Mac are [synced from my iPhone, model [MODEL], through "
        "Messages in iCloud / sent and received on this Mac].",
    .whatsAppDatabase = " were read from the WhatsApp for Mac database at ",
    .whatsAppOrigin = ". [Describe how WhatsApp on this Mac is linked to your phone.]",
    .machine = "this Mac",
};
#else
constexpr PlatformWords platform{
    .userOf =
        "I am the user of the computer described below and of the messaging account "
        "[ACCOUNT EMAIL OR PHONE NUMBER]",
    .operatingSystem = "",
    .messagesDatabase = " were read from the Messages database at ",
    .messagesOrigin =
        ". [Describe where this database came from, for example the Mac or the "
        "iPhone backup it was copied from, and how it was copied to the computer "
        "described below.]",
    .whatsAppDatabase = " were read from the WhatsApp database at ",
    .whatsAppOrigin =
        ". [Describe how this database came to be on the computer described below "
        "and how WhatsApp is linked to your phone.]",
    .machine = "this computer",
};
#endif

constexpr const char* bullet = "\u2022  ";
constexpr const char* indent = "      ";

std::string longDate(Date date) {
    return dates::formatStyled(date, dates::Style::full, dates::Style::full);
}

// Sections 4 and 5 list many dates; the shorter form keeps each line readable.
std::string listDate(Date date) {
    return dates::formatStyled(date, dates::Style::long_, dates::Style::short_);
}

std::string joined(const std::vector<std::string>& items, const std::string& separator) {
    std::string out;
    for (const auto& item : items) out += (out.empty() ? "" : separator) + item;
    return out;
}

std::vector<const CustodyRecord*> withAction(const std::vector<CustodyRecord>& records,
                                             const std::string& action) {
    std::vector<const CustodyRecord*> found;
    for (const auto& record : records)
        if (record.action == action) found.push_back(&record);
    return found;
}

bool isImportKind(const std::string& kind) {
    return kind == "upload" || kind.ends_with("-import");
}

void section(std::vector<Paragraph>& out, const std::string& heading,
             std::vector<std::string> body) {
    out.push_back({Style::heading, heading});
    for (auto& text : body) out.push_back({Style::body, std::move(text)});
}

std::string system(const CustodySystemInfo& system) {
    return "The records were collected on a " + system.model + " computer named \u201C" +
           system.host + "\u201D, running " + platform.operatingSystem + system.macOS +
           ", under the user account \u201C" + system.user +
           "\u201D, using the application Brindlecourt version " + system.appVersion + ".";
}

std::string origin(const Input& input) {
    const std::string who =
        "The messages with " +
        (input.participants.empty() ? "[PHONE NUMBER OR EMAIL]" : joined(input.participants, ", "));
    const std::string readOnly =
        " Brindlecourt opened the database read-only and did not change it.";
    if (input.sourceKind == "whatsapp-live")
        return who + platform.whatsAppDatabase + input.sourcePath + platform.whatsAppOrigin +
               readOnly;
    if (input.sourceKind == "iphone-backup-import")
        return who + " were read from a backup of an iPhone that I provided (" +
               input.sourceNote.value_or("[DEVICE]") +
               "). Brindlecourt decrypted it where it was encrypted, recorded the SHA-256 "
               "fingerprint of each file as it was in the backup, and sealed the Messages "
               "database, call history, contacts and attachments it holds at " +
               input.sourcePath +
               ". [Describe how and when the backup was made, and on which computer.]";
    if (isImportKind(input.sourceKind))
        return who + " were read from a file I provided, " +
               CustodyLog::describe(input.sourceKind, std::nullopt) + ", stored at " +
               input.sourcePath +
               ". Brindlecourt recorded its SHA-256 fingerprint when it was imported and sealed "
               "it. [Describe where the file came from and how you obtained it.]";
    // A snapshot is a sealed copy of the Messages database and is described as that database.
    return who + platform.messagesDatabase + input.sourcePath + platform.messagesOrigin + readOnly;
}

std::string databaseHash(const CustodyRecord& snapshot) {
    for (const auto& output : snapshot.outputs)
        if (std::filesystem::path(output.path).filename() == "chat.db") return output.sha256;
    return "[NOT RECORDED]";
}

std::vector<std::string> preservation(const std::vector<CustodyRecord>& records) {
    const auto snapshots = withAction(records, "snapshot");
    if (snapshots.empty())
        return {
            "No preservation snapshot is recorded for this conversation. [Consider sealing "
            "one before relying on this statement.]"};
    std::vector<std::string> lines{
        "Brindlecourt made " + std::to_string(snapshots.size()) +
        " sealed copies (snapshots). Each copies the database and every attachment on " +
        platform.machine +
        " in one pass, records the SHA-256 fingerprint of each file, and locks the copy against "
        "changes:"};
    for (const auto* snapshot : snapshots)
        lines.push_back(bullet + listDate(snapshot->createdAt) + ": " + snapshot->title + ". " +
                        std::to_string(snapshot->attachmentCount) +
                        " attachments preserved. Database SHA-256 " + databaseHash(*snapshot) +
                        ".");
    return lines;
}

std::string sourceWords(const CustodyRecord::Source& source) {
    if (source.snapshotID) return "the snapshot " + *source.snapshotID;
    std::string words = CustodyLog::describe(source.kind, std::nullopt);
    // "Live Messages database on …" reads as "the live Messages database on …" mid-sentence.
    if (!words.empty() && words[0] >= 'A' && words[0] <= 'Z' && !words.starts_with("WhatsApp"))
        words[0] = static_cast<char>(words[0] - 'A' + 'a');
    return "the " + words;
}

void addExport(std::vector<std::string>& lines, const CustodyRecord& record) {
    std::string line = bullet + listDate(record.createdAt) + ": " + record.format + " (" +
                       record.title + ") from " + sourceWords(record.source) + ". " +
                       record.rangeDescription + ". " + std::to_string(record.messageCount) +
                       " messages";
    if (record.pageCount) line += ", " + std::to_string(*record.pageCount) + " pages";
    lines.push_back(line + ".");
    const size_t shown = std::min<size_t>(record.outputs.size(), 3);
    for (size_t i = 0; i < shown; ++i)
        lines.push_back(indent + std::filesystem::path(record.outputs[i].path).filename().string() +
                        ": SHA-256 " + record.outputs[i].sha256);
    if (record.outputs.size() > 3)
        lines.push_back(indent + std::string("\u2026and ") +
                        std::to_string(record.outputs.size() - 3) +
                        " more files, each listed with its SHA-256 in the custody log.");
    for (const char* option : {"Contacts at export", "Calls included"})
        if (const auto found = record.options.find(option); found != record.options.end())
            lines.push_back(indent + std::string(option) + ": " + found->second);
}

std::vector<std::string> exports(const std::vector<CustodyRecord>& records) {
    const auto made = withAction(records, "export");
    if (made.empty()) return {"No exports are recorded for this conversation yet."};
    std::vector<std::string> lines{
        "Each export below was drawn directly from the database or from a snapshot, not from "
        "screenshots. Each file's SHA-256 fingerprint was recorded when it was made, so any "
        "later change to the file can be detected:"};
    for (const auto* record : made) addExport(lines, *record);
    return lines;
}

Paragraph integrity(const Input& input) {
    if (input.chainError || !input.chain) {
        const std::string error =
            input.chainError && !input.chainError->empty() ? *input.chainError : "unknown error";
        return {Style::body,
                "The custody log could not be checked: " + error + ". [Discuss with counsel.]"};
    }
    const std::string records = std::to_string(input.chain->records);
    if (input.chain->isIntact())
        return {Style::body,
                "Brindlecourt keeps a chain-of-custody log in which each record includes the "
                "fingerprint of the one before it. On " +
                    longDate(input.preparedAt) + ", all " + records +
                    " records in the log chained correctly, meaning none had been altered or "
                    "removed."};
    return {Style::warning, "WARNING: the custody log did not verify. The chain breaks at record " +
                                std::to_string(*input.chain->firstBroken + 1) + " of " + records +
                                ". [Discuss with counsel before relying on it.]"};
}

std::vector<std::string> limits() {
    const std::string machine = platform.machine;
    return {bullet + std::string("Attachments stored only in iCloud and not on ") + machine +
                " could not be copied; exports mark each one where it occurs.",
            bullet + std::string("Messages deleted more than about 30 days before collection are "
                                 "no longer stored by Messages and cannot be shown."),
#ifdef __APPLE__
            bullet + std::string("Calls, where included, come from this Mac's call history, "
                                 "which holds only calls synced from the iPhone."),
#else
            bullet + std::string("Calls, where included, come from the call history read on this "
                                 "computer, which holds only calls synced from the iPhone."),
#endif
            bullet + std::string("Text read from images and voice-message transcripts, where "
                                 "included, are machine-generated and labelled as such."),
            bullet + std::string("[Anything else counsel wants noted.]")};
}

}  // namespace

std::vector<Paragraph> document(const Input& input) {
    std::vector<Paragraph> out{
        {Style::banner, "DRAFT FOR REVIEW BY COUNSEL. NOT A SWORN STATEMENT."},
        {Style::preamble,
         "Prepared by Brindlecourt on " + longDate(input.preparedAt) +
             ". Every fact below comes from Brindlecourt's own records. Items in [BRACKETS] are "
             "things Brindlecourt cannot know: complete or correct them with your attorney, and "
             "delete anything that doesn't apply."},
        {Style::title, "Statement regarding the collection of electronic messages"}};
    section(out, "1. Who I am",
            {"I, [FULL NAME], am [a party to / a witness in] [CASE NAME AND NUMBER]. I make this "
             "statement from personal knowledge. " +
             std::string(platform.userOf) +
             " on which these messages were [sent and received / synced]."});
    section(out, "2. The computer and software", {system(input.system)});
    section(out, "3. Where the messages came from", {origin(input)});
    section(out, "4. Preservation copies", preservation(input.records));
    section(out, "5. Exports produced", exports(input.records));
    out.push_back({Style::heading, "6. Integrity of the custody log"});
    out.push_back(integrity(input));
    section(out, "7. Limits of what the records show", limits());
    section(out, "8. Declaration",
            {"I declare under penalty of perjury under the laws of [JURISDICTION] that the "
             "foregoing is true and correct.",
             "Executed on [DATE] at [CITY, STATE]."});
    out.push_back({Style::signature, "______________________________"});
    out.push_back({Style::body, "[FULL NAME]"});
    return out;
}

std::string defaultFileName(const std::string& conversation) {
    return Exporter::fileStem(conversation) + " \u2013 Draft statement for counsel.docx";
}

std::vector<CustodyRecord> recordsFor(const std::vector<CustodyRecord>& all,
                                      const std::vector<int64_t>& chatIDs) {
    std::vector<CustodyRecord> found;
    for (const auto& record : all)
        // A snapshot of every conversation (no chats named) preserved this one too.
        if ((record.action == "snapshot" && record.chatIDs.empty()) ||
            std::any_of(record.chatIDs.begin(), record.chatIDs.end(), [&](int64_t id) {
                return std::find(chatIDs.begin(), chatIDs.end(), id) != chatIDs.end();
            }))
            found.push_back(record);
    return found;
}

void readLog(Input& input, const std::vector<int64_t>& chatIDs) {
    try {
        input.records = recordsFor(CustodyLog::readAll(), chatIDs);
        input.chain = CustodyLog::verify();
    } catch (const std::exception& e) {
        input.chainError = e.what();
    }
}

}  // namespace bc::CounselStatement
