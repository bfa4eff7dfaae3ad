#include "sources/WhatsAppExportParser.h"

#include <unicode/calendar.h>
#include <unicode/regex.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "sources/WhatsAppDatabase.h"
#include "support/DateFormat.h"
#include "support/Errors.h"
#include "support/Text.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

// The invisible characters (U+200E, U+202F, U+00A0) stand in the pattern as themselves.
const char* const linePattern =
    "^\u200e?\\[?(\\d{1,4})[./-](\\d{1,2})[./-](\\d{1,4}),?\\s+(\\d{1,2}):(\\d{2})(?::(\\d{2}))?"
    "[\\s\u202f\u00a0]*([APap]\\.?[Mm]\\.?)?\\]?\\s*(?:-\\s)?(.*)$";
const char* const attachedPattern = "<attached:\\s*([^>]+)>";
const char* const fileAttachedPattern = "^(.+?\\.\\w{2,5}) \\(file attached\\)";
constexpr std::string_view leftToRightMark = "\u200e";
constexpr size_t longestSender = 80;

const icu::RegexPattern& compiled(const char* pattern) {
    UErrorCode status = U_ZERO_ERROR;
    auto* result = icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(pattern), 0, status);
    if (U_FAILURE(status))
        throw Error("Couldn't prepare the export reader: " + std::string(u_errorName(status)));
    return *result;
}

// Compiled once for the process; each parse makes its own matchers.
struct Patterns {
    const icu::RegexPattern& line = compiled(linePattern);
    const icu::RegexPattern& attached = compiled(attachedPattern);
    const icu::RegexPattern& fileAttached = compiled(fileAttachedPattern);
};

const Patterns& patterns() {
    static const Patterns shared;
    return shared;
}

std::unique_ptr<icu::RegexMatcher> matcher(const icu::RegexPattern& pattern) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> result(pattern.matcher(status));
    if (U_FAILURE(status))
        throw Error("Couldn't prepare the export reader: " + std::string(u_errorName(status)));
    return result;
}

struct RawLine {
    int line = 0;
    int a = 0, b = 0, c = 0;
    int hour = 0, minute = 0;
    std::optional<int> second;
    std::optional<std::string> ampm;
    std::string body;
};

std::string utf8(const icu::UnicodeString& text, int32_t start, int32_t end) {
    std::string out;
    text.tempSubStringBetween(start, end).toUTF8String(out);
    return out;
}

int number(const icu::UnicodeString& text, int32_t start, int32_t end) {
    int value = 0;
    for (int32_t i = start; i < end; ++i) value = value * 10 + u_charDigitValue(text.charAt(i));
    return value;
}

// The line pattern run through ICU: the reference, and the reader of every line the shortcut
// below leaves to it.
class PatternReader {
public:
    PatternReader() : matcher_(matcher(patterns().line)) {}

    std::optional<RawLine> read(std::string_view line, int lineNumber) {
        const icu::UnicodeString text = icu::UnicodeString::fromUTF8(
            icu::StringPiece(line.data(), static_cast<int32_t>(line.size())));
        UErrorCode status = U_ZERO_ERROR;
        matcher_->reset(text);
        if (!matcher_->matches(status) || U_FAILURE(status)) return std::nullopt;
        const auto group = [&](int g) {
            return std::pair{matcher_->start(g, status), matcher_->end(g, status)};
        };
        const auto value = [&](int g) {
            const auto [s, e] = group(g);
            return number(text, s, e);
        };
        RawLine raw{.line = lineNumber,
                    .a = value(1),
                    .b = value(2),
                    .c = value(3),
                    .hour = value(4),
                    .minute = value(5)};
        if (group(6).first >= 0) raw.second = value(6);
        if (const auto [s, e] = group(7); s >= 0) raw.ampm = utf8(text, s, e);
        const auto [s, e] = group(8);
        raw.body = utf8(text, s, e);
        return raw;
    }

private:
    std::unique_ptr<icu::RegexMatcher> matcher_;
};

// The same pattern run by hand over the UTF-8 bytes of the forms exports use, about twenty times
// faster. The pattern ends in "(.*)$", which matches whatever follows, so every optional part
// takes its greedy choice and nothing is ever backtracked. Whatever the shortcut cannot judge
// byte by byte (digits and spaces of other scripts, control characters, line separators) it
// leaves to the pattern: `undecided`.
class ShortcutReader {
public:
    enum class Verdict { match, noMatch, undecided };

