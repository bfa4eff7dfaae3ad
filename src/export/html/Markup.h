#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Text made safe for the archive's page, its links and its file names.
namespace bc::html {

std::string escape(std::string_view text);
// Escapes the text and turns http://, https:// and www. links into anchors that open apart.
std::string linkify(std::string_view text);
// At most 120 characters of letters, digits, '.', '-' and '_'; "file" when nothing is left.
std::string safeFileName(std::string_view name);
// Percent-encodes all but unreserved characters and '/'.
std::string urlPath(std::string_view relativePath);
// Replaces each {{NAME}} of `values`; unknown names are left as they are.
std::string fill(std::string_view templateText,
                 const std::vector<std::pair<std::string, std::string>>& values);

}  // namespace bc::html
