#include "support/Image.h"

#include <cairo.h>
#include <libheif/heif.h>
#include <turbojpeg.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <memory>

#include "support/Errors.h"
#include "support/Files.h"

namespace bc::image {

namespace {

[[noreturn]] void fail(const std::string& name, const std::string& why) {
    throw Error("Couldn't read the image " + name + ": " + why);
}

void checkSize(int width, int height, const std::string& name) {
    if (width <= 0 || height <= 0) fail(name, "it has no pixels");
    if (static_cast<int64_t>(width) * height > maximumPixels)
        fail(name, "it is too large to open safely");
}

uint32_t premultiplied(uint8_t r, uint8_t g, uint8_t b, uint8_t a) {
    const auto mul = [a](uint8_t c) { return static_cast<uint32_t>((c * a + 127) / 255); };
    return (static_cast<uint32_t>(a) << 24) | (mul(r) << 16) | (mul(g) << 8) | mul(b);
}

// --- JPEG ---

uint16_t read16(const uint8_t* p, bool bigEndian) {
    return bigEndian ? static_cast<uint16_t>(p[0] << 8 | p[1])
                     : static_cast<uint16_t>(p[1] << 8 | p[0]);
}

uint32_t read32(const uint8_t* p, bool bigEndian) {
    return bigEndian ? (uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3])
                     : (uint32_t{p[3]} << 24 | uint32_t{p[2]} << 16 | uint32_t{p[1]} << 8 | p[0]);
}

// Reads tag 0x0112 of IFD0 inside an APP1 "Exif" segment's TIFF data.
int orientationFromTiff(const uint8_t* tiff, size_t size) {
    if (size < 8) return 1;
    const bool bigEndian = tiff[0] == 'M' && tiff[1] == 'M';
    if (!bigEndian && !(tiff[0] == 'I' && tiff[1] == 'I')) return 1;
    const uint32_t ifd = read32(tiff + 4, bigEndian);
    if (ifd > size - 2) return 1;
    const uint16_t entries = read16(tiff + ifd, bigEndian);
    for (uint32_t i = 0; i < entries; ++i) {
        const size_t entry = ifd + 2 + static_cast<size_t>(i) * 12;
        if (entry + 12 > size) break;
        if (read16(tiff + entry, bigEndian) == 0x0112) {
            const int value = read16(tiff + entry + 8, bigEndian);
            return value >= 1 && value <= 8 ? value : 1;
        }
    }
    return 1;
}

Bitmap decodeJPEG(std::string_view bytes, const std::string& name, Damage damage) {
    std::unique_ptr<void, int (*)(tjhandle)> handle(tjInitDecompress(), tjDestroy);
    if (!handle) fail(name, "the JPEG decoder could not start");
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    if (tjDecompressHeader3(handle.get(), data, static_cast<unsigned long>(bytes.size()), &width,
                            &height, &subsampling, &colorspace) != 0)
        fail(name, tjGetErrorStr2(handle.get()));
    checkSize(width, height, name);
    Bitmap bitmap{width, height, std::vector<uint32_t>(static_cast<size_t>(width) * height)};
    // Opaque pixels are the same premultiplied or not; BGRA bytes are ARGB32 on little-endian
    // hosts.
    static_assert(std::endian::native == std::endian::little);
    if (tjDecompress2(handle.get(), data, static_cast<unsigned long>(bytes.size()),
                      reinterpret_cast<unsigned char*>(bitmap.pixels.data()), width, width * 4,
                      height, TJPF_BGRA, 0) != 0 &&
        (damage == Damage::refuse || tjGetErrorCode(handle.get()) == TJERR_FATAL))
        fail(name, tjGetErrorStr2(handle.get()));
    return oriented(bitmap, jpegOrientation(bytes));
}

// --- PNG ---

struct PngReader {
    std::string_view bytes;
    size_t offset = 0;
};

cairo_status_t readPng(void* closure, unsigned char* data, unsigned int length) {
    auto* reader = static_cast<PngReader*>(closure);
    if (reader->offset + length > reader->bytes.size()) return CAIRO_STATUS_READ_ERROR;
    std::memcpy(data, reader->bytes.data() + reader->offset, length);
    reader->offset += length;
    return CAIRO_STATUS_SUCCESS;
}

// The size the header declares, checked before cairo allocates the whole picture.
void checkPNGHeader(std::string_view bytes, const std::string& name) {
    if (bytes.size() < 24) fail(name, "it is truncated");
    const auto word = [&](size_t at) {
        int64_t value = 0;
        for (size_t i = at; i < at + 4; ++i) value = value << 8 | static_cast<uint8_t>(bytes[i]);
        return value;
    };
    const int64_t width = word(16), height = word(20);
    if (width > maximumPixels || height > maximumPixels || width * height > maximumPixels)
        fail(name, "it is too large to open safely");
}

Bitmap decodePNG(std::string_view bytes, const std::string& name) {
    checkPNGHeader(bytes, name);
    PngReader reader{bytes};
    cairo_surface_t* surface = cairo_image_surface_create_from_png_stream(readPng, &reader);
    std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> owner(surface,
                                                                       cairo_surface_destroy);
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS)
        fail(name, cairo_status_to_string(cairo_surface_status(surface)));
    cairo_surface_flush(surface);
    const int width = cairo_image_surface_get_width(surface);
    const int height = cairo_image_surface_get_height(surface);
    checkSize(width, height, name);
    const int stride = cairo_image_surface_get_stride(surface);
    const cairo_format_t format = cairo_image_surface_get_format(surface);
    const unsigned char* data = cairo_image_surface_get_data(surface);
    Bitmap bitmap{width, height, std::vector<uint32_t>(static_cast<size_t>(width) * height)};
    for (int y = 0; y < height; ++y) {
        const auto* row =
            reinterpret_cast<const uint32_t*>(data + static_cast<ptrdiff_t>(y) * stride);
        for (int x = 0; x < width; ++x) {
            const uint32_t p = row[x];
            // RGB24 leaves the alpha byte undefined; those pixels are opaque.
            bitmap.pixels[static_cast<size_t>(y) * width + x] =
                format == CAIRO_FORMAT_ARGB32 ? p : (p | 0xFF000000u);
        }
    }
    return bitmap;
}

