#include "app/sources/SourceSwitcher.h"

#include <QFileInfo>

#include "app/custody/Snapshots.h"
#include "app/shell/AppModel.h"
#include "app/sources/WhatsAppSources.h"
#include "sources/MessageDatabase.h"

namespace bc::app {

namespace {

// What each entry stands for.
const QString liveEntry = "live";
const QString fileEntry = "file";
const QString openFileEntry = "open-file";
const QString snapshotPrefix = "snapshot:";
const QString whatsAppMacEntry = "whatsapp-mac";
const QString importPrefix = "import:";
const QString importFileEntry = "import-file";

QString importEntry(const ImportInfo& info, ImportPart part) {
    return importPrefix + QString::fromStdString(Imports::partName(info, part));
}

}  // namespace

SourceSwitcher::SourceSwitcher(AppModel& model, QWidget* parent)
    : QComboBox(parent), model_(model) {
    setObjectName("sourceSwitcher");
    setSizeAdjustPolicy(QComboBox::AdjustToContents);
    connect(this, &QComboBox::activated, this, &SourceSwitcher::choose);
    connect(&model_.snapshots(), &Snapshots::listChanged, this, &SourceSwitcher::showSources);
    connect(&model_.whatsApp(), &WhatsAppSources::listChanged, this, &SourceSwitcher::showSources);
    connect(&model_, &AppModel::stateChanged, this, &SourceSwitcher::showSources);
    showSources();
}

void SourceSwitcher::showSources() {
    const QSignalBlocker quiet(this);
    clear();
    addItem(liveText, liveEntry);
    if (WhatsAppSources::macAvailable()) addItem(whatsAppMacText, whatsAppMacEntry);
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
    const auto& imports = model_.whatsApp().list();
    if (!imports.empty()) insertSeparator(count());
    for (const auto& info : imports)
        for (const auto part : Imports::parts(info))
            addItem(QString::fromStdString(Imports::partLabel(info, part)),
                    importEntry(info, part));
    insertSeparator(count());
    addItem(openFileText, openFileEntry);
    addItem(importText, importFileEntry);

    QString current = liveEntry;
    if (kind == AppModel::SourceKind::file && database) current = fileEntry;
    if (const auto& open = model_.sourceChoice().snapshot;
        kind == AppModel::SourceKind::snapshot && open)
        current = snapshotPrefix + QString::fromStdString(open->id);
    if (kind == AppModel::SourceKind::whatsAppMac) current = whatsAppMacEntry;
    if (const auto& open = model_.openedImport(); kind == AppModel::SourceKind::import && open)
        current = importEntry(*open, model_.openedImportPart());
    setCurrentIndex(std::max(0, findData(current)));
}

void SourceSwitcher::choose(int index) {
    const QString entry = itemData(index).toString();
    const bool liveOpen = model_.sourceKind() == AppModel::SourceKind::live && model_.database();
    if (entry == liveEntry && !liveOpen) {
        model_.openLive();
    } else if (entry == openFileEntry) {
        emit openFileRequested();
    } else if (entry == importFileEntry) {
        emit importRequested();
    } else if (entry == whatsAppMacEntry &&
               model_.sourceKind() != AppModel::SourceKind::whatsAppMac) {
        model_.openWhatsAppMac();
    } else if (entry.startsWith(importPrefix)) {
        const auto [id, part] =
            Imports::parsePartName(entry.mid(importPrefix.size()).toStdString());
        if (const auto* info = model_.whatsApp().find(id)) model_.openImport(*info, part);
    } else if (entry.startsWith(snapshotPrefix)) {
        const auto* snapshot =
            model_.snapshots().find(entry.mid(snapshotPrefix.size()).toStdString());
        if (snapshot) model_.openSnapshot(*snapshot);
    }
    // Until the chosen source has opened, the open one stays shown.
    showSources();
}

}  // namespace bc::app
