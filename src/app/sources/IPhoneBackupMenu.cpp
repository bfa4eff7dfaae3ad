#include "app/sources/IPhoneBackupMenu.h"

#include <QFileDialog>
#include <QInputDialog>
#include <QMenu>

#include "app/shell/AppModel.h"
#include "app/shell/QtText.h"
#include "app/sources/WhatsAppSources.h"
#include "sources/IPhoneBackup.h"

namespace bc::app {

void importIPhoneBackup(AppModel& model, const std::filesystem::path& folder, QWidget* parent) {
    auto& imports = model.whatsApp();
    std::optional<std::string> password;
    try {
        if (IPhoneBackup::isEncrypted(folder)) {
            bool ok = false;
            const QString typed = QInputDialog::getText(
                parent, "Encrypted iPhone Backup",
                "This backup is encrypted. Enter the password that was set for its backups:",
                QLineEdit::Password, {}, &ok);
            if (!ok || typed.isEmpty()) {
                emit imports.statusReported("Import cancelled. Nothing was kept.");
                return;
            }
            password = typed.toStdString();
        }
    } catch (const std::exception& error) {
        emit imports.statusReported("Import failed, nothing was kept: " + qs(error.what()));
        return;
    }
    imports.importBackup(folder, std::move(password));
}

QMenu* makeIPhoneMenu(AppModel& model, QWidget* parent) {
    auto* menu = new QMenu("iPhone", parent);
    menu->setObjectName("iPhoneMenu");
    auto* import = menu->addAction("Import iPhone Backup…", menu, [&model, parent] {
        const auto folder = QFileDialog::getExistingDirectory(parent, "Import iPhone Backup");
        if (!folder.isEmpty()) importIPhoneBackup(model, folder.toStdString(), parent);
    });
    QObject::connect(menu, &QMenu::aboutToShow, menu,
                     [import, &model] { import->setEnabled(!model.jobs().isRunning()); });
    return menu;
}

}  // namespace bc::app
