#pragma once

#include "export/ExportJob.h"

class QComboBox;
class QWidget;

namespace bc::app {

inline constexpr const char* standardDPILabel = "Standard · 144 dpi";
inline constexpr const char* printDPILabel = "Print · 300 dpi";

// Pickers that edit `settings` in place; it must outlive them (a member of the sheet).
QComboBox* paperPicker(ExportSettings& settings, QWidget* parent);
// A resolution the user never chose shows neither preset until they pick one.
QComboBox* dpiPicker(ExportSettings& settings, QWidget* parent);

}  // namespace bc::app
