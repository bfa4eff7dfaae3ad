#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "export/PageExporter.h"
#include "export/pages/Paginator.h"
#include "export/pages/RowLayout.h"
#include "export/pages/Rows.h"
#include "export/pages/Text.h"
#include "export/pages/Thumbnails.h"

namespace bc::pages {

struct DocumentContent {
    const std::vector<Message>& messages;  // already redacted when redaction is on
    const std::unordered_map<std::string, Message>& originals;
    const PageExporter::Header& header;
    const PageExporter::Options& options;
    const PageExporter::NameFn& nameFor;
    PageExporter::Size pageSize;
    std::string sourceLabel;
    Date renderedAt;
};

// The laid-out pages of one export. Construction measures every row (checking `cancel` and
// reporting each page filled as it goes) so that the page count is known; drawPage measures the
// rows of one page again, which keeps memory flat however long the conversation.
class Document {
public:
    Document(DocumentContent content, const CancelFlag& cancel, const ProgressFn& progress);

    size_t pageCount() const { return pages_.size(); }
    // The Bates number of a page, when numbering is on.
    std::optional<std::string> bates(size_t page) const;
    // Draws onto a canvas measured in points, white background included.
    void drawPage(const Canvas& canvas, size_t page);

private:
    void drawHeader(const Canvas& canvas) const;
    void drawFooter(const Canvas& canvas, size_t page) const;
    std::string footerText(size_t page, size_t pageCount) const;
    std::unique_ptr<TextBlock> footerBlock(const std::string& text) const;
    const MeasuredRow& measured(size_t row);

    DocumentContent content_;
    TextContext text_;
    Thumbnails thumbnails_;
    RowMeasurer measurer_;
    std::vector<Row> rows_;
    std::vector<std::unique_ptr<TextBlock>> header_;
    double headerHeight_ = 0;
    double footerHeight_ = 0;
    std::vector<Page> pages_;
    // A row that runs over several pages is measured once for all of them.
    std::optional<std::pair<size_t, MeasuredRow>> lastMeasured_;
};

}  // namespace bc::pages
