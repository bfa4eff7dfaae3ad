#include "app/evidence/EventDialog.h"

#include <cmath>

#include <QDateTimeEdit>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTimeZone>

#include "app/shell/AppModel.h"

namespace bc::app {

QDateTime toQDateTime(Date date) {
    return QDateTime::fromMSecsSinceEpoch(std::llround(date.toUnix() * 1000.0));
}

Date fromQDateTime(const QDateTime& dateTime) {
    return Date::fromUnix(static_cast<double>(dateTime.toMSecsSinceEpoch()) / 1000.0);
}

namespace {

// The locale's short date and time, but with the whole year: "3/4/26" is ambiguous in a record.
QString dateTimeFormat() {
    const QLocale locale;
    auto date = locale.dateFormat(QLocale::ShortFormat);
    if (!date.contains("yyyy")) date.replace("yy", "yyyy");
    return date + " " + locale.timeFormat(QLocale::ShortFormat);
}

QDateTime toTheMinute(const QDateTime& dateTime) {
    return dateTime.addSecs(-dateTime.time().second()).addMSecs(-dateTime.time().msec());
}

}  // namespace

EventDialog::EventDialog(const TimelineEvent& event, QWidget* parent)
    : QDialog(parent),
      event_(event),
      when_(new QDateTimeEdit(toQDateTime(event.date), this)),
      title_(new QLineEdit(QString::fromStdString(event.title), this)),
      note_(new QPlainTextEdit(QString::fromStdString(event.note), this)) {
    setWindowTitle(event.title.empty() ? "Add Event" : "Edit Event");
    when_->setCalendarPopup(true);
    when_->setDisplayFormat(dateTimeFormat());
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

TimelineEvent EventDialog::edited() const {
    TimelineEvent edited = event_;
    // The field shows minutes only, so an event carries no seconds the user never saw; only an
    // existing event whose time was left as it was keeps its own.
    const bool isNew = event_.title.empty();
    if (isNew || toTheMinute(when_->dateTime()) != toTheMinute(toQDateTime(event_.date)))
        edited.date = fromQDateTime(toTheMinute(when_->dateTime()));
    edited.title = title_->text().trimmed().toStdString();
    edited.note = note_->toPlainText().toStdString();
    return edited;
}

}  // namespace bc::app
