#include <tesseract/baseapi.h>
#include <unicode/locid.h>

#include <algorithm>
#include <memory>

#include "evidence/Analyzer.h"
#include "support/DateFormat.h"
#include "support/Errors.h"
#include "support/Machine.h"
#include "support/Text.h"

namespace bc {

namespace {

// English always; the locale's language as well when its data is installed.
std::string languagesFor(tesseract::TessBaseAPI& api) {
    std::vector<std::string> installed;
    api.GetAvailableLanguagesAsVector(&installed);
    const std::string wanted = icu::Locale(dates::currentLocale().c_str()).getISO3Language();
    const bool present = std::find(installed.begin(), installed.end(), wanted) != installed.end();
    return present && wanted != "eng" ? "eng+" + wanted : "eng";
}

// Grey levels over white: recognition needs neither colour nor transparency.
std::vector<uint8_t> greyOverWhite(const image::Bitmap& bitmap) {
    std::vector<uint8_t> grey(bitmap.pixels.size());
    std::transform(bitmap.pixels.begin(), bitmap.pixels.end(), grey.begin(), [](uint32_t argb) {
        const uint32_t clear = 255 - (argb >> 24);  // premultiplied: add white where transparent
        const uint32_t r = ((argb >> 16) & 0xFF) + clear;
        const uint32_t g = ((argb >> 8) & 0xFF) + clear;
        const uint32_t b = (argb & 0xFF) + clear;
        return static_cast<uint8_t>((r * 77 + g * 150 + b * 29) >> 8);
    });
    return grey;
}

}  // namespace

std::string joinedLines(std::string_view raw, char separator) {
    std::string out;
    for (size_t at = 0; at < raw.size();) {
        const size_t end = std::min(raw.find('\n', at), raw.size());
        const std::string line = text::trim(raw.substr(at, end - at));
        at = end + 1;
        if (line.empty()) continue;
        if (!out.empty()) out += separator;
        out += line;
    }
    return out;
}

struct TextRecognizer::Engine {
    tesseract::TessBaseAPI api;
};

TextRecognizer::TextRecognizer() : engine_(std::make_unique<Engine>()) {
    auto& api = engine_->api;
    if (api.Init(nullptr, "eng") != 0)
        throw Error("Couldn't start text recognition: the English language data is not installed.");
    if (const std::string languages = languagesFor(api); languages != "eng") {
        api.End();
        if (api.Init(nullptr, languages.c_str()) != 0 && api.Init(nullptr, "eng") != 0)
            throw Error("Couldn't start text recognition: its language data could not be loaded.");
    }
    // Photos carry no trustworthy resolution; without one Tesseract guesses and warns.
    api.SetVariable("user_defined_dpi", "300");
    api.SetVariable("debug_file", "/dev/null");
}

TextRecognizer::~TextRecognizer() = default;

std::string TextRecognizer::name() const {
    return std::string("Tesseract OCR ") + tesseract::TessBaseAPI::Version() +
           " text recognition (on " + thisMachine + ")";
}

std::string TextRecognizer::recognize(const std::filesystem::path& file) {
    return recognize(image::scaledToFit(image::load(file, image::Damage::refuse), maxLongSide));
}

std::string TextRecognizer::recognize(const image::Bitmap& bitmap) {
    if (bitmap.empty()) return "";
    const auto grey = greyOverWhite(bitmap);
    auto& api = engine_->api;
    api.SetImage(grey.data(), bitmap.width, bitmap.height, 1, bitmap.width);
    const std::unique_ptr<char[]> raw(api.GetUTF8Text());
    const int confidence = api.MeanTextConf();
    api.Clear();
    if (!raw) throw Error("Couldn't read the text in the image: recognition failed.");
    // A photo without writing still yields a few guessed letters, at low confidence.
    if (confidence < minimumConfidence) return "";
    // Tesseract ends blocks with an empty line; the store keeps one LF between lines.
    return joinedLines(raw.get(), '\n');
}

}  // namespace bc
