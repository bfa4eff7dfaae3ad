#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "cli/Arguments.h"
#include "export/ExportJob.h"

namespace bc::cli {

// Unattended exports, snapshots and their verification. Statuses: 0 done, 1 a failure
// ("error: " on standard error), 2 the arguments were wrong and nothing was touched.
class CommandLineExport {
public:
    static constexpr const char* usage =
        "usage: Brindlecourt --export-html --chats 1,123 --title \"Name\" --out <folder> "
        "[--from yyyy-mm-dd] [--to yyyy-mm-dd]";

    CommandLineExport(Arguments arguments, std::ostream& out, std::ostream& err,
                      const CancelFlag& cancel)
        : arguments_(std::move(arguments)), out_(out), err_(err), cancel_(cancel) {}

    int run();
    int snapshot();
    // Decimal ids joined by commas; nothing (and the error printed) when a piece is not one.
    std::optional<std::vector<int64_t>> chatIDs(const std::string& list);
    int verifySnapshots();
    // The job in its format into `folder`, which must not exist yet, and what was made.
    int publish(const ExportJob& job, const std::filesystem::path& folder,
                const ExportPipeline::Context& context);
    // Start of the named day in the current time zone; nothing (error printed) when malformed.
    std::optional<std::optional<Date>> day(const std::string& option);
    int fail(const std::string& description);

private:
    int runPages(const ExportJob& job, const std::filesystem::path& folder,
                 const ExportPipeline::Context& context);
    int runCsv(const ExportJob& job, const std::filesystem::path& folder,
               const ExportPipeline::Context& context);
    // False (and the error printed) when an option that takes a value ends the arguments.
    bool valuesGiven();
    void reportHTML(const ExportOutcome& outcome);
    void reportRecord(const ExportOutcome& outcome);

    Arguments arguments_;
    std::ostream& out_;
    std::ostream& err_;
    const CancelFlag& cancel_;
};

// Display names from the user's contacts, an iPhone backup's own first; never in demo mode,
// whose people are fictional.
manifest::NameFor namesFor(bool demo, const MessageSource& source);

// Progress of a long job on a terminal: its phases only, not every item.
ProgressFn phasesTo(std::ostream& stream);

}  // namespace bc::cli
