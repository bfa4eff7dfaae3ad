#include "export/html/Attachments.h"

#include <array>
#include <future>
#include <system_error>

#include "export/html/Markup.h"
#include "support/Files.h"
#include "support/Machine.h"
#include "support/Sha256.h"
#include "support/Text.h"

namespace bc::html {

namespace fs = std::filesystem;
using Kind = RenderedAttachment::Kind;

namespace {

bool isOneOf(std::string_view value, std::initializer_list<std::string_view> options) {
    for (auto option : options) {
        if (value == option) return true;
    }
    return false;
}

bool browserShowsImage(std::string_view mime, std::string_view ext) {
    return isOneOf(mime, {"image/jpeg", "image/png", "image/gif", "image/webp", "image/bmp",
                          "image/avif"}) ||
           isOneOf(ext, {"jpg", "jpeg", "png", "gif", "webp", "bmp", "avif"});
}

bool isHEIF(std::string_view mime, std::string_view ext) {
    return isOneOf(mime,
                   {"image/heic", "image/heif", "image/heic-sequence", "image/heif-sequence"}) ||
           isOneOf(ext, {"heic", "heif"});
}

Kind kindOf(const Attachment& a) {
    if (a.isHidden) return Kind::hidden;
    if (a.isSticker) return Kind::sticker;
    const std::string mime = text::toLowerAscii(a.mimeType);
    const std::string ext = extensionOf(a.name.empty() ? a.path : a.name);
    if (browserShowsImage(mime, ext) || isHEIF(mime, ext)) return Kind::image;
    if (mime.starts_with("video/") || isOneOf(ext, {"mov", "mp4", "m4v"})) return Kind::video;
    if (mime.starts_with("audio/") || isOneOf(ext, {"caf", "m4a", "mp3", "aac", "amr", "opus"}))
        return Kind::audio;
    return Kind::file;
}

std::string displayName(const Attachment& a) {
    if (!a.name.empty()) return a.name;
    const std::string last = fs::path(a.path).filename().string();
    return last.empty() ? "attachment " + std::to_string(a.id) : last;
}

// Hashes source and copy on two threads: verification then costs one read's time, not two.
std::pair<std::string, std::string> hashBoth(const fs::path& source, const fs::path& copy,
                                             const CancelFlag& cancel) {
    auto sourceHash =
        std::async(std::launch::async, [&] { return Sha256::hexOfFile(source, &cancel); });
    std::string copyHash = Sha256::hexOfFile(copy, &cancel);  // the future waits if this throws
    return {sourceHash.get(), std::move(copyHash)};
}

}  // namespace

bool isHEIFImage(const Attachment& a) {
    return isHEIF(text::toLowerAscii(a.mimeType), extensionOf(a.name.empty() ? a.path : a.name));
}

bool isVoiceMemo(const Attachment& a) {
    return extensionOf(a.path) == "caf" || text::toLowerAscii(a.mimeType) == "audio/x-caf";
}

std::string extensionOf(std::string_view name) {
    const auto dot = name.rfind('.');
    const auto slash = name.rfind('/');
    if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash))
        return {};
    return text::toLowerAscii(name.substr(dot + 1));
}

fs::path sourcePath(const Attachment& attachment) {
    const std::string& path = attachment.path;
    if (path == "~" || path.starts_with("~/"))
        return files::homeFolder() / path.substr(std::min<size_t>(2, path.size()));
    return path;
}

CopiedAttachment copyAttachment(const Attachment& attachment, int64_t messageID,
                                const fs::path& folder, const CancelFlag& cancel) {
    CopiedAttachment result{
        .attachment = attachment, .messageID = messageID, .source = sourcePath(attachment)};
    result.rendered.name = displayName(attachment);
    if (attachment.totalBytes >= 0) result.bytes = attachment.totalBytes;
    std::error_code ec;
    if (attachment.path.empty() || !fs::exists(result.source, ec)) {
        result.status = std::string("missing: not on ") + thisMachine;
        result.rendered.kind = Kind::missing;
        return result;
    }
    const std::string copyName =
        std::to_string(attachment.id) + "-" + safeFileName(result.source.filename().string());
    const fs::path copy = folder / "attachments" / copyName;
    try {
        fs::remove(copy);
        fs::copy_file(result.source, copy);
        auto [sourceHash, copyHash] = hashBoth(result.source, copy, cancel);
        result.sha256Source = std::move(sourceHash);
        result.sha256Copy = std::move(copyHash);
        result.bytes = static_cast<int64_t>(fs::file_size(copy));
    } catch (const CancelledError&) {
        throw;
    } catch (const std::exception& e) {
        fs::remove(copy, ec);
        result.status = std::string("copy failed: ") + e.what();
        result.rendered.kind = Kind::failed;
        return result;
    }
    result.status = "copied";
    result.copyName = copyName;
    result.rendered.kind = kindOf(attachment);
    result.rendered.original = "attachments/" + copyName;
    result.rendered.display = result.rendered.original;
    return result;
}

manifest::Row attachmentRow(const CopiedAttachment& c) {
    return {std::to_string(c.attachment.id),
            std::to_string(c.messageID),
            c.status,
            c.attachment.isHidden ? "1" : "0",
            c.attachment.name,
            c.attachment.mimeType,
            c.source.string(),
            c.copied() ? "attachments/" + c.copyName : "",
            c.bytes ? std::to_string(*c.bytes) : "",
            c.sha256Source,
            c.sha256Copy,
            c.copied() ? (c.matches() ? "1" : "0") : ""};
}

}  // namespace bc::html
