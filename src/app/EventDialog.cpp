#include "app/EventDialog.h"

#include <cmath>

#include <QDateTimeEdit>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTimeZone>

#include "app/AppModel.h"

namespace bc::app {

QDateTime toQDateTime(Date date) {
    return QDateTime::fromMSecsSinceEpoch(std::llround(date.toUnix() * 1000.0));
}

Date fromQDateTime(const QDateTime& dateTime) {
    return Date::fromUnix(static_cast<double>(dateTime.toMSecsSinceEpoch()) / 1000.0);
}

EventDialog::EventDialog(const TimelineEvent& event, QWidget* parent)
    : QDialog(parent),
      event_(event),
      when_(new QDateTimeEdit(toQDateTime(event.date), this)),
      title_(new QLineEdit(QString::fromStdString(event.title), this)),
      note_(new QPlainTextEdit(QString::fromStdString(event.note), this)) {
    setWindowTitle(event.title.empty() ? "Add Event" : "Edit Event");
    when_->setCalendarPopup(true);
    title_->setPlaceholderText("A hearing, a move…");
    auto* help = new QLabel(AppModel::eventHelp, this);
    help->setWordWrap(true);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    const auto updateSave = [this, buttons] {
        buttons->button(QDialogButtonBox::Save)->setEnabled(!title_->text().trimmed().isEmpty());
    };
    connect(title_, &QLineEdit::textChanged, this, updateSave);
    updateSave();

    auto* form = new QFormLayout(this);
    form->addRow("Date:", when_);
    form->addRow("Title:", title_);
    form->addRow("Note:", note_);
    form->addRow(help);
    form->addRow(buttons);
}

TimelineEvent EventDialog::event() const {
    TimelineEvent edited = event_;
    edited.date = fromQDateTime(when_->dateTime());
    edited.title = title_->text().trimmed().toStdString();
    edited.note = note_->toPlainText().toStdString();
    return edited;
}

}  // namespace bc::app
