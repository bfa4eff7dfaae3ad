#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

#include "sources/ContactCard.h"

namespace bc {

// Contacts from vCard files (3.0 and 4.0, and the 2.1 habits still found in exports:
// quoted-printable values, bare encoding parameters, other character sets). Lines that cannot be
// understood are skipped; the rest of the card is kept.
class VCard {
public:
    // Every card of a file's text, in file order.
    static std::vector<ContactCard> parse(std::string_view text);
    // Throws bc::Error when the file cannot be read.
    static std::vector<ContactCard> readFile(const std::filesystem::path& file);
};

}  // namespace bc
