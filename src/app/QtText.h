#pragma once

#include <string_view>

#include <QString>

namespace bc::app {

// The core's UTF-8 text as Qt text.
inline QString qs(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace bc::app
