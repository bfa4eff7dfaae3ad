#include "sources/VCard.h"

#include <openssl/evp.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <map>

#include "support/Files.h"
#include "support/Sha256.h"
#include "support/Text.h"

namespace bc {

namespace {

// One content line: [group.]NAME;PARAM=VALUE;...:value
struct Property {
    std::string name;  // upper case, group removed
    std::multimap<std::string, std::string>
        params;  // keys upper case; a bare 2.1 parameter is a TYPE
    std::string value;

    bool hasParam(const std::string& key, std::string_view lowerCased) const {
        const auto [first, last] = params.equal_range(key);
        return std::any_of(first, last, [&](const auto& entry) {
            return text::toLowerAscii(entry.second) == lowerCased;
        });
    }
    std::string param(const std::string& key) const {
        const auto found = params.find(key);
        return found == params.end() ? std::string() : found->second;
    }
    bool isQuotedPrintable() const {
        return hasParam("ENCODING", "quoted-printable") || hasParam("TYPE", "quoted-printable");
    }
    bool isBase64() const {
        return hasParam("ENCODING", "b") || hasParam("ENCODING", "base64") ||
               hasParam("TYPE", "base64");
    }
};

std::string upper(std::string_view s) {
    std::string out(s);
    for (char& c : out) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return out;
}

bool startsWithNoCase(std::string_view s, std::string_view prefix) {
    return s.size() >= prefix.size() && text::toLowerAscii(s.substr(0, prefix.size())) == prefix;
}

// Files saved by some programs are UTF-16 with a byte-order mark; everything else is taken as UTF-8
// (per value character sets are handled later).
std::string utf8Text(std::string_view bytes) {
    if (bytes.starts_with("\xEF\xBB\xBF")) return std::string(bytes.substr(3));
    const bool little = bytes.starts_with("\xFF\xFE"), big = bytes.starts_with("\xFE\xFF");
    if (!little && !big) return std::string(bytes);
    std::string out;
    icu::UnicodeString(bytes.data() + 2, static_cast<int32_t>(bytes.size() - 2),
                       little ? "UTF-16LE" : "UTF-16BE")
        .toUTF8String(out);
    return out;
}

std::vector<std::string_view> physicalLines(std::string_view text) {
    std::vector<std::string_view> lines;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = text.find_first_of("\r\n", start);
        if (end == std::string_view::npos) {
            lines.push_back(text.substr(start));
            break;
        }
        lines.push_back(text.substr(start, end - start));
        start =
            end + ((text[end] == '\r' && end + 1 < text.size() && text[end + 1] == '\n') ? 2 : 1);
    }
    return lines;
}

// The part before the first ":" that is not inside double quotes; npos when there is none.
size_t valueSeparator(std::string_view line) {
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '"') quoted = !quoted;
        if (line[i] == ':' && !quoted) return i;
    }
    return std::string_view::npos;
}

bool isQuotedPrintableLine(std::string_view line) {
    const size_t separator = valueSeparator(line);
    return separator != std::string_view::npos &&
           upper(line.substr(0, separator)).find("QUOTED-PRINTABLE") != std::string::npos;
}

// Joins folded lines: a line opening with a space or tab continues the previous one, and so does
// the line after a quoted-printable value that ends in "=". A continuation with nothing before it
// is dropped.
std::vector<std::string> logicalLines(std::string_view text) {
    std::vector<std::string> lines;
    for (std::string_view line : physicalLines(text)) {
        const bool folded = !line.empty() && (line[0] == ' ' || line[0] == '\t');
        if (folded && !lines.empty()) {
            lines.back().append(line.substr(1));
        } else if (!lines.empty() && lines.back().ends_with('=') &&
                   isQuotedPrintableLine(lines.back())) {
            lines.back().pop_back();
            lines.back().append(line);
        } else if (!folded && !line.empty()) {
            lines.emplace_back(line);
        }
    }
    return lines;
}

std::vector<std::string> splitOutsideQuotes(std::string_view s, char separator) {
    std::vector<std::string> parts(1);
    bool quoted = false;
    for (char c : s) {
        if (c == '"') quoted = !quoted;
        if (c == separator && !quoted) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

std::string unquoted(std::string_view s) {
    if (s.size() >= 2 && s.front() == '"' && s.back() == '"')
        return std::string(s.substr(1, s.size() - 2));
    return std::string(s);
}

std::optional<Property> parseProperty(std::string_view line) {
    const size_t separator = valueSeparator(line);
    if (separator == std::string_view::npos) return std::nullopt;
    const auto head = splitOutsideQuotes(line.substr(0, separator), ';');
    Property property;
    const std::string& name = head.front();
    property.name = upper(
        text::trim(name.substr(name.rfind('.') == std::string::npos ? 0 : name.rfind('.') + 1)));
    if (property.name.empty()) return std::nullopt;
    for (size_t i = 1; i < head.size(); ++i) {
        const size_t equals = head[i].find('=');
        if (equals == std::string::npos) {
            property.params.emplace("TYPE", text::trim(head[i]));
            continue;
        }
        const std::string key = upper(text::trim(head[i].substr(0, equals)));
        for (const std::string& value : splitOutsideQuotes(head[i].substr(equals + 1), ',')) {
            property.params.emplace(key, unquoted(text::trim(value)));
        }
    }
    property.value = std::string(line.substr(separator + 1));
    return property;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// "=XX" escapes; a stray "=" stays as it is.
std::string decodeQuotedPrintable(std::string_view value) {
    std::string out;
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] == '=' && i + 2 < value.size()) {
            const int high = hexDigit(value[i + 1]), low = hexDigit(value[i + 2]);
            if (high >= 0 && low >= 0) {
                out += static_cast<char>(high * 16 + low);
                i += 2;
                continue;
            }
        }
        out += value[i];
    }
    return out;
}

