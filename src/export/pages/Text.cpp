#include "export/pages/Text.h"

#include <hb-ot.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>

#include "support/Text.h"

namespace bc::pages {

namespace {

double points(int pangoUnits) {
    return static_cast<double>(pangoUnits) / PANGO_SCALE;
}

// Colour glyphs are rendered at this many pixels per point: 360 pixels per inch.
constexpr double emojiPixelsPerPoint = 5;

const char* familyName(TextStyle::Family family) {
    return family == TextStyle::Family::mono ? "Noto Sans Mono, DejaVu Sans Mono, monospace"
                                             : "Noto Sans, sans-serif";
}

PangoFontDescription* fontFor(const TextStyle& style) {
    PangoFontDescription* font = pango_font_description_new();
    pango_font_description_set_family(font, familyName(style.family));
    pango_font_description_set_absolute_size(font, style.size * PANGO_SCALE);
    pango_font_description_set_weight(font, style.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
    pango_font_description_set_style(font, style.italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
    return font;
}

// Pango refuses invalid UTF-8 and stops at a NUL; both can come from a damaged database.
std::string printable(std::string_view text) {
    std::string out = text::isValidUtf8(text) ? std::string(text) : text::repairUtf8(text);
    for (size_t at = out.find('\0'); at != std::string::npos; at = out.find('\0', at))
        out.replace(at, 1, "\xEF\xBF\xBD");
    return out;
}

// Word wrapping searches a whole unbroken run for a word break on every line it fills, which
// grows with the square of the run's length; past this many bytes the text wraps at characters.
constexpr size_t longestWordWrappedRun = 2000;

bool hasLongUnbrokenRun(std::string_view text) {
    size_t run = 0;
    for (const char c : text) {
        run = (c == ' ' || c == '\n' || c == '\t') ? 0 : run + 1;
        if (run > longestWordWrappedRun) return true;
    }
    return false;
}

bool hasColourTables(PangoFont* font) {
    hb_face_t* face = hb_font_get_face(pango_font_get_hb_font(font));
    return hb_ot_color_has_png(face) || hb_ot_color_has_layers(face) || hb_ot_color_has_svg(face);
}

// Asked for every run drawn, so answered once per font. The fonts are held so that their
// addresses stay theirs.
bool isColourFont(PangoFont* font) {
    struct Known {
        std::map<PangoFont*, bool> fonts;
        ~Known() {
            for (auto& [held, colour] : fonts) g_object_unref(held);
        }
    };
    thread_local Known known;
    if (auto found = known.fonts.find(font); found != known.fonts.end()) return found->second;
    g_object_ref(font);
    return known.fonts[font] = hasColourTables(font);
}

bool hasMissingGlyph(const PangoGlyphString* glyphs) {
    for (int i = 0; i < glyphs->num_glyphs; ++i)
        if (glyphs->glyphs[i].glyph & PANGO_GLYPH_UNKNOWN_FLAG) return true;
    return false;
}

bool continuesCharacter(std::string_view text, size_t at) {
    if ((static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) return true;
    const gunichar c =
        g_utf8_get_char_validated(text.data() + at, static_cast<gssize>(text.size() - at));
    if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2)) return false;
    switch (g_unichar_break_type(c)) {
        case G_UNICODE_BREAK_COMBINING_MARK:
        case G_UNICODE_BREAK_ZERO_WIDTH_JOINER:
        case G_UNICODE_BREAK_EMOJI_MODIFIER:
            return true;
        default:
            return false;
    }
}

// Where this chunk ends and where the next begins (a line end cut at is dropped).
std::pair<size_t, size_t> cutWithin(std::string_view text, size_t limit) {
    const std::string_view window = text.substr(0, limit);
    if (const size_t newline = window.rfind('\n'); newline != std::string_view::npos && newline > 0)
        return {newline, newline + 1};
    if (const size_t blank = window.rfind(' '); blank != std::string_view::npos && blank > 0)
        return {blank + 1, blank + 1};
    size_t cut = limit;
    while (cut > 1 && continuesCharacter(text, cut)) --cut;
    return {cut, cut};
}

}  // namespace

// One glyph's image and where its ink starts relative to the glyph origin, in points.
struct GlyphImage {
    cairo_surface_t* surface = nullptr;
    double left = 0, top = 0;
};

struct ColourGlyphs::Cache {
    TextContext context;
    std::map<std::pair<PangoFont*, PangoGlyph>, GlyphImage> images;
    std::map<PangoFont*, PangoFont*> standIns;

    ~Cache() {
        for (auto& [key, image] : images) {
            cairo_surface_destroy(image.surface);
            g_object_unref(key.first);
        }
        for (auto& [font, standIn] : standIns) {
            g_object_unref(font);
            if (standIn != nullptr) g_object_unref(standIn);
        }
    }