// --- HEIF ---

template <class T, void (*Release)(const T*)>
struct HeifPtr {
    T* value = nullptr;
    ~HeifPtr() {
        if (value) Release(value);
    }
};

void releaseImage(const heif_image* image) {
    heif_image_release(image);
}
void releaseHandle(const heif_image_handle* handle) {
    heif_image_handle_release(handle);
}

Bitmap decodeHEIF(std::string_view bytes, const std::string& name) {
    std::unique_ptr<heif_context, void (*)(heif_context*)> context(heif_context_alloc(),
                                                                   heif_context_free);
    heif_error error = heif_context_read_from_memory_without_copy(context.get(), bytes.data(),
                                                                  bytes.size(), nullptr);
    if (error.code != heif_error_Ok) fail(name, error.message);
    HeifPtr<heif_image_handle, releaseHandle> handle;
    error = heif_context_get_primary_image_handle(context.get(), &handle.value);
    if (error.code != heif_error_Ok) fail(name, error.message);
    checkSize(heif_image_handle_get_width(handle.value), heif_image_handle_get_height(handle.value),
              name);
    HeifPtr<heif_image, releaseImage> image;
    // The decoder applies the stored rotation and mirroring by default.
    error = heif_decode_image(handle.value, &image.value, heif_colorspace_RGB,
                              heif_chroma_interleaved_RGBA, nullptr);
    if (error.code != heif_error_Ok) fail(name, error.message);
    const int width = heif_image_get_width(image.value, heif_channel_interleaved);
    const int height = heif_image_get_height(image.value, heif_channel_interleaved);
    checkSize(width, height, name);
    int stride = 0;
    const uint8_t* data =
        heif_image_get_plane_readonly(image.value, heif_channel_interleaved, &stride);
    if (!data) fail(name, "the decoder returned no pixels");
    Bitmap bitmap{width, height, std::vector<uint32_t>(static_cast<size_t>(width) * height)};
    for (int y = 0; y < height; ++y) {
        const uint8_t* row = data + static_cast<ptrdiff_t>(y) * stride;
        for (int x = 0; x < width; ++x) {
            const uint8_t* p = row + static_cast<ptrdiff_t>(x) * 4;
            bitmap.pixels[static_cast<size_t>(y) * width + x] =
                premultiplied(p[0], p[1], p[2], p[3]);
        }
    }
    return bitmap;
}

}  // namespace

