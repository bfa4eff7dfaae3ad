#pragma once

#include <QDialog>

#include "model/TimelineEvent.h"

class QDateTimeEdit;
class QLineEdit;
class QPlainTextEdit;

namespace bc::app {

// Edits one of the user's timeline events: when, a title and a note.
class EventDialog : public QDialog {
    Q_OBJECT
public:
    EventDialog(const TimelineEvent& event, QWidget* parent = nullptr);

    // The event as edited.
    TimelineEvent edited() const;

private:
    TimelineEvent event_;
    QDateTimeEdit* when_;
    QLineEdit* title_;
    QPlainTextEdit* note_;
};

QDateTime toQDateTime(Date date);
Date fromQDateTime(const QDateTime& dateTime);

}  // namespace bc::app