    // The text face at the colour font's size: its invisible space carries the characters.
    PangoFont* standIn(PangoFont* font) {
        if (auto found = standIns.find(font); found != standIns.end()) return found->second;
        PangoFontDescription* description = pango_font_describe(font);
        pango_font_description_set_family(description, familyName(TextStyle::Family::sans));
        PangoFont* loaded = pango_context_load_font(context.get(), description);
        pango_font_description_free(description);
        g_object_ref(font);
        return standIns[font] = loaded;
    }

    // Images are not text: an invisible space glyph carrying the run's characters keeps colour
    // glyphs searchable and copyable in the PDF.
    void drawInvisibleText(cairo_t* cr, const char* text, PangoGlyphItem* run, double x,
                           double baseline) {
        PangoFont* font = standIn(run->item->analysis.font);
        hb_codepoint_t space = 0;
        if (font == nullptr ||
            !hb_font_get_nominal_glyph(pango_font_get_hb_font(font), ' ', &space))
            return;
        cairo_scaled_font_t* scaled = pango_cairo_font_get_scaled_font(PANGO_CAIRO_FONT(font));
        const cairo_glyph_t glyph{space, x, baseline};
        // Stretched to the run's width, so that readers see the words around it where they are.
        cairo_text_extents_t extents;
        cairo_scaled_font_glyph_extents(scaled, &glyph, 1, &extents);
        const double runWidth = points(pango_glyph_string_get_width(run->glyphs));
        if (extents.x_advance <= 0 || runWidth <= 0) return;
        cairo_matrix_t matrix;
        cairo_scaled_font_get_font_matrix(scaled, &matrix);
        cairo_matrix_scale(&matrix, runWidth / extents.x_advance, 1);
        cairo_save(cr);
        cairo_set_font_face(cr, cairo_scaled_font_get_font_face(scaled));
        cairo_set_font_matrix(cr, &matrix);
        const cairo_text_cluster_t cluster{run->item->length, 1};
        cairo_show_text_glyphs(cr, text + run->item->offset, run->item->length, &glyph, 1, &cluster,
                               1, cairo_text_cluster_flags_t(0));
        cairo_restore(cr);
    }

    const GlyphImage& get(PangoFont* font, PangoGlyph glyph) {
        const auto key = std::make_pair(font, glyph);
        if (auto found = images.find(key); found != images.end()) return found->second;
        g_object_ref(font);  // the key must not outlive the font it points to
        return images.emplace(key, render(font, glyph)).first->second;
    }

