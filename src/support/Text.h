#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>

namespace bc::text {

// Returns the bytes as valid UTF-8: every invalid sequence becomes U+FFFD, never dropped.
std::string repairUtf8(std::string_view bytes);

bool isValidUtf8(std::string_view bytes);

std::string toLowerAscii(std::string_view s);

std::string trim(std::string_view s);

// Characters as a reader sees them (grapheme clusters): a flag, a family emoji or a letter with
// its combining accent each count once.
size_t graphemeCount(std::string_view utf8);

// The leading whole characters, at most `limit` of them and at most `maxBytes` bytes, so that no
// cut ever splits a character a reader sees as one.
std::string firstGraphemes(std::string_view utf8, size_t limit,
                           size_t maxBytes = std::numeric_limits<size_t>::max());

}  // namespace bc::text
