#pragma once

#include <libheif/heif.h>

#include <cstdint>
#include <filesystem>

namespace bc::testing {

// A HEIC photo of one solid colour. Callers skip when libheif has no HEVC encoder.
inline void writeHEIC(const std::filesystem::path& file, int width, int height, uint8_t red,
                      uint8_t green, uint8_t blue) {
    heif_image* source = nullptr;
    heif_image_create(width, height, heif_colorspace_RGB, heif_chroma_interleaved_RGB, &source);
    heif_image_add_plane(source, heif_channel_interleaved, width, height, 8);
    int stride = 0;
    uint8_t* plane = heif_image_get_plane(source, heif_channel_interleaved, &stride);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint8_t* pixel = plane + y * stride + x * 3;
            pixel[0] = red, pixel[1] = green, pixel[2] = blue;
        }
    heif_context* context = heif_context_alloc();
    heif_encoder* encoder = nullptr;
    heif_context_get_encoder_for_format(context, heif_compression_HEVC, &encoder);
    heif_context_encode_image(context, source, encoder, nullptr, nullptr);
    heif_encoder_release(encoder);
    heif_context_write_to_file(context, file.c_str());
    heif_context_free(context);
    heif_image_release(source);
}

}  // namespace bc::testing
