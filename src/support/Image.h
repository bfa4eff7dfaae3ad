#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Photos in and out: decoding JPEG, PNG and HEIC/HEIF with their orientation applied, scaling,
// and JPEG encoding. Pixels use cairo's ARGB32 layout so pages can draw them directly.
namespace bc::image {

struct Bitmap {
    int width = 0;
    int height = 0;
    // Premultiplied ARGB, native-endian, one uint32 per pixel, rows without padding.
    std::vector<uint32_t> pixels;

    bool empty() const { return width == 0 || height == 0; }
};

enum class Format { jpeg, png, heif, unknown };

// Decides by the file's first bytes, never by its name.
Format sniff(std::string_view header);

// Refuses images larger than this many pixels: a hostile file must not exhaust memory.
inline constexpr int64_t maximumPixels = 200'000'000;

// A JPEG whose data ends early still shows what it holds (a preview); text read from it would
// silently miss the rest, so readers of its content refuse it.
enum class Damage { tolerate, refuse };

// Throws Error("Couldn't read the image <name>: <why>").
Bitmap load(const std::filesystem::path& file, Damage damage = Damage::tolerate);
Bitmap decode(std::string_view bytes, const std::string& name, Damage damage = Damage::tolerate);

// Fits the long side into `maxLongSide`; never enlarges.
Bitmap scaledToFit(const Bitmap& bitmap, int maxLongSide);

// Transparent areas are composited over white. `quality` runs from 1 to 100. With
// `dotsPerInch` the file records its resolution, so it prints at the size it was drawn for.
std::string encodeJPEG(const Bitmap& bitmap, int quality,
                       std::optional<double> dotsPerInch = std::nullopt);

// The EXIF orientation (1-8) of JPEG bytes; 1 when none is recorded.
int jpegOrientation(std::string_view bytes);
Bitmap oriented(const Bitmap& bitmap, int orientation);

}  // namespace bc::image
