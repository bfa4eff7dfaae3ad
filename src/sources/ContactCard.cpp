#include "sources/ContactCard.h"

#include "support/Image.h"
#include "support/Text.h"

namespace bc {

std::string composeName(std::string_view given, std::string_view family,
                        std::string_view organization, std::string_view nickname) {
    std::string person = text::trim(text::trim(given) + " " + text::trim(family));
    if (!person.empty()) return person;
    const std::string company = text::trim(organization);
    return company.empty() ? text::trim(nickname) : company;
}

bool looksLikeImage(std::string_view bytes) {
    return image::sniff(bytes.substr(0, 64)) != image::Format::unknown;
}

}  // namespace bc
