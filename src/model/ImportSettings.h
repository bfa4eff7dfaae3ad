#pragma once

#include <optional>
#include <string>

namespace bc {

// How an imported chat is shown: kept beside its sealed folder, so changing them never touches it.
struct ImportSettings {
    std::string chatName;
    std::optional<std::string> ownerName;
    std::optional<std::string> timeZone;
    std::optional<bool> dayFirst;

    bool operator==(const ImportSettings&) const = default;
};

}  // namespace bc
