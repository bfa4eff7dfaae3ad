#include "app/export/ExhibitSheet.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>

#include "app/export/PagePickers.h"
#include "app/shell/QtText.h"

namespace bc::app {

namespace {

QCheckBox* checkBox(const char* text, bool& value, QWidget* parent) {
    auto* box = new QCheckBox(text, parent);
    box->setChecked(value);
    QObject::connect(box, &QCheckBox::toggled, box, [&value](bool on) { value = on; });
    return box;
}

}  // namespace

ExhibitSheet::ExhibitSheet(ExhibitRequest request, NextBates nextBates, QWidget* parent)
    : QDialog(parent), request_(std::move(request)), nextBates_(std::move(nextBates)) {
    setWindowTitle("Build Exhibit");
    setMinimumWidth(520);
    auto* form = new QFormLayout(this);

    auto* label = new QLineEdit(qs(request_.label), this);
    label->setObjectName("label");
    connect(label, &QLineEdit::textEdited, this,
            [this](const QString& text) { request_.label = text.toStdString(); });
    form->addRow("Label:", label);

    auto* prefix = new QLineEdit(qs(request_.batesPrefix), this);
    prefix->setObjectName("batesPrefix");
    prefix->setPlaceholderText(batesHint);
    connect(prefix, &QLineEdit::textEdited, this, &ExhibitSheet::prefixEdited);
    form->addRow("Bates prefix:", prefix);
    batesStart_ = counter(static_cast<int>(request_.batesStart), 999'999'999, "batesStart",
                          [this](int value) { request_.batesStart = value; });
    batesStart_->setMinimum(1);
    form->addRow("First Bates number", batesStart_);
    form->addRow("Messages before each flag",
                 counter(request_.contextBefore, 50, "contextBefore",
                         [this](int value) { request_.contextBefore = value; }));
    form->addRow("Messages after each flag",
                 counter(request_.contextAfter, 50, "contextAfter",
                         [this](int value) { request_.contextAfter = value; }));

    auto* terms = new QPlainTextEdit(qs(request_.redactionTerms), this);
    terms->setObjectName("redactionTerms");
    terms->setPlaceholderText(termsHint);
    terms->setMaximumHeight(90);
    connect(terms, &QPlainTextEdit::textChanged, this,
            [this, terms] { request_.redactionTerms = terms->toPlainText().toStdString(); });
    form->addRow("Redact:", terms);
    form->addRow(
        checkBox("Redact phone numbers and email addresses", request_.redactContactDetails, this));
    auto* note = new QLabel(redactionNote, this);
    note->setWordWrap(true);
    form->addRow(note);
    form->addRow(checkBox("Include my private notes", request_.includeNotes, this));
    form->addRow(checkBox("Add a certificate page", request_.includeCertificate, this));

    form->addRow("Format:", formatPicker());
    form->addRow("Paper:", paperPicker(request_.settings, this));
    dpi_ = dpiPicker(request_.settings, this);
    form->addRow("Page images:", dpi_);
    summary_ = new QLabel(this);
    summary_->setObjectName("summary");
    summary_->setWordWrap(true);
    form->addRow(summary_);

    auto* buttons = new QDialogButtonBox(this);
    auto* build = buttons->addButton("Build Exhibit", QDialogButtonBox::AcceptRole);
    build->setObjectName("build");
    build->setDefault(true);
    build->setEnabled(request_.flaggedCount > 0);
    buttons->addButton(QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
    refresh();
}

QSpinBox* ExhibitSheet::counter(int value, int maximum, const char* name,
                                std::function<void(int)> set) {
    auto* box = new QSpinBox(this);
    box->setObjectName(name);
    box->setRange(0, maximum);
    box->setValue(value);
    connect(box, &QSpinBox::valueChanged, this, std::move(set));
    return box;
}

QComboBox* ExhibitSheet::formatPicker() {
    auto* format = new QComboBox(this);
    format->setObjectName("format");
    for (const auto choice : {RangeExportFormat::pdf, RangeExportFormat::jpg})
        format->addItem(qs(rangeExportFormat::shortName(choice)),
                        qs(rangeExportFormat::rawValue(choice)));
    format->setCurrentIndex(format->findData(qs(rangeExportFormat::rawValue(request_.format))));
    connect(format, &QComboBox::currentIndexChanged, this, [this, format] {
        request_.format = rangeExportFormat::named(format->currentData().toString().toStdString())
                              .value_or(request_.format);
        refresh();
    });
    return format;
}

// A production continues where the last exhibit with this prefix ended.
void ExhibitSheet::prefixEdited(const QString& text) {
    request_.batesPrefix = text.trimmed().toStdString();
    batesStart_->setEnabled(!request_.batesPrefix.empty());
    if (!request_.batesPrefix.empty() && nextBates_)
        batesStart_->setValue(static_cast<int>(nextBates_(request_.batesPrefix)));
}

void ExhibitSheet::refresh() {
    summary_->setText(qs(request_.summary()));
    dpi_->setEnabled(request_.format == RangeExportFormat::jpg);
    batesStart_->setEnabled(!request_.batesPrefix.empty());
}

}  // namespace bc::app
