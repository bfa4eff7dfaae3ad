#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "export/ManifestCsv.h"
#include "export/html/ArchiveOptions.h"
#include "model/Message.h"
#include "support/CancelFlag.h"
#include "support/Date.h"

namespace bc {

// Turns one transcript into a folder a browser opens offline and that proves its own
// integrity: the page, verified copies of every attachment, previews for formats browsers
// can't show, the CSV manifests and checksums.txt.
class HTMLExporter {
public:
    using Options = html::ArchiveOptions;

    struct Summary {
        std::filesystem::path folder;
        std::filesystem::path htmlURL;
        int64_t messages = 0;
        int64_t attachmentsCopied = 0;
        std::vector<std::string> attachmentsMissing;
        std::vector<std::string> attachmentsFailed;
        int64_t hashMismatches = 0;
        int64_t previewsMade = 0;
    };

    // `context` (the whole transcript, for reply targets outside the rows) is only viewed: it
    // must outlive the exporter. A long conversation is never copied for an export.
    HTMLExporter(Options options, manifest::NameFor nameFor, std::span<const Message> context,
                 manifest::MachineText machineText);

    // Builds the archive in `folder` (created with its parents). Throws Error on a write
    // failure and CancelledError when cancelled; a missing or unreadable attachment does not
    // stop it (it is marked in the page and in attachments.csv).
    Summary exportTranscript(const Transcript& transcript, const std::filesystem::path& folder,
                             const CancelFlag& cancel, const ProgressFn& progress) const;
    // The same for rows and reactions held elsewhere.
    Summary exportRows(std::span<const Message> messages, std::span<const ReactionEvent> reactions,
                       const std::filesystem::path& folder, const CancelFlag& cancel,
                       const ProgressFn& progress) const;

    // [from, start of the day after `to`) in the current time zone; absent bounds are open.
    static bool inRange(Date date, const std::optional<Date>& from, const std::optional<Date>& to);

    // checksums.txt for every file under `folder` except itself; `known` holds hashes already
    // computed for files written in this run (relative path -> hash).
    static std::string checksums(const std::filesystem::path& folder,
                                 const std::vector<std::pair<std::string, std::string>>& known,
                                 const CancelFlag& cancel);

private:
    Options options_;
    manifest::NameFor nameFor_;
    std::span<const Message> context_;
    manifest::MachineText machineText_;
};

}  // namespace bc
