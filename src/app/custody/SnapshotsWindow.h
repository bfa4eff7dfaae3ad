#pragma once

#include <QDialog>

#include "custody/Preservation.h"

class QLabel;
class QPushButton;
class QTreeWidget;

namespace bc::app {

class AppModel;

// The sealed snapshots, newest first, with what can be done to one: take a new one, verify,
// read one as the source, or move one to the Trash after asking.
class SnapshotsWindow : public QDialog {
    Q_OBJECT
public:
    explicit SnapshotsWindow(AppModel& model, QWidget* parent = nullptr);

    // The chosen row's snapshot, if any.
    const SnapshotInfo* selected() const;
    // Chooses the row of the snapshot in this folder.
    void select(const std::string& folder);
    // The chosen snapshot's last verdict in full, one line per file concerned; empty if none.
    QString verdictText() const;
    // Asks before the selected snapshot goes to the Trash; a "yes" moves it.
    void trashSelected();

private:
    void showList();
    void showState();
    bool confirmTrash(const SnapshotInfo& snapshot);

    AppModel& model_;
    QTreeWidget* list_;
    QLabel* verdict_;
    QLabel* note_;
    QPushButton* take_;
    QPushButton* verify_;
    QPushButton* open_;
    QPushButton* trash_;
};

}  // namespace bc::app
