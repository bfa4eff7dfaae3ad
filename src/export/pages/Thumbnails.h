#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>

#include "export/pages/Text.h"
#include "model/Message.h"

namespace bc::pages {

// Photo previews. Layout only needs their sizes, so pixels are decoded again when a page is
// drawn rather than held for the whole document.
class Thumbnails {
public:
    struct Size {
        double width = 0, height = 0;  // points
    };
    // Longest side of a preview on the page, in points.
    static constexpr double maxSide = 216;

    // The preview's size on the page; nothing when the attachment is not a photo that loads.
    std::optional<Size> previewSize(const Attachment& attachment);
    void paint(const Canvas& canvas, const Attachment& attachment, double x, double y,
               const Size& size);

private:
    std::unordered_map<int64_t, std::optional<Size>> sizes_;
};

// True for the photo formats that get a preview (JPEG, PNG, HEIC/HEIF).
bool isPhoto(const Attachment& attachment);

}  // namespace bc::pages
