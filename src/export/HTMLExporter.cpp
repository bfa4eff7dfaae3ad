#include "export/HTMLExporter.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

#include "export/Exporter.h"
#include "export/html/Attachments.h"
#include "export/html/Page.h"
#include "export/html/Previews.h"
#include "model/MessageNotes.h"
#include "sources/CallHistory.h"
#include "support/Calendar.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Sha256.h"
#include "support/Text.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

// The page's file name: the conversation title made safe for file systems and checksum files.
std::string pageFileName(const std::string& title) {
    std::string stem = Exporter::fileStem(title);
    std::replace_if(
        stem.begin(), stem.end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '-');
    if (stem.empty() || stem.front() == '.') stem.insert(0, "Conversation");
    // File systems allow 255 bytes; 80 characters of emoji would need more.
    constexpr size_t maxStemBytes = 200;
    return text::firstGraphemes(stem, std::numeric_limits<size_t>::max(), maxStemBytes) +
           " – Messages.html";
}

std::vector<const Message*> rowsInRange(std::span<const Message> messages,
                                        const HTMLExporter::Options& options) {
    const DateRange range(options.from, options.to);
    std::vector<const Message*> rows;
    rows.reserve(messages.size());
    for (const auto& m : messages) {
        if (range.contains(m.date)) rows.push_back(&m);
    }
    // One section per day needs the rows in date order.
    notes::putInDateOrder(rows);
    return rows;
}

// Only the exported messages' attachments: the context may hold more than the period shows.
manifest::MachineText machineTextOf(const std::vector<const Message*>& rows,
                                    const manifest::MachineText& machineText) {
    manifest::MachineText shown;
    for (const Message* m : rows)
        for (const Attachment& a : m->attachments)
            if (const auto found = machineText.find(a.id); found != machineText.end())
                shown.insert(*found);
    return shown;
}

}  // namespace

HTMLExporter::HTMLExporter(Options options, manifest::NameFor nameFor,
                           std::span<const Message> context, manifest::MachineText machineText)
    : options_(std::move(options)),
      nameFor_(std::move(nameFor)),
      context_(context),
      machineText_(std::move(machineText)) {}

HTMLExporter::Summary HTMLExporter::exportTranscript(const Transcript& transcript,
                                                     const fs::path& folder,
                                                     const CancelFlag& cancel,
                                                     const ProgressFn& progress) const {
    return exportRows(transcript.messages, transcript.reactionEvents, folder, cancel, progress);
}

HTMLExporter::Summary HTMLExporter::exportRows(std::span<const Message> messages,
                                               std::span<const ReactionEvent> reactionEvents,
                                               const fs::path& folder, const CancelFlag& cancel,
                                               const ProgressFn& progress) const {
    const auto report = [&](const std::string& text) {
        if (progress) progress(text);
    };
    try {
        fs::create_directories(folder / "attachments" / "previews");
    } catch (const fs::filesystem_error& e) {
        throw Error("Couldn't create the archive folder: " + std::string(e.code().message()));
    }
    const std::vector<const Message*> rows = rowsInRange(messages, options_);

    size_t total = 0;
    for (const Message* m : rows) total += m->visibleAttachments().size();
    std::vector<html::CopiedAttachment> copies;
    copies.reserve(total);
    std::vector<std::pair<std::string, std::string>> known;  // hashes of files written here
    Summary summary{.folder = folder, .htmlURL = folder / pageFileName(options_.title)};
    for (const Message* m : rows) {
        if (!m->call) ++summary.messages;
        for (const auto& attachment : m->visibleAttachments()) {
            cancel.check();
            report("Copying and verifying attachments " + std::to_string(copies.size() + 1) +
                   " of " + std::to_string(total));
            html::CopiedAttachment copy = html::copyAttachment(attachment, m->id, folder, cancel);
            if (copy.copied()) {
                ++summary.attachmentsCopied;
                if (!copy.matches()) ++summary.hashMismatches;
                known.emplace_back(copy.rendered.original, copy.sha256Copy);
                if (html::addPreview(copy, folder, cancel)) ++summary.previewsMade;
            } else if (copy.isMissing()) {
                summary.attachmentsMissing.push_back(copy.rendered.name);
            } else {
                summary.attachmentsFailed.push_back(copy.rendered.name);
            }
            copies.push_back(std::move(copy));
        }
    }

    cancel.check();
    report("Writing HTML and manifests…");
    manifest::writeFile(summary.htmlURL, [&](std::ostream& out) {
        html::writePage({options_, nameFor_, machineText_, context_, rows, copies}, out);
    });
    manifest::writeFile(folder / "messages.csv", [&](std::ostream& out) {
        manifest::CsvStream csv(out);
        manifest::messageRows(rows, nameFor_, machineText_,
                              [&](const manifest::Row& row) { csv.add(row); });
    });
    std::vector<Message> calls;
    std::unordered_map<std::string, const Message*> byGUID(rows.size());
    for (const Message* m : rows) {
        byGUID.emplace(m->guid, m);
        if (m->call) calls.push_back(*m);
    }
    std::vector<ReactionEvent> reactions;
    const DateRange range(options_.from, options_.to);
    std::copy_if(reactionEvents.begin(), reactionEvents.end(), std::back_inserter(reactions),
                 [&](const auto& e) { return range.contains(e.date); });
    manifest::writeCSV(manifest::reactionRows(reactions, byGUID, nameFor_),
                       folder / "reactions.csv");
    if (!calls.empty()) manifest::writeCSV(CallHistory::csvRows(calls), folder / "calls.csv");
    manifest::Rows attachmentRows{manifest::attachmentsHeader()};
    for (const auto& copy : copies) attachmentRows.push_back(html::attachmentRow(copy));
    manifest::writeCSV(attachmentRows, folder / "attachments.csv");
    if (const auto shown = machineTextOf(rows, machineText_); !shown.empty())
        manifest::writeCSV(manifest::machineTextRows(shown), folder / "machine-text.csv");

    cancel.check();
    report("Writing checksums…");
    manifest::writeFile(folder / "checksums.txt", checksums(folder, known, cancel));
    return summary;
}

bool HTMLExporter::inRange(Date date, const std::optional<Date>& from,
                           const std::optional<Date>& to) {
    return DateRange(from, to).contains(date);
}

std::string HTMLExporter::checksums(const fs::path& folder,
                                    const std::vector<std::pair<std::string, std::string>>& known,
                                    const CancelFlag& cancel) {
    std::vector<std::string> paths;
    try {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            if (!entry.is_regular_file()) continue;
            std::string relative = entry.path().lexically_relative(folder).generic_string();
            if (relative != "checksums.txt") paths.push_back(std::move(relative));
        }
    } catch (const fs::filesystem_error& e) {
        throw Error("Couldn't list the archive folder: " + e.code().message());
    }
    std::sort(paths.begin(), paths.end());
    const std::unordered_map<std::string, std::string> hashes(known.begin(), known.end());
    std::string out;
    for (const auto& path : paths) {
        const auto found = hashes.find(path);
        out += found != hashes.end() ? found->second : Sha256::hexOfFile(folder / path, &cancel);
        out += "  " + path + "\n";
    }
    return out;
}

}  // namespace bc
