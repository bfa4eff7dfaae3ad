#include <cairo.h>
#include <gtest/gtest.h>
#include <libheif/heif.h>

#include "support/Errors.h"
#include "support/Image.h"
#include "testing/Heic.h"
#include "testing/Testing.h"

namespace bc::image {
namespace {

constexpr uint32_t red = 0xFFFF0000, blue = 0xFF0000FF;

// A 4×2 blue picture with one red pixel in the top-left corner.
Bitmap marked() {
    Bitmap b{4, 2, std::vector<uint32_t>(8, blue)};
    b.pixels[0] = red;
    return b;
}

uint32_t at(const Bitmap& b, int x, int y) {
    return b.pixels[static_cast<size_t>(y) * b.width + x];
}

bool near(uint32_t actual, uint32_t expected) {
    for (int shift = 0; shift < 32; shift += 8) {
        const int a = static_cast<int>((actual >> shift) & 0xFF),
                  e = static_cast<int>((expected >> shift) & 0xFF);
        if (std::abs(a - e) > 40) return false;
    }
    return true;
}

// Inserts an APP1 Exif segment (big-endian TIFF, IFD0 holding only the orientation tag).
std::string withOrientation(const std::string& jpeg, int orientation) {
    std::string tiff = std::string("MM\0\x2A\0\0\0\x08", 8) + std::string("\0\x01", 2) +
                       std::string("\x01\x12\0\x03\0\0\0\x01", 8) +
                       std::string{'\0', static_cast<char>(orientation), '\0', '\0'} +
                       std::string(4, '\0');
    const std::string payload = std::string("Exif\0\0", 6) + tiff;
    const size_t length = payload.size() + 2;
    const std::string segment = std::string("\xFF\xE1") + static_cast<char>(length >> 8) +
                                static_cast<char>(length & 0xFF) + payload;
    return jpeg.substr(0, 2) + segment + jpeg.substr(2);
}

TEST(Image, JpegRoundTripAppliesEveryExifOrientation) {
    // Big enough blocks that JPEG's 8×8 compression keeps the marked corner recognisable.
    Bitmap big{32, 16, std::vector<uint32_t>(32 * 16, blue)};
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) big.pixels[static_cast<size_t>(y) * 32 + x] = red;
    const std::string jpeg = encodeJPEG(big, 95);
    EXPECT_EQ(sniff(jpeg), Format::jpeg);
    EXPECT_EQ(jpegOrientation(jpeg), 1);

    struct Case {
        int orientation, width, height, redX, redY;
    };
    for (const Case c : {Case{1, 32, 16, 2, 2}, Case{3, 32, 16, 29, 13}, Case{6, 16, 32, 13, 2},
                         Case{8, 16, 32, 2, 29}, Case{2, 32, 16, 29, 2}}) {
        const std::string tagged = withOrientation(jpeg, c.orientation);
        EXPECT_EQ(jpegOrientation(tagged), c.orientation);
        const Bitmap decoded = decode(tagged, "photo.jpg");
        EXPECT_EQ(decoded.width, c.width) << c.orientation;
        EXPECT_EQ(decoded.height, c.height) << c.orientation;
        EXPECT_TRUE(near(at(decoded, c.redX, c.redY), red)) << c.orientation;
    }
}

TEST(Image, OrientationTransformsMoveTheCornerWhereItBelongs) {
    const Bitmap b = marked();
    EXPECT_EQ(at(oriented(b, 6), 1, 0), red);  // 90° clockwise: top-left goes top-right
    EXPECT_EQ(at(oriented(b, 8), 0, 3), red);  // counter-clockwise: bottom-left
    EXPECT_EQ(at(oriented(b, 5), 0, 0), red);
    EXPECT_EQ(at(oriented(b, 7), 1, 3), red);
    EXPECT_EQ(at(oriented(b, 4), 0, 1), red);
    EXPECT_EQ(oriented(b, 9).pixels, b.pixels);
}

TEST(Image, PngWithAlphaAndJpegOverWhite) {
    testing::TempDir dir;
    auto* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 3, 3);
    cairo_t* cr = cairo_create(surface);
    cairo_set_source_rgba(cr, 0, 0, 1, 0.5);
    cairo_paint(cr);
    cairo_destroy(cr);
    cairo_surface_write_to_png(surface, (dir / "half.png").c_str());
    cairo_surface_destroy(surface);

