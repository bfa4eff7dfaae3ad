#include "PagesTesting.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "support/Files.h"
#include "support/Process.h"

namespace bc::testing {

namespace {

std::string run(const std::string& tool, std::vector<std::string> arguments) {
    const auto result = runProcess({.executable = tool, .arguments = std::move(arguments)});
    EXPECT_TRUE(result.succeeded()) << tool << ": " << result.standardError;
    return result.standardOutput;
}

}  // namespace

Date pagesTestDate(double minutes) {
    return Date::fromUnix(1709647629) + minutes * 60;
}

Message textMessage(int64_t id, std::string text, double minutes, bool isFromMe) {
    Message message;
    message.id = id;
    message.guid = "guid-" + std::to_string(id);
    message.date = pagesTestDate(minutes);
    message.isFromMe = isFromMe;
    message.sender = isFromMe ? "" : "+15551234567";
    message.text = std::move(text);
    return message;
}

std::unique_ptr<PageExporter> makeExporter(PagesInput input, const CancelFlag& cancel) {
    return std::make_unique<PageExporter>(
        std::move(input.messages), std::move(input.originals),
        PageExporter::Header{"Chat with Dana", {"Dana Whitfield"}, "Entire conversation"},
        input.paper,
        [](const std::string& handle, bool isFromMe) {
            return isFromMe ? std::string("Me") : "Dana (" + handle + ")";
        },
        cancel, std::move(input.options), pagesTestDate(60 * 24), "the test database");
}

std::string pdfText(const std::filesystem::path& pdf, int page) {
    std::vector<std::string> arguments{"-enc", "UTF-8"};
    if (page > 0)
        arguments.insert(arguments.end(), {"-f", std::to_string(page), "-l", std::to_string(page)});
    arguments.insert(arguments.end(), {pdf.string(), "-"});
    return run("pdftotext", arguments);
}

std::vector<PdfWord> pdfWords(const std::filesystem::path& pdf) {
    const std::string html = run("pdftotext", {"-bbox", "-enc", "UTF-8", pdf.string(), "-"});
    std::vector<PdfWord> words;
    int page = 0;
    const auto number = [&](size_t from, const char* name) {
        const size_t at = html.find(std::string(name) + "=\"", from) + std::strlen(name) + 2;
        return std::stod(html.substr(at, html.find('"', at) - at));
    };
    for (size_t at = html.find('<'); at != std::string::npos; at = html.find('<', at + 1)) {
        if (html.compare(at, 6, "<page ") == 0) ++page;
        if (html.compare(at, 6, "<word ") != 0) continue;
        const size_t textStart = html.find('>', at) + 1;
        words.push_back({page, number(at, "xMin"), number(at, "yMin"), number(at, "xMax"),
                         number(at, "yMax"),
                         html.substr(textStart, html.find("</word>", textStart) - textStart)});
    }
    return words;
}

std::string pdfInfo(const std::filesystem::path& pdf) {
    return run("pdfinfo", {pdf.string()});
}

std::vector<PdfImage> pdfImages(const std::filesystem::path& pdf) {
    std::istringstream lines(run("pdfimages", {"-list", pdf.string()}));
    std::vector<PdfImage> images;
    std::string line;
    for (int skip = 0; skip < 2 && std::getline(lines, line); ++skip) {
    }
    while (std::getline(lines, line)) {
        // page num type width height color comp bpc enc interp object ID x-ppi y-ppi size ratio
        std::istringstream fields(line);
        PdfImage image;
        std::string ignore;
        fields >> image.page >> ignore >> ignore >> image.width >> image.height;
        for (int i = 0; i < 7; ++i) fields >> ignore;
        fields >> image.xppi >> image.yppi;
        images.push_back(image);
    }
    return images;
}

image::Bitmap pdfRaster(const std::filesystem::path& pdf, int dpi, int page) {
    const auto prefix = pdf.parent_path() / "raster";
    run("pdftoppm", {"-png", "-r", std::to_string(dpi), "-f", std::to_string(page), "-l",
                     std::to_string(page), "-singlefile", pdf.string(), prefix.string()});
    return image::load(prefix.string() + ".png");
}

void writePhoto(const std::filesystem::path& file, uint32_t argb, int width, int height) {
    image::Bitmap bitmap{.width = width, .height = height};
    bitmap.pixels.assign(static_cast<size_t>(width) * height, argb);
    files::writeFileAtomically(file, image::encodeJPEG(bitmap, 95));
}

bool isColourful(uint32_t argb) {
    const int red = (argb >> 16) & 0xFF, green = (argb >> 8) & 0xFF, blue = argb & 0xFF;
    return std::max({red, green, blue}) - std::min({red, green, blue}) > 80;
}

}  // namespace bc::testing
