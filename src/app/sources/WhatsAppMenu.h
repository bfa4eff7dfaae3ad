#pragma once

class QMenu;
class QWidget;

namespace bc::app {

class AppModel;

// The WhatsApp menu: importing a chat, sealing WhatsApp for Mac's history, the open import's
// settings, and verifying or trashing any import. Entries that cannot act now are disabled each
// time it opens.
QMenu* makeWhatsAppMenu(AppModel& model, QWidget* parent);

// The open panel for a chat export (.zip, .txt) or a ChatStorage.sqlite; the chosen file is
// imported.
void chooseWhatsAppFile(AppModel& model, QWidget* parent);

// The open import's settings sheet over `parent`; saving reads the import again.
void editImportSettings(AppModel& model, QWidget* parent);

}  // namespace bc::app