std::optional<std::string> decodeBase64(std::string_view value) {
    std::string clean;
    for (char c : value) {
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n') clean += c;
    }
    while (clean.size() % 4 != 0) clean += '=';
    if (clean.empty()) return std::nullopt;
    std::string out(clean.size() / 4 * 3, '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                       reinterpret_cast<const unsigned char*>(clean.data()),
                                       static_cast<int>(clean.size()));
    if (length < 0) return std::nullopt;
    const auto padding = clean.size() - clean.find_last_not_of('=') - 1;
    out.resize(static_cast<size_t>(length) - std::min<size_t>(padding, 2));
    return out;
}

// The value as UTF-8 text: quoted-printable undone, a declared character set converted.
std::string decodedText(const Property& property) {
    const std::string bytes =
        property.isQuotedPrintable() ? decodeQuotedPrintable(property.value) : property.value;
    const std::string charset = property.param("CHARSET");
    if (!charset.empty() && text::toLowerAscii(charset) != "utf-8") {
        const icu::UnicodeString converted(bytes.data(), static_cast<int32_t>(bytes.size()),
                                           charset.c_str());
        if (!converted.isBogus()) {
            std::string out;
            return converted.toUTF8String(out);
        }
    }
    return text::repairUtf8(bytes);
}

// Components split at unescaped ";" with the text escapes (\n \, \; \\) undone.
std::vector<std::string> textComponents(std::string_view value) {
    std::vector<std::string> parts(1);
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] == '\\' && i + 1 < value.size()) {
            const char next = value[++i];
            parts.back() += (next == 'n' || next == 'N') ? '\n' : next;
        } else if (value[i] == ';') {
            parts.emplace_back();
        } else {
            parts.back() += value[i];
        }
    }
    return parts;
}

std::string component(const std::vector<std::string>& parts, size_t index) {
    return index < parts.size() ? text::trim(parts[index]) : std::string();
}

std::string withoutScheme(std::string value, std::string_view scheme) {
    value = text::trim(value);
    return startsWithNoCase(value, scheme) ? value.substr(scheme.size()) : value;
}

// Inline photos only: base64 with an encoding parameter, or a "data:" URI. A link to elsewhere is
// not fetched.
std::optional<std::string> photoBytes(const Property& property) {
    std::optional<std::string> bytes;
    if (property.isBase64()) {
        bytes = decodeBase64(property.value);
    } else if (startsWithNoCase(property.value, "data:")) {
        const size_t comma = property.value.find(',');
        const std::string header = text::toLowerAscii(property.value.substr(0, comma));
        if (comma != std::string::npos && header.ends_with(";base64")) {
            bytes = decodeBase64(std::string_view(property.value).substr(comma + 1));
        }
    }
    if (bytes && looksLikeImage(*bytes)) return bytes;
    return std::nullopt;
}

class CardBuilder {
public:
    void add(const Property& property, std::string_view line) {
        source_.append(line).append("\n");
        const std::string& name = property.name;
        if (name == "FN") {
            formatted_ = component(textComponents(decodedText(property)), 0);
        } else if (name == "N") {
            structured_ = textComponents(decodedText(property));
        } else if (name == "ORG") {
            organization_ = component(textComponents(decodedText(property)), 0);
        } else if (name == "NICKNAME") {
            nickname_ = component(textComponents(decodedText(property)), 0);
        } else if (name == "UID") {
            card_.identifier = text::trim(decodedText(property));
        } else if (name == "TEL") {
            addUnique(card_.phones, withoutScheme(decodedText(property), "tel:"));
        } else if (name == "EMAIL") {
            addUnique(card_.emails, withoutScheme(decodedText(property), "mailto:"));
        } else if (name == "PHOTO" && !card_.photo) {
            card_.photo = photoBytes(property);
        }
    }

    ContactCard finish() {
        card_.name = !formatted_.empty()
                         ? formatted_
                         : composeName(component(structured_, 1), component(structured_, 0),
                                       organization_, nickname_);
        // Without a UID the card's own text names it, so the same card gets the same identity each
        // load.
        if (card_.identifier.empty())
            card_.identifier = "vcard:" + Sha256::hex(source_).substr(0, 32);
        return std::move(card_);
    }

private:
    static void addUnique(std::vector<std::string>& list, std::string value) {
        if (!value.empty() && std::find(list.begin(), list.end(), value) == list.end())
            list.push_back(std::move(value));
    }

    ContactCard card_;
    std::string source_, formatted_, organization_, nickname_;
    std::vector<std::string> structured_;
};

}  // namespace

std::vector<ContactCard> VCard::parse(std::string_view text) {
    std::vector<ContactCard> cards;
    std::optional<CardBuilder> current;
    for (const std::string& line : logicalLines(utf8Text(text))) {
        const auto property = parseProperty(line);
        if (!property) continue;
        const bool isVCard = text::toLowerAscii(text::trim(property->value)) == "vcard";
        if (property->name == "BEGIN" && isVCard) {
            // A card that never ended is kept as far as it went.
            if (current) cards.push_back(current->finish());
            current.emplace();
        } else if (property->name == "END" && isVCard) {
            if (current) cards.push_back(current->finish());
            current.reset();
        } else if (current) {
            current->add(*property, line);
        }
    }
    if (current) cards.push_back(current->finish());
    return cards;
}

std::vector<ContactCard> VCard::readFile(const std::filesystem::path& file) {
    return parse(files::readFile(file));
}

}  // namespace bc
