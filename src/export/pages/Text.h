#pragma once

#include <pango/pangocairo.h>

#include <memory>
#include <string_view>
#include <vector>

namespace bc::pages {

struct Colour {
    double red = 0, green = 0, blue = 0;
};

struct TextStyle {
    enum class Family { sans, mono };
    Family family = Family::sans;
    double size = 9.5;  // points
    bool bold = false;
    bool italic = false;
    PangoAlignment alignment = PANGO_ALIGN_LEFT;
    Colour colour;
};

// Colour glyphs rendered once per document at high resolution. A PDF surface would embed them
// at 72 pixels per inch; painting one cached image per glyph keeps them crisp in print and lets
// the PDF hold each distinct glyph once.
class ColourGlyphs {
public:
    ColourGlyphs();
    ~ColourGlyphs();
    ColourGlyphs(const ColourGlyphs&) = delete;
    ColourGlyphs& operator=(const ColourGlyphs&) = delete;
    void draw(cairo_t* cr, const char* text, PangoGlyphItem* run, double x, double baseline);

private:
    struct Cache;
    std::unique_ptr<Cache> cache_;
};

// Where drawing goes. Without colourGlyphs (page images) colour glyphs are drawn directly.
struct Canvas {
    cairo_t* cr = nullptr;
    ColourGlyphs* colourGlyphs = nullptr;
    bool isPDF = false;
};

// One laid-out paragraph, measured in points and drawn line by line so that it can break
// across pages. Every target shares the same metrics (no hinting), so the page count of a PDF
// and of page images agree.
class TextBlock {
public:
    TextBlock(PangoContext* context, std::string_view text, const TextStyle& style, double width,
              std::string_view boldPrefix = {});
    ~TextBlock();
    TextBlock(const TextBlock&) = delete;
    TextBlock& operator=(const TextBlock&) = delete;

    size_t lineCount() const { return lines_.size(); }
    double lineHeight(size_t line) const { return lines_[line].bottom - lines_[line].top; }
    double height() const { return lines_.empty() ? 0 : lines_.back().bottom; }

    // Draws lines [first, end) with line `first`'s top at `top`.
    void drawLines(const Canvas& canvas, double x, double top, size_t first, size_t end) const;

private:
    struct Line {
        double top = 0, bottom = 0, baseline = 0;
    };
    PangoLayout* layout_ = nullptr;
    Colour colour_;
    std::vector<Line> lines_;
};

// Pango measures a paragraph in 32-bit units and gives up on one that is too long to fit them.
// Long texts are laid out in pieces of at most `maxBytes`, cut at a line end, else after a
// blank, else between characters (never inside a character or before a combining one).
std::vector<std::string_view> layoutChunks(std::string_view text, size_t maxBytes = 16'000);

// A PangoContext with fixed, hinting-free font options, shared by measuring and drawing.
class TextContext {
public:
    TextContext();
    ~TextContext();
    TextContext(const TextContext&) = delete;
    TextContext& operator=(const TextContext&) = delete;
    PangoContext* get() const { return context_; }

private:
    PangoContext* context_ = nullptr;
};

}  // namespace bc::pages
