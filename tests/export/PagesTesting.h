#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "export/PageExporter.h"
#include "support/Image.h"

namespace bc::testing {

// 2024-03-05 14:07:09 UTC plus `minutes`.
Date pagesTestDate(double minutes = 0);

Message textMessage(int64_t id, std::string text, double minutes = 0, bool isFromMe = false);

struct PagesInput {
    std::vector<Message> messages;
    std::unordered_map<std::string, Message> originals;
    PageExporter::Options options;
    PageExporter::Paper paper = PageExporter::Paper::letter;
};

// An exporter with a fixed header, names and rendering time.
std::unique_ptr<PageExporter> makeExporter(PagesInput input, const CancelFlag& cancel);

// Text of a PDF as poppler reads it (pdftotext), optionally of one page only.
std::string pdfText(const std::filesystem::path& pdf, int page = 0);
// Every word poppler finds, with its box in points (pdftotext -bbox).
struct PdfWord {
    int page = 0;
    double xMin = 0, yMin = 0, xMax = 0, yMax = 0;
    std::string text;
};
std::vector<PdfWord> pdfWords(const std::filesystem::path& pdf);
// `pdfinfo` output and `pdfimages -list` rows, for page counts, metadata and image resolution.
std::string pdfInfo(const std::filesystem::path& pdf);
struct PdfImage {
    int page = 0, width = 0, height = 0;
    double xppi = 0, yppi = 0;
};
std::vector<PdfImage> pdfImages(const std::filesystem::path& pdf);
// The first page rendered by poppler at `dpi`.
image::Bitmap pdfRaster(const std::filesystem::path& pdf, int dpi, int page = 1);

// A solid-colour photo written as JPEG.
void writePhoto(const std::filesystem::path& file, uint32_t argb, int width = 64, int height = 48);

// True when the pixel is clearly coloured rather than black, white or grey.
bool isColourful(uint32_t argb);

}  // namespace bc::testing
