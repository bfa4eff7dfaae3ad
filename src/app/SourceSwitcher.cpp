#include "app/SourceSwitcher.h"

#include <QFileInfo>

#include "app/AppModel.h"
#include "app/Snapshots.h"
#include "sources/MessageDatabase.h"

namespace bc::app {

namespace {

// What each entry stands for.
const QString liveEntry = "live";
const QString fileEntry = "file";
const QString openFileEntry = "open-file";
const QString snapshotPrefix = "snapshot:";

}  // namespace

SourceSwitcher::SourceSwitcher(AppModel& model, QWidget* parent)
    : QComboBox(parent), model_(model) {
    setObjectName("sourceSwitcher");
    setSizeAdjustPolicy(QComboBox::AdjustToContents);
    connect(this, &QComboBox::activated, this, &SourceSwitcher::choose);
    connect(&model_.snapshots(), &Snapshots::listChanged, this, &SourceSwitcher::showSources);
    connect(&model_, &AppModel::stateChanged, this, &SourceSwitcher::showSources);
    showSources();
}

void SourceSwitcher::showSources() {
    const QSignalBlocker quiet(this);
    clear();
    addItem(liveText, liveEntry);
    const auto kind = model_.sourceKind();
    const auto database = model_.database();
    if (kind == AppModel::SourceKind::file && database)
        addItem("Database file: " + QFileInfo(QString::fromStdString(database->path())).fileName(),
                fileEntry);
    const auto& snapshots = model_.snapshots().list();
    if (!snapshots.empty()) insertSeparator(count());
    for (const auto& snapshot : snapshots)
        addItem(QString::fromStdString(snapshot.id + " — " + snapshot.scope),
                snapshotPrefix + QString::fromStdString(snapshot.id));
    insertSeparator(count());
    addItem(openFileText, openFileEntry);

    QString current = liveEntry;
    if (kind == AppModel::SourceKind::file && database) current = fileEntry;
    if (const auto& open = model_.sourceChoice().snapshot;
        kind == AppModel::SourceKind::snapshot && open)
        current = snapshotPrefix + QString::fromStdString(open->id);
    setCurrentIndex(std::max(0, findData(current)));
}

void SourceSwitcher::choose(int index) {
    const QString entry = itemData(index).toString();
    const bool liveOpen = model_.sourceKind() == AppModel::SourceKind::live && model_.database();
    if (entry == liveEntry && !liveOpen) {
        model_.openLive();
    } else if (entry == openFileEntry) {
        emit openFileRequested();
    } else if (entry.startsWith(snapshotPrefix)) {
        const auto* snapshot =
            model_.snapshots().find(entry.mid(snapshotPrefix.size()).toStdString());
        if (snapshot) model_.openSnapshot(*snapshot);
    }
    // Until the chosen source has opened, the open one stays shown.
    showSources();
}

}  // namespace bc::app
