#include "app/evidence/NoteEditor.h"

#include "app/shell/AppModel.h"
#include "app/shell/QtText.h"

namespace bc::app {

namespace {
constexpr int pauseBeforeSavingMs = 600;
}

NoteEditor::NoteEditor(AppModel& model, QWidget* parent) : QPlainTextEdit(parent), model_(model) {
    setObjectName("note");
    setPlaceholderText("Add a private note");
    pause_.setSingleShot(true);
    pause_.setInterval(pauseBeforeSavingMs);
    connect(&pause_, &QTimer::timeout, this, &NoteEditor::save);
    connect(this, &QPlainTextEdit::textChanged, this, [this] {
        if (message_) pause_.start();
    });
}

void NoteEditor::edit(const Message* message) {
    const bool usable = message && !message->isUserEvent();
    // The same message again (its flag changed, say): the text being typed stays as it is.
    if (usable && message_ && message_->guid == message->guid) return;
    save();
    message_.reset();
    setPlainText(usable ? qs(model_.noteFor(*message)) : QString());
    setEnabled(usable);
    if (usable) message_ = *message;
}

void NoteEditor::save() {
    pause_.stop();
    if (!message_) return;
    const auto typed = toPlainText().toStdString();
    if (typed != model_.noteFor(*message_)) model_.setNote(typed, *message_);
}

void NoteEditor::focusOutEvent(QFocusEvent* event) {
    save();
    QPlainTextEdit::focusOutEvent(event);
}

}  // namespace bc::app
