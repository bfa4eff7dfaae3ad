#pragma once

#include <QComboBox>

namespace bc::app {

class AppModel;

// Chooses what is read: Live Messages, WhatsApp for Mac when this machine has it, any sealed
// snapshot or import, or a Messages database file. Shows the open source; choosing another opens
// it.
class SourceSwitcher : public QComboBox {
    Q_OBJECT
public:
    static constexpr const char* liveText = "Live Messages";
    static constexpr const char* openFileText = "Open a Messages database file…";
    static constexpr const char* whatsAppMacText = "WhatsApp for Mac";
    static constexpr const char* importText = "Import WhatsApp Chat…";

    explicit SourceSwitcher(AppModel& model, QWidget* parent = nullptr);

    // Acts as if the user chose that entry.
    void choose(int index);

signals:
    // The file dialogs are the window's to show.
    void openFileRequested();
    void importRequested();

private:
    void showSources();

    AppModel& model_;
};

}  // namespace bc::app