    Verdict read(std::string_view line, RawLine& raw) {
        line_ = line;
        at_ = line.starts_with(leftToRightMark) ? leftToRightMark.size() : 0;
        if (byte() == '[') ++at_;
        if (byte() >= 0x80) return firstIsDigit() ? undecided : noMatch;
        Verdict verdict = Verdict::match;
        const auto field = [&](int fewest, int most, int& into) {
            if (verdict == Verdict::match) verdict = digits(fewest, most, into);
        };
        const auto separator = [&](std::string_view allowed) {
            if (verdict != Verdict::match) return;
            if (byte() >= 0 && allowed.find(static_cast<char>(byte())) != allowed.npos)
                ++at_;
            else
                verdict = Verdict::noMatch;
        };
        field(1, 4, raw.a);
        separator("./-");
        field(1, 2, raw.b);
        separator("./-");
        field(1, 4, raw.c);
        if (verdict != Verdict::match) return verdict;
        if (byte() == ',') ++at_;
        const size_t beforeSpace = at_;
        if (const auto spaces = skipSpaces(false); spaces != Verdict::match) return spaces;
        if (at_ == beforeSpace) return Verdict::noMatch;
        field(1, 2, raw.hour);
        separator(":");
        field(2, 2, raw.minute);  // the first two of a longer run; the rest is the body
        if (verdict != Verdict::match) return verdict;
        if (byte() == ':' && isDigit(byteAt(at_ + 1)) && isDigit(byteAt(at_ + 2))) {
            raw.second = (byteAt(at_ + 1) - '0') * 10 + (byteAt(at_ + 2) - '0');
            at_ += 3;
        } else if (byte() == ':' && (isOther(byteAt(at_ + 1)) || isOther(byteAt(at_ + 2)))) {
            return Verdict::undecided;
        }
        if (const auto spaces = skipSpaces(true); spaces != Verdict::match) return spaces;
        readMarker(raw);
        if (byte() == ']') ++at_;
        if (const auto spaces = skipSpaces(false); spaces != Verdict::match) return spaces;
        if (byte() == '-' && (byteAt(at_ + 1) == ' ' || byteAt(at_ + 1) == '\t')) {
            at_ += 2;
        } else if (byte() == '-' && isOther(byteAt(at_ + 1))) {
            return Verdict::undecided;
        }
        const std::string_view body = line_.substr(at_);
        if (holdsLineBreak(body)) return Verdict::undecided;
        raw.body.assign(body);
        return Verdict::match;
    }

private:
    static constexpr Verdict undecided = Verdict::undecided;
    static constexpr Verdict noMatch = Verdict::noMatch;

    int byteAt(size_t at) const {
        return at < line_.size() ? static_cast<unsigned char>(line_[at]) : -1;
    }
    int byte() const { return byteAt(at_); }
    static bool isDigit(int c) { return c >= '0' && c <= '9'; }
    // A byte whose meaning to the pattern depends on more than ASCII: a control character, or part
    // of a character beyond ASCII.
    static bool isOther(int c) { return c >= 0x80 || (c >= 0 && c < 0x20 && c != '\t'); }

    bool firstIsDigit() const {
        UChar32 c = 0;
        int32_t at = static_cast<int32_t>(at_);
        U8_NEXT(line_.data(), at, static_cast<int32_t>(line_.size()), c);
        return c >= 0 && u_isdigit(c);
    }

    // Between `fewest` and `most` ASCII digits, as the pattern's greedy run takes them.
    Verdict digits(int fewest, int most, int& into) {
        into = 0;
        int count = 0;
        while (count < most && isDigit(byte())) {
            into = into * 10 + (byte() - '0');
            ++at_;
            ++count;
        }
        // A digit of another script could continue the run.
        if (count < most && isOther(byte())) return undecided;
        return count < fewest ? noMatch : Verdict::match;
    }

    // Spaces and tabs; with `wide`, also the no-break spaces the pattern names.
    Verdict skipSpaces(bool wide) {
        while (true) {
            if (byte() == ' ' || byte() == '\t') {
                ++at_;
            } else if (wide && line_.substr(at_).starts_with("\u202f")) {
                at_ += 3;
            } else if (wide && line_.substr(at_).starts_with("\u00a0")) {
                at_ += 2;
            } else if (isOther(byte())) {
                return undecided;
            } else {
                return Verdict::match;
            }
        }
    }

    void readMarker(RawLine& raw) {
        const auto isOneOf = [](int c, std::string_view set) {
            return c >= 0 && set.find(static_cast<char>(c)) != set.npos;
        };
        if (!isOneOf(byte(), "APap")) return;
        size_t end = at_ + 1;
        if (byteAt(end) == '.') ++end;
        if (!isOneOf(byteAt(end), "Mm")) return;
        ++end;
        if (byteAt(end) == '.') ++end;
        raw.ampm = std::string(line_.substr(at_, end - at_));
        at_ = end;
    }

