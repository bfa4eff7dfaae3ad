#include "export/pages/Document.h"

#include <string>

#include "export/pages/LayoutProgress.h"

namespace bc::pages {

namespace {

using M = PageExporter;

constexpr double ruleGap = 6;  // between the header or footer rule and the rows
constexpr double rowSpacing = 7;
constexpr double rowInset = 6;  // room for the flag bar left of the rows
constexpr Colour frameColour{0.3, 0.3, 0.3};
constexpr Colour flagBar{0.85, 0.45, 0.0};

const TextStyle titleStyle{.size = 13, .bold = true};
const TextStyle exhibitStyle{.size = 11, .bold = true, .alignment = PANGO_ALIGN_RIGHT};
const TextStyle subtitleStyle{.size = 8.5, .colour = frameColour};
const TextStyle footerStyle{.size = 7, .colour = frameColour};
const TextStyle batesStyle{.size = 9, .bold = true, .alignment = PANGO_ALIGN_RIGHT};

double printableWidth(const M::Size& page) {
    return page.width - 2 * M::margin;
}

std::string joined(const std::vector<std::string>& parts, const char* separator) {
    std::string text;
    for (const auto& part : parts) text += (text.empty() ? "" : separator) + part;
    return text;
}

void drawRule(cairo_t* cr, double x, double y, double width) {
    cairo_set_source_rgb(cr, 0.6, 0.6, 0.6);
    cairo_set_line_width(cr, 0.5);
    cairo_move_to(cr, x, y);
    cairo_line_to(cr, x + width, y);
    cairo_stroke(cr);
}

void drawWhole(const Canvas& canvas, const TextBlock& block, double x, double y) {
    block.drawLines(canvas, x, y, 0, block.lineCount());
}

}  // namespace

Document::Document(DocumentContent content, const CancelFlag& cancel, const ProgressFn& progress)
    : content_(std::move(content)),
      thumbnails_(),
      measurer_(text_, {content_.messages, content_.originals, content_.options, content_.nameFor},
                thumbnails_, printableWidth(content_.pageSize) - rowInset),
      rows_(buildRows(content_.messages, content_.options)) {
    const double width = printableWidth(content_.pageSize);
    const auto& header = content_.header;
    if (content_.options.exhibitLabel)
        header_.push_back(std::make_unique<TextBlock>(text_.get(), *content_.options.exhibitLabel,
                                                      exhibitStyle, width));
    header_.push_back(std::make_unique<TextBlock>(text_.get(), header.title, titleStyle, width));
    header_.push_back(std::make_unique<TextBlock>(
        text_.get(), "Me and " + joined(header.participants, ", "), subtitleStyle, width));
    header_.push_back(
        std::make_unique<TextBlock>(text_.get(), header.rangeDescription, subtitleStyle, width));
    for (const auto& block : header_) headerHeight_ += block->height();

    // Room for the longest page numbers there can be, so the total is not needed yet.
    footerHeight_ = footerBlock(footerText(9'999'998, 9'999'999))->height();
    if (bates(0)) footerHeight_ += TextBlock(text_.get(), "0", batesStyle, width).height();

    const double top = M::margin + headerHeight_ + ruleGap;
    const double bottom = content_.pageSize.height - M::margin - footerHeight_ - ruleGap;
    Paginator paginator(top, bottom, rowSpacing);
    const LayoutProgress layoutProgress(progress, rows_.size());
    std::optional<MeasuredRow> next;
    for (size_t i = 0; i < rows_.size(); ++i) {
        if (i % 64 == 0) cancel.check();
        const MeasuredRow row = next ? std::move(*next) : measurer_.measure(rows_[i]);
        next.reset();
        double keepWithNext = 0;
        if (rows_[i].kind == Row::Kind::day && i + 1 < rows_.size()) {
            next.emplace(measurer_.measure(rows_[i + 1]));
            const auto heights = next->unitHeights();
            if (!heights.empty()) keepWithNext = heights.front();
        }
        const size_t pagesBefore = paginator.pageCount();
        paginator.add(i, row.unitHeights(), row.startsPage, keepWithNext);
        if (paginator.pageCount() > pagesBefore)
            layoutProgress.pagesFilled(paginator.pageCount() - 1, i);
    }
    pages_ = paginator.finish();
}

std::optional<std::string> Document::bates(size_t page) const {
    const auto& prefix = content_.options.batesPrefix;
    if (!prefix || prefix->empty()) return std::nullopt;
    return M::batesNumber(*prefix, content_.options.batesStart, content_.options.batesDigits,
                          static_cast<int>(page));
}

std::string Document::footerText(size_t page, size_t pageCount) const {
    std::string text = "Rendered from " + content_.sourceLabel + " on " +
                       exactTimeFormatter().format(content_.renderedAt) +
                       ". “#” = message record ID.";
    if (content_.options.redactor.isActive()) text += " Contains redactions (█).";
    return text + " Page " + std::to_string(page + 1) + " of " + std::to_string(pageCount) + ".";
}

std::unique_ptr<TextBlock> Document::footerBlock(const std::string& text) const {
    return std::make_unique<TextBlock>(text_.get(), text, footerStyle,
                                       printableWidth(content_.pageSize));
}

void Document::drawHeader(const Canvas& canvas) const {
    double y = M::margin;
    for (const auto& block : header_) {
        drawWhole(canvas, *block, M::margin, y);
        y += block->height();
    }
    drawRule(canvas.cr, M::margin, y + ruleGap / 2, printableWidth(content_.pageSize));
}

void Document::drawFooter(const Canvas& canvas, size_t page) const {
    const double width = printableWidth(content_.pageSize);
    double y = content_.pageSize.height - M::margin - footerHeight_;
    drawRule(canvas.cr, M::margin, y - ruleGap / 2, width);
    const auto footer = footerBlock(footerText(page, pages_.size()));
    drawWhole(canvas, *footer, M::margin, y);
    if (const auto number = bates(page)) {
        y += footer->height();
        drawWhole(canvas, TextBlock(text_.get(), *number, batesStyle, width), M::margin, y);
    }
}

const MeasuredRow& Document::measured(size_t row) {
    if (!lastMeasured_ || lastMeasured_->first != row)
        lastMeasured_.emplace(row, measurer_.measure(rows_[row]));
    return lastMeasured_->second;
}

void Document::drawPage(const Canvas& canvas, size_t page) {
    cairo_t* cr = canvas.cr;
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
    drawHeader(canvas);
    for (const Placement& placement : pages_.at(page)) {
        const MeasuredRow& row = measured(placement.row);
        if (row.highlighted) {
            cairo_set_source_rgb(cr, flagBar.red, flagBar.green, flagBar.blue);
            cairo_rectangle(cr, M::margin, placement.y, 2.5, placement.height);
            cairo_fill(cr);
        }
        row.draw(canvas, thumbnails_, M::margin + rowInset, placement.y, placement.firstUnit,
                 placement.endUnit);
    }
    drawFooter(canvas, page);
}

}  // namespace bc::pages
