#include "export/pages/Thumbnails.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>

#include "support/Image.h"
#include "support/Text.h"

namespace bc::pages {

namespace {

// Enough pixels for the largest preview at 300 pixels per inch and more.
constexpr int previewPixels = 1000;
constexpr int previewQuality = 85;

std::optional<image::Bitmap> loadPreview(const Attachment& attachment) {
    try {
        image::Bitmap preview = image::scaledToFit(image::load(attachment.path), previewPixels);
        if (!preview.empty()) return preview;
        return std::nullopt;
    } catch (const std::exception&) {
        return std::nullopt;  // printed as a file line instead
    }
}

Thumbnails::Size sizeOnPage(const image::Bitmap& bitmap) {
    const double longSide = std::max(bitmap.width, bitmap.height);
    const double scale = std::min(1.0, Thumbnails::maxSide / longSide);
    return {bitmap.width * scale, bitmap.height * scale};
}

cairo_surface_t* surfaceFor(const image::Bitmap& bitmap, bool attachJPEG) {
    cairo_surface_t* surface =
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, bitmap.width, bitmap.height);
    cairo_surface_flush(surface);
    unsigned char* data = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    for (int row = 0; row < bitmap.height; ++row)
        std::memcpy(data + static_cast<size_t>(row) * stride,
                    bitmap.pixels.data() + static_cast<size_t>(row) * bitmap.width,
                    static_cast<size_t>(bitmap.width) * 4);
    cairo_surface_mark_dirty(surface);
    if (attachJPEG) {
        // The PDF then carries the photo as JPEG rather than as uncompressed pixels.
        auto* jpeg = new std::string(image::encodeJPEG(bitmap, previewQuality));
        cairo_surface_set_mime_data(
            surface, CAIRO_MIME_TYPE_JPEG, reinterpret_cast<const unsigned char*>(jpeg->data()),
            jpeg->size(), [](void* bytes) { delete static_cast<std::string*>(bytes); }, jpeg);
    }
    return surface;
}

}  // namespace

bool isPhoto(const Attachment& attachment) {
    static constexpr std::array types{"image/jpeg", "image/png", "image/heic", "image/heif"};
    static constexpr std::array extensions{".jpg", ".jpeg", ".png", ".heic", ".heif"};
    const std::string mime = text::toLowerAscii(attachment.mimeType);
    const std::string extension =
        text::toLowerAscii(std::filesystem::path(attachment.path).extension().string());
    return std::find(types.begin(), types.end(), mime) != types.end() ||
           std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
}

std::optional<Thumbnails::Size> Thumbnails::previewSize(const Attachment& attachment) {
    if (const auto found = sizes_.find(attachment.id); found != sizes_.end()) return found->second;
    const auto preview = loadPreview(attachment);
    return sizes_[attachment.id] =
               preview ? std::optional<Size>(sizeOnPage(*preview)) : std::nullopt;
}

void Thumbnails::paint(const Canvas& canvas, const Attachment& attachment, double x, double y,
                       const Size& size) {
    const auto preview = loadPreview(attachment);
    if (!preview) return;
    cairo_surface_t* surface = surfaceFor(*preview, canvas.isPDF);
    cairo_t* cr = canvas.cr;
    cairo_save(cr);
    cairo_translate(cr, x, y);
    cairo_scale(cr, size.width / preview->width, size.height / preview->height);
    cairo_set_source_surface(cr, surface, 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
    cairo_paint(cr);
    cairo_restore(cr);
    cairo_surface_destroy(surface);
}

}  // namespace bc::pages
