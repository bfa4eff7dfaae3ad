#pragma once

#include <string>
#include <vector>

namespace bc {

// Blacks out names, phrases and, on request, phone numbers and e-mail addresses in the text of an
// exhibit. Matching ignores case and diacritics; every merged match becomes one fixed block, so
// the result never tells how long the hidden text was.
class Redactor {
public:
    static constexpr const char* block = "\u2588\u2588\u2588\u2588\u2588\u2588";

    Redactor() = default;
    Redactor(const std::vector<std::string>& terms, bool contactDetails);

    const std::vector<std::string>& terms() const { return terms_; }
    bool contactDetails() const { return contactDetails_; }
    bool isActive() const { return !terms_.empty() || contactDetails_; }

    std::string apply(const std::string& text) const;

private:
    std::vector<std::string> terms_;  // trimmed, none empty
    bool contactDetails_ = false;
};

}  // namespace bc