    // Characters that end a line for the pattern's "." and "$".
    static bool holdsLineBreak(std::string_view body) {
        for (size_t i = 0; i < body.size(); ++i) {
            const auto c = static_cast<unsigned char>(body[i]);
            if (c == '\r' || c == '\v' || c == '\f') return true;
            if (c == 0xC2 && body.substr(i).starts_with("\u0085")) return true;
            if (c == 0xE2 &&
                (body.substr(i).starts_with("\u2028") || body.substr(i).starts_with("\u2029")))
                return true;
        }
        return false;
    }

    std::string_view line_;
    size_t at_ = 0;
};

struct Scan {
    std::vector<RawLine> records;
    int leadingLines = 0;  // non-empty lines before the first timestamp
};

Scan scan(std::string_view text) {
    std::string joined;
    joined.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i)
        if (!(text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n')) joined += text[i];
    // Bytes that are not UTF-8 read as U+FFFD, exactly as ICU's conversion reads them.
    if (!text::isValidUtf8(joined)) {
        std::string repaired;
        icu::UnicodeString::fromUTF8(joined).toUTF8String(repaired);
        joined = std::move(repaired);
    }
    ShortcutReader shortcut;
    PatternReader pattern;
    Scan result;
    int lineNumber = 0;
    const std::string_view all(joined);
    for (size_t start = 0; start < all.size();) {
        const size_t end = std::min(all.find('\n', start), all.size());
        const std::string_view line = all.substr(start, end - start);
        ++lineNumber;
        RawLine raw{.line = lineNumber};
        const auto verdict = shortcut.read(line, raw);
        std::optional<RawLine> record;
        if (verdict == ShortcutReader::Verdict::match)
            record = std::move(raw);
        else if (verdict == ShortcutReader::Verdict::undecided)
            record = pattern.read(line, lineNumber);
        if (record) {
            result.records.push_back(std::move(*record));
        } else if (!result.records.empty()) {
            auto& body = result.records.back().body;
            body += '\n';
            body += line;
        } else if (!line.empty()) {
            ++result.leadingLines;
        }
        start = end + 1;
    }
    return result;
}

enum class Order { yearFirst, dayFirst, monthFirst };

std::string orderName(bool dayFirst) {
    return dayFirst ? "day/month" : "month/day";
}

Order decideOrder(const std::vector<RawLine>& records, const std::optional<bool>& override,
                  WhatsAppExportParser::Result& result) {
    const auto any = [&](auto test) { return std::any_of(records.begin(), records.end(), test); };
    if (any([](const RawLine& r) { return r.a >= 32; })) {
        result.notes.emplace_back("Dates read as year-month-day.");
        return Order::yearFirst;
    }
    if (any([](const RawLine& r) { return r.a >= 13; })) {
        result.notes.emplace_back(
            "Dates read as day/month (the file contains days above 12 in the first position).");
        result.dayFirst = true;
        return Order::dayFirst;
    }
    if (any([](const RawLine& r) { return r.b >= 13; })) {
        result.notes.emplace_back(
            "Dates read as month/day (the file contains days above 12 in the second position).");
        result.dayFirst = false;
        return Order::monthFirst;
    }
    bool dayFirst;
    std::string reason;
    if (override) {
        dayFirst = *override;
        reason = ", as fixed when it was first opened.";
    } else {
        dayFirst = std::string_view(icu::Locale::getDefault().getCountry()) != "US";
        reason = " based on this Mac's region.";
    }
    result.notes.push_back("Day/month order couldn't be determined from the file; read as " +
                           orderName(dayFirst) + reason);
    return dayFirst ? Order::dayFirst : Order::monthFirst;
}

// Wall-clock fields to instants in one zone. A chat's lines fall into comparatively few hours,
// so each hour's start is computed once and minutes and seconds are added to it.
class Dates {
public:
    explicit Dates(const std::string& zoneID) {
        UErrorCode status = U_ZERO_ERROR;
        calendar_.reset(icu::Calendar::createInstance(
            icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zoneID)),
            icu::Locale::getDefault(), status));
        if (U_FAILURE(status))
            throw Error("Couldn't prepare the calendar: " + std::string(u_errorName(status)));
    }

    // The instant, and whether the fields named a real date.
    std::pair<Date, bool> make(int year, int month, int day, int hour, int minute, int second) {
        if (minute < 60 && second < 60) {
            // Every field is below 10,000 (the pattern allows at most four digits).
            const int64_t key = ((int64_t{year} * 10000 + month) * 10000 + day) * 10000 + hour;
            auto found = hours_.find(key);
            if (found == hours_.end())
                found = hours_.emplace(key, compute(year, month, day, hour, 0, 0)).first;
            return {found->second.first + minute * 60 + second, found->second.second};
        }
        return compute(year, month, day, hour, minute, second);
    }

