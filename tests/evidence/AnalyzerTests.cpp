#include "evidence/Analyzer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "demo/DemoWriters.h"
#include "evidence/AttachmentAnalysis.h"
#include "support/Process.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;
using testing::utc;

// Hears the same words in every file; can be told to fail or to cancel the run.
class ScriptedSpeech final : public SpeechEngine {
public:
    std::string name() const override { return "Scripted speech (on this computer)"; }
    std::string transcribe(const fs::path& audio, double timeoutSeconds,
                           const CancelFlag&) override {
        heard.push_back(audio.filename().string());
        timeouts.push_back(timeoutSeconds);
        if (onTranscribe) onTranscribe();
        return "see you at the flat";
    }
    std::vector<std::string> heard;
    std::vector<double> timeouts;
    std::function<void()> onTranscribe;
};

Attachment attachment(int64_t id, const fs::path& path, const std::string& mime) {
    return {.id = id, .path = path.string(), .mimeType = mime, .guid = "ATT-" + std::to_string(id)};
}

void writePicture(const fs::path& file, const std::vector<std::string>& lines) {
    files::writeFileAtomically(file, image::encodeJPEG(demo::textPicture(lines, 32, 16), 95));
}

// A PNG whose header declares 20,000 × 20,000 pixels, with no picture behind it.
std::string hugePNGHeader() {
    std::string png("\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR", 16);
    png += std::string("\0\0\x4E\x20\0\0\x4E\x20\x08\x00\0\0\0", 13);
    return png + std::string(4, '\0');
}

bool haveFFmpeg() {
    return findExecutable("ffmpeg").has_value();
}

void makeTone(const fs::path& file, double seconds) {
    const auto result =
        runProcess({.executable = "ffmpeg",
                    .arguments = {"-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
                                  "sine=frequency=440:sample_rate=8000", "-t",
                                  std::to_string(seconds), "-c:a", "pcm_u8", file.string()}});
    ASSERT_TRUE(result.succeeded()) << result.standardError;
}

class AnalyzerTest : public ::testing::Test {
protected:
    testing::TempDir dir;
    testing::FixedClock clock{utc("2024-03-05T14:07:09Z")};
};

TEST_F(AnalyzerTest, ReadsPrintedTextInPhotosAndNamesTheEngineThatRan) {
    writePicture(dir / "note.jpg", {"INVOICE 2481", "Deposit paid"});
    auto speech = std::make_unique<ScriptedSpeech>();
    Analyzer analyzer(std::move(speech));
    const auto text = analyzer.analyze(attachment(1, dir / "note.jpg", "image/jpeg"), CancelFlag{});
    ASSERT_TRUE(text);
    EXPECT_EQ(text->text, "INVOICE 2481\nDeposit paid");
    EXPECT_EQ(text->kind, MachineText::Kind::imageText);
    EXPECT_EQ(text->attachmentGUID, "ATT-1");
    EXPECT_EQ(text->fileBytes, static_cast<int64_t>(fs::file_size(dir / "note.jpg")));
    EXPECT_EQ(text->createdAt, utc("2024-03-05T14:07:09Z"));
    EXPECT_TRUE(text->engine.starts_with("Tesseract OCR 5")) << text->engine;
    EXPECT_TRUE(text->engine.ends_with(" text recognition (on this computer)")) << text->engine;

    // A blank photo has nothing to keep; a missing one is not read at all.
    files::writeFileAtomically(dir / "blank.jpg",
                               image::encodeJPEG(demo::textPicture({""}, 32, 40), 90));
    EXPECT_FALSE(analyzer.analyze(attachment(2, dir / "blank.jpg", "image/jpeg"), CancelFlag{}));
    // Nor does a picture without writing, where the recogniser can only guess at shapes.
    files::writeFileAtomically(dir / "gradient.jpg", demo::jpegImage(96, 64, 1));
    EXPECT_FALSE(analyzer.analyze(attachment(4, dir / "gradient.jpg", "image/jpeg"), CancelFlag{}));
    EXPECT_FALSE(analyzer.analyze(attachment(3, dir / "gone.jpg", "image/jpeg"), CancelFlag{}));
}

TEST_F(AnalyzerTest, PhotosAreTurnedUprightBeforeReading) {
    // Stored sideways, as a phone does, with the EXIF tag that says how to turn it back.
    const image::Bitmap upright = demo::textPicture({"KEYS RETURNED"}, 32, 16);
    const image::Bitmap sideways = image::oriented(upright, 8);
    std::string jpeg = image::encodeJPEG(sideways, 95);
    const std::string tiff = std::string("MM\0\x2A\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0", 19) +
                             std::string{'\x06', '\0', '\0'} + std::string(4, '\0');
    const std::string payload = std::string("Exif\0\0", 6) + tiff;
    const size_t length = payload.size() + 2;
    jpeg = jpeg.substr(0, 2) + "\xFF\xE1" + static_cast<char>(length >> 8) +
           static_cast<char>(length & 0xFF) + payload + jpeg.substr(2);
    files::writeFileAtomically(dir / "sideways.jpg", jpeg);
    Analyzer analyzer(nullptr);
    EXPECT_EQ(analyzer.recognizeText(dir / "sideways.jpg"), "KEYS RETURNED");
}