Format sniff(std::string_view header) {
    const auto starts = [&](std::string_view magic) {
        return header.substr(0, magic.size()) == magic;
    };
    if (starts("\xFF\xD8\xFF")) return Format::jpeg;
    if (starts("\x89PNG\r\n\x1A\n")) return Format::png;
    if (header.size() >= 12 &&
        heif_check_filetype(reinterpret_cast<const uint8_t*>(header.data()),
                            static_cast<int>(header.size())) == heif_filetype_yes_supported)
        return Format::heif;
    return Format::unknown;
}

Bitmap load(const std::filesystem::path& file, Damage damage) {
    const std::string name = file.filename().string();
    std::string bytes;
    try {
        bytes = files::readFile(file);
    } catch (const Error& e) {
        fail(name, e.what());
    }
    return decode(bytes, name, damage);
}

Bitmap decode(std::string_view bytes, const std::string& name, Damage damage) {
    switch (sniff(bytes.substr(0, 64))) {
        case Format::jpeg:
            return decodeJPEG(bytes, name, damage);
        case Format::png:
            return decodePNG(bytes, name);
        case Format::heif:
            return decodeHEIF(bytes, name);
        case Format::unknown:
            break;
    }
    fail(name, "it is not a JPEG, PNG or HEIC image");
}

int jpegOrientation(std::string_view bytes) {
    const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
    size_t offset = 2;
    while (offset + 4 <= bytes.size() && p[offset] == 0xFF) {
        const uint8_t marker = p[offset + 1];
        const size_t length = static_cast<size_t>(p[offset + 2] << 8 | p[offset + 3]);
        if (marker == 0xDA || length < 2 || offset + 2 + length > bytes.size()) break;
        const uint8_t* segment = p + offset + 4;
        if (marker == 0xE1 && length >= 8 && std::memcmp(segment, "Exif\0\0", 6) == 0)
            return orientationFromTiff(segment + 6, length - 8);
        offset += 2 + length;
    }
    return 1;
}

Bitmap oriented(const Bitmap& bitmap, int orientation) {
    if (orientation <= 1 || orientation > 8) return bitmap;
    const bool swaps = orientation >= 5;
    const int w = bitmap.width, h = bitmap.height;
    Bitmap out{swaps ? h : w, swaps ? w : h, std::vector<uint32_t>(bitmap.pixels.size())};
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            int nx = x, ny = y;
            switch (orientation) {
                case 2:
                    nx = w - 1 - x;
                    break;  // mirrored
                case 3:
                    nx = w - 1 - x;
                    ny = h - 1 - y;
                    break;  // upside down
                case 4:
                    ny = h - 1 - y;
                    break;  // mirrored vertically
                case 5:
                    nx = y;
                    ny = x;
                    break;  // transposed
                case 6:
                    nx = h - 1 - y;
                    ny = x;
                    break;  // rotate 90° clockwise
                case 7:
                    nx = h - 1 - y;
                    ny = w - 1 - x;
                    break;  // transverse
                case 8:
                    nx = y;
                    ny = w - 1 - x;
                    break;  // rotate 90° counter-clockwise
            }
            out.pixels[static_cast<size_t>(ny) * out.width + nx] =
                bitmap.pixels[static_cast<size_t>(y) * w + x];
        }
    }
    return out;
}

