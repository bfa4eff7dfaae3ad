#pragma once

#include <string_view>

#include <QLocale>
#include <QString>

namespace bc::app {

// The core's UTF-8 text as Qt text.
inline QString qs(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// A count as the user's locale writes numbers ("191,054" in English).
inline QString number(long long value) {
    return QLocale().toString(value);
}

// "1 attachment", "191,054 messages".
inline QString counted(long long value, const char* singular, const char* plural) {
    return number(value) + " " + (value == 1 ? singular : plural);
}

}  // namespace bc::app
