#include "export/pages/LayoutProgress.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include <unicode/locid.h>
#include <unicode/numfmt.h>
#include <unicode/unistr.h>

namespace bc::pages {

std::string grouped(size_t count) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::NumberFormat> format(
        icu::NumberFormat::createInstance(icu::Locale::getDefault(), status));
    if (U_FAILURE(status)) return std::to_string(count);
    icu::UnicodeString text;
    format->format(static_cast<int64_t>(count), text);
    std::string utf8;
    return text.toUTF8String(utf8);
}

LayoutProgress::LayoutProgress(ProgressFn progress, size_t rowCount)
    : progress_(std::move(progress)), rowCount_(rowCount) {}

size_t LayoutProgress::estimatedTotal(size_t pagesFilled, size_t rowsPlaced, size_t rowCount) {
    const double perRow = static_cast<double>(pagesFilled) / static_cast<double>(rowsPlaced);
    const auto projected = static_cast<size_t>(std::lround(perRow * static_cast<double>(rowCount)));
    // The page the next row opened is part of the total too.
    return std::max(projected, pagesFilled + 1);
}

void LayoutProgress::pagesFilled(size_t pagesFilled, size_t rowsPlaced) const {
    if (!progress_ || pagesFilled == 0 || rowsPlaced == 0) return;
    progress_(std::string(starting) + " " + grouped(pagesFilled) + " of about " +
              grouped(estimatedTotal(pagesFilled, rowsPlaced, rowCount_)));
}

}  // namespace bc::pages
