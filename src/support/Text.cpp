#include "support/Text.h"

#include <unicode/utf8.h>

namespace bc::text {

namespace {
constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";
}

std::string repairUtf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    const auto* s = reinterpret_cast<const uint8_t*>(bytes.data());
    const auto length = static_cast<int32_t>(bytes.size());
    int32_t validFrom = 0;  // start of the run of valid text not yet copied
    int32_t i = 0;
    while (i < length) {
        if (s[i] < 0x80) {  // most stored text is ASCII: step over it without decoding
            ++i;
            continue;
        }
        const int32_t start = i;
        UChar32 c;
        U8_NEXT(s, i, length, c);
        if (c < 0) {
            out.append(bytes.substr(static_cast<size_t>(validFrom),
                                    static_cast<size_t>(start - validFrom)));
            out += replacementCharacter;
            validFrom = i;
        }
    }
    out.append(bytes.substr(static_cast<size_t>(validFrom)));
    return out;
}

bool isValidUtf8(std::string_view bytes) {
    const auto* s = reinterpret_cast<const uint8_t*>(bytes.data());
    const auto length = static_cast<int32_t>(bytes.size());
    int32_t i = 0;
    while (i < length) {
        UChar32 c;
        U8_NEXT(s, i, length, c);
        if (c < 0) return false;
    }
    return true;
}

std::string toLowerAscii(std::string_view s) {
    std::string out(s);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

std::string trim(std::string_view s) {
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    size_t begin = 0, end = s.size();
    while (begin < end && isSpace(s[begin])) ++begin;
    while (end > begin && isSpace(s[end - 1])) --end;
    return std::string(s.substr(begin, end - begin));
}

}  // namespace bc::text
