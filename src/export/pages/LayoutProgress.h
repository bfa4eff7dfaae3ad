#pragma once

#include <cstddef>
#include <string>

#include "support/CancelFlag.h"

namespace bc::pages {

// A count in the locale's grouping ("2,600").
std::string grouped(size_t count);

// Tells how far page layout has come: "Laying out pages… 1,200 of about 2,600". The total is
// estimated from the share of rows placed so far, so no second layout pass is needed; it never
// falls below the pages already laid out.
class LayoutProgress {
public:
    static constexpr const char* starting = "Laying out pages…";

    LayoutProgress(ProgressFn progress, size_t rowCount);

    // `pagesFilled` pages are full and row `rowsPlaced` has started the next one.
    void pagesFilled(size_t pagesFilled, size_t rowsPlaced) const;

    static size_t estimatedTotal(size_t pagesFilled, size_t rowsPlaced, size_t rowCount);

private:
    ProgressFn progress_;
    size_t rowCount_;
};

}  // namespace bc::pages
