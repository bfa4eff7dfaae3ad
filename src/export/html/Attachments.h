#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "export/ManifestCsv.h"
#include "model/Message.h"
#include "support/CancelFlag.h"

namespace bc::html {

// What the page shows for one attachment.
struct RenderedAttachment {
    enum class Kind { image, sticker, video, audio, file, hidden, missing, failed };
    Kind kind = Kind::file;
    std::string name;      // display name
    std::string original;  // relative path of the verified copy
    std::string display;   // relative path shown: the copy or its preview
    bool isConverted = false;
    std::optional<std::string> problem;  // e.g. why no preview could be made
};

// One attachment after copying and verification: a row of attachments.csv and its markup.
struct CopiedAttachment {
    Attachment attachment;
    int64_t messageID = 0;
    std::filesystem::path source;
    std::string status;
    std::string copyName;  // empty when not copied
    std::optional<int64_t> bytes;
    std::string sha256Source, sha256Copy;
    RenderedAttachment rendered;

    bool copied() const { return !copyName.empty(); }
    bool matches() const { return copied() && sha256Source == sha256Copy; }
    bool isMissing() const { return rendered.kind == RenderedAttachment::Kind::missing; }
    bool isFailed() const { return rendered.kind == RenderedAttachment::Kind::failed; }
};

// The source file an attachment points at, with a leading "~" expanded.
std::filesystem::path sourcePath(const Attachment& attachment);

// Copies the file into folder/attachments/ as id + "-" + safe name, then hashes source and
// copy (at the same time, each streamed). A missing file or a copy or read error is recorded,
// not thrown; only cancellation throws.
CopiedAttachment copyAttachment(const Attachment& attachment, int64_t messageID,
                                const std::filesystem::path& folder, const CancelFlag& cancel);

manifest::Row attachmentRow(const CopiedAttachment& copy);

// Photos and stickers browsers can't show; they get a JPEG preview.
bool isHEIFImage(const Attachment& attachment);
// Audio in the "caf" container; it gets an M4A preview.
bool isVoiceMemo(const Attachment& attachment);

// Lower-cased extension of a name or path, without the dot.
std::string extensionOf(std::string_view name);

}  // namespace bc::html
