#pragma once

#include <cstddef>
#include <vector>

namespace bc::pages {

// Part of one row placed on one page: units [firstUnit, endUnit) with the first one's top at y.
struct Placement {
    size_t row = 0;
    size_t firstUnit = 0;
    size_t endUnit = 0;
    double y = 0;
    double height = 0;
};

using Page = std::vector<Placement>;

// Places rows top to bottom. A row is a list of unit heights (text lines, images): it moves to
// the next page whole when it does not fit in what is left, and only a row taller than a page
// is broken between units.
class Paginator {
public:
    Paginator(double top, double bottom, double rowSpacing);

    // `keepWithNext`: the height of the next row's first unit, which must fit on the same page
    // (a heading never ends a page).
    void add(size_t row, const std::vector<double>& unitHeights, bool startsPage = false,
             double keepWithNext = 0);
    // Pages begun so far, the one being filled included.
    size_t pageCount() const { return pages_.size(); }
    std::vector<Page> finish();

private:
    void newPage();
    void place(size_t row, size_t first, size_t end, double height);

    double top_, bottom_, spacing_;
    double cursor_;
    std::vector<Page> pages_;
};

}  // namespace bc::pages
