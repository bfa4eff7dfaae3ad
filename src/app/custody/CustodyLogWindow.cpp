#include "app/custody/CustodyLogWindow.h"

#include <algorithm>

#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "app/shell/AppModel.h"
#include "app/shell/QtText.h"
#include "custody/CustodyLog.h"
#include "support/DateFormat.h"

namespace bc::app {

namespace {

QString when(Date date) {
    return qs(dates::formatStyled(date, dates::Style::abbreviated, dates::Style::abbreviated));
}

bool sharesAChat(const CustodyRecord& record, const std::vector<int64_t>& chatIDs) {
    return std::any_of(record.chatIDs.begin(), record.chatIDs.end(), [&](int64_t id) {
        return std::find(chatIDs.begin(), chatIDs.end(), id) != chatIDs.end();
    });
}

}  // namespace

QString describeRecord(const CustodyRecord& record) {
    QStringList lines;
    lines << "Record:       " + qs(record.id) << "Date:         " + when(record.createdAt)
          << "Action:       " + qs(record.action) << "Format:       " + qs(record.format)
          << "Title:        " + qs(record.title);
    if (!record.participants.empty()) {
        QStringList names;
        for (const auto& name : record.participants) names << qs(name);
        lines << "Participants: " + names.join(", ");
    }
    lines << "Range:        " + qs(record.rangeDescription)
          << "Messages:     " + QString::number(record.messageCount)
          << "Attachments:  " + QString::number(record.attachmentCount);
    if (record.pageCount) lines << "Pages:        " + QString::number(*record.pageCount);
    for (const auto& [label, value] : record.options)
        lines << "Option:       " + qs(label) + ": " + qs(value);
    const auto& source = record.source;
    lines << "Source:       " + qs(CustodyLog::describe(source.kind, source.snapshotID))
          << "              " + qs(source.path)
          << "              SHA-256 " + qs(source.databaseSHA256);
    if (source.walSHA256) lines << "              write-ahead log SHA-256 " + qs(*source.walSHA256);
    if (source.note) lines << "              " + qs(*source.note);
    lines << "Files (" + QString::number(record.outputs.size()) + "):";
    for (const auto& output : record.outputs)
        lines << "  " + qs(output.path)
              << "    " + QString::number(output.bytes) + " bytes, SHA-256 " + qs(output.sha256);
    lines << "Previous record SHA-256: " + qs(record.previousRecordSHA256)
          << "This record SHA-256:     " + qs(record.recordSHA256);
    return lines.join("\n");
}

std::vector<CustodyRecord> CustodyLogWindow::recordsFor(const std::vector<int64_t>& chatIDs) {
    std::vector<CustodyRecord> found;
    for (auto& record : CustodyLog::readAll())
        if (sharesAChat(record, chatIDs)) found.push_back(std::move(record));
    // The log is in the order acts happened; the newest is the one most often looked for.
    std::reverse(found.begin(), found.end());
    return found;
}

CustodyLogWindow::CustodyLogWindow(AppModel& model, QWidget* parent)
    : QDialog(parent), model_(model) {
    setWindowTitle("Custody Log");
    auto* column = new QVBoxLayout(this);
    heading_ = new QLabel(this);
    heading_->setObjectName("custodyHeading");
    heading_->setWordWrap(true);
    every_ = new QCheckBox("Show every record", this);
    every_->setObjectName("everyRecord");
    auto* splitter = new QSplitter(Qt::Vertical, this);
    list_ = new QTreeWidget(splitter);
    list_->setObjectName("custodyRecords");
    list_->setRootIsDecorated(false);
    list_->setHeaderLabels({"Date", "Action", "Format", "Title", "Range", "Files"});
    list_->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    details_ = new QPlainTextEdit(splitter);
    details_->setObjectName("custodyDetails");
    details_->setReadOnly(true);
    details_->setLineWrapMode(QPlainTextEdit::NoWrap);
    details_->setFont(QFont("monospace"));
    auto* verifyButton = new QPushButton("Verify Custody Log", this);
    verdict_ = new QLabel(this);
    verdict_->setObjectName("custodyVerdict");
    verdict_->setWordWrap(true);
    verdict_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* row = new QHBoxLayout();
    row->addWidget(verifyButton);
    row->addWidget(verdict_, 1);
    column->addWidget(heading_);
    column->addWidget(every_);
    column->addWidget(splitter, 1);
    column->addLayout(row);
    resize(900, 560);

    connect(verifyButton, &QPushButton::clicked, this, &CustodyLogWindow::verify);
    connect(every_, &QCheckBox::toggled, this, &CustodyLogWindow::showRecords);
    connect(list_, &QTreeWidget::currentItemChanged, this, &CustodyLogWindow::showDetails);
    connect(&model_, &AppModel::transcriptChanged, this, [this](bool keepPosition) {
        if (!keepPosition) showRecords();
    });
    // A finished export or snapshot may have added a record.
    connect(&model_.jobs(), &Jobs::finished, this, &CustodyLogWindow::showRecords);
    showRecords();
}

void CustodyLogWindow::showRecords() {
    records_.clear();
    list_->clear();
    details_->clear();
    const auto* conversation = model_.selectedConversation();
    const bool every = every_->isChecked();
    if (!conversation && !every) {
        heading_->setText("Choose a conversation to see its custody records.");
        return;
    }
    try {
        if (every) {
            records_ = CustodyLog::readAll();
            std::reverse(records_.begin(), records_.end());
        } else {
            records_ = recordsFor(conversation->chatIDs);
        }
    } catch (const std::exception& error) {
        heading_->setText(error.what());
        return;
    }
    const QString count = QString::number(records_.size()) +
                          (records_.size() == 1 ? " custody record" : " custody records");
    // The title as listed now, named by Contacts once they have been read.
    const auto title = every ? QString() : qs(model_.chatTitle(conversation->chatIDs.front()));
    heading_->setText(count + (every ? QString() : " for " + title) + " in " +
                      qs(CustodyLog::url().string()));
    for (const auto& record : records_) {
        auto* item = new QTreeWidgetItem(list_);
        item->setText(0, when(record.createdAt));
        item->setText(1, qs(record.action));
        item->setText(2, qs(record.format));
        item->setText(3, qs(record.title));
        item->setText(4, qs(record.rangeDescription));
        item->setText(5, QString::number(record.outputs.size()));
    }
    if (list_->topLevelItemCount() > 0) list_->setCurrentItem(list_->topLevelItem(0));
}

void CustodyLogWindow::setShowingEveryRecord(bool every) {
    every_->setChecked(every);
}

void CustodyLogWindow::showDetails() {
    const int row = list_->indexOfTopLevelItem(list_->currentItem());
    details_->setPlainText(row < 0 || row >= int(records_.size()) ? QString()
                                                                  : describeRecord(records_[row]));
}

void CustodyLogWindow::verify() {
    verdict_->setText(qs(CustodyLog::verifyReport()));
}

QString CustodyLogWindow::verdict() const {
    return verdict_->text();
}

}  // namespace bc::app
