#pragma once

#include <ostream>

#include "cli/Arguments.h"
#include "evidence/Search.h"
#include "support/CancelFlag.h"

namespace bc::cli {

// "--search TEXT": one line per hit, then the count; with "--out" the hits exported as a document
// of their own, certificate and custody record included. Statuses as the other commands.
class CommandLineSearch {
public:
    CommandLineSearch(Arguments arguments, std::ostream& out, std::ostream& err,
                      const CancelFlag& cancel)
        : arguments_(std::move(arguments)), out_(out), err_(err), cancel_(cancel) {}

    int run();

private:
    // The query the arguments ask for; nothing (the error printed) when one is malformed.
    std::optional<std::pair<SearchQuery, std::vector<int64_t>>> query();

    Arguments arguments_;
    std::ostream& out_;
    std::ostream& err_;
    const CancelFlag& cancel_;
};

}  // namespace bc::cli
