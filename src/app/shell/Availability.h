#pragma once

#include <initializer_list>
#include <optional>

#include <QString>

class QObject;

namespace bc::app {

// Enables a menu entry or button, or disables it with the reason as its tooltip and status tip,
// so that a greyed-out entry says why instead of refusing once chosen. Works on anything with
// the enabled, toolTip and statusTip properties (QAction, QWidget); its own tip returns once
// it is enabled again.
void setAvailable(QObject& entry, const std::optional<QString>& whyNot);

// `reason` when `applies`, else none.
std::optional<QString> reasonIf(bool applies, const QString& reason);
// The first of several reasons that is given, if any.
std::optional<QString> firstReason(std::initializer_list<std::optional<QString>> reasons);

}  // namespace bc::app
