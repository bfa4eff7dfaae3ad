#include "sources/ContactCard.h"

#include "support/Text.h"

namespace bc {

std::string composeName(std::string_view given, std::string_view family,
                        std::string_view organization, std::string_view nickname) {
    const std::string person = text::trim(text::trim(given) + " " + text::trim(family));
    if (!person.empty()) return person;
    const std::string company = text::trim(organization);
    return company.empty() ? text::trim(nickname) : company;
}

bool looksLikeImage(std::string_view bytes) {
    const auto startsWith = [&](std::string_view prefix) {
        return bytes.substr(0, prefix.size()) == prefix;
    };
    if (startsWith("\xFF\xD8\xFF") || startsWith("\x89PNG\r\n\x1A\n") || startsWith("GIF87a") ||
        startsWith("GIF89a") || startsWith(std::string_view("II*\0", 4)) ||
        startsWith(std::string_view("MM\0*", 4))) {
        return true;
    }
    if (startsWith("BM") && bytes.size() > 26) return true;
    if (startsWith("RIFF") && bytes.substr(8, 4) == "WEBP") return true;
    // HEIF and AVIF open with an "ftyp" box whose brand names an image (a video has other brands).
    if (bytes.size() < 12 || bytes.substr(4, 4) != "ftyp") return false;
    const std::string_view brand = bytes.substr(8, 4);
    for (const std::string_view image :
         {"heic", "heix", "heim", "heis", "mif1", "msf1", "avif", "avis"}) {
        if (brand == image) return true;
    }
    return false;
}

}  // namespace bc
