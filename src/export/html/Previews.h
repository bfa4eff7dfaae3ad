#pragma once

#include <filesystem>

#include "export/html/Attachments.h"
#include "support/CancelFlag.h"

namespace bc::html {

// Gives a copied HEIC/HEIF photo a JPEG preview and a voice memo an M4A preview under
// attachments/previews/, and points the page at it. Returns whether a preview is shown.
// A preview that can't be made leaves the original linked and says why in the page and in
// attachments.csv; only cancellation throws.
bool addPreview(CopiedAttachment& copy, const std::filesystem::path& folder,
                const CancelFlag& cancel);

}  // namespace bc::html
