// Machine-read text on this computer: Tesseract on a 12-megapixel photo of printed text and its
// character accuracy on generated pages of Noto Sans at 24 px, and PocketSphinx on a minute of
// sentences spoken by espeak-ng with its word error rate. Accuracy figures are counters.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "demo/DemoWriters.h"
#include "evidence/Analyzer.h"
#include "support/Files.h"
#include "support/Process.h"

namespace {

namespace fs = std::filesystem;

const std::vector<std::string> sentences{
    "The tenant paid the deposit on the first of March.",
    "Keys were returned to the landlord after the inspection.",
    "Please send the signed lease back by Friday morning.",
    "The movers arrived late and charged an extra hour.",
    "Utilities came to eighty four dollars this month.",
    "She promised to repay the loan before the fifteenth.",
    "We agreed that the rent would be split in half.",
    "The meter readings were attached to the message.",
    "He said he never agreed to that date at all.",
    "The receipt shows the total paid by card.",
    "Call me back when you have checked the account.",
    "The meeting was moved to Thursday at noon.",
};

// Edit distance between two sequences: the one measure for characters and for words.
template <class Sequence>
size_t distance(const Sequence& a, const Sequence& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] =
                std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

std::vector<std::string> words(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string word; in >> word;) {
        std::string plain;
        for (const char c : word)
            if (std::isalnum(static_cast<unsigned char>(c)))
                plain += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (!plain.empty()) out.push_back(plain);
    }
    return out;
}

// Lines of the sentences, `count` of them, as a page prints them.
std::vector<std::string> pageLines(size_t count) {
    std::vector<std::string> lines;
    for (size_t i = 0; i < count; ++i) lines.push_back(sentences[i % sentences.size()]);
    return lines;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string out;
    for (const auto& line : lines) out += (out.empty() ? "" : "\n") + line;
    return out;
}

// A 4000 × 3000 photo (12 megapixels) with a page of printed text in it.
bc::image::Bitmap twelveMegapixelPhoto(const std::vector<std::string>& lines) {
    const bc::image::Bitmap page = bc::demo::textPicture(lines, 24, 60);
    bc::image::Bitmap photo{4000, 3000, std::vector<uint32_t>(4000 * 3000, 0xFFF4F1EAu)};
    for (int y = 0; y < std::min(page.height, photo.height); ++y)
        std::copy_n(page.pixels.begin() + static_cast<ptrdiff_t>(y) * page.width,
                    std::min(page.width, photo.width),
                    photo.pixels.begin() + static_cast<ptrdiff_t>(y + 200) * photo.width + 400);
    return photo;
}

void recognizeTwelveMegapixelPhoto(benchmark::State& state) {
    const auto lines = pageLines(static_cast<size_t>(state.range(0)));
    const fs::path file = fs::temp_directory_path() / "brindlecourt-bench-photo.jpg";
    bc::files::writeFileAtomically(file, bc::image::encodeJPEG(twelveMegapixelPhoto(lines), 90));
    bc::TextRecognizer recognizer;
    const std::string truth = joined(lines);
    std::string read;
    for (auto _ : state) read = recognizer.recognize(file);
    state.counters["characterAccuracy"] =
        1.0 - static_cast<double>(distance(read, truth)) / static_cast<double>(truth.size());
    state.counters["characters"] = static_cast<double>(truth.size());
    fs::remove(file);
}
BENCHMARK(recognizeTwelveMegapixelPhoto)
    ->Arg(12)
    ->Arg(60)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void characterAccuracyAt24px(benchmark::State& state) {
    const auto lines = pageLines(40);
    const std::string truth = joined(lines);
    bc::TextRecognizer recognizer;
    std::string read;
    for (auto _ : state) read = recognizer.recognize(bc::demo::textPicture(lines, 24, 40));
    state.counters["characterAccuracy"] =
        1.0 - static_cast<double>(distance(read, truth)) / static_cast<double>(truth.size());
}
BENCHMARK(characterAccuracyAt24px)->Unit(benchmark::kMillisecond)->UseRealTime();

// About a minute of espeak-ng speech: the sentences, read in turn until 60 s are reached.
std::string speechOfAMinute(const fs::path& file) {
    std::string said;
    for (size_t i = 0; said.size() < 900; ++i) said += sentences[i % sentences.size()] + " ";
    const auto result = bc::runProcess(
        {.executable = "espeak-ng", .arguments = {"-s", "150", "-w", file.string(), said}});
    if (!result.succeeded()) throw bc::Error("espeak-ng failed: " + result.standardError);
    return said;
}

void transcribeAMinuteOfSpeech(benchmark::State& state) {
    const auto engine = bc::pocketSphinxEngine();
    if (!engine || !bc::findExecutable("espeak-ng")) {
        state.SkipWithError("PocketSphinx's model or espeak-ng is not installed");
        return;
    }
    const fs::path file = fs::temp_directory_path() / "brindlecourt-bench-speech.wav";
    const std::string said = speechOfAMinute(file);
    std::string heard;
    for (auto _ : state) heard = engine->transcribe(file, 600, bc::CancelFlag{});
    const auto truth = words(said);
    state.counters["wordErrorRate"] =
        static_cast<double>(distance(words(heard), truth)) / static_cast<double>(truth.size());
    state.counters["audioSeconds"] =
        static_cast<double>(fs::file_size(file) - 44) / (22050.0 * 2);  // espeak-ng: 22.05 kHz
    fs::remove(file);
}
BENCHMARK(transcribeAMinuteOfSpeech)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);

}  // namespace
