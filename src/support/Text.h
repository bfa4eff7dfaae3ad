#pragma once

#include <string>
#include <string_view>

namespace bc::text {

// Returns the bytes as valid UTF-8: every invalid sequence becomes U+FFFD, never dropped.
std::string repairUtf8(std::string_view bytes);

bool isValidUtf8(std::string_view bytes);

std::string toLowerAscii(std::string_view s);

std::string trim(std::string_view s);

}  // namespace bc::text
