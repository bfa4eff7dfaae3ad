#pragma once

#include <filesystem>
#include <istream>
#include <optional>
#include <ostream>
#include <string>

#include "cli/Arguments.h"
#include "support/CancelFlag.h"

namespace bc::cli {

// The deliverables for counsel without the window: the draft statement and the encrypted
// bundle. Statuses as for exports: 0 done, 1 a failure, 2 wrong arguments and nothing touched.
class CounselCommands {
public:
    static constexpr const char* statementUsage =
        "usage: brindlecourt --statement --chats 1,123 --out <file.docx> [--source <snapshot "
        "folder or database file>]";
    static constexpr const char* bundleUsage =
        "usage: brindlecourt --bundle --title \"Title\" --out <file.zip> <item>... (the password "
        "is read from standard input)";

    CounselCommands(Arguments arguments, std::istream& in, std::ostream& out, std::ostream& err,
                    const CancelFlag& cancel)
        : arguments_(std::move(arguments)), in_(in), out_(out), err_(err), cancel_(cancel) {}

    int statement();
    int bundle();

private:
    // One line; from a terminal it is asked for twice without echo. Nothing (and the problem
    // printed) when it breaks the password rules.
    std::optional<std::string> password();

    // An existing file is never replaced; true (and the error printed) when there is one.
    bool refuseExisting(const std::filesystem::path& file);

    Arguments arguments_;
    std::istream& in_;
    std::ostream& out_;
    std::ostream& err_;
    const CancelFlag& cancel_;
};

}  // namespace bc::cli
