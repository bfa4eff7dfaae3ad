#include <pocketsphinx.h>

#include <chrono>
#include <fstream>
#include <vector>

#include "evidence/Analyzer.h"
#include "support/Errors.h"
#include "support/Machine.h"
#include "support/Process.h"
#include "support/Text.h"
#include "support/Uuid.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

using SteadyClock = std::chrono::steady_clock;

// A scratch file for decoded audio, removed whatever happens.
class ScratchFile {
public:
    explicit ScratchFile(const std::string& extension)
        : path_(fs::temp_directory_path() / ("brindlecourt-speech-" + newUUID() + extension)) {}
    ~ScratchFile() {
        std::error_code ignored;
        fs::remove(path_, ignored);
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

class Deadline {
public:
    explicit Deadline(double seconds)
        : end_(SteadyClock::now() + std::chrono::duration_cast<SteadyClock::duration>(
                                        std::chrono::duration<double>(seconds))) {}
    double remaining() const {
        return std::chrono::duration<double>(end_ - SteadyClock::now()).count();
    }
    void check() const {
        if (remaining() <= 0) throw Error(transcriptionTimedOut);
    }

private:
    SteadyClock::time_point end_;
};

std::string firstLine(const std::string& text) {
    const std::string trimmed = text::trim(text);
    return trimmed.substr(0, trimmed.find('\n'));
}

class PocketSphinx final : public SpeechEngine {
public:
    explicit PocketSphinx(fs::path model) : model_(std::move(model)) {}

    std::string name() const override {
        return std::string("CMU PocketSphinx ") + BC_POCKETSPHINX_VERSION +
               " speech recognition (on " + thisMachine + ")";
    }

    std::string transcribe(const fs::path& audio, double timeoutSeconds,
                           const CancelFlag& cancel) override {
        const Deadline deadline(timeoutSeconds);
        const ScratchFile samples(".raw");
        decodeSpeechAudio(audio, samples.path(), false, timeoutSeconds, cancel);
        // Loading the model takes longer than a short voice message: one decoder serves them all.
        if (!decoder_) decoder_ = std::make_unique<Decoder>(model_);
        try {
            return decode(samples.path(), deadline, cancel);
        } catch (...) {
            decoder_.reset();  // stopped inside an utterance: the next one starts afresh
            throw;
        }
    }

private:
    std::string decode(const fs::path& samples, const Deadline& deadline,
                       const CancelFlag& cancel) {
        ps_decoder_t* ps = decoder_->ps;
        std::ifstream in(samples, std::ios::binary);
        std::vector<int16_t> chunk(16000);  // one second: the time-out is checked this often
        if (ps_start_utt(ps) < 0) throw failure("it could not start");
        while (in.read(reinterpret_cast<char*>(chunk.data()), chunk.size() * sizeof(int16_t)) ||
               in.gcount() > 0) {
            cancel.check();
            deadline.check();
            const auto count = static_cast<size_t>(in.gcount()) / sizeof(int16_t);
            if (ps_process_raw(ps, chunk.data(), count, FALSE, FALSE) < 0)
                throw failure("it could not process the audio");
        }
        if (ps_end_utt(ps) < 0) throw failure("it could not finish");
        const char* hypothesis = ps_get_hyp(ps, nullptr);
        return hypothesis ? text::trim(hypothesis) : "";
    }

    struct Decoder {
        cmd_ln_t* config = nullptr;
        ps_decoder_t* ps = nullptr;

        explicit Decoder(const fs::path& model) {
            const std::string hmm = (model / "en-us").string();
            const std::string lm = (model / "en-us.lm.bin").string();
            const std::string dict = (model / "cmudict-en-us.dict").string();
            config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.c_str(), "-lm", lm.c_str(),
                                 "-dict", dict.c_str(), "-logfn", "/dev/null", nullptr);
            if (config) ps = ps_init(config);
            if (!ps) {
                if (config) cmd_ln_free_r(config);
                throw failure("its English model could not be loaded");
            }
        }
        ~Decoder() {
            ps_free(ps);
            cmd_ln_free_r(config);
        }
        Decoder(const Decoder&) = delete;
        Decoder& operator=(const Decoder&) = delete;
    };

    static Error failure(const std::string& why) {
        return Error("Couldn't transcribe the voice message: speech recognition failed (" + why +
                     ").");
    }

    fs::path model_;
    std::unique_ptr<Decoder> decoder_;
};

class Whisper final : public SpeechEngine {
public:
    Whisper(fs::path program, fs::path model)
        : program_(std::move(program)), model_(std::move(model)) {}

