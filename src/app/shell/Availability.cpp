#include "app/shell/Availability.h"

#include <QAction>
#include <QVariant>

namespace bc::app {

namespace {

constexpr const char* usualTipProperty = "bcUsualToolTip";

// The tip the entry has when enabled, kept from the first time it is disabled.
QString usualTip(QObject& entry) {
    QVariant kept = entry.property(usualTipProperty);
    if (!kept.isValid()) {
        // An action without a tip of its own shows its text, which an empty tip gives back.
        kept = qobject_cast<QAction*>(&entry) ? QString() : entry.property("toolTip").toString();
        entry.setProperty(usualTipProperty, kept);
    }
    return kept.toString();
}

}  // namespace

void setAvailable(QObject& entry, const std::optional<QString>& whyNot) {
    const QString usual = usualTip(entry);
    entry.setProperty("enabled", !whyNot.has_value());
    entry.setProperty("toolTip", whyNot.value_or(usual));
    entry.setProperty("statusTip", whyNot.value_or(QString()));
}

std::optional<QString> reasonIf(bool applies, const QString& reason) {
    return applies ? std::optional(reason) : std::nullopt;
}

std::optional<QString> firstReason(std::initializer_list<std::optional<QString>> reasons) {
    for (const auto& reason : reasons)
        if (reason) return reason;
    return std::nullopt;
}

}  // namespace bc::app
