#pragma once

#include <optional>

#include <QPlainTextEdit>
#include <QTimer>

#include "model/Message.h"

namespace bc::app {

class AppModel;

// The private note of one message. What is typed is saved shortly after typing pauses, and at
// once when the field loses focus, another message is chosen or the window closes: a note is
// never lost because "Save Note" was not pressed.
class NoteEditor : public QPlainTextEdit {
    Q_OBJECT
public:
    NoteEditor(AppModel& model, QWidget* parent);

    // Shows the note of `message` (none: the field is cleared and disabled), first saving what
    // was typed for the message shown before.
    void edit(const Message* message);
    // Saves what was typed, when it differs from the saved note.
    void save();

protected:
    void focusOutEvent(QFocusEvent* event) override;

private:
    AppModel& model_;
    std::optional<Message> message_;
    QTimer pause_;
};

}  // namespace bc::app
