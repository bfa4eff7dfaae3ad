#include "app/evidence/SearchPanel.h"

#include <algorithm>
#include <span>

#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/shell/AppModel.h"
#include "app/shell/QtText.h"
#include "export/ExportJob.h"
#include "support/DateFormat.h"

namespace bc::app {

namespace {

// Enough to read through; every hit is in an export of the results.
constexpr size_t maxListed = 1000;

Date startOf(const QDate& day) {
    return Date::fromUnix(double(day.startOfDay().toSecsSinceEpoch()));
}

// The hit's text on one line, the first match in bold.
QString hitText(const Message& hit, const std::string& needle) {
    QString text = qs(hit.text).simplified();
    if (text.isEmpty() && !hit.attachments.empty()) text = qs(hit.attachments.front().name);
    const QString wanted = qs(needle);
    const auto at = wanted.isEmpty() ? -1 : text.indexOf(wanted, 0, Qt::CaseInsensitive);
    if (at < 0) return text.toHtmlEscaped();
    return text.left(at).toHtmlEscaped() + "<b>" + text.mid(at, wanted.size()).toHtmlEscaped() +
           "</b>" + text.mid(at + wanted.size()).toHtmlEscaped();
}

}  // namespace

SearchPanel::SearchPanel(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* column = new QVBoxLayout(this);
    field_ = new QLineEdit(this);
    field_->setObjectName("searchField");
    field_->setPlaceholderText("Search messages");
    field_->setClearButtonEnabled(true);
    connect(field_, &QLineEdit::returnPressed, this, &SearchPanel::search);
    column->addWidget(field_);
    column->addWidget(makeFilters());

    auto* row = new QHBoxLayout;
    count_ = new QLabel(this);
    export_ = new QPushButton("Export Results…", this);
    export_->setEnabled(false);
    auto* formats = new QMenu(export_);
    for (const auto format : rangeExportFormat::allCases)
        formats->addAction(qs(rangeExportFormat::shortName(format)), this,
                           [this, format] { model_.exports().exportSearchResults(format); });
    export_->setMenu(formats);
    row->addWidget(count_, 1);
    row->addWidget(export_);
    column->addLayout(row);

    results_ = new QListWidget(this);
    results_->setObjectName("searchResults");
    results_->setWordWrap(true);
    connect(results_, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
        emit revealRequested(item->data(chatIDRole).toLongLong(),
                             item->data(messageIDRole).toLongLong());
    });
    connect(results_, &QListWidget::itemClicked, results_, &QListWidget::itemActivated);
    column->addWidget(results_, 1);
    connect(&model_, &AppModel::searchChanged, this, &SearchPanel::showResults);
}

QWidget* SearchPanel::makeFilters() {
    auto* filters = new QWidget(this);
    auto* form = new QFormLayout(filters);
    form->setContentsMargins(0, 0, 0, 0);
    scope_ = new QComboBox(filters);
    scope_->setObjectName("searchScope");
    scope_->addItems({"All conversations", "This conversation"});
    form->addRow("Search in:", scope_);

    const auto dated = [&](const QString& label, QCheckBox*& on, QDateEdit*& edit) {
        auto* line = new QHBoxLayout;
        on = new QCheckBox(label, filters);
        edit = new QDateEdit(QDate::currentDate(), filters);
        edit->setCalendarPopup(true);
        edit->setEnabled(false);
        connect(on, &QCheckBox::toggled, edit, &QWidget::setEnabled);
        line->addWidget(on);
        line->addWidget(edit, 1);
        form->addRow(line);
    };
    dated("From", fromOn_, from_);
    dated("To", toOn_, to_);

    sender_ = new QComboBox(filters);
    sender_->addItems({"Anyone", "Me", "Others"});
    form->addRow("Sender:", sender_);
    attachmentsOnly_ = new QCheckBox("Attachments only", filters);
    deletedOnly_ = new QCheckBox("Deleted only", filters);
    machineText_ = new QCheckBox(qs(machineTextToggle), filters);
    for (auto* box : {attachmentsOnly_, deletedOnly_, machineText_}) form->addRow(box);
    return filters;
}

void SearchPanel::focusField() {
    field_->setFocus();
    field_->selectAll();
}

SearchQuery SearchPanel::query() const {
    SearchQuery query{.text = field_->text().toStdString()};
    const auto* conversation = model_.selectedConversation();
    if (scope_->currentIndex() == 1 && conversation) query.chatID = conversation->chatIDs.front();
    if (fromOn_->isChecked()) query.from = startOf(from_->date());
    if (toOn_->isChecked()) query.to = startOf(to_->date());
    query.sender = searchSender::allCases[size_t(std::max(0, sender_->currentIndex()))];
    query.attachmentsOnly = attachmentsOnly_->isChecked();
    query.deletedOnly = deletedOnly_->isChecked();
    query.includeMachineText = machineText_->isChecked();
    return query;
}

void SearchPanel::search() {
    model_.runSearch(query());
}

void SearchPanel::showResults() {
    const auto& searches = model_.searches();
    const auto hits = searches.searchResults();
    const auto shown = searches.lastSearchQuery();
    results_->clear();
    const std::string needle = shown ? shown->trimmedText() : "";
    const size_t listed = std::min(hits.size(), maxListed);
    for (const auto& hit : std::span(hits).first(listed)) {
        const QString sender = hit.isFromMe ? "Me" : qs(model_.nameFor(hit.sender));
        const QString date =
            qs(dates::formatStyled(hit.date, dates::Style::abbreviated, dates::Style::short_));
        auto* item = new QListWidgetItem(results_);
        auto* label =
            new QLabel("<small>" + qs(model_.chatTitle(hit.chatID)).toHtmlEscaped() + " · " + date +
                           " · " + sender.toHtmlEscaped() + "</small><br>" + hitText(hit, needle),
                       results_);
        label->setWordWrap(true);
        label->setAttribute(Qt::WA_TransparentForMouseEvents);
        item->setData(messageIDRole, qlonglong(hit.id));
        item->setData(chatIDRole, qlonglong(hit.chatID));
        item->setSizeHint(label->sizeHint());
        results_->setItemWidget(item, label);
    }
    QString count = searches.isSearching()
                        ? "Searching…"
                        : counted(static_cast<long long>(hits.size()), "hit", "hits");
    if (listed < hits.size())
        count += "; the first " + number(static_cast<long long>(listed)) +
                 " are listed, Export Results… gives them all";
    if (const auto notice = searches.notice(); notice && !searches.isSearching())
        count += "\n" + qs(*notice);
    count_->setText(count);
    export_->setEnabled(!hits.empty() && !searches.isSearching());
}

}  // namespace bc::app
