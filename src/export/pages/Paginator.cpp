#include "export/pages/Paginator.h"

#include <numeric>

namespace bc::pages {

Paginator::Paginator(double top, double bottom, double rowSpacing)
    : top_(top), bottom_(bottom), spacing_(rowSpacing), cursor_(top), pages_(1) {}

void Paginator::newPage() {
    pages_.emplace_back();
    cursor_ = top_;
}

void Paginator::place(size_t row, size_t first, size_t end, double height) {
    pages_.back().push_back({row, first, end, cursor_, height});
    cursor_ += height;
}

void Paginator::add(size_t row, const std::vector<double>& unitHeights, bool startsPage,
                    double keepWithNext) {
    const bool pageIsEmpty = pages_.back().empty();
    if (startsPage && !pageIsEmpty) newPage();
    if (!pages_.back().empty()) cursor_ += spacing_;

    const double total = std::accumulate(unitHeights.begin(), unitHeights.end(), 0.0);
    const double withNext = total + (keepWithNext > 0 ? spacing_ + keepWithNext : 0);
    if (cursor_ + withNext <= bottom_) return place(row, 0, unitHeights.size(), total);
    if (total <= bottom_ - top_) {
        newPage();
        return place(row, 0, unitHeights.size(), total);
    }
    // Taller than a page: fill this page and continue on the next ones.
    size_t first = 0;
    double height = 0;
    for (size_t unit = 0; unit < unitHeights.size(); ++unit) {
        if (cursor_ + height + unitHeights[unit] > bottom_ && (unit > first || cursor_ > top_)) {
            if (unit > first) place(row, first, unit, height);
            newPage();
            first = unit;
            height = 0;
        }
        height += unitHeights[unit];
    }
    place(row, first, unitHeights.size(), height);
}

std::vector<Page> Paginator::finish() {
    return std::move(pages_);
}

}  // namespace bc::pages
