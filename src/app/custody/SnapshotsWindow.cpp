#include "app/custody/SnapshotsWindow.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "app/custody/Snapshots.h"
#include "app/shell/AppModel.h"
#include "app/shell/Availability.h"
#include "app/shell/QtText.h"
#include "support/DateFormat.h"
#include "support/Machine.h"

namespace bc::app {

namespace {

constexpr int folderRole = Qt::UserRole + 1;

QString attachmentsText(const SnapshotInfo& snapshot) {
    QString text = number(snapshot.attachmentsCopied) + " preserved";
    if (snapshot.attachmentsMissing > 0)
        text += ", " + QString::number(snapshot.attachmentsMissing) + " not on " + thisMachine;
    if (snapshot.attachmentsFailed > 0)
        text += ", " + QString::number(snapshot.attachmentsFailed) + " could not be read";
    return text;
}

}  // namespace

SnapshotsWindow::SnapshotsWindow(AppModel& model, QWidget* parent)
    : QDialog(parent), model_(model) {
    setWindowTitle("Preservation Snapshots");
    auto* column = new QVBoxLayout(this);
    list_ = new QTreeWidget(this);
    list_->setObjectName("snapshots");
    list_->setRootIsDecorated(false);
    list_->setHeaderLabels(
        {"Snapshot", "Taken", "Scope", "Messages", "Attachments", "Size", "Last verification"});
    list_->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    // The chosen snapshot's last verdict in full, with every file concerned.
    verdict_ = new QLabel(this);
    verdict_->setObjectName("snapshotVerdict");
    verdict_->setWordWrap(true);
    verdict_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    note_ = new QLabel(this);
    note_->setObjectName("snapshotNote");
    note_->setWordWrap(true);
    take_ = new QPushButton("Take Snapshot", this);
    verify_ = new QPushButton("Verify", this);
    open_ = new QPushButton("Open as Source", this);
    trash_ = new QPushButton("Move to Trash…", this);
    trash_->setObjectName("trashSnapshot");
    auto* buttons = new QHBoxLayout();
    for (auto* button : {take_, verify_, open_, trash_}) buttons->addWidget(button);
    buttons->addStretch();
    column->addWidget(list_, 1);
    column->addWidget(verdict_);
    column->addWidget(note_);
    column->addLayout(buttons);
    resize(900, 420);

    auto& snapshots = model_.snapshots();
    connect(take_, &QPushButton::clicked, &snapshots, &Snapshots::take);
    connect(verify_, &QPushButton::clicked, this, [this] {
        if (const auto* snapshot = selected()) model_.snapshots().verify(*snapshot);
    });
    connect(open_, &QPushButton::clicked, this, [this] {
        if (const auto* snapshot = selected()) model_.snapshots().openAsSource(*snapshot);
    });
    connect(trash_, &QPushButton::clicked, this, &SnapshotsWindow::trashSelected);
    connect(list_, &QTreeWidget::currentItemChanged, this, &SnapshotsWindow::showState);
    connect(&snapshots, &Snapshots::listChanged, this, &SnapshotsWindow::showList);
    connect(&snapshots, &Snapshots::verdictsChanged, this, &SnapshotsWindow::showList);
    connect(&model_, &AppModel::statusChanged, this, &SnapshotsWindow::showState);
    connect(&model_, &AppModel::stateChanged, this, &SnapshotsWindow::showState);
    snapshots.refresh();
    showList();
}

void SnapshotsWindow::showList() {
    const auto* chosen = selected();
    const std::string keep = chosen ? Preservation::folder(*chosen).string() : std::string();
    {
        const QSignalBlocker quiet(list_);
        list_->clear();
        for (const auto& snapshot : model_.snapshots().list()) {
            auto* item = new QTreeWidgetItem(list_);
            item->setData(0, folderRole, qs(Preservation::folder(snapshot).string()));
            item->setText(0, qs(Preservation::folder(snapshot).filename().string()));
            item->setText(1, qs(dates::formatStyled(snapshot.createdAt, dates::Style::abbreviated,
                                                    dates::Style::abbreviated)));
            item->setText(2, qs(snapshot.scope));
            item->setText(
                3, snapshot.messageRows ? QString::number(*snapshot.messageRows) : QString("–"));
            item->setText(4, attachmentsText(snapshot));
            item->setText(5, QLocale().formattedDataSize(snapshot.totalBytes));
            const auto verdict = model_.snapshots().verdict(snapshot);
            item->setText(6, verdict ? verdict->section('\n', 0, 0)
                                     : QString("Not verified in this session"));
            if (verdict) item->setToolTip(6, *verdict);
        }
    }
    if (!keep.empty()) select(keep);
    if (!list_->currentItem() && list_->topLevelItemCount() > 0)
        list_->setCurrentItem(list_->topLevelItem(0));
    showState();
}

void SnapshotsWindow::showState() {
    const auto whyNot = model_.snapshots().whyNotTake();
    const bool busy = model_.jobs().isRunning();
    const bool chosen = selected() != nullptr;
    const auto verdict = chosen ? model_.snapshots().verdict(*selected()) : std::nullopt;
    verdict_->setText(verdict.value_or(QString()));
    verdict_->setVisible(verdict.has_value());
    const bool failed = verdict && verdict->startsWith("WARNING: ");
    verdict_->setStyleSheet(failed ? "QLabel { color: #b00020; font-weight: bold; }" : QString());
    const auto unchosen = reasonIf(!chosen, Snapshots::chooseSnapshotText);
    const auto running = reasonIf(busy, Jobs::busyText);
    setAvailable(*take_, firstReason({whyNot, running}));
    setAvailable(*verify_, firstReason({unchosen, running}));
    setAvailable(*open_, unchosen);
    // An entry that cannot act says why beside it, before anything is confirmed.
    const auto whyNotTrash = chosen ? model_.snapshots().whyNotTrash(*selected()) : std::nullopt;
    setAvailable(*trash_, firstReason({unchosen, whyNotTrash, running}));
    QString note = whyNotTrash.value_or(whyNot.value_or(QString()));
    if (model_.snapshots().list().empty())
        note = (note.isEmpty() ? QString() : note + "\n") + "No snapshots yet.";
    note_->setText(note);
}

const SnapshotInfo* SnapshotsWindow::selected() const {
    const auto* item = list_->currentItem();
    if (!item) return nullptr;
    return model_.snapshots().findAt(item->data(0, folderRole).toString().toStdString());
}

void SnapshotsWindow::select(const std::string& folder) {
    for (int row = 0; row < list_->topLevelItemCount(); ++row) {
        auto* item = list_->topLevelItem(row);
        if (item->data(0, folderRole).toString().toStdString() == folder)
            list_->setCurrentItem(item);
    }
}

QString SnapshotsWindow::verdictText() const {
    return verdict_->isVisibleTo(this) ? verdict_->text() : QString();
}

bool SnapshotsWindow::confirmTrash(const SnapshotInfo& snapshot) {
    QMessageBox box(QMessageBox::Warning, Snapshots::trashQuestion, Snapshots::trashQuestion,
                    QMessageBox::Cancel, this);
    box.setObjectName("trashConfirmation");
    box.setInformativeText(Snapshots::trashExplanation(snapshot));
    auto* move = box.addButton(Snapshots::trashButton, QMessageBox::DestructiveRole);
    box.setDefaultButton(QMessageBox::Cancel);
    box.exec();
    return box.clickedButton() == move;
}

void SnapshotsWindow::trashSelected() {
    const auto* snapshot = selected();
    if (!snapshot) return;
    const SnapshotInfo chosen = *snapshot;  // the list may be read again while the box is up
    if (confirmTrash(chosen)) model_.snapshots().moveToTrash(chosen);
}

}  // namespace bc::app
