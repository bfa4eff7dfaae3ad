#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bc {

// One person as read from a Contacts database or a vCard, before handles are keyed.
struct ContactCard {
    std::string identifier;  // stable within its store
    std::string name;        // empty when the card carries none
    std::vector<std::string> phones;
    std::vector<std::string> emails;
    std::optional<std::string> photo;  // image bytes only

    bool operator==(const ContactCard&) const = default;
};

// "Given Family"; the organisation, then the nickname, when the person has no name.
std::string composeName(std::string_view given, std::string_view family,
                        std::string_view organization, std::string_view nickname);

// True for photos the program can draw (JPEG, PNG, HEIC); anything else is dropped, not passed on.
bool looksLikeImage(std::string_view bytes);

}  // namespace bc
