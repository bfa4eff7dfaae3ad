#include "counsel/Docx.h"

#include <algorithm>
#include <cstdio>

#include "counsel/ZipWriter.h"
#include "export/html/Markup.h"
#include "support/Errors.h"
#include "support/Files.h"

namespace bc::docx {

namespace {

namespace fs = std::filesystem;

constexpr const char* wordNamespace =
    "http://schemas.openxmlformats.org/wordprocessingml/2006/main";

struct Look {
    const char* id;
    const char* name;
    int halfPoints;
    bool bold;
    const char* colour;
    int spaceBefore;  // twentieths of a point
    int spaceAfter;
};

Look look(Style style) {
    switch (style) {
        case Style::banner:
            return {"Banner", "Draft Banner", 22, false, red, 0, 160};
        case Style::preamble:
            return {"Preamble", "Preamble", 22, false, "555555", 0, 280};
        case Style::title:
            return {"Title", "Title", 32, true, "000000", 0, 240};
        case Style::heading:
            return {"Heading1", "heading 1", 24, true, "000000", 0, 160};
        case Style::body:
            return {"Normal", "Normal", 22, false, "000000", 0, 160};
        case Style::warning:
            return {"Warning", "Warning", 22, false, red, 0, 160};
        case Style::signature:
            return {"Signature", "Signature", 22, false, "000000", 480, 160};
    }
    return look(Style::body);
}

constexpr Style allStyles[] = {Style::body,    Style::banner,  Style::preamble, Style::title,
                               Style::heading, Style::warning, Style::signature};

// XML 1.0 has no place for control characters; a blank keeps the words apart.
std::string escaped(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
    return html::escape(text);
}

std::string runProperties(const Look& look) {
    return std::string("<w:rPr>") + (look.bold ? "<w:b/>" : "") + "<w:color w:val=\"" +
           look.colour + "\"/><w:sz w:val=\"" + std::to_string(look.halfPoints) + "\"/></w:rPr>";
}

std::string paragraphProperties(const Look& look) {
    return "<w:pPr><w:spacing w:before=\"" + std::to_string(look.spaceBefore) + "\" w:after=\"" +
           std::to_string(look.spaceAfter) + "\"/></w:pPr>";
}

std::string styleXml(Style style) {
    const Look l = look(style);
    return std::string("<w:style w:type=\"paragraph\"") +
           (style == Style::body ? " w:default=\"1\"" : "") + " w:styleId=\"" + l.id +
           "\"><w:name w:val=\"" + l.name + "\"/>" +
           (style == Style::body ? "" : "<w:basedOn w:val=\"Normal\"/>") + "<w:qFormat/>" +
           paragraphProperties(l) + runProperties(l) + "</w:style>";
}

constexpr const char* contentTypes =
    R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)"
    "\n"
    R"(<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">)"
    R"(<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>)"
    R"(<Default Extension="xml" ContentType="application/xml"/>)"
    R"(<Override PartName="/word/document.xml" ContentType="application/vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml"/>)"
    R"(<Override PartName="/word/styles.xml" ContentType="application/vnd.openxmlformats-officedocument.wordprocessingml.styles+xml"/>)"
    R"(</Types>)";

constexpr const char* packageRelationships =
    R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)"
    "\n"
    R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)"
    R"(<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument" Target="word/document.xml"/>)"
    R"(</Relationships>)";

// Word finds the styles part only through the document's own relationships.
constexpr const char* documentRelationships =
    R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)"
    "\n"
    R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)"
    R"(<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/styles" Target="styles.xml"/>)"
    R"(</Relationships>)";

}  // namespace

std::string documentXml(const std::vector<Paragraph>& paragraphs) {
    std::string xml = std::string(R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)") +
                      "\n<w:document xmlns:w=\"" + wordNamespace + "\"><w:body>";
    for (const auto& paragraph : paragraphs) {
        const Look l = look(paragraph.style);
        // Direct run formatting as well as the style, so that the look survives pasting.
        xml += std::string("<w:p><w:pPr><w:pStyle w:val=\"") + l.id + "\"/></w:pPr><w:r>" +
               runProperties(l) + "<w:t xml:space=\"preserve\">" + escaped(paragraph.text) +
               "</w:t></w:r></w:p>";
    }
    // US Letter with one-inch margins.
    xml +=
        "<w:sectPr><w:pgSz w:w=\"12240\" w:h=\"15840\"/><w:pgMar w:top=\"1440\" "
        "w:right=\"1440\" w:bottom=\"1440\" w:left=\"1440\" w:header=\"720\" w:footer=\"720\" "
        "w:gutter=\"0\"/></w:sectPr></w:body></w:document>";
    return xml;
}

std::string stylesXml() {
    // A sans-serif face every word processor has or substitutes, standing in for the system font.
    std::string xml = std::string(R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)") +
                      "\n<w:styles xmlns:w=\"" + wordNamespace +
                      "\"><w:docDefaults><w:rPrDefault><w:rPr><w:rFonts w:ascii=\"Arial\" "
                      "w:hAnsi=\"Arial\" w:cs=\"Arial\" w:eastAsia=\"Arial\"/><w:sz "
                      "w:val=\"22\"/><w:lang w:val=\"en-US\"/></w:rPr></w:rPrDefault>"
                      "<w:pPrDefault/></w:docDefaults>";
    for (const Style style : allStyles) xml += styleXml(style);
    return xml + "</w:styles>";
}

void write(const std::vector<Paragraph>& paragraphs, const fs::path& file) {
    const fs::path building = files::temporarySibling(file);
    try {
        ZipWriter zip(building, {.shownName = file.filename().string()});
        zip.addBytes("[Content_Types].xml", contentTypes);
        zip.addBytes("_rels/.rels", packageRelationships);
        zip.addBytes("word/_rels/document.xml.rels", documentRelationships);
        zip.addBytes("word/document.xml", documentXml(paragraphs));
        zip.addBytes("word/styles.xml", stylesXml());
        zip.close();
        fs::rename(building, file);
    } catch (const fs::filesystem_error& e) {
        std::remove(building.c_str());
        throw Error("Couldn't save " + file.filename().string() + ": " + e.code().message());
    } catch (...) {
        std::remove(building.c_str());
        throw;
    }
    files::syncFolder(file.parent_path());
}

}  // namespace bc::docx