    static GlyphImage render(PangoFont* font, PangoGlyph glyph) {
        cairo_scaled_font_t* scaled = pango_cairo_font_get_scaled_font(PANGO_CAIRO_FONT(font));
        cairo_glyph_t cairoGlyph{glyph, 0, 0};
        cairo_text_extents_t ink;
        cairo_scaled_font_glyph_extents(scaled, &cairoGlyph, 1, &ink);
        const double pad = 1 / emojiPixelsPerPoint;
        GlyphImage image{.left = ink.x_bearing - pad, .top = ink.y_bearing - pad};
        const auto pixels = [](double size) {
            return std::max(1, static_cast<int>(std::ceil(size * emojiPixelsPerPoint)));
        };
        image.surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, pixels(ink.width + 2 * pad),
                                                   pixels(ink.height + 2 * pad));
        cairo_t* cr = cairo_create(image.surface);
        cairo_scale(cr, emojiPixelsPerPoint, emojiPixelsPerPoint);
        cairo_translate(cr, -image.left, -image.top);
        cairo_set_scaled_font(cr, scaled);
        cairo_show_glyphs(cr, &cairoGlyph, 1);
        cairo_destroy(cr);
        return image;
    }
};

ColourGlyphs::ColourGlyphs() : cache_(std::make_unique<Cache>()) {}
ColourGlyphs::~ColourGlyphs() = default;

void ColourGlyphs::draw(cairo_t* cr, const char* text, PangoGlyphItem* run, double x,
                        double baseline) {
    cache_->drawInvisibleText(cr, text, run, x, baseline);
    PangoFont* font = run->item->analysis.font;
    const PangoGlyphString* glyphs = run->glyphs;
    double advance = 0;
    for (int i = 0; i < glyphs->num_glyphs; ++i) {
        const PangoGlyphInfo& info = glyphs->glyphs[i];
        if (info.glyph != PANGO_GLYPH_EMPTY) {
            const GlyphImage& image = cache_->get(font, info.glyph);
            cairo_save(cr);
            cairo_translate(cr, x + advance + points(info.geometry.x_offset) + image.left,
                            baseline + points(info.geometry.y_offset) + image.top);
            cairo_scale(cr, 1 / emojiPixelsPerPoint, 1 / emojiPixelsPerPoint);
            cairo_set_source_surface(cr, image.surface, 0, 0);
            cairo_paint(cr);
            cairo_restore(cr);
        }
        advance += points(info.geometry.width);
    }
}

std::vector<std::string_view> layoutChunks(std::string_view text, size_t maxBytes) {
    std::vector<std::string_view> chunks;
    while (text.size() > maxBytes) {
        const auto [end, next] = cutWithin(text, maxBytes);
        chunks.push_back(text.substr(0, end));
        text.remove_prefix(next);
    }
    chunks.push_back(text);
    return chunks;
}

TextContext::TextContext() {
    context_ = pango_font_map_create_context(pango_cairo_font_map_get_default());
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    pango_cairo_context_set_font_options(context_, options);
    cairo_font_options_destroy(options);
    pango_cairo_context_set_resolution(context_, 72);
    pango_context_set_round_glyph_positions(context_, FALSE);
}

TextContext::~TextContext() {
    g_object_unref(context_);
}

TextBlock::TextBlock(PangoContext* context, std::string_view text, const TextStyle& style,
                     double width, std::string_view boldPrefix)
    : layout_(pango_layout_new(context)), colour_(style.colour) {
    PangoFontDescription* font = fontFor(style);
    pango_layout_set_font_description(layout_, font);
    pango_font_description_free(font);
    pango_layout_set_width(layout_, static_cast<int>(width * PANGO_SCALE));
    pango_layout_set_wrap(layout_,
                          hasLongUnbrokenRun(text) ? PANGO_WRAP_CHAR : PANGO_WRAP_WORD_CHAR);
    pango_layout_set_alignment(layout_, style.alignment);

    const std::string prefix = printable(boldPrefix);
    const std::string whole = prefix + printable(text);
    pango_layout_set_text(layout_, whole.data(), static_cast<int>(whole.size()));
    PangoAttrList* attributes = pango_attr_list_new();
    // A word broken at the line end must not gain a hyphen the record does not contain.
    pango_attr_list_insert(attributes, pango_attr_insert_hyphens_new(FALSE));
    if (!prefix.empty()) {
        PangoAttribute* bold = pango_attr_weight_new(PANGO_WEIGHT_BOLD);
        bold->start_index = 0;
        bold->end_index = static_cast<unsigned>(prefix.size());
        pango_attr_list_insert(attributes, bold);
    }
    pango_layout_set_attributes(layout_, attributes);
    pango_attr_list_unref(attributes);

    PangoLayoutIter* iter = pango_layout_get_iter(layout_);
    do {
        int top = 0, bottom = 0;
        pango_layout_iter_get_line_yrange(iter, &top, &bottom);
        lines_.push_back(
            {points(top), points(bottom), points(pango_layout_iter_get_baseline(iter))});
    } while (pango_layout_iter_next_line(iter));
    pango_layout_iter_free(iter);
}

TextBlock::~TextBlock() {
    g_object_unref(layout_);
}

void TextBlock::drawLines(const Canvas& canvas, double x, double top, size_t first,
                          size_t end) const {
    cairo_t* cr = canvas.cr;
    if (first >= end) return;
    const char* text = pango_layout_get_text(layout_);
    const double shift = top - lines_[first].top;
    cairo_set_source_rgb(cr, colour_.red, colour_.green, colour_.blue);

    PangoLayoutIter* iter = pango_layout_get_iter(layout_);
    PangoLayoutLine* current = pango_layout_iter_get_line_readonly(iter);
    size_t line = 0;
    do {
        if (PangoLayoutLine* now = pango_layout_iter_get_line_readonly(iter); now != current) {
            current = now;
            ++line;
        }
        if (line >= end) break;
        PangoGlyphItem* run = pango_layout_iter_get_run_readonly(iter);
        if (line < first || run == nullptr) continue;
        PangoRectangle logical;
        pango_layout_iter_get_run_extents(iter, nullptr, &logical);
        const double runX = x + points(logical.x);
        const double baseline = shift + points(pango_layout_iter_get_baseline(iter));
        if (canvas.colourGlyphs != nullptr && isColourFont(run->item->analysis.font) &&
            !hasMissingGlyph(run->glyphs)) {
            canvas.colourGlyphs->draw(cr, text, run, runX, baseline);
        } else {
            cairo_move_to(cr, runX, baseline);
            pango_cairo_show_glyph_item(cr, text, run);
        }
    } while (pango_layout_iter_next_run(iter));
    pango_layout_iter_free(iter);
}

}  // namespace bc::pages