TEST_F(AnalyzerTest, BadFilesCountAsUnreadableAndTheRunGoesOnSavingAsItReads) {
    writePicture(dir / "good.jpg", {"LEASE SIGNED"});
    testing::writeText(dir / "text.jpg", "this is not a picture");
    const std::string jpeg = files::readFile(dir / "good.jpg");
    testing::writeText(dir / "truncated.jpg", jpeg.substr(0, jpeg.size() / 3));
    testing::writeText(dir / "empty.png", "");
    testing::writeText(dir / "huge.png", hugePNGHeader());
    testing::writeText(dir / "removed.jpg", jpeg);
    testing::writeText(dir / "voice.m4a", "just some words in a text file");
    const std::vector<Attachment> pending{
        attachment(1, dir / "text.jpg", "image/jpeg"),
        attachment(2, dir / "truncated.jpg", "image/jpeg"),
        attachment(3, dir / "empty.png", "image/png"),
        attachment(4, dir / "huge.png", "image/png"),
        attachment(5, dir / "removed.jpg", "image/jpeg"),
        attachment(6, dir / "voice.m4a", "audio/x-m4a"),
        attachment(7, dir / "good.jpg", "image/jpeg"),
    };
    Analyzer analyzer(pocketSphinxEngine());
    MachineTextMap texts;
    std::vector<size_t> saved;
    std::vector<std::string> progress;
    const auto tally = analyzeAttachments(
        pending, analyzer, texts, [&](const MachineTextMap& all) { saved.push_back(all.size()); },
        CancelFlag{},
        [&](const std::string& line) {
            progress.push_back(line);
            if (progress.size() == 5) fs::remove(dir / "removed.jpg");
        });
    EXPECT_EQ(tally.read, 1);
    EXPECT_EQ(tally.failed, analyzer.canTranscribe() ? 5 : 4);
    EXPECT_EQ(tally.skipped, analyzer.canTranscribe() ? 0 : 1);
    EXPECT_EQ(tally.missing, 1);
    EXPECT_FALSE(tally.cancelled);
    EXPECT_EQ(saved, (std::vector<size_t>{1}));
    EXPECT_EQ(texts.at("ATT-7").text, "LEASE SIGNED");
    ASSERT_EQ(progress.size(), 7u);
    EXPECT_EQ(progress.front(), "Read 0 of 7 attachments on this computer.");
    EXPECT_EQ(progress.back(), "Read 6 of 7 attachments on this computer.");
    if (analyzer.canTranscribe()) {
        EXPECT_EQ(analysisSummary(tally),
                  "Read the text of 1 attachment on this computer. 5 could not be read. 1 file is "
                  "no longer on this computer and still pending.");
    }
}

TEST_F(AnalyzerTest, CancellingKeepsWhatWasReadAndSaysTheRunStopped) {
    for (const char* name : {"a.caf", "b.caf", "c.caf"}) testing::writeText(dir / name, "x");
    auto speech = std::make_unique<ScriptedSpeech>();
    ScriptedSpeech& scripted = *speech;
    CancelFlag cancel;
    scripted.onTranscribe = [&] {
        if (scripted.heard.size() == 2) cancel.cancel();
    };
    Analyzer analyzer(std::move(speech));
    MachineTextMap texts;
    int saves = 0;
    const auto tally = analyzeAttachments(
        {attachment(1, dir / "a.caf", "audio/x-caf"), attachment(2, dir / "b.caf", "audio/x-caf"),
         attachment(3, dir / "c.caf", "audio/x-caf")},
        analyzer, texts, [&](const MachineTextMap&) { ++saves; }, cancel, {});
    EXPECT_TRUE(tally.cancelled);
    EXPECT_EQ(tally.read, 2);
    EXPECT_EQ(saves, 2);
    EXPECT_EQ(texts.at("ATT-2").kind, MachineText::Kind::transcript);
    EXPECT_EQ(texts.at("ATT-2").engine, "Scripted speech (on this computer)");
    EXPECT_EQ(scripted.timeouts, (std::vector<double>{180, 180}));
    EXPECT_EQ(analysisSummary(tally),
              "Analysis stopped. Read the text of 2 attachments on this computer.");
    EXPECT_EQ(analysisProgress(0, {attachment(1, dir / "a.caf", "audio/x-caf")}),
              "Read 0 of 1 voice message on this computer.");

    Analyzer deaf(nullptr);
    const auto skipped = analyzeAttachments({attachment(1, dir / "a.caf", "audio/x-caf")}, deaf,
                                            texts, [](const MachineTextMap&) {}, CancelFlag{}, {});
    EXPECT_EQ(analysisSummary(skipped),
              "Read the text of 0 attachments on this computer. 1 voice message skipped (speech "
              "permission or on-device language not available).");
}

