#include "cli/Arguments.h"

#include <algorithm>

namespace bc::cli {

bool Arguments::contains(const std::string& name) const {
    return std::find(items_.begin(), items_.end(), name) != items_.end();
}

std::optional<std::string> Arguments::value(const std::string& name) const {
    const auto found = std::find(items_.begin(), items_.end(), name);
    if (found == items_.end() || found + 1 == items_.end()) return std::nullopt;
    return *(found + 1);
}

std::optional<std::string> Arguments::withoutValue(const std::vector<std::string>& options) const {
    for (const auto& option : options)
        if (contains(option) && !value(option)) return option;
    return std::nullopt;
}

}  // namespace bc::cli
