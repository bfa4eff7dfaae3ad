#include "export/Redactor.h"

#include <unicode/coll.h>
#include <unicode/regex.h>
#include <unicode/stsearch.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "model/Message.h"
#include "support/Errors.h"
#include "support/Text.h"

namespace bc {

namespace {

using Range = std::pair<int32_t, int32_t>;  // UTF-16 start and end

constexpr const char* emailPattern = R"([A-Z0-9._%+-]+@[A-Z0-9.-]+\.[A-Z]{2,})";
constexpr const char* phonePattern =
    R"((?<![\w+])(?:\+?\d{1,3}[\s.-]?)?(?:\(?\d{3}\)?[\s.-]?)?\d{3}[\s.-]?\d{4}(?![\w]))";

void check(UErrorCode status, const std::string& what) {
    if (U_FAILURE(status)) throw Error("Couldn't redact the text: " + what + u_errorName(status));
}

// Primary strength compares base letters only: "ann" finds "Anne", "ANN" and "Änn".
std::unique_ptr<icu::Collator> primaryCollator() {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(
        icu::Collator::createInstance(icu::Locale::getRoot(), status));
    check(status, "no collator: ");
    collator->setStrength(icu::Collator::PRIMARY);
    return collator;
}

void addTermMatches(const icu::UnicodeString& text, const std::string& term,
                    icu::RuleBasedCollator& collator, std::vector<Range>& ranges) {
    UErrorCode status = U_ZERO_ERROR;
    icu::StringSearch search(icu::UnicodeString::fromUTF8(term), text, &collator, nullptr, status);
    check(status, "term search: ");
    for (int32_t at = search.first(status); U_SUCCESS(status) && at != USEARCH_DONE;
         at = search.next(status))
        ranges.emplace_back(at, at + search.getMatchedLength());
    check(status, "term search: ");
}

void addPatternMatches(const icu::UnicodeString& text, const char* pattern,
                       std::vector<Range>& ranges) {
    UErrorCode status = U_ZERO_ERROR;
    icu::RegexMatcher matcher(icu::UnicodeString::fromUTF8(pattern), text, UREGEX_CASE_INSENSITIVE,
                              status);
    check(status, "pattern: ");
    while (matcher.find(status) && U_SUCCESS(status))
        ranges.emplace_back(matcher.start(status), matcher.end(status));
    check(status, "pattern: ");
}

// Sorted by start; ranges that overlap or touch become one.
std::vector<Range> merged(std::vector<Range> ranges) {
    std::sort(ranges.begin(), ranges.end());
    std::vector<Range> out;
    for (const Range& range : ranges) {
        if (!out.empty() && range.first <= out.back().second)
            out.back().second = std::max(out.back().second, range.second);
        else
            out.push_back(range);
    }
    return out;
}

}  // namespace

Redactor::Redactor(const std::vector<std::string>& terms, bool contactDetails)
    : contactDetails_(contactDetails) {
    for (const std::string& term : terms)
        if (std::string trimmed = text::trim(term); !trimmed.empty())
            terms_.push_back(std::move(trimmed));
}

std::string Redactor::apply(const std::string& original) const {
    if (!isActive() || original.empty()) return original;
    icu::UnicodeString text = icu::UnicodeString::fromUTF8(original);
    std::vector<Range> ranges;
    if (!terms_.empty()) {
        auto collator = primaryCollator();
        auto* ruleBased = dynamic_cast<icu::RuleBasedCollator*>(collator.get());
        if (ruleBased == nullptr) throw Error("Couldn't redact the text: no rule-based collator.");
        for (const std::string& term : terms_) addTermMatches(text, term, *ruleBased, ranges);
    }
    if (contactDetails_) {
        addPatternMatches(text, emailPattern, ranges);
        addPatternMatches(text, phonePattern, ranges);
    }
    const std::vector<Range> blocks = merged(std::move(ranges));
    const icu::UnicodeString replacement = icu::UnicodeString::fromUTF8(block);
    for (auto range = blocks.rbegin(); range != blocks.rend(); ++range)
        text.replace(range->first, range->second - range->first, replacement);
    std::string out;
    return text.toUTF8String(out);
}

Message Message::redacted(const Redactor& redactor) const {
    Message copy = *this;
    copy.text = redactor.apply(copy.text);
    for (EditVersion& version : copy.editHistory)
        if (version.text) version.text = redactor.apply(*version.text);
    for (RecoveredPart& part : copy.recoveredParts)
        if (part.text) part.text = redactor.apply(*part.text);
    return copy;
}

}  // namespace bc