// whisper.cpp stand-ins: shell scripts that behave like the program in one way each.
class WhisperTest : public AnalyzerTest {
protected:
    void SetUp() override {
        if (!haveFFmpeg()) GTEST_SKIP() << "ffmpeg is not installed";
        makeTone(dir / "voice.wav", 1);
        testing::writeText(dir / "ggml-base.en.bin", "model");
    }
    fs::path program(const std::string& body) {
        fs::create_directories(dir / "bin");
        const fs::path file = dir / "bin" / "whisper-cli";
        testing::writeText(file, "#!/bin/sh\n" + body + "\n");
        ::chmod(file.c_str(), 0755);
        return file;
    }
};

TEST_F(WhisperTest, RunsTheProgramOnDecodedAudioAndReportsItsFailures) {
    const fs::path args = dir / "args.txt";
    const fs::path ok = program("echo \"$@\" > '" + args.string() +
                                "'\nprintf ' See you at the flat.\\n And bring the keys.\\n'");
    testing::ScopedEnvironment path("PATH", (dir / "bin").string() + ":" + std::getenv("PATH"));
    const auto engine = chooseSpeechEngine(dir / "ggml-base.en.bin");
    ASSERT_TRUE(engine);
    EXPECT_EQ(engine->name(),
              "whisper.cpp speech recognition, model ggml-base.en.bin (on this computer)");
    EXPECT_EQ(engine->transcribe(dir / "voice.wav", 30, CancelFlag{}),
              "See you at the flat. And bring the keys.");
    const std::string used = files::readFile(args);
    EXPECT_TRUE(used.starts_with("-m " + (dir / "ggml-base.en.bin").string() + " -f ")) << used;
    EXPECT_NE(used.find(".wav -nt -np"), std::string::npos) << used;

    // Without a model file the user named, the built-in engine is used.
    const auto fallback = chooseSpeechEngine(std::nullopt);
    if (fallback) {
        EXPECT_TRUE(fallback->name().starts_with("CMU PocketSphinx ")) << fallback->name();
    }

    program("echo 'failed to load model' >&2\nexit 3");
    try {
        engine->transcribe(dir / "voice.wav", 30, CancelFlag{});
        ADD_FAILURE() << "a failing program must fail the transcription";
    } catch (const Error& e) {
        EXPECT_EQ(std::string(e.what()),
                  "Couldn't transcribe the voice message: whisper.cpp stopped with status 3 "
                  "(failed to load model).");
    }
}

TEST_F(WhisperTest, SlowEnginesAndLongRecordingsTimeOut) {
    program("sleep 10");
    testing::ScopedEnvironment path("PATH", (dir / "bin").string() + ":" + std::getenv("PATH"));
    Analyzer analyzer(chooseSpeechEngine(dir / "ggml-base.en.bin"), 0.5);
    try {
        analyzer.analyze(attachment(1, dir / "voice.wav", "audio/wav"), CancelFlag{});
        ADD_FAILURE() << "the stand-in never finishes";
    } catch (const Error& e) {
        EXPECT_EQ(std::string(e.what()), "Transcription timed out");
    }

    // Two hours of audio cannot even be decoded in the time allowed.
    makeTone(dir / "long.wav", 2 * 60 * 60);
    const auto engine = pocketSphinxEngine();
    if (!engine) GTEST_SKIP() << "the PocketSphinx model is not installed";
    try {
        engine->transcribe(dir / "long.wav", 0.2, CancelFlag{});
        ADD_FAILURE() << "two hours cannot be read in a fifth of a second";
    } catch (const Error& e) {
        EXPECT_EQ(std::string(e.what()), "Transcription timed out");
    }
}

TEST_F(AnalyzerTest, PocketSphinxTranscribesSynthesisedSpeech) {
    const auto engine = pocketSphinxEngine();
    if (!engine) GTEST_SKIP() << "the PocketSphinx model is not installed";
    if (!findExecutable("espeak-ng") || !haveFFmpeg())
        GTEST_SKIP() << "espeak-ng or ffmpeg missing";
    const auto spoken =
        runProcess({.executable = "espeak-ng",
                    .arguments = {"-w", (dir / "said.wav").string(), "-v", "en-us", "-s", "130",
                                  "one two three four five six seven"}});
    ASSERT_TRUE(spoken.succeeded()) << spoken.standardError;
    const std::string heard = engine->transcribe(dir / "said.wav", 60, CancelFlag{});
    // Synthetic speech is hard for this engine; one clear word is what it reliably gets.
    EXPECT_NE(heard.find("three"), std::string::npos) << heard;
    EXPECT_TRUE(engine->name().starts_with("CMU PocketSphinx 5")) << engine->name();
    EXPECT_TRUE(engine->name().ends_with(" speech recognition (on this computer)"));
}

}  // namespace
}  // namespace bc
