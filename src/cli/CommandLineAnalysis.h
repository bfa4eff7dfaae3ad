#pragma once

#include <ostream>

#include "cli/Arguments.h"
#include "support/CancelFlag.h"

namespace bc::cli {

// "--analyze --chats IDS": reads the text in the pending photos and voice messages of those
// conversations on this computer, printing progress lines and then what was read. Exit status 0
// when the run finished, 1 when it failed or was interrupted, 2 for a usage error.
class CommandLineAnalysis {
public:
    CommandLineAnalysis(Arguments arguments, std::ostream& out, std::ostream& err,
                        const CancelFlag& cancel)
        : arguments_(std::move(arguments)), out_(out), err_(err), cancel_(cancel) {}

    int run();

private:
    Arguments arguments_;
    std::ostream& out_;
    std::ostream& err_;
    const CancelFlag& cancel_;
};

}  // namespace bc::cli
