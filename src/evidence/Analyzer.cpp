#include "evidence/Analyzer.h"

#include "support/Date.h"

namespace bc {

namespace fs = std::filesystem;

Analyzer::Analyzer(std::unique_ptr<SpeechEngine> speech, double timeoutSeconds)
    : speech_(std::move(speech)), timeoutSeconds_(timeoutSeconds) {}

Analyzer::~Analyzer() = default;

bool Analyzer::canAnalyze(const Attachment& attachment) {
    return isImage(attachment) || isAudio(attachment);
}

TextRecognizer& Analyzer::recognizer() {
    if (!recognizer_) recognizer_ = std::make_unique<TextRecognizer>();
    return *recognizer_;
}

std::string Analyzer::recognizeText(const fs::path& image) {
    return recognizer().recognize(image);
}

std::string Analyzer::transcribe(const fs::path& audio, double timeoutSeconds,
                                 const CancelFlag& cancel) {
    if (!speech_)
        throw Error("Couldn't transcribe the voice message: no speech recognition is installed.");
    return speech_->transcribe(audio, timeoutSeconds, cancel);
}

std::optional<MachineText> Analyzer::analyze(const Attachment& attachment,
                                             const CancelFlag& cancel) {
    std::error_code error;
    const auto size = fs::file_size(attachment.path, error);
    if (attachment.path.empty() || error) return std::nullopt;
    MachineText result{.attachmentGUID = attachment.guid, .fileBytes = static_cast<int64_t>(size)};
    if (isImage(attachment)) {
        result.text = recognizeText(attachment.path);
        result.engine = recognizer().name();
    } else {
        result.kind = MachineText::Kind::transcript;
        result.text = transcribe(attachment.path, timeoutSeconds_, cancel);
        result.engine = speech_->name();
    }
    if (result.text.empty()) return std::nullopt;
    result.createdAt = Clock::now();
    return result;
}

}  // namespace bc
