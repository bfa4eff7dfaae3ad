#include "app/sources/WhatsAppMenu.h"

#include <QFileDialog>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>

#include "app/shell/AppModel.h"
#include "app/shell/Availability.h"
#include "app/shell/QtText.h"
#include "app/sources/ImportSettingsSheet.h"
#include "app/sources/WhatsAppSources.h"

namespace bc::app {

namespace {

constexpr const char* openImportText = "Close this import first: it is the open source.";
constexpr const char* macMissingText = "WhatsApp for Mac's database is not on this computer.";
constexpr const char* chatExportNeededText =
    "Open an imported chat export first: these settings say how it was read.";

bool confirmTrash(const ImportInfo& info, QWidget* parent) {
    QMessageBox box(QMessageBox::Warning, WhatsAppSources::trashQuestion,
                    WhatsAppSources::trashQuestion, QMessageBox::Cancel, parent);
    box.setObjectName("importTrashConfirmation");
    box.setInformativeText(qs(Imports::trashConfirmation(info)));
    auto* move = box.addButton(WhatsAppSources::trashButton, QMessageBox::DestructiveRole);
    box.setDefaultButton(QMessageBox::Cancel);
    box.exec();
    return box.clickedButton() == move;
}

// Why an import cannot act: none for most.
using ImportReason = std::function<std::optional<QString>(const ImportInfo&)>;

// One entry per import, each doing `act` unless `whyNot` gives a reason; the list is read when
// the menu opens.
QMenu* importsMenu(const QString& title, AppModel& model, QMenu* parent,
                   const std::function<void(const ImportInfo&)>& act,
                   const ImportReason& whyNot = {}) {
    auto* menu = parent->addMenu(title);
    menu->setToolTipsVisible(true);
    QObject::connect(menu, &QMenu::aboutToShow, menu, [menu, &model, act, whyNot] {
        menu->clear();
        for (const auto& info : model.whatsApp().list()) {
            auto* entry = menu->addAction(qs(info.id + ": " + info.chatName()), menu,
                                          [act, info] { act(info); });
            if (whyNot) setAvailable(*entry, whyNot(info));
        }
        if (menu->isEmpty()) menu->addAction("No imports yet")->setEnabled(false);
    });
    return menu;
}

}  // namespace

void chooseWhatsAppFile(AppModel& model, QWidget* parent) {
    const auto file = QFileDialog::getOpenFileName(parent, "Import WhatsApp Chat", QString(),
                                                   WhatsAppSources::fileFilter);
    if (!file.isEmpty()) model.whatsApp().importFile(file.toStdString());
}

void editImportSettings(AppModel& model, QWidget* parent) {
    const auto& open = model.openedImport();
    if (!open) return;
    const ImportInfo info = *open;  // the import is read again once saved
    ImportSettingsSheet sheet(info.settings(), model.importSenders(), parent);
    if (sheet.exec() == QDialog::Accepted) model.whatsApp().saveSettings(info, sheet.settings());
}

QMenu* makeWhatsAppMenu(AppModel& model, QWidget* parent) {
    auto* menu = new QMenu("WhatsApp", parent);
    menu->setObjectName("whatsAppMenu");
    menu->setToolTipsVisible(true);
    auto& whatsApp = model.whatsApp();
    auto* import = menu->addAction("Import WhatsApp Chat…", menu,
                                   [&model, parent] { chooseWhatsAppFile(model, parent); });
    auto* seal =
        menu->addAction("Seal a Copy of WhatsApp for Mac", &whatsApp, &WhatsAppSources::sealMac);
    menu->addSeparator();
    auto* settings = menu->addAction("Import Settings…", menu,
                                     [&model, parent] { editImportSettings(model, parent); });
    auto* verify = importsMenu("Verify Import", model, menu,
                               [&whatsApp](const ImportInfo& info) { whatsApp.verify(info); });
    auto* trash = importsMenu(
        "Move Import to Trash", model, menu,
        [&whatsApp, parent](const ImportInfo& info) {
            if (confirmTrash(info, parent)) whatsApp.moveToTrash(info);
        },
        [&model](const ImportInfo& info) {
            const auto& open = model.openedImport();
            return reasonIf(open && open->id == info.id, openImportText);
        });
    trash->setObjectName("trashImport");
    QObject::connect(menu, &QMenu::aboutToShow, menu, [=, &model] {
        const auto running = reasonIf(model.jobs().isRunning(), Jobs::busyText);
        setAvailable(*import, running);
        setAvailable(
            *seal,
            firstReason({running, reasonIf(!WhatsAppSources::macAvailable(), macMissingText)}));
        const auto& open = model.openedImport();
        setAvailable(*settings, reasonIf(!open || open->kind != ImportInfo::Kind::chatExport,
                                         chatExportNeededText));
        setAvailable(*verify->menuAction(), running);
        setAvailable(*trash->menuAction(), running);
    });
    return menu;
}

}  // namespace bc::app
