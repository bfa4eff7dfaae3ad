#include "app/export/ExportSheet.h"
#include "app/shell/QtText.h"

#include <algorithm>

#include <QComboBox>
#include <QDateEdit>
#include <QDialogButtonBox>
#include <QDir>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>

#include "support/Calendar.h"
#include "support/DateFormat.h"

namespace bc::app {

namespace {

// Days cross between Qt and the model as "yyyy-MM-dd" in the model's own time zone, which need
// not be Qt's.
QDate dayOf(Date date) {
    return QDate::fromString(qs(dates::formatPattern(date, "yyyy-MM-dd", "en_US_POSIX")),
                             Qt::ISODate);
}

Date startOf(const QDate& day) {
    return Calendar().parseDay(day.toString(Qt::ISODate).toStdString()).value_or(Date{});
}

// The people's names first, then the chat's own address, which tells the same person's chats
// apart.
QString chatLabel(const Chat& chat, const ExportSheet::NameFor& nameFor) {
    QStringList names;
    if (!chat.displayName.empty()) {
        names << qs(chat.displayName);
    } else {
        for (const auto& handle : chat.participants)
            if (auto name = nameFor(handle); name != handle) names << qs(name);
    }
    names << qs(chat.identifier) << qs(chat.service)
          << counted(chat.messageCount, "message", "messages");
    return names.join(" · ");
}

QDateEdit* dayEdit(const QDate& day, const QDate& first, const QDate& last, QWidget* parent) {
    auto* edit = new QDateEdit(day, parent);
    edit->setCalendarPopup(true);
    edit->setDisplayFormat("yyyy-MM-dd");
    edit->setDateRange(first, last);
    return edit;
}

}  // namespace

ExportSheet::ExportSheet(ExportRequest request, const QString& folder, const NameFor& nameFor,
                         QWidget* parent)
    : QDialog(parent), request_(std::move(request)) {
    setWindowTitle("Export");
    // Wide enough for a conversation's name, service and count on one line.
    setMinimumWidth(560);
    auto* form = new QFormLayout(this);
    addFormatPicker();
    addSources(nameFor);
    title_ = new QLineEdit(qs(request_.title), this);
    title_->setObjectName("title");
    connect(title_, &QLineEdit::textEdited, this, [this](const QString& text) {
        request_.title = text.toStdString();
        refresh();
    });
    form->addRow("Format:", format_);
    form->addRow("Conversations:", sources_);
    form->addRow("Title:", title_);
    addPeriod();
    form->addRow("From:", from_);
    form->addRow("To:", to_);
    addPageChoices();
    form->addRow("Paper:", paper_);
    form->addRow("Page images:", dpi_);
    baseName_ = new QLabel(this);
    baseName_->setObjectName("baseName");
    baseName_->setWordWrap(true);
    baseName_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    form->addRow("Saved as:", baseName_);
    auto* where = new QLabel(QDir::toNativeSeparators(folder), this);
    where->setObjectName("folder");
    where->setWordWrap(true);
    where->setTextInteractionFlags(Qt::TextSelectableByMouse);
    form->addRow("In folder:", where);

    auto* buttons = new QDialogButtonBox(this);
    export_ = buttons->addButton("Export", QDialogButtonBox::AcceptRole);
    export_->setObjectName("export");
    export_->setDefault(true);
    buttons->addButton(QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
    refresh();
}

void ExportSheet::addFormatPicker() {
    format_ = new QComboBox(this);
    format_->setObjectName("format");
    for (const auto format : rangeExportFormat::allCases)
        format_->addItem(qs(rangeExportFormat::shortName(format)),
                         qs(rangeExportFormat::rawValue(format)));
    format_->setCurrentIndex(format_->findData(qs(rangeExportFormat::rawValue(request_.format))));
    connect(format_, &QComboBox::currentIndexChanged, this, [this] {
        request_.format = rangeExportFormat::named(format_->currentData().toString().toStdString())
                              .value_or(request_.format);
        refresh();
    });
}

void ExportSheet::addSources(const NameFor& nameFor) {
    sources_ = new QListWidget(this);
    sources_->setObjectName("sources");
    sources_->setMaximumHeight(110);
    for (const auto& source : request_.sources) {
        auto* item = new QListWidgetItem(chatLabel(source.chat, nameFor), sources_);
        item->setFlags(Qt::ItemIsUserCheckable | Qt::ItemIsEnabled);
        item->setCheckState(source.included ? Qt::Checked : Qt::Unchecked);
    }
    connect(sources_, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
        request_.sources[static_cast<size_t>(sources_->row(item))].included =
            item->checkState() == Qt::Checked;
        refresh();
    });
}

void ExportSheet::addPeriod() {
    // A timeline period may begin before the first message or end after the last.
    const QDate first = std::min(dayOf(request_.earliest), dayOf(request_.from));
    const QDate last = std::max(dayOf(request_.latest), dayOf(request_.to));
    from_ = dayEdit(dayOf(request_.from), first, last, this);
    from_->setObjectName("from");
    to_ = dayEdit(dayOf(request_.to), first, last, this);
    to_->setObjectName("to");
    connect(from_, &QDateEdit::dateChanged, this, &ExportSheet::periodEdited);
    connect(to_, &QDateEdit::dateChanged, this, &ExportSheet::periodEdited);
}

void ExportSheet::periodEdited() {
    request_.from = startOf(from_->date());
    request_.to = startOf(to_->date());
    request_.fileLabel.reset();
    refresh();
}

void ExportSheet::addPageChoices() {
    paper_ = paperPicker(request_.settings, this);
    dpi_ = dpiPicker(request_.settings, this);
}

void ExportSheet::refresh() {
    baseName_->setText(qs(request_.baseName()));
    dpi_->setEnabled(request_.format == RangeExportFormat::jpg);
    const bool anyIncluded = !request_.chatIDs().empty();
    const bool ordered = from_->date() <= to_->date();
    export_->setEnabled(anyIncluded && ordered && !title_->text().trimmed().isEmpty());
}

}  // namespace bc::app