private:
    std::pair<Date, bool> compute(int year, int month, int day, int hour, int minute, int second) {
        UErrorCode status = U_ZERO_ERROR;
        calendar_->clear();
        calendar_->set(year, month - 1, day, hour, minute, second);
        const UDate millis = calendar_->getTime(status);
        const bool valid = calendar_->get(UCAL_YEAR, status) == year &&
                           calendar_->get(UCAL_MONTH, status) == month - 1 &&
                           calendar_->get(UCAL_DATE, status) == day &&
                           calendar_->get(UCAL_HOUR_OF_DAY, status) == hour &&
                           calendar_->get(UCAL_MINUTE, status) == minute;
        return {Date::fromUnix(millis / 1000.0), valid && U_SUCCESS(status)};
    }

    std::unique_ptr<icu::Calendar> calendar_;
    std::unordered_map<int64_t, std::pair<Date, bool>> hours_;
};

int clockHour(const RawLine& raw) {
    if (!raw.ampm) return raw.hour;
    std::string marker = text::toLowerAscii(*raw.ampm);
    std::erase(marker, '.');
    if (marker == "pm" && raw.hour < 12) return raw.hour + 12;
    if (marker == "am" && raw.hour == 12) return 0;
    return raw.hour;
}

size_t characters(std::string_view utf8Text) {
    return static_cast<size_t>(std::count_if(utf8Text.begin(), utf8Text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

void removeAll(std::string& text, std::string_view part) {
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at))
        text.erase(at, part.size());
}

bool isMediaOmitted(const std::string& lower) {
    static constexpr std::string_view phrases[] = {
        "image omitted", "video omitted",    "audio omitted",   "sticker omitted",
        "gif omitted",   "document omitted", "<media omitted>",
    };
    return std::find(std::begin(phrases), std::end(phrases), lower) != std::end(phrases) ||
           lower.ends_with("document omitted");
}

class MessageBuilder {
public:
    MessageBuilder(const WhatsAppExportParser::Options& options,
                   WhatsAppExportParser::Result& result)
        : options_(options),
          result_(result),
          attached_(matcher(patterns().attached)),
          fileAttached_(matcher(patterns().fileAttached)) {}

    // Fills a fresh `message` in place: a Message is large, and a parse makes hundreds of
    // thousands of them.
    void build(RawLine& raw, Date date, int64_t number, Message& message) {
        message.id = number;
        message.guid = options_.guidPrefix + std::to_string(number);
        message.date = date;
        removeAll(raw.body, leftToRightMark);
        const size_t colon = raw.body.find(": ");
        const std::string_view head(raw.body.data(), colon == std::string::npos ? 0 : colon);
        if (!head.empty() && characters(head) <= longestSender && head.find('\n') == head.npos) {
            message.sender = std::string(head);
            message.text = raw.body.substr(colon + 2);
            addParticipant(message.sender);
            message.isFromMe = options_.ownerName && message.sender == *options_.ownerName;
            if (message.isFromMe) message.sender.clear();
        } else {
            message.text = std::move(raw.body);
            message.systemNotice = "WhatsApp system message.";
        }
        message.textAsStored = message.text;
        addAttachments(message);
        applySpecialTexts(message);
    }

private:
    void addParticipant(const std::string& sender) {
        if (std::find(result_.participants.begin(), result_.participants.end(), sender) ==
            result_.participants.end())
            result_.participants.push_back(sender);
    }

    void addAttachments(Message& message) {
        const bool mayHold = message.text.find("<attached:") != std::string::npos ||
                             message.text.find(" (file attached)") != std::string::npos;
        if (!mayHold) return;
        const icu::UnicodeString text = icu::UnicodeString::fromUTF8(message.text);
        for (auto* found : {attached_.get(), fileAttached_.get()}) {
            found->reset(text);
            UErrorCode status = U_ZERO_ERROR;
            while (found->find(status) && U_SUCCESS(status))
                addAttachment(message, text::trim(utf8(text, found->start(1, status),
                                                       found->end(1, status))));
        }
    }

    void addAttachment(Message& message, const std::string& name) {
        Attachment attachment;
        attachment.id = message.id * 100 + static_cast<int64_t>(message.attachments.size());
        attachment.name = name;
        attachment.mimeType = whatsapp::mimeTypeForPath(name);
        // A name that could leave the media folder is never resolved against it.
        const bool escapes = name.empty() || name == "." || name == ".." ||
                             name.find_first_of("/\\") != std::string::npos;
        if (options_.mediaFolder && !escapes)
            attachment.path = (*options_.mediaFolder / name).string();
        message.attachments.push_back(std::move(attachment));
    }

    static void applySpecialTexts(Message& message) {
        static constexpr std::string_view editedMarker = "<this message was edited>";
        // Every special text is short or ends in one of these: most texts need no lower-cased copy.
        static constexpr size_t longestPhrase = 24;
        const auto endsWith = [&](std::string_view ending) {
            const std::string& text = message.text;
            return text.size() >= ending.size() &&
                   text::toLowerAscii(std::string_view(text).substr(text.size() - ending.size())) ==
                       ending;
        };
        if (message.text.size() > longestPhrase && !endsWith(editedMarker) &&
            !endsWith("document omitted"))
            return;
        std::string lower = text::toLowerAscii(message.text);
        if (lower.ends_with(editedMarker)) {
            message.isEdited = true;
            message.text =
                text::trim(message.text.substr(0, message.text.size() - editedMarker.size()));
            lower = text::toLowerAscii(message.text);
        }
        if (lower == "this message was deleted" || lower == "you deleted this message") {
            message.isUnsent = true;
            message.systemNotice =
                "Deleted in WhatsApp; the original content is not in the export.";
        } else if (isMediaOmitted(lower)) {
            message.systemNotice =
                "Media was not included in this WhatsApp export (" + message.text + ").";
        }
    }

    const WhatsAppExportParser::Options& options_;
    WhatsAppExportParser::Result& result_;
    std::unique_ptr<icu::RegexMatcher> attached_, fileAttached_;
};

}  // namespace

