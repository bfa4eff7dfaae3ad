#pragma once

#include <filesystem>
#include <string>
#include <vector>

// A word-processing document of styled paragraphs, written as Office Open XML (.docx).
namespace bc::docx {

enum class Style {
    banner,     // red
    preamble,   // dark grey, more space after
    title,      // 16 pt bold
    heading,    // 12 pt bold
    body,       // 11 pt
    warning,    // body, red
    signature,  // body, with extra space before it
};

struct Paragraph {
    Style style = Style::body;
    std::string text;
    bool operator==(const Paragraph&) const = default;
};

// The colour of red runs, as written into the document ("RRGGBB").
inline constexpr const char* red = "FF3B30";

std::string documentXml(const std::vector<Paragraph>& paragraphs);
std::string stylesXml();

// Builds the package under a temporary name beside `file` and moves it into place whole,
// replacing an older file of that name. Throws Error.
void write(const std::vector<Paragraph>& paragraphs, const std::filesystem::path& file);

}  // namespace bc::docx
