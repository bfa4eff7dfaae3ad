#pragma once

#include <exception>
#include <filesystem>
#include <string>

namespace bc {

// The underlying error that a sentence ends with: a file-system failure's own message, without
// the paths and decoration the library adds.
inline std::string reasonOf(const std::exception& error) {
    if (const auto* fsError = dynamic_cast<const std::filesystem::filesystem_error*>(&error))
        return fsError->code().message();
    return error.what();
}

}  // namespace bc
