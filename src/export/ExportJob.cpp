#include "export/ExportJob.h"

#include <cstdlib>
#include <set>
#include <unordered_map>

#include "custody/Certificate.h"
#include "custody/CustodySystemInfo.h"
#include "export/Exporter.h"
#include "model/MessageNotes.h"
#include "model/MessageSource.h"
#include "sources/CallHistory.h"
#include "support/Calendar.h"
#include "support/DateFormat.h"
#include "support/Files.h"
#include "support/Json.h"
#include "support/Machine.h"
#include "support/Uuid.h"

namespace bc {

namespace fs = std::filesystem;

// ---------------------------------------------------------------------------------------------
// Formats and settings.

namespace rangeExportFormat {

std::string_view rawValue(RangeExportFormat format) {
    switch (format) {
        case RangeExportFormat::pdf:
            return "pdf";
        case RangeExportFormat::jpg:
            return "jpg";
        case RangeExportFormat::html:
            return "html";
        case RangeExportFormat::csv:
            return "csv";
    }
    return "html";
}

std::optional<RangeExportFormat> named(std::string_view raw) {
    for (const auto format : allCases)
        if (rawValue(format) == raw) return format;
    return std::nullopt;
}

std::string_view shortName(RangeExportFormat format) {
    switch (format) {
        case RangeExportFormat::pdf:
            return "PDF";
        case RangeExportFormat::jpg:
            return "JPG";
        case RangeExportFormat::html:
            return "HTML Archive";
        case RangeExportFormat::csv:
            return "CSV";
    }
    return "HTML Archive";
}

bool makesFolder(RangeExportFormat format) {
    return format == RangeExportFormat::jpg || format == RangeExportFormat::html;
}

std::string_view fileExtension(RangeExportFormat format) {
    return makesFolder(format) ? std::string_view() : rawValue(format);
}

}  // namespace rangeExportFormat

std::string ExportSettings::encoded() const {
    return json::encodeCompact(
        Json{{"paper", std::string(PageExporter::rawValue(paper))}, {"dpi", dpi}});
}

ExportSettings ExportSettings::decoded(std::string_view text) {
    try {
        const Json j = json::decode(text);
        const auto paper = PageExporter::paperNamed(j.at("paper").get<std::string>());
        const double dpi = j.at("dpi").get<double>();
        if (paper && dpi > 0) return {.paper = *paper, .dpi = dpi};
    } catch (const std::exception&) {
        // Falls through to the defaults, as when nothing is stored.
    }
    return {};
}

std::optional<SealedSnapshot> SourceChoice::sealedSnapshot() const {
    if (kind != Kind::snapshot || !snapshot) return std::nullopt;
    return Preservation::sealed(*snapshot);
}

// ---------------------------------------------------------------------------------------------
// Requests and jobs.

namespace {

// File names keep Western digits and the Gregorian calendar whatever the user's locale.
std::string fileDay(Date date) {
    return dates::formatPattern(date, "yyyy-MM-dd", "en_US_POSIX");
}

}  // namespace

std::vector<int64_t> ExportRequest::chatIDs() const {
    std::vector<int64_t> ids;
    for (const auto& source : sources)
        if (source.included) ids.push_back(source.chat.id);
    return ids;
}

bool ExportRequest::isEntireRange() const {
    Calendar calendar;
    return from <= calendar.startOfDay(earliest) && to >= calendar.startOfDay(latest);
}

std::string ExportRequest::baseName() const {
    std::string range;
    if (fileLabel) {
        range = *fileLabel;
    } else if (isEntireRange()) {
        range = "all messages";
    } else {
        range = fileDay(from);
        if (fileDay(to) != range) range += " to " + fileDay(to);
    }
    return Exporter::fileStem(title) + " \u2013 " + range;
}

std::string ExportRequest::rangeDescription() const {
    if (isEntireRange()) return "Entire conversation";
    const auto day = [](Date date) {
        return dates::formatStyled(date, dates::Style::long_, dates::Style::none);
    };
    return day(from) + " \u2013 " + day(to) + " (inclusive)";
}

ExportJob ExportJob::make(const ExportRequest& request, Transcript transcript,
                          std::vector<std::string> participants, std::string sourceDescription) {
    ExportJob job{.format = request.format,
                  .settings = request.settings,
                  .title = request.title,
                  .participants = std::move(participants),
                  .chatIDs = request.chatIDs(),
                  .rangeDescription = request.rangeDescription(),
                  .renderedAt = Clock::now(),
                  .sourceDescription = std::move(sourceDescription)};
    if (!request.isEntireRange()) {
        job.from = request.from;
        job.to = request.to;
    }
    // The rows move out of the transcript, so a long conversation is held once; what stays is
    // the context that reply links outside the range point into.
    const auto inRange = [&](const Message& m) {
        return HTMLExporter::inRange(m.date, job.from, job.to);
    };
    const auto rows = static_cast<size_t>(
        std::count_if(transcript.messages.begin(), transcript.messages.end(), inRange));
    if (rows == transcript.messages.size()) {
        job.messages = std::move(transcript.messages);
        transcript.messages.clear();
    } else {
        // Reserved: growing by doubling would hold up to three times a conversation's records.
        job.messages.reserve(rows);
        std::vector<Message> outside;
        outside.reserve(transcript.messages.size() - rows);
        for (auto& message : transcript.messages)
            (inRange(message) ? job.messages : outside).push_back(std::move(message));
        transcript.messages = std::move(outside);
    }
    notes::putInDateOrder(job.messages);
    for (const auto& event : transcript.reactionEvents)
        if (HTMLExporter::inRange(event.date, job.from, job.to))
            job.reactionEvents.push_back(event);
    // Calls that could not be read are no silent gap: the record and its certificate say why.
    if (transcript.callLogIssue) job.recordOptions.emplace("Calls", *transcript.callLogIssue);
    job.transcript = std::move(transcript);
    return job;
}

int64_t ExportJob::messageCount() const {
    return std::count_if(messages.begin(), messages.end(),
                         [](const Message& m) { return !m.isCall(); });
}

int64_t ExportJob::attachmentCount() const {
    int64_t count = 0;
    for (const auto& message : messages)
        count += static_cast<int64_t>(message.visibleAttachments().size());
    return count;
}

std::string ExportJob::countText() const {
    return Exporter::countText(messages);
}

// ---------------------------------------------------------------------------------------------
// Destinations.

fs::path uniqueURL(const fs::path& base, std::string_view ext) {
    const auto named = [&](const std::string& suffix) {
        fs::path candidate = base;
        candidate += suffix;
        if (!ext.empty()) candidate += "." + std::string(ext);
        return candidate;
    };
    fs::path candidate = named("");
    for (int number = 2; fs::exists(fs::symlink_status(candidate)); ++number)
        candidate = named(" " + std::to_string(number));
    return candidate;
}

fs::path destinationIn(const fs::path& folder, RangeExportFormat format,
                       const std::string& baseName) {
    return uniqueURL(folder / baseName, rangeExportFormat::fileExtension(format));
}

// ---------------------------------------------------------------------------------------------
// The pipeline.

namespace {

void refuseExisting(const fs::path& destination) {
    if (fs::exists(fs::symlink_status(destination)))
        throw Error(destination.string() + " already exists");
}

// Every file of a run is built under a hidden temporary name (or inside one hidden folder when the
// run makes a new enclosing folder) and takes its chosen name only after it was logged and
// certified, so a kill at any moment leaves the whole export or nothing under the chosen names.
// The temporaries of a killed run are removed by the next run into the same folder.
class Staging {
public:
    Staging(const fs::path& destination, const std::optional<fs::path>& newFolder)
        : newFolder_(newFolder) {
        files::removeAbandonedTemporaries((newFolder ? *newFolder : destination).parent_path());
        if (!newFolder_) return;
        refuseExisting(*newFolder_);
        folder_ = files::temporarySibling(*newFolder_);
        fs::create_directories(folder_);
    }
    ~Staging() {
        if (published_) return;
        try {
            if (newFolder_) files::removeAll(folder_);
            for (const auto& place : places_) files::removeAll(place.staged);
        } catch (const std::exception&) {
            // Best effort: the failure being reported matters more than this one.
        }
    }
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;

