#pragma once

#include <QString>

#include "export/ExportPeriod.h"

class QMenu;
class QWidget;

namespace bc::app {

class AppModel;

// The Export menu: the export sheet for each format, the plain formats of the selected
// conversation and of every conversation, the deliverables for counsel, and Cancel. Its entries
// wait while a job runs.
QMenu* makeExportMenu(AppModel& model, QWidget* parent);

// The timeline's quick exports of one period, named by it ("Export October 2026 as PDF"), and
// the sheet for it.
void addPeriodExports(QMenu& menu, AppModel& model, const ExportPeriod& period);

// Answers the model's requests for the export, exhibit and bundle sheets over `parent` and starts
// what they return.
void answerExportOptions(AppModel& model, QWidget* parent);

}  // namespace bc::app
