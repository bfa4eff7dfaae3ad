#include "export/ExportPeriod.h"

#include "support/DateFormat.h"

namespace bc {

namespace {

// File names keep Western digits and the Gregorian calendar whatever the user's locale.
std::string fileDate(Date date, std::string_view pattern) {
    return dates::formatPattern(date, pattern, "en_US_POSIX");
}

void describe(ExportPeriod& period, ExportPeriod::Kind kind) {
    using Kind = ExportPeriod::Kind;
    switch (kind) {
        case Kind::day:
            period.label = dates::formatStyled(period.from, dates::Style::full, dates::Style::none);
            period.fileLabel = fileDate(period.from, "yyyy-MM-dd");
            break;
        case Kind::week:
            period.label = "Week of " + dates::formatStyled(period.from, dates::Style::abbreviated,
                                                            dates::Style::none);
            period.fileLabel =
                fileDate(period.from, "yyyy-MM-dd") + " to " + fileDate(period.to, "yyyy-MM-dd");
            break;
        case Kind::month:
            period.label = dates::formatPattern(period.from, "LLLL yyyy");
            period.fileLabel = fileDate(period.from, "yyyy-MM");
            break;
        case Kind::year:
            period.label = dates::formatPattern(period.from, "yyyy");
            period.fileLabel = fileDate(period.from, "yyyy");
            break;
    }
}

}  // namespace

ExportPeriod ExportPeriod::containing(Date date, Kind kind) {
    Calendar calendar;
    ExportPeriod period;
    period.from = calendar.start(kind, date);
    // The interval's last instant lies just before the next one starts.
    period.to = calendar.startOfDay(calendar.end(kind, date) - 0.001);
    describe(period, kind);
    return period;
}

}  // namespace bc