    // Where `final` is built. Products come first, the certificate last.
    fs::path place(const fs::path& final) {
        refuseExisting(final);
        places_.push_back({final, newFolder_ ? folder_ / final.lexically_relative(*newFolder_)
                                             : files::temporarySibling(final)});
        return places_.back().staged;
    }
    // Forgets the last place, whose file could not be written.
    void dropLast() {
        files::removeAll(places_.back().staged);
        places_.pop_back();
    }
    std::vector<fs::path> finals() const {
        std::vector<fs::path> finals;
        for (const auto& place : places_) finals.push_back(place.final);
        return finals;
    }
    // The outputs of every product as they will read once published.
    std::vector<CustodyRecord::Output> outputs() const {
        std::vector<CustodyRecord::Output> outputs;
        for (const auto& place : places_) {
            for (auto& output : CustodyLog::outputs(place.staged)) {
                const fs::path inside = fs::path(output.path).lexically_relative(place.staged);
                output.path = (inside == "." ? place.final : place.final / inside).string();
                outputs.push_back(std::move(output));
            }
        }
        return outputs;
    }
    bool isFolder(const fs::path& final) const {
        for (const auto& place : places_)
            if (place.final == final) return fs::is_directory(place.staged);
        return false;
    }
    // The certificate first and the product last, so nothing looks finished before it is.
    void publish() {
        if (newFolder_) {
            files::moveIntoPlace(folder_, *newFolder_);
            files::syncFolder(newFolder_->parent_path());
        } else {
            for (auto it = places_.rbegin(); it != places_.rend(); ++it) {
                files::moveIntoPlace(it->staged, it->final);
                files::syncFolder(it->final.parent_path());
            }
        }
        published_ = true;
    }

private:
    struct Place {
        fs::path final, staged;
    };
    std::optional<fs::path> newFolder_;
    fs::path folder_;
    std::vector<Place> places_;
    bool published_ = false;
};

struct Rendered {
    std::string summary;
    std::optional<HTMLExporter::Summary> html;
    std::optional<PageExporter::Result> pages;
};

std::string quoted(const fs::path& path) {
    return "\u201C" + path.filename().string() + "\u201D";
}

Rendered renderHTML(const ExportJob& job, const fs::path& destination,
                    const ExportPipeline::Context& context, const CancelFlag& cancel,
                    const ProgressFn& progress, Staging& staging) {
    const HTMLExporter exporter({.title = job.title,
                                 .participants = job.participants,
                                 .from = job.from,
                                 .to = job.to,
                                 .sourceDescription = job.sourceDescription,
                                 .callLogIssue = job.transcript.callLogIssue},
                                context.nameFor, job.transcript.messages, context.machineText);
    const fs::path building = staging.place(destination);
    auto summary =
        exporter.exportRows(job.messages, job.reactionEvents, building, cancel, progress);
    summary.htmlURL = destination / summary.htmlURL.lexically_relative(building);
    summary.folder = destination;

    std::string text = "Exported " + std::to_string(summary.messages) + " messages and " +
                       std::to_string(summary.attachmentsCopied) + " attachments to " +
                       quoted(destination);
    if (!summary.attachmentsMissing.empty())
        text += ". " + std::to_string(summary.attachmentsMissing.size()) +
                " attachments aren't stored on " + thisMachine + " (marked in the page)";
    if (!summary.attachmentsFailed.empty())
        text += ". " + std::to_string(summary.attachmentsFailed.size()) +
                " attachments could not be copied (listed in attachments.csv)";
    if (summary.attachmentsMissing.size() + summary.attachmentsFailed.size() > 0) text += ".";
    if (summary.hashMismatches > 0)
        text += " WARNING: " + std::to_string(summary.hashMismatches) +
                " copies did not match their source; see attachments.csv.";
    return {.summary = text, .html = std::move(summary)};
}

std::string batesRange(const PageExporter::Result& result) {
    if (!result.batesFirst || !result.batesLast) return "";
    return " Bates " + *result.batesFirst + " \u2013 " + *result.batesLast + ".";
}

Rendered renderPages(const ExportJob& job, const fs::path& destination,
                     const ExportPipeline::Context& context, const std::string& certificatePage,
                     const CancelFlag& cancel, const ProgressFn& progress, Staging& staging) {
    std::unordered_map<std::string, Message> originals;
    for (const auto& message : job.messages) originals.emplace(message.guid, message);
    for (const auto& message : job.transcript.messages) originals.emplace(message.guid, message);
    PageExporter::Options options = job.pageOptions;
    if (options.machineText.empty()) options.machineText = context.machineText;
    if (job.includeCertificatePage) options.certificate = certificatePage;
    const PageExporter exporter(
        job.messages, std::move(originals), {job.title, job.participants, job.rangeDescription},
        job.settings.paper,
        [&](const std::string& handle, bool isFromMe) { return context.nameFor(isFromMe, handle); },
        cancel, std::move(options), job.renderedAt, job.sourceDescription);
    const fs::path building = staging.place(destination);
    if (job.format == RangeExportFormat::pdf) {
        const auto result = exporter.writePDF(building, progress);
        return {.summary = "Saved " + std::to_string(job.messageCount()) + " messages on " +
                           std::to_string(result.pages) + " pages to " + quoted(destination) + "." +
                           batesRange(result),
                .pages = result};
    }
    const auto result = exporter.writeJPEGs(building, job.settings.dpi, progress);
    char dpi[32];
    std::snprintf(dpi, sizeof dpi, "%g", job.settings.dpi);
    return {.summary = "Saved " + std::to_string(result.pages) + " page images at " + dpi +
                       " dpi to " + quoted(destination) + "." + batesRange(result),
            .pages = result};
}

// A side file beside the CSV: "name.reactions.csv", "name.calls.csv", made unique.
fs::path sideFile(const fs::path& destination, const std::string& kind) {
    fs::path base = destination;
    base.replace_extension();
    base += "." + kind;
    return uniqueURL(base, "csv");
}

Rendered renderCSV(const ExportJob& job, const fs::path& destination,
                   const ExportPipeline::Context& context, const CancelFlag& cancel,
                   Staging& staging) {
    std::vector<const Message*> rows;
    std::unordered_map<std::string, const Message*> byGUID;
    std::vector<Message> calls;
    for (const auto& message : job.messages) {
        rows.push_back(&message);
        byGUID.emplace(message.guid, &message);
        if (message.isCall()) calls.push_back(message);
    }
    const auto write = [&](const manifest::Rows& content, const fs::path& file) {
        cancel.check();
        files::writeFileAtomically(staging.place(file), manifest::text(content));
    };
    write(manifest::messageRows(rows, context.nameFor, context.machineText), destination);
    const fs::path reactions = sideFile(destination, "reactions");
    write(manifest::reactionRows(job.reactionEvents, byGUID, context.nameFor), reactions);
    std::string text = "Saved " + std::to_string(job.messageCount()) + " messages to " +
                       quoted(destination) + " (reactions in " + quoted(reactions);
    if (!calls.empty()) {
        const fs::path callsFile = sideFile(destination, "calls");
        write(CallHistory::csvRows(calls), callsFile);
        text += ", calls " + quoted(callsFile);
    }
    if (!context.machineText.empty()) {
        const fs::path machineFile = sideFile(destination, "machine-text");
        write(manifest::machineTextRows(context.machineText), machineFile);
        text += ", machine-read text " + quoted(machineFile);
    }
    return {.summary = text + ")"};
}

CustodyRecord recordFor(const ExportJob& job, CustodyRecord::Source source) {
    return {.id = newUUID(),
            .createdAt = Clock::now(),
            .action = job.action,
            .format = std::string(rangeExportFormat::rawValue(job.format)),
            .title = job.title,
            .participants = job.participants,
            .chatIDs = job.chatIDs,
            .rangeDescription = job.rangeDescription,
            .messageCount = job.messageCount(),
            .attachmentCount = job.attachmentCount(),
            .options = job.recordOptions,
            .source = std::move(source),
            .system = custodySystemInfo::current()};
}

// The engines whose text the export shows, for the certificate: machine-read text is only as
// good as what read it.
std::string machineTextEngines(const ExportJob& job, const manifest::MachineText& machineText) {
    std::set<std::string> engines;
    for (const Message& message : job.messages)
        for (const Attachment& attachment : message.attachments)
            if (const auto found = machineText.find(attachment.id); found != machineText.end())
                engines.insert(found->second.engine);
    std::string joined;
    for (const auto& engine : engines) joined += (joined.empty() ? "" : "; ") + engine;
    return joined;
}

void say(const ProgressFn& progress, const std::string& text) {
    if (progress) progress(text);
}

// The certificate beside the product: its name without extension + " – Certificate".
std::string certificateBase(const fs::path& product, bool folder) {
    fs::path base = product;
    if (!folder) base.replace_extension();
    base += " \u2013 Certificate";
    return base.string();
}

}  // namespace

ExportOutcome ExportPipeline::run(const ExportJob& job, const fs::path& destination,
                                  const Context& context, const CancelFlag& cancel,
                                  const ProgressFn& progress,
                                  const std::optional<fs::path>& newFolder) {
    ExportOutcome outcome;
    CustodyRecord record;
    Rendered rendered;
    std::optional<Staging> staging;
    try {
        say(progress, "Recording the source\u2026");
        record = recordFor(job, CustodyLog::source(context.source, context.snapshot));
        if (const auto engines = machineTextEngines(job, context.machineText); !engines.empty())
            record.options["Machine text"] = engines;
        if (job.messages.empty())
            return {.status = ExportOutcome::Status::nothingToExport,
                    .message = "No messages to export; nothing was saved."};
        staging.emplace(destination, newFolder);
        switch (job.format) {
            case RangeExportFormat::html:
                rendered = renderHTML(job, destination, context, cancel, progress, *staging);
                break;
            case RangeExportFormat::pdf:
            case RangeExportFormat::jpg:
                rendered = renderPages(job, destination, context, certificate::text(record, true),
                                       cancel, progress, *staging);
                break;
            case RangeExportFormat::csv:
                rendered = renderCSV(job, destination, context, cancel, *staging);
                break;
        }
        say(progress, "Hashing output and writing the certificate\u2026");
        outcome.products = staging->finals();
        record.outputs = staging->outputs();
        cancel.check();
        refuseExisting(newFolder.value_or(destination));
    } catch (const CancelledError&) {
        return {.status = ExportOutcome::Status::cancelled,
                .message = "Export cancelled. Nothing was saved."};
    } catch (const std::exception& e) {
        return {.status = ExportOutcome::Status::failed,
                .message = std::string("Export failed, nothing was saved: ") + e.what()};
    }
    if (rendered.pages) {
        record.pageCount = rendered.pages->pages;
        // The next exhibit of the same production continues from the last number used.
        if (rendered.pages->batesFirst && rendered.pages->batesLast)
            record.options["Bates"] =
                *rendered.pages->batesFirst + "\u2013" + *rendered.pages->batesLast;
    }
    outcome.html = std::move(rendered.html);
    outcome.pages = rendered.pages;
    try {
        outcome.record = CustodyLog::append(record);
        outcome.status = ExportOutcome::Status::saved;
        outcome.message = rendered.summary + " Certificate saved and logged.";
    } catch (const std::exception& e) {
        outcome.status = ExportOutcome::Status::savedNotLogged;
        outcome.message = rendered.summary +
                          " WARNING: The file WAS saved, but it could NOT be recorded in the "
                          "custody log: " +
                          e.what();
    }
    if (outcome.record) {
        const fs::path& product = outcome.products.front();
        const fs::path certificate =
            uniqueURL(certificateBase(product, staging->isFolder(product)), "txt");
        try {
            files::writeFileAtomically(staging->place(certificate),
                                       certificate::text(*outcome.record, false));
            outcome.certificate = certificate;
        } catch (const std::exception& e) {
            staging->dropLast();
            outcome.message = rendered.summary +
                              " It is recorded in the custody log, but the certificate could not "
                              "be written: " +
                              e.what();
        }
    }
    try {
        staging->publish();
    } catch (const std::exception& e) {
        return {.status = ExportOutcome::Status::failed,
                .message = std::string("Export failed, nothing was saved: ") + e.what()};
    }
    return outcome;
}

}  // namespace bc