    const Bitmap png = load(dir / "half.png");
    ASSERT_EQ(png.width, 3);
    EXPECT_TRUE(near(png.pixels[4], 0x80000080));
    const Bitmap flattened = decode(encodeJPEG(png, 90), "x.jpg");
    EXPECT_TRUE(near(flattened.pixels[4], 0xFF7F7FFF));  // half blue over white
}

TEST(Image, HeicDecodesThroughLibheif) {
    if (!heif_have_encoder_for_format(heif_compression_HEVC)) GTEST_SKIP() << "no HEVC encoder";
    testing::TempDir dir;
    testing::writeHEIC(dir / "IMG_0001.HEIC", 64, 64, 0, 200, 0);

    const Bitmap decoded = load(dir / "IMG_0001.HEIC");
    EXPECT_EQ(decoded.width, 64);
    EXPECT_EQ(decoded.height, 64);
    EXPECT_TRUE(near(decoded.pixels[64 * 32 + 32], 0xFF00C800));
}

TEST(Image, ScalingFitsTheLongSideAndNeverEnlarges) {
    Bitmap wide{3000, 1000, std::vector<uint32_t>(3'000'000, blue)};
    const Bitmap fitted = scaledToFit(wide, 2400);
    EXPECT_EQ(fitted.width, 2400);
    EXPECT_EQ(fitted.height, 800);
    EXPECT_TRUE(near(fitted.pixels[800 * 400 + 1200], blue));
    EXPECT_EQ(scaledToFit(marked(), 2400).pixels, marked().pixels);
}

TEST(Image, DamagedAndForeignFilesAreOneSentenceErrors) {
    const std::string jpeg = encodeJPEG(marked(), 80);
    for (const std::string& bad : {std::string("not an image"), jpeg.substr(0, 20),
                                   std::string("\x89PNG\r\n\x1A\n garbage"), std::string()}) {
        try {
            decode(bad, "IMG_9.HEIC");
            FAIL() << "decoded garbage";
        } catch (const Error& e) {
            EXPECT_TRUE(std::string(e.what()).starts_with("Couldn't read the image IMG_9.HEIC: "))
                << e.what();
        }
    }
    testing::TempDir dir;
    EXPECT_THROW(load(dir / "absent.jpg"), Error);
    // A header that claims an enormous picture is refused before any pixels are allocated.
    std::string huge = jpeg;
    const size_t sof = huge.find("\xFF\xC0");
    ASSERT_NE(sof, std::string::npos);
    huge[sof + 5] = huge[sof + 6] = huge[sof + 7] = huge[sof + 8] = '\x7F';
    EXPECT_THROW(decode(huge, "bomb.jpg"), Error);
}

TEST(Image, HugePngHeadersAreRefusedAndCutJpegsOnlyWhenAskedTo) {
    // 20,000 × 20,000 declared: refused by the header, never handed to the PNG decoder.
    const std::string png = std::string("\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR", 16) +
                            std::string("\0\0\x4E\x20\0\0\x4E\x20\x08\0\0\0\0", 13) +
                            std::string(4, '\0');
    try {
        decode(png, "huge.png");
        FAIL() << "decoded a picture that is too large";
    } catch (const Error& e) {
        EXPECT_EQ(std::string(e.what()),
                  "Couldn't read the image huge.png: it is too large to open safely");
    }
    Bitmap big{256, 256, std::vector<uint32_t>(256 * 256)};
    for (size_t i = 0; i < big.pixels.size(); ++i)
        big.pixels[i] = 0xFF000000u | static_cast<uint32_t>(i * 2654435761u >> 8 & 0xFFFFFF);
    const std::string jpeg = encodeJPEG(big, 90);
    const std::string cut = jpeg.substr(0, jpeg.size() / 2);
    EXPECT_EQ(decode(cut, "cut.jpg").width, 256);  // a preview shows what there is
    EXPECT_THROW(decode(cut, "cut.jpg", Damage::refuse), Error);
    EXPECT_EQ(decode(jpeg, "whole.jpg", Damage::refuse).width, 256);
}

}  // namespace
}  // namespace bc::image