Bitmap scaledToFit(const Bitmap& bitmap, int maxLongSide) {
    const int longSide = std::max(bitmap.width, bitmap.height);
    if (bitmap.empty() || longSide <= maxLongSide) return bitmap;
    const double scale = static_cast<double>(maxLongSide) / longSide;
    const int width = std::max(1, static_cast<int>(std::lround(bitmap.width * scale)));
    const int height = std::max(1, static_cast<int>(std::lround(bitmap.height * scale)));
    auto* source = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(const_cast<uint32_t*>(bitmap.pixels.data())),
        CAIRO_FORMAT_ARGB32, bitmap.width, bitmap.height, bitmap.width * 4);
    Bitmap out{width, height, std::vector<uint32_t>(static_cast<size_t>(width) * height)};
    auto* target =
        cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(out.pixels.data()),
                                            CAIRO_FORMAT_ARGB32, width, height, width * 4);
    cairo_t* cr = cairo_create(target);
    cairo_scale(cr, static_cast<double>(width) / bitmap.width,
                static_cast<double>(height) / bitmap.height);
    cairo_set_source_surface(cr, source, 0, 0);
    // GOOD averages every source pixel when shrinking, so fine detail doesn't alias.
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
    cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
    cairo_paint(cr);
    cairo_destroy(cr);
    cairo_surface_flush(target);
    cairo_surface_destroy(target);
    cairo_surface_destroy(source);
    return out;
}

namespace {

// The encoder writes a JFIF header without a resolution; its density fields are set here.
void recordDensity(std::string& jpeg, double dotsPerInch) {
    static constexpr std::string_view jfifStart("\xFF\xD8\xFF\xE0\x00\x10JFIF\x00", 11);
    if (!std::string_view(jpeg).starts_with(jfifStart) || jpeg.size() < 18)
        throw Error("Couldn't write a JPEG image: the encoder wrote no JFIF header.");
    const auto density = static_cast<uint16_t>(std::clamp(std::lround(dotsPerInch), 1L, 65535L));
    jpeg[13] = 1;  // dots per inch
    for (size_t at : {14, 16}) {
        jpeg[at] = static_cast<char>(density >> 8);
        jpeg[at + 1] = static_cast<char>(density & 0xFF);
    }
}

}  // namespace

std::string encodeJPEG(const Bitmap& bitmap, int quality, std::optional<double> dotsPerInch) {
    if (bitmap.empty()) throw Error("Couldn't write a JPEG image: it has no pixels.");
    std::vector<unsigned char> rgb(static_cast<size_t>(bitmap.width) * bitmap.height * 3);
    for (size_t i = 0; i < bitmap.pixels.size(); ++i) {
        const uint32_t p = bitmap.pixels[i];
        const uint32_t white = 255 - (p >> 24);  // premultiplied over white: c + (1 - a)
        rgb[i * 3 + 0] = static_cast<unsigned char>(((p >> 16) & 0xFF) + white);
        rgb[i * 3 + 1] = static_cast<unsigned char>(((p >> 8) & 0xFF) + white);
        rgb[i * 3 + 2] = static_cast<unsigned char>((p & 0xFF) + white);
    }
    std::unique_ptr<void, int (*)(tjhandle)> handle(tjInitCompress(), tjDestroy);
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    if (!handle || tjCompress2(handle.get(), rgb.data(), bitmap.width, bitmap.width * 3,
                               bitmap.height, TJPF_RGB, &jpeg, &size, TJSAMP_420,
                               std::clamp(quality, 1, 100), TJFLAG_ACCURATEDCT) != 0) {
        const std::string why =
            handle ? tjGetErrorStr2(handle.get()) : "the encoder could not start";
        tjFree(jpeg);
        throw Error("Couldn't write a JPEG image: " + why);
    }
    std::string out(reinterpret_cast<const char*>(jpeg), size);
    tjFree(jpeg);
    if (dotsPerInch) recordDensity(out, *dotsPerInch);
    return out;
}

}  // namespace bc::image
