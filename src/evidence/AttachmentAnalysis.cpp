#include "evidence/AttachmentAnalysis.h"

#include <algorithm>

#include "support/Machine.h"

namespace bc {

namespace {

std::string counted(int count, const std::string& one, const std::string& many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// Photos, voice messages, or attachments when the run holds both.
std::pair<std::string, std::string> kindWords(const std::vector<Attachment>& pending) {
    const bool anyAudio = std::any_of(pending.begin(), pending.end(), isAudio);
    const bool anyImage = std::any_of(pending.begin(), pending.end(), isImage);
    if (anyAudio && anyImage) return {"attachment", "attachments"};
    if (anyAudio) return {"voice message", "voice messages"};
    return {"photo", "photos"};
}

}  // namespace

std::string analysisProgress(int done, const std::vector<Attachment>& pending) {
    const auto [one, many] = kindWords(pending);
    const int total = static_cast<int>(pending.size());
    return "Read " + std::to_string(done) + " of " + std::to_string(total) + " " +
           (total == 1 ? one : many) + " on " + thisMachine + ".";
}

std::string analysisSummary(const AnalysisTally& tally) {
    std::string text = tally.cancelled ? "Analysis stopped. " : "";
    text += "Read the text of " + counted(tally.read, "attachment", "attachments") + " on " +
            thisMachine + ".";
    if (tally.empty > 0)
        text += " " + std::to_string(tally.empty) + " had no text that could be recognised.";
    if (tally.failed > 0) text += " " + std::to_string(tally.failed) + " could not be read.";
    if (tally.skipped > 0)
        text += " " + counted(tally.skipped, "voice message", "voice messages") +
                " skipped (speech permission or on-device language not available).";
    if (tally.missing > 0)
        text += " " + counted(tally.missing, "file is", "files are") + " no longer on " +
                thisMachine + " and still pending.";
    return text;
}

AnalysisTally analyzeAttachments(const std::vector<Attachment>& pending, Analyzer& analyzer,
                                 MachineTextMap& texts,
                                 const std::function<void(const MachineTextMap&)>& save,
                                 const CancelFlag& cancel, const ProgressFn& progress) {
    AnalysisTally tally;
    for (size_t i = 0; i < pending.size(); ++i) {
        if (cancel.isCancelled()) {
            tally.cancelled = true;
            break;
        }
        if (progress) progress(analysisProgress(static_cast<int>(i), pending));
        const Attachment& attachment = pending[i];
        if (isAudio(attachment) && !isImage(attachment) && !analyzer.canTranscribe()) {
            ++tally.skipped;
            continue;
        }
        std::optional<MachineText> result;
        try {
            result = analyzer.analyze(attachment, cancel);
        } catch (const CancelledError&) {
            tally.cancelled = true;
            break;
        } catch (const std::exception&) {
            ++tally.failed;
            continue;
        }
        std::error_code error;
        if (!result) {
            ++(std::filesystem::exists(attachment.path, error) ? tally.empty : tally.missing);
            continue;
        }
        texts[attachment.guid] = *result;
        save(texts);
        ++tally.read;
    }
    return tally;
}

}  // namespace bc
