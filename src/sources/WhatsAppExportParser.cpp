#include "sources/WhatsAppExportParser.h"

#include <unicode/calendar.h>
#include <unicode/regex.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

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

class LineReader {
public:
    explicit LineReader(const icu::UnicodeString& text)
        : text_(text), matcher_(matcher(patterns().line)) {
        matcher_->reset(text_);
    }

    // A record when the line starts a message, else nothing.
    std::optional<RawLine> read(int32_t start, int32_t end, int lineNumber) {
        UErrorCode status = U_ZERO_ERROR;
        matcher_->region(start, end, status);
        if (!matcher_->matches(status) || U_FAILURE(status)) return std::nullopt;
        const auto group = [&](int g) {
            return std::pair{matcher_->start(g, status), matcher_->end(g, status)};
        };
        const auto value = [&](int g) {
            const auto [s, e] = group(g);
            return number(text_, s, e);
        };
        RawLine raw{.line = lineNumber,
                    .a = value(1),
                    .b = value(2),
                    .c = value(3),
                    .hour = value(4),
                    .minute = value(5)};
        if (group(6).first >= 0) raw.second = value(6);
        if (const auto [s, e] = group(7); s >= 0) raw.ampm = utf8(text_, s, e);
        const auto [s, e] = group(8);
        raw.body = utf8(text_, s, e);
        return raw;
    }

private:
    const icu::UnicodeString& text_;
    std::unique_ptr<icu::RegexMatcher> matcher_;
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
    const icu::UnicodeString wide = icu::UnicodeString::fromUTF8(joined);
    LineReader reader(wide);
    Scan result;
    int lineNumber = 0;
    for (int32_t start = 0; start < wide.length();) {
        int32_t end = wide.indexOf(u'\n', start);
        if (end < 0) end = wide.length();
        ++lineNumber;
        if (auto record = reader.read(start, end, lineNumber)) {
            result.records.push_back(std::move(*record));
        } else if (!result.records.empty()) {
            result.records.back().body += "\n" + utf8(wide, start, end);
        } else if (end > start) {
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

    Message build(RawLine& raw, Date date, int64_t number) {
        Message message;
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
        return message;
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
        result.messages.push_back(
            builder.build(raw, date, static_cast<int64_t>(result.messages.size()) + 1));
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
