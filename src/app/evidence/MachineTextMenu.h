#pragma once

#include <QString>

#include "evidence/MachineText.h"

class QMenu;
class QWidget;

namespace bc::app {

class AppModel;

// The Analysis menu: reading the text in the open conversation's photos and voice messages on
// this computer (a job in the status line, with Cancel), and a window showing what was read.
QMenu* makeMachineTextMenu(AppModel& model, QWidget* parent);

// Starts reading the open conversation's pending attachments; false when another job runs.
bool readPhotosAndVoiceMessages(AppModel& model);

// "3 photos or voice messages not read yet" for the open conversation's messages.
QString pendingCountText(const std::vector<Message>& messages, const MachineTextMap& texts);

// Every photo and voice message of `messages` with its text, label and engine, or why none
// is shown; plain text so it can be selected and copied.
QString machineTextListing(const std::vector<Message>& messages, const MachineTextMap& texts);

}  // namespace bc::app
