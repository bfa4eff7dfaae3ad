#include "export/html/Previews.h"

#include <optional>
#include <string>

#include "support/Errors.h"
#include "support/Files.h"
#include "support/Image.h"
#include "support/Process.h"

namespace bc::html {

namespace fs = std::filesystem;

namespace {

constexpr double audioConversionSeconds = 120;
constexpr int previewLongSide = 2400;
constexpr int previewQuality = 85;

// Returns why no preview was made, or nothing when it was. Only a failure to write into the
// archive throws: that is the archive's failure, not the photo's.
std::optional<std::string> convertImage(const fs::path& source, const fs::path& destination,
                                        const CancelFlag&) {
    std::string jpeg;
    try {
        jpeg = image::encodeJPEG(image::scaledToFit(image::load(source), previewLongSide),
                                 previewQuality);
    } catch (const Error& e) {
        return e.what();
    }
    files::writeFileAtomically(destination, jpeg);
    return std::nullopt;
}

// afconvert on macOS; elsewhere ffmpeg when installed. Empty when neither is there.
std::optional<ProcessRequest> audioConversion(const fs::path& source, const fs::path& destination,
                                              const CancelFlag& cancel) {
#ifdef __APPLE__
    return ProcessRequest{
        .executable = "/usr/bin/afconvert",
        .arguments = {"-f", "m4af", "-d", "aac", source.string(), destination.string()},
        .timeoutSeconds = audioConversionSeconds,
        .cancel = &cancel};
#else
    const auto ffmpeg = findExecutable("ffmpeg");
    if (!ffmpeg) return std::nullopt;
    return ProcessRequest{
        .executable = *ffmpeg,
        .arguments = {"-nostdin", "-loglevel", "error", "-y", "-i", source.string(), "-vn", "-c:a",
                      "aac", "-f", "ipod", destination.string()},
        .timeoutSeconds = audioConversionSeconds,
        .cancel = &cancel};
#endif
}

// The converter names the files it read by their full paths, which lie in the export's
// temporary folder: the note names them as the archive does, relative to its folder.
std::string withoutFolder(std::string text, const fs::path& folder) {
    const std::string prefix = folder.string() + "/";
    for (size_t at; (at = text.find(prefix)) != std::string::npos;) text.erase(at, prefix.size());
    return text;
}

// Returns why no preview was made, or nothing when it was made or no converter is installed
// (then the original alone is linked, as on any machine without one).
std::optional<std::string> convertAudio(const fs::path& source, const fs::path& destination,
                                        const CancelFlag& cancel) {
    const fs::path partial = destination.string() + ".partial.m4a";
    const auto request = audioConversion(source, partial, cancel);
    if (!request) return std::nullopt;
    std::error_code ec;
    try {
        const ProcessResult result = runProcess(*request);
        if (result.timedOut) {
            fs::remove(partial, ec);
            return "the audio conversion took longer than 2 minutes";
        }
        if (!result.succeeded() || !fs::exists(partial)) {
            fs::remove(partial, ec);
            return "the audio could not be converted (" +
                   withoutFolder(result.standardError, source.parent_path().parent_path())
                       .substr(0, 200) +
                   ")";
        }
        fs::rename(partial, destination);
        return std::nullopt;
    } catch (const CancelledError&) {
        fs::remove(partial, ec);
        throw;
    } catch (const std::exception& e) {
        fs::remove(partial, ec);
        return e.what();
    }
}

void showPreview(CopiedAttachment& copy, const std::string& relative) {
    copy.rendered.display = relative;
    copy.rendered.isConverted = true;
}

void notePreviewFailure(CopiedAttachment& copy, const std::string& why) {
    copy.rendered.problem = copy.rendered.name + ": no preview could be made (" + why +
                            "); the original file is linked.";
    // A picture browsers can't show is offered as a file instead of a broken image.
    using Kind = RenderedAttachment::Kind;
    if (copy.rendered.kind == Kind::image || copy.rendered.kind == Kind::sticker)
        copy.rendered.kind = Kind::file;
}

}  // namespace

bool addPreview(CopiedAttachment& copy, const fs::path& folder, const CancelFlag& cancel) {
    if (!copy.copied()) return false;
    const bool isPhoto = isHEIFImage(copy.attachment);
    if (!isPhoto && !isVoiceMemo(copy.attachment)) return false;
    const auto convert = isPhoto ? convertImage : convertAudio;
    const std::string relative =
        "attachments/previews/" + std::to_string(copy.attachment.id) + (isPhoto ? ".jpg" : ".m4a");
    const fs::path destination = folder / relative;
    std::error_code ec;
    if (!fs::exists(destination, ec)) {
        if (const auto why = convert(folder / copy.rendered.original, destination, cancel)) {
            notePreviewFailure(copy, *why);
            return false;
        }
        if (!fs::exists(destination, ec)) return false;
    }
    showPreview(copy, relative);
    return true;
}

}  // namespace bc::html
