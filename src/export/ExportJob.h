#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "custody/CustodyLog.h"
#include "custody/Preservation.h"
#include "export/HTMLExporter.h"
#include "export/ManifestCsv.h"
#include "export/PageExporter.h"
#include "model/CustodyRecord.h"
#include "model/Message.h"
#include "support/CancelFlag.h"
#include "support/Date.h"

namespace bc {

class MessageSource;

// The formats an export of a range of days can take.
enum class RangeExportFormat { pdf, jpg, html, csv };

namespace rangeExportFormat {
inline constexpr std::array<RangeExportFormat, 4> allCases{
    RangeExportFormat::pdf, RangeExportFormat::jpg, RangeExportFormat::html,
    RangeExportFormat::csv};
std::string_view rawValue(RangeExportFormat format);
std::optional<RangeExportFormat> named(std::string_view raw);
// The label pickers show.
std::string_view shortName(RangeExportFormat format);
// jpg and html make a new folder; pdf and csv a file.
bool makesFolder(RangeExportFormat format);
// "pdf" or "csv"; empty for folder formats.
std::string_view fileExtension(RangeExportFormat format);
}  // namespace rangeExportFormat

// Paper and resolution of page exports, as the user last chose them.
struct ExportSettings {
    static constexpr double standardDPI = 144;
    static constexpr double printDPI = 300;

    PageExporter::Paper paper = PageExporter::Paper::letter;
    double dpi = 216;  // on purpose neither preset: the user never chose one

    // JSON with the keys "paper" and "dpi"; anything undecodable gives the defaults.
    std::string encoded() const;
    static ExportSettings decoded(std::string_view json);

    bool operator==(const ExportSettings&) const = default;
};

// What the user reads from. Exports made while a snapshot is open read the snapshot.
struct SourceChoice {
    enum class Kind { messagesLive, whatsAppMac, snapshot, whatsAppImport };
    Kind kind = Kind::messagesLive;
    std::optional<SnapshotInfo> snapshot;  // set for Kind::snapshot

    // The snapshot the custody source names, when reading one.
    std::optional<SealedSnapshot> sealedSnapshot() const;
};

// What the export sheet edits before a job exists.
struct ExportRequest {
    struct Source {
        Chat chat;
        bool included = true;
    };

    std::string id;
    RangeExportFormat format = RangeExportFormat::html;
    ExportSettings settings;
    std::string title;
    std::vector<Source> sources;
    Date earliest, latest;  // first and last message of all sources
    Date from, to;          // inclusive of whole days
    std::optional<std::string> fileLabel;

    std::vector<int64_t> chatIDs() const;
    bool isEntireRange() const;
    // The title as a file name (Exporter::fileStem) + " – " + the range part: the period's file
    // label, "all messages" or the dates.
    std::string baseName() const;
    // "Entire conversation", or the two days in the long style + " (inclusive)".
    std::string rangeDescription() const;
};

// A fully specified export: the rows to render and everything its custody record names.
struct ExportJob {
    RangeExportFormat format = RangeExportFormat::html;
    ExportSettings settings;
    std::string title;
    std::vector<std::string> participants;
    std::vector<int64_t> chatIDs;
    std::string rangeDescription;
    std::vector<Message> messages;  // in date order, calls merged in
    // The rest of the transcript: its messages outside the range, which reply links may name.
    Transcript transcript;
    std::optional<Date> from, to;  // absent when the whole conversation is exported
    std::vector<ReactionEvent> reactionEvents;
    PageExporter::Options pageOptions;
    std::map<std::string, std::string> recordOptions;
    bool includeCertificatePage = true;
    std::string action = "export";
    bool singleConversation = true;
    Date renderedAt;
    std::string sourceDescription;

    // A range export of the request's chats from a transcript with calls already merged in.
    static ExportJob make(const ExportRequest& request, Transcript transcript,
                          std::vector<std::string> participants, std::string sourceDescription);

    int64_t messageCount() const;     // rows that are not calls
    int64_t attachmentCount() const;  // visible attachments of the rows
    // The message count + " messages", and " and " + n + " calls" when there are calls.
    std::string countText() const;
};

// The finished files of one export, or why there are none.
struct ExportOutcome {
    enum class Status { saved, savedNotLogged, nothingToExport, cancelled, failed };

    Status status = Status::failed;
    std::string message;                          // the status line
    std::vector<std::filesystem::path> products;  // the file or folder, plus CSV side files
    std::optional<CustodyRecord> record;          // as appended to the custody log
    std::optional<std::filesystem::path> certificate;
    std::optional<HTMLExporter::Summary> html;  // paths inside the final folder
    std::optional<PageExporter::Result> pages;

    bool filesKept() const { return status == Status::saved || status == Status::savedNotLogged; }
};

// The one export pipeline: source -> render -> hash -> custody record -> certificate. Everything
// is written whole or removed again; a failure to log keeps the files and says so.
class ExportPipeline {
public:
    struct Context {
        const MessageSource& source;
        std::optional<SealedSnapshot> snapshot;
        manifest::NameFor nameFor;
        manifest::MachineText machineText;
    };

    // `destination` must not exist: the file (pdf, csv) or folder (jpg, html) to create. With
    // `newFolder`, the destination and its certificate go into that folder, made by the run.
    static ExportOutcome run(const ExportJob& job, const std::filesystem::path& destination,
                             const Context& context, const CancelFlag& cancel,
                             const ProgressFn& progress,
                             const std::optional<std::filesystem::path>& newFolder = {});
};

// The first of base.ext, "base 2.ext", "base 3.ext", … that does not exist (no extension: folders).
std::filesystem::path uniqueURL(const std::filesystem::path& base, std::string_view ext);

// Where an export goes inside `folder` without asking: the proposed name, made unique.
std::filesystem::path destinationIn(const std::filesystem::path& folder, RangeExportFormat format,
                                    const std::string& baseName);

}  // namespace bc
