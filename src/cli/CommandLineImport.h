#pragma once

#include <ostream>

#include "cli/Arguments.h"
#include "custody/Imports.h"
#include "support/CancelFlag.h"

namespace bc::cli {

// Sealed imports from the command line, and the list of every source the program can read.
// Statuses: 0 done, 1 a failure ("error: " on standard error), 2 wrong arguments.
class CommandLineImport {
public:
    CommandLineImport(Arguments arguments, std::ostream& out, std::ostream& err,
                      const CancelFlag& cancel)
        : arguments_(std::move(arguments)), out_(out), err_(err), cancel_(cancel) {}

    int importFile();
    int listSources();
    // One line per import, as --verify-snapshots prints them; false when one is not intact.
    static bool verifyImports(std::ostream& out, const CancelFlag& cancel);
    // 1 with a warning when the import was kept but its custody record could not be written.
    static int custodyStatus(const Imports::Imported& imported, std::ostream& err);

private:
    Arguments arguments_;
    std::ostream& out_;
    std::ostream& err_;
    const CancelFlag& cancel_;
};

}  // namespace bc::cli
