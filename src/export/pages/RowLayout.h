#pragma once

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "export/PageExporter.h"
#include "export/pages/Rows.h"
#include "export/pages/Text.h"
#include "export/pages/Thumbnails.h"
#include "support/Calendar.h"

namespace bc::pages {

// One vertical piece of a row: a paragraph (breakable between lines) or a photo preview.
struct Block {
    double indent = 0;
    double spaceBefore = 0;
    std::unique_ptr<TextBlock> text;
    const Attachment* photo = nullptr;
    Thumbnails::Size photoSize;

    size_t unitCount() const { return text ? text->lineCount() : 1; }
};

// A row measured at the printable width. Units are its text lines and photos, top to bottom.
struct MeasuredRow {
    std::vector<Block> blocks;
    bool highlighted = false;
    bool startsPage = false;

    std::vector<double> unitHeights() const;
    // Draws units [first, end) with the first one's top at y.
    void draw(const Canvas& canvas, Thumbnails& thumbnails, double x, double y, size_t first,
              size_t end) const;
};

// What every row's measurement reads.
struct RowSources {
    const std::vector<Message>& messages;
    const std::unordered_map<std::string, Message>& originals;
    const PageExporter::Options& options;
    const PageExporter::NameFn& nameFor;
};

class RowMeasurer {
public:
    RowMeasurer(const TextContext& context, RowSources sources, Thumbnails& thumbnails,
                double width);

    MeasuredRow measure(const Row& row) const;

private:
    void addText(MeasuredRow& row, std::string_view text, const TextStyle& style,
                 double spaceBefore = 2, std::string_view boldPrefix = {}) const;
    void addMessage(MeasuredRow& out, const Row& row) const;
    void addAttachment(MeasuredRow& out, const Attachment& attachment) const;
    void addClosingLines(MeasuredRow& out, const Message& message) const;
    void addEditHistory(MeasuredRow& out, const Message& message) const;
    std::string senderName(const Message& message) const;
    std::string replyLine(const std::string& targetGUID) const;

    const TextContext& context_;
    RowSources sources_;
    Thumbnails& thumbnails_;
    double width_;
    PatternFormatter timeFormat_;
};

// "yyyy-MM-dd HH:mm:ss zzz" in en_US_POSIX, the current time zone: how every time is printed.
PatternFormatter exactTimeFormatter();

}  // namespace bc::pages