WhatsAppExportParser::Result WhatsAppExportParser::parse(std::string_view text,
                                                         const Options& options) {
    Scan scanned = scan(text);
    Result result;
    const Order order = decideOrder(scanned.records, options.dayFirstOverride, result);
    const std::string zone = options.timeZone.empty() ? dates::currentTimeZone() : options.timeZone;
    result.notes.push_back("WhatsApp exports have no time zone; times read as " + zone);
    if (std::any_of(scanned.records.begin(), scanned.records.end(),
                    [](const RawLine& r) { return !r.second; }))
        result.notes.emplace_back(
            "Some timestamps have minute precision only (Android export format).");
    if (scanned.leadingLines > 0)
        result.notes.push_back("The first " + std::to_string(scanned.leadingLines) +
                               " lines of text come before any timestamp and are not shown.");
    if (scanned.records.empty())
        result.notes.emplace_back("No dated messages were found in this file.");

    Dates dates(zone);
    MessageBuilder builder(options, result);
    result.messages.reserve(scanned.records.size());
    for (RawLine& raw : scanned.records) {
        const auto [year, month, day] = order == Order::yearFirst ? std::array{raw.a, raw.b, raw.c}
                                        : order == Order::dayFirst
                                            ? std::array{raw.c, raw.b, raw.a}
                                            : std::array{raw.c, raw.a, raw.b};
        const auto [date, valid] = dates.make(year < 100 ? year + 2000 : year, month, day,
                                              clockHour(raw), raw.minute, raw.second.value_or(0));
        if (!valid)
            result.notes.push_back("The timestamp on line " + std::to_string(raw.line) +
                                   " of the export isn't a valid date; it is shown as the calendar "
                                   "reads it.");
        const auto number = static_cast<int64_t>(result.messages.size()) + 1;
        builder.build(raw, date, number, result.messages.emplace_back());
    }
    return result;
}

std::string WhatsAppExportParser::decode(std::string_view bytes) {
    const auto startsWith = [&](std::string_view mark) { return bytes.starts_with(mark); };
    if (startsWith("\xEF\xBB\xBF")) return text::repairUtf8(bytes.substr(3));
    const char* codepage = startsWith("\xFF\xFE")   ? "UTF-16LE"
                           : startsWith("\xFE\xFF") ? "UTF-16BE"
                                                    : nullptr;
    if (!codepage) return text::repairUtf8(bytes);
    const std::string_view body = bytes.substr(2);
    const icu::UnicodeString wide(body.data(), static_cast<int32_t>(body.size()), codepage);
    std::string out;
    wide.toUTF8String(out);
    return out;
}

}  // namespace bc