    std::string name() const override {
        return "whisper.cpp speech recognition, model " + model_.filename().string() + " (on " +
               thisMachine + ")";
    }

    std::string transcribe(const fs::path& audio, double timeoutSeconds,
                           const CancelFlag& cancel) override {
        const Deadline deadline(timeoutSeconds);
        const ScratchFile wav(".wav");
        decodeSpeechAudio(audio, wav.path(), true, timeoutSeconds, cancel);
        deadline.check();
        const ProcessResult result = runProcess(
            {.executable = program_.string(),
             .arguments = {"-m", model_.string(), "-f", wav.path().string(), "-nt", "-np"},
             .timeoutSeconds = deadline.remaining(),
             .cancel = &cancel});
        if (result.timedOut) throw Error(transcriptionTimedOut);
        if (!result.succeeded())
            throw Error("Couldn't transcribe the voice message: whisper.cpp stopped with status " +
                        std::to_string(result.exitStatus) + " (" + firstLine(result.standardError) +
                        ").");
        return joinedLines(result.standardOutput, ' ');  // one segment per line
    }

private:
    fs::path program_;
    fs::path model_;
};

}  // namespace

void decodeSpeechAudio(const fs::path& audio, const fs::path& out, bool wav, double timeoutSeconds,
                       const CancelFlag& cancel) {
    std::vector<std::string> arguments{"-nostdin", "-v",  "error", "-y",  "-i",   audio.string(),
                                       "-vn",      "-ac", "1",     "-ar", "16000"};
    if (wav) {
        arguments.insert(arguments.end(), {"-c:a", "pcm_s16le", "-f", "wav"});
    } else {
        arguments.insert(arguments.end(), {"-f", "s16le"});
    }
    arguments.push_back(out.string());
    const ProcessResult result = runProcess({.executable = "ffmpeg",
                                             .arguments = std::move(arguments),
                                             .timeoutSeconds = timeoutSeconds,
                                             .cancel = &cancel});
    if (result.timedOut) throw Error(transcriptionTimedOut);
    if (!result.succeeded()) {
        const std::string why = firstLine(result.standardError);
        throw Error("Couldn't decode the voice message: " +
                    (why.empty() ? "ffmpeg stopped with status " + std::to_string(result.exitStatus)
                                 : why));
    }
}

std::unique_ptr<SpeechEngine> pocketSphinxEngine() {
    const fs::path model = BC_POCKETSPHINX_MODEL_DIR "/en-us";
    std::error_code error;
    if (!fs::exists(model / "en-us.lm.bin", error)) return nullptr;
    return std::make_unique<PocketSphinx>(model);
}

std::unique_ptr<SpeechEngine> whisperEngine(fs::path program, fs::path model) {
    return std::make_unique<Whisper>(std::move(program), std::move(model));
}

std::unique_ptr<SpeechEngine> chooseSpeechEngine(const std::optional<fs::path>& whisperModel) {
    std::error_code error;
    if (whisperModel && fs::is_regular_file(*whisperModel, error))
        for (const char* name : {"whisper-cli", "whisper-cpp"})
            if (const auto program = findExecutable(name))
                return whisperEngine(*program, *whisperModel);
    return pocketSphinxEngine();
}

}  // namespace bc
