#pragma once

#include <filesystem>

class QMenu;
class QWidget;

namespace bc::app {

class AppModel;

// The iPhone menu: importing a backup folder into a sealed import, which then opens.
QMenu* makeIPhoneMenu(AppModel& model, QWidget* parent);

// Asks for the password when the backup is encrypted, then imports it. A folder that is not a
// backup, or a password left empty, is reported in the status line and starts nothing.
void importIPhoneBackup(AppModel& model, const std::filesystem::path& folder, QWidget* parent);

}  // namespace bc::app
