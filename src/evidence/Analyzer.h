#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "evidence/MachineText.h"
#include "support/CancelFlag.h"
#include "support/Image.h"

namespace bc {

// Turns the speech in an audio file into text, on this computer.
class SpeechEngine {
public:
    virtual ~SpeechEngine() = default;
    // The name recorded with each transcript, e.g. "CMU PocketSphinx 5prealpha speech
    // recognition (on this computer)".
    virtual std::string name() const = 0;
    // Throws Error("Transcription timed out") when `timeoutSeconds` pass first, CancelledError
    // when cancelled, and Error with the engine's reason otherwise.
    virtual std::string transcribe(const std::filesystem::path& audio, double timeoutSeconds,
                                   const CancelFlag& cancel) = 0;
};

inline constexpr const char* transcriptionTimedOut = "Transcription timed out";

// PocketSphinx with its US English model; nothing when the model is not installed.
std::unique_ptr<SpeechEngine> pocketSphinxEngine();
// whisper.cpp's command-line program run with the model file the user named.
std::unique_ptr<SpeechEngine> whisperEngine(std::filesystem::path program,
                                            std::filesystem::path model);
// whisper.cpp when the user named a model and its program is on PATH, else PocketSphinx; nothing
// when neither can run here.
std::unique_ptr<SpeechEngine> chooseSpeechEngine(
    const std::optional<std::filesystem::path>& whisperModel);

// Audio of any format ffmpeg reads, as 16 kHz mono signed 16-bit samples in `raw` (no header)
// or, with `wav`, a WAV file. Throws Error("Transcription timed out") past the time-out.
void decodeSpeechAudio(const std::filesystem::path& audio, const std::filesystem::path& out,
                       bool wav, double timeoutSeconds, const CancelFlag& cancel);

// The lines of `raw` trimmed, empty ones dropped, joined with `separator`: engines print their
// text with spacing of their own.
std::string joinedLines(std::string_view raw, char separator);

// Text in photos, with Tesseract. English, plus the language of the current locale when its
// data is installed.
class TextRecognizer {
public:
    TextRecognizer();
    ~TextRecognizer();
    TextRecognizer(const TextRecognizer&) = delete;
    TextRecognizer& operator=(const TextRecognizer&) = delete;

    // "Tesseract OCR 5.3.0 text recognition (on this computer)".
    std::string name() const;
    // The photo is turned upright and, when large, scaled to what recognition needs. Lines are
    // joined with LF. Throws Error when the file is not a readable image.
    std::string recognize(const std::filesystem::path& image);
    std::string recognize(const image::Bitmap& bitmap);

    // The long side recognition works on; larger photos are scaled down first.
    static constexpr int maxLongSide = 4000;
    // Below this mean word confidence (0-100) what was "read" is noise, not text.
    static constexpr int minimumConfidence = 50;

private:
    struct Engine;
    std::unique_ptr<Engine> engine_;
};

// Reads one attachment at a time: text in photos, transcripts of voice messages.
class Analyzer {
public:
    static constexpr double defaultTimeoutSeconds = 180;

    // Without a speech engine, voice messages cannot be read (they are skipped, not failed).
    explicit Analyzer(std::unique_ptr<SpeechEngine> speech,
                      double timeoutSeconds = defaultTimeoutSeconds);
    ~Analyzer();

    static bool canAnalyze(const Attachment& attachment);
    bool canTranscribe() const { return speech_ != nullptr; }

    // Nothing when the file is missing or nothing was recognised; throws the engine's error.
    std::optional<MachineText> analyze(const Attachment& attachment, const CancelFlag& cancel);
    std::string recognizeText(const std::filesystem::path& image);
    std::string transcribe(const std::filesystem::path& audio, double timeoutSeconds,
                           const CancelFlag& cancel);

private:
    TextRecognizer& recognizer();

    std::unique_ptr<SpeechEngine> speech_;
    double timeoutSeconds_;
    std::unique_ptr<TextRecognizer> recognizer_;  // made on first use: loading it takes time
};

}  // namespace bc
