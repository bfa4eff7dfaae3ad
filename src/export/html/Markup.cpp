#include "export/html/Markup.h"

#include <algorithm>
#include <cctype>

#include "support/Text.h"

namespace bc::html {

namespace {

bool isUrlSafe(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~' || c == '/';
}

bool startsWithNoCase(std::string_view text, size_t at, std::string_view prefix) {
    if (text.size() - at < prefix.size()) return false;
    for (size_t i = 0; i < prefix.size(); ++i) {
        char c = text[at + i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != prefix[i]) return false;
    }
    return true;
}

// Length of the link starting at `at`, or 0. Links start with http://, https:// or www. at a
// word start and end before white space or markup; closing punctuation stays outside.
size_t linkLength(std::string_view text, size_t at) {
    if (at > 0 && (std::isalnum(static_cast<unsigned char>(text[at - 1])) || text[at - 1] == '/'))
        return 0;
    size_t prefix = 0;
    for (std::string_view start : {"https://", "http://", "www."}) {
        if (startsWithNoCase(text, at, start)) prefix = start.size();
    }
    if (prefix == 0) return 0;
    size_t end = at;
    while (end < text.size() && !std::isspace(static_cast<unsigned char>(text[end])) &&
           text.find_first_of("<>\"'`", end) != end) {
        ++end;
    }
    while (end > at + prefix &&
           std::string_view(".,;:!?)]}").find(text[end - 1]) != std::string_view::npos)
        --end;
    return end > at + prefix ? end - at : 0;
}

}  // namespace

std::string escape(std::string_view text) {
    std::string out;
    out.reserve(text.size() + text.size() / 8);
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string linkify(std::string_view text) {
    std::string out;
    size_t plainStart = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i] | 0x20;
        if (c != 'h' && c != 'w') continue;
        const size_t length = linkLength(text, i);
        if (length == 0) continue;
        const std::string_view link = text.substr(i, length);
        const std::string href =
            escape(startsWithNoCase(link, 0, "www.") ? "https://" + std::string(link) : link);
        out += escape(text.substr(plainStart, i - plainStart));
        out +=
            "<a href=\"" + href + "\" target=\"_blank\" rel=\"noopener\">" + escape(link) + "</a>";
        i += length - 1;
        plainStart = i + 1;
    }
    out += escape(text.substr(plainStart));
    return out;
}

std::string safeFileName(std::string_view name) {
    const std::string trimmed = text::trim(name);
    std::string out;
    size_t characters = 0;
    for (size_t i = 0; i < trimmed.size() && characters < 120; ++i) {
        const auto c = static_cast<unsigned char>(trimmed[i]);
        if ((c & 0xC0) == 0x80) continue;  // the rest of a character already replaced
        ++characters;
        out += std::isalnum(c) || c == '.' || c == '-' || c == '_' ? static_cast<char>(c) : '_';
    }
    return out.empty() ? "file" : out;
}

std::string urlPath(std::string_view relativePath) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(relativePath.size());
    for (char ch : relativePath) {
        const auto c = static_cast<unsigned char>(ch);
        if (isUrlSafe(c)) {
            out += ch;
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

std::string fill(std::string_view templateText,
                 const std::vector<std::pair<std::string, std::string>>& values) {
    std::string out;
    size_t size = templateText.size();
    for (const auto& value : values) size += value.second.size();
    out.reserve(size);
    size_t at = 0;
    while (true) {
        const size_t open = templateText.find("{{", at);
        const size_t close =
            open == std::string_view::npos ? open : templateText.find("}}", open + 2);
        if (close == std::string_view::npos) break;
        const std::string_view name = templateText.substr(open + 2, close - open - 2);
        const auto value = std::find_if(values.begin(), values.end(),
                                        [&](const auto& v) { return v.first == name; });
        out += templateText.substr(at, open - at);
        if (value == values.end()) {
            out += templateText.substr(open, 2);
            at = open + 2;
            continue;
        }
        out += value->second;
        at = close + 2;
    }
    out += templateText.substr(at);
    return out;
}

}  // namespace bc::html
