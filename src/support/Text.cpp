#include "support/Text.h"

#include <unicode/brkiter.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <memory>
#include <optional>

#include "support/Errors.h"

namespace bc::text {

namespace {

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

// Walks the grapheme boundaries of UTF-8 text by byte offset, up to and including the end.
class GraphemeBoundaries {
public:
    explicit GraphemeBoundaries(std::string_view utf8) {
        UErrorCode status = U_ZERO_ERROR;
        text_ = utext_openUTF8(nullptr, utf8.data(), static_cast<int64_t>(utf8.size()), &status);
        breaks_.reset(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        if (U_SUCCESS(status)) breaks_->setText(text_, status);
        if (U_FAILURE(status)) {
            utext_close(text_);
            throw Error(std::string("Couldn't find the characters of a text: ") +
                        u_errorName(status) + ".");
        }
        breaks_->first();
    }
    ~GraphemeBoundaries() { utext_close(text_); }
    GraphemeBoundaries(const GraphemeBoundaries&) = delete;
    GraphemeBoundaries& operator=(const GraphemeBoundaries&) = delete;

    // The byte offset after the next character, or nothing at the end of the text.
    std::optional<size_t> next() {
        const int32_t at = breaks_->next();
        if (at == icu::BreakIterator::DONE) return std::nullopt;
        return static_cast<size_t>(at);
    }

private:
    UText* text_ = nullptr;
    std::unique_ptr<icu::BreakIterator> breaks_;
};

}  // namespace

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

size_t graphemeCount(std::string_view utf8) {
    GraphemeBoundaries boundaries(utf8);
    size_t count = 0;
    while (boundaries.next()) ++count;
    return count;
}

std::string firstGraphemes(std::string_view utf8, size_t limit, size_t maxBytes) {
    GraphemeBoundaries boundaries(utf8);
    size_t kept = 0;
    for (size_t count = 0; count < limit; ++count) {
        const auto end = boundaries.next();
        if (!end || *end > maxBytes) break;
        kept = *end;
    }
    return std::string(utf8.substr(0, kept));
}

}  // namespace bc::text
