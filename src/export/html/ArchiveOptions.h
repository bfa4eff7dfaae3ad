#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/Date.h"

namespace bc::html {

// What an archive is of, as its page and certificate say.
struct ArchiveOptions {
    std::string title;
    std::vector<std::string> participants;
    std::optional<Date> from, to;  // absent: the whole conversation
    std::string sourceDescription;
    std::optional<std::string> callLogIssue;  // why calls could not be merged in
};

}  // namespace bc::html
