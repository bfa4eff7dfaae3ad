#pragma once

#include <string>

#include "support/Calendar.h"
#include "support/Date.h"

namespace bc {

// A closed run of whole days chosen from the timeline, with its texts for people and file names.
struct ExportPeriod {
    using Kind = Calendar::Unit;

    Date from;  // start of the first day
    Date to;    // start of the last day; the whole of that day is included
    std::string label;
    std::string fileLabel;

    // The day, week, month or year of the machine's calendar that holds `date`.
    static ExportPeriod containing(Date date, Kind kind);

    bool operator==(const ExportPeriod&) const = default;
};

}  // namespace bc
