#include "app/sources/WhatsAppMenu.h"

#include <QFileDialog>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>

#include "app/shell/AppModel.h"
#include "app/shell/QtText.h"
#include "app/sources/ImportSettingsSheet.h"
#include "app/sources/WhatsAppSources.h"

namespace bc::app {

namespace {

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

// One entry per import, each doing `act`; the list is read when the menu opens.
QMenu* importsMenu(const QString& title, AppModel& model, QMenu* parent,
                   const std::function<void(const ImportInfo&)>& act) {
    auto* menu = parent->addMenu(title);
    QObject::connect(menu, &QMenu::aboutToShow, menu, [menu, &model, act] {
        menu->clear();
        for (const auto& info : model.whatsApp().list())
            menu->addAction(qs(info.id + ": " + info.chatName()), menu, [act, info] { act(info); });
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
    auto* trash = importsMenu("Move Import to Trash", model, menu,
                              [&whatsApp, parent](const ImportInfo& info) {
                                  if (confirmTrash(info, parent)) whatsApp.moveToTrash(info);
                              });
    QObject::connect(menu, &QMenu::aboutToShow, menu, [=, &model] {
        const bool idle = !model.jobs().isRunning();
        import->setEnabled(idle);
        seal->setEnabled(idle && WhatsAppSources::macAvailable());
        const auto& open = model.openedImport();
        settings->setEnabled(open && open->kind == ImportInfo::Kind::chatExport);
        verify->setEnabled(idle);
        trash->setEnabled(idle);
    });
    return menu;
}

}  // namespace bc::app
