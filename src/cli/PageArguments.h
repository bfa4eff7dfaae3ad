#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "cli/Arguments.h"
#include "export/Exhibit.h"
#include "export/ExportJob.h"

namespace bc::cli {

// What the command line says about pages: paper, resolution, Bates numbers, and for an exhibit
// its context, redaction, notes and certificate.
struct PageArguments {
    ExportSettings settings;
    std::string batesPrefix;
    std::optional<int64_t> batesStart;  // unset: the number after the last one used
    int batesDigits = 6;
    bool isExhibit = false;
    ExhibitRequest request;

    // Nothing, with the error printed, when a value is malformed.
    static std::optional<PageArguments> parse(const Arguments& arguments, std::ostream& err);

    // A page export of `whole` with these options, or the exhibit of its flagged messages.
    ExportJob apply(ExportJob whole) const;

private:
    int64_t firstBatesNumber() const;
};

}  // namespace bc::cli
