#include "cli/CommandLineExport.h"

#include <charconv>
#include <memory>

#include "cli/CommandLineImport.h"
#include "cli/DatabaseChoice.h"
#include "cli/PageArguments.h"
#include "custody/CustodyLog.h"
#include "custody/Preservation.h"
#include "custody/SnapshotTaking.h"
#include "demo/DemoData.h"
#include "evidence/MachineText.h"
#include "export/Exporter.h"
#include "sources/CallHistory.h"
#include "sources/ContactResolver.h"
#include "sources/IPhoneBackupMessages.h"
#include "support/Calendar.h"
#include "support/DateFormat.h"
#include "support/Files.h"
#include "support/Machine.h"
#include "support/Uuid.h"

namespace bc::cli {

namespace fs = std::filesystem;

// Phases only; per-item counters would flood a terminal.
ProgressFn phasesTo(std::ostream& stream) {
    return [&stream](const std::string& text) {
        if (text.ends_with("\u2026")) stream << text << "\n";
    };
}

// Display names from the user's contacts; in demo mode only from the sample's own card file, as
// the window shows them, never from the user's.
manifest::NameFor namesFor(bool demo, const MessageSource& source) {
    auto contacts = std::make_shared<ContactResolver>();
    if (demo) {
        contacts->load({.vCardFiles = {DemoData::contactsPath()}});
    } else {
        auto sources = ContactResolver::defaultSources();
        if (const auto* backup = dynamic_cast<const IPhoneBackupMessages*>(&source);
            backup && backup->companions().contacts)
            sources.databases.insert(sources.databases.begin(), *backup->companions().contacts);
        contacts->load(sources);
    }
    return [contacts](bool isFromMe, const std::string& handle) -> std::string {
        if (isFromMe) return "Me";
        return contacts->name(handle).value_or(handle);
    };
}

namespace {

ExportJob buildJob(MessageSource& database, const std::vector<int64_t>& ids,
                   const std::optional<Date>& from, const std::optional<Date>& to,
                   RangeExportFormat format, const std::string& title,
                   const std::string& sourceDescription, const manifest::NameFor& nameFor) {
    ExportRequest request{.id = newUUID(), .format = format, .title = title};
    for (const auto& chat : database.fetchChats())
        if (std::find(ids.begin(), ids.end(), chat.id) != ids.end())
            request.sources.push_back({chat, true});
    const auto range = database.dateRange(ids);
    Calendar calendar;
    request.earliest = range ? range->first : Clock::now();
    request.latest = range ? range->second : Clock::now();
    request.from = from.value_or(calendar.startOfDay(request.earliest));
    request.to = to.value_or(calendar.startOfDay(request.latest));

    Transcript transcript = database.fetchTranscript(ids);
    const auto handles = participantHandles(database, ids);
    CallHistory::shared().mergeCalls(transcript, database, ids, handles);
    std::vector<std::string> participants;
    participants.reserve(handles.size());
    for (const auto& handle : handles) participants.push_back(nameFor(false, handle));
    return ExportJob::make(request, std::move(transcript), std::move(participants),
                           sourceDescription);
}

}  // namespace

bool CommandLineExport::valuesGiven() {
    const auto option = arguments_.withoutValue(
        {"--title", "--from", "--to", "--format", "--scope", "--database", "--source"});
    if (option) err_ << "error: " << *option << " needs a value\n";
    return !option;
}

int CommandLineExport::fail(const std::string& description) {
    err_ << "error: " << description << "\n";
    return 1;
}

std::optional<std::vector<int64_t>> CommandLineExport::chatIDs(const std::string& list) {
    std::vector<int64_t> ids;
    size_t start = 0;
    while (true) {
        const size_t comma = std::min(list.find(',', start), list.size());
        int64_t id = 0;
        const char* begin = list.data() + start;
        const char* end = list.data() + comma;
        const auto [stop, error] = std::from_chars(begin, end, id);
        if (begin == end || error != std::errc() || stop != end) {
            err_ << "error: --chats must be a comma-separated list of chat IDs, got \"" << list
                 << "\"\n";
            return std::nullopt;
        }
        ids.push_back(id);
        if (comma == list.size()) return ids;
        start = comma + 1;
    }
}

std::optional<std::optional<Date>> CommandLineExport::day(const std::string& option) {
    const auto text = arguments_.value(option);
    if (!text) return std::optional<Date>();
    if (auto parsed = Calendar().parseDay(*text)) return parsed;
    err_ << "error: " << option << " must be a date like 2025-03-01, got \"" << *text << "\"\n";
    return std::nullopt;
}

int CommandLineExport::run() {
    if (arguments_.contains("--snapshot")) return snapshot();
    if (arguments_.contains("--verify-snapshots")) return verifySnapshots();
    const auto list = arguments_.value("--chats");
    const auto outArgument = arguments_.value("--out");
    if (!list || !outArgument) {
        err_ << usage << "\n";
        return 2;
    }
    if (!valuesGiven()) return 2;
    const auto ids = chatIDs(*list);
    if (!ids) return 2;
    const auto from = day("--from");
    const auto to = day("--to");
    if (!from || !to) return 2;
    const std::string title = arguments_.value("--title").value_or("Messages");
    const auto pageArguments = PageArguments::parse(arguments_, err_);
    if (!pageArguments) return 2;
    const bool exhibit = pageArguments->isExhibit;
    const auto pages =
        rangeExportFormat::named(arguments_.value("--format").value_or(exhibit ? "pdf" : ""));
    const bool paged = pages == RangeExportFormat::pdf || pages == RangeExportFormat::jpg;
    if (exhibit && !paged) {
        err_ << "error: --exhibit makes pdf or jpg pages\n";
        return 2;
    }

    if (const auto problem = ChosenSource::argumentProblem(arguments_)) {
        err_ << "error: " << *problem << "\n";
        return 2;
    }
    ChosenSource chosen;
    try {
        chosen = ChosenSource::open(arguments_);
    } catch (const std::exception& e) {
        return fail(e.what());
    }
    // "out/" names the folder "out", never an entry inside it.
    fs::path folder = fs::absolute(*outArgument).lexically_normal();
    if (folder.filename().empty()) folder = folder.parent_path();
    if (fs::exists(fs::symlink_status(folder)))
        return fail(*outArgument + " already exists; choose a new folder");
    try {
        err_ << "Reading messages\u2026\n";
        const auto nameFor = namesFor(arguments_.contains("--demo"), *chosen.source);
        const ExportJob job =
            buildJob(*chosen.source, *ids, *from, *to, paged ? *pages : RangeExportFormat::html,
                     title, chosen.description, nameFor);
        if (job.transcript.callLogIssue) err_ << *job.transcript.callLogIssue << "\n";
        const auto context =
            withStoredMachineText({*chosen.source, std::nullopt, nameFor, {}}, job.messages);
        return publish(paged ? pageArguments->apply(job) : job, folder, context);
    } catch (const DBError& e) {
        return fail(chosen.readFailure(e));
    } catch (const std::exception& e) {
        return fail(e.what());
    }
}

int CommandLineExport::publish(const ExportJob& job, const fs::path& folder,
                               const ExportPipeline::Context& context) {
    if (job.format == RangeExportFormat::pdf || job.format == RangeExportFormat::jpg)
        return runPages(job, folder, context);
    if (job.format == RangeExportFormat::csv) return runCsv(job, folder, context);
    const auto outcome = ExportPipeline::run(job, folder, context, cancel_, phasesTo(err_));
    if (!outcome.filesKept()) return fail(outcome.message);
    reportHTML(outcome);
    return outcome.status == ExportOutcome::Status::saved ? 0 : 1;
}

int CommandLineExport::runCsv(const ExportJob& job, const fs::path& folder,
                              const ExportPipeline::Context& context) {
    const fs::path destination = folder / (Exporter::fileStem(job.title) + ".csv");
    const auto outcome =
        ExportPipeline::run(job, destination, context, cancel_, phasesTo(err_), folder);
    if (!outcome.filesKept()) return fail(outcome.message);
    out_ << "Done.\n  csv:            " << destination.string()
         << "\n  messages:       " << job.messageCount() << "\n";
    reportRecord(outcome);
    return outcome.status == ExportOutcome::Status::saved ? 0 : 1;
}

void CommandLineExport::reportRecord(const ExportOutcome& outcome) {
    if (outcome.certificate) out_ << "  certificate:    " << outcome.certificate->string() << "\n";
    out_ << "  custody log:    " << CustodyLog::url().string() << "\n";
    if (outcome.status == ExportOutcome::Status::savedNotLogged) err_ << outcome.message << "\n";
}

void CommandLineExport::reportHTML(const ExportOutcome& outcome) {
    const auto& summary = *outcome.html;
    out_ << "Done.\n  page:           " << summary.htmlURL.string()
         << "\n  messages:       " << summary.messages
         << "\n  attachments:    " << summary.attachmentsCopied << " copied, "
         << summary.attachmentsMissing.size() << " not on " << thisMachine
         << "\n  hash mismatches: " << summary.hashMismatches
         << "\n  previews:       " << summary.previewsMade << "\n";
    reportRecord(outcome);
}

int CommandLineExport::runPages(const ExportJob& job, const fs::path& folder,
                                const ExportPipeline::Context& context) {
    // A PDF goes into the new folder beside its certificate; page images are the folder.
    const bool pdf = job.format == RangeExportFormat::pdf;
    const fs::path destination = pdf ? folder / (Exporter::fileStem(job.title) + ".pdf") : folder;
    const auto outcome = ExportPipeline::run(job, destination, context, cancel_, phasesTo(err_),
                                             pdf ? std::optional<fs::path>(folder) : std::nullopt);
    if (!outcome.filesKept()) return fail(outcome.message);
    out_ << "Done.\n  " << (pdf ? "pdf:            " : "pages:          ") << destination.string()
         << "\n  messages:       " << job.messageCount()
         << "\n  pages:          " << outcome.pages->pages << "\n";
    if (outcome.pages->batesFirst)
        out_ << "  Bates:          " << *outcome.pages->batesFirst << " \u2013 "
             << *outcome.pages->batesLast << "\n";
    reportRecord(outcome);
    return outcome.status == ExportOutcome::Status::saved ? 0 : 1;
}

int CommandLineExport::snapshot() {
    if (!valuesGiven()) return 2;
    std::optional<std::vector<int64_t>> ids;
    if (const auto list = arguments_.value("--chats")) {
        ids = chatIDs(*list);
        if (!ids) return 2;
    }
    const std::string scope =
        ids ? arguments_.value("--scope").value_or("Selected conversations") : "All conversations";
    try {
        const auto database = DatabaseChoice::from(arguments_).open();
        const TakenSnapshot taken = takeSnapshot(*database, ids, scope, &cancel_, phasesTo(err_));
        const SnapshotInfo& info = taken.info;
        out_ << "Done. Everything stored at " << Preservation::folder(info).string()
             << "\n  attachments: " << info.attachmentsCopied << " copied, "
             << info.attachmentsMissing << " not on " << thisMachine << ", "
             << info.attachmentsFailed << " failed\n  chat.db SHA-256: " << info.databaseSHA256
             << "\n";
        for (const auto& failure : Preservation::failedAttachments(info))
            out_ << "  could not be read: " << failure.path << ": " << failure.error << "\n";
        if (taken.custodyFailure) return fail(taken.statusLine());
        return 0;
    } catch (const std::exception&) {
        return fail(snapshotNotTakenLine(std::current_exception()));
    }
}

int CommandLineExport::verifySnapshots() {
    bool intact = true;
    try {
        if (arguments_.contains("--demo")) DatabaseChoice::from(arguments_);
        const auto snapshots = Preservation::list();
        const auto damaged = Preservation::unreadable();
        if (snapshots.empty() && damaged.empty())
            out_ << "No snapshots in " << Preservation::root().string() << "\n";
        for (const auto& snapshot : snapshots) {
            try {
                const auto verification = Preservation::verify(snapshot, &cancel_);
                intact = intact && verification.isIntact();
                out_ << Preservation::describe(verification, snapshot) << "\n";
                for (const auto& finding : Preservation::findings(verification))
                    out_ << "  " << finding << "\n";
            } catch (const std::exception& e) {
                intact = false;
                out_ << Preservation::folder(snapshot).filename().string() << ": error " << e.what()
                     << "\n";
            }
        }
        for (const auto& problem : damaged) {
            intact = false;
            out_ << "WARNING: " << problem << "\n";
        }
        intact = CommandLineImport::verifyImports(out_, cancel_) && intact;
        const auto chain = CustodyLog::verify();
        out_ << "custody log: " << chain.records << " records, chain "
             << (chain.isIntact() ? std::string("intact")
                                  : "BROKEN at record " + std::to_string(*chain.firstBroken + 1))
             << "\n";
        return intact && chain.isIntact() ? 0 : 1;
    } catch (const std::exception& e) {
        return fail(e.what());
    }
}

}  // namespace bc::cli
