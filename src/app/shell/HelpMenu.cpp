#include "app/shell/HelpMenu.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMenu>
#include <QPlainTextEdit>
#include <QVBoxLayout>

#include "app/shell/QtText.h"
#include "custody/CustodySystemInfo.h"
#include "embedded/thirdPartyNotices.h"

namespace bc::app {

namespace {

constexpr const char* howToUse =
    "<h3>How to use Brindlecourt</h3>"
    "<ol>"
    "<li><b>Choose the source</b> at the top left: your Messages, a database file, a sealed "
    "snapshot or a WhatsApp import. Nothing you do here changes it.</li>"
    "<li><b>Take a snapshot</b> (Snapshots menu) before anything is deleted from the phone or "
    "the cloud: a sealed copy with a fingerprint of every file.</li>"
    "<li><b>Pick a conversation</b> on the left; the timeline on the right jumps to a month or "
    "a day.</li>"
    "<li><b>Flag the messages that matter</b> (right-click, or the Evidence tab) and add private "
    "notes; Build Exhibit… turns them into numbered pages.</li>"
    "<li><b>Export</b> a PDF, page images, an HTML archive or a spreadsheet. Each export comes "
    "with a certificate and is written into the custody log.</li>"
    "<li><b>For your lawyer</b>: a draft statement and an encrypted bundle, in the Export "
    "menu. Send the bundle's password separately.</li>"
    "</ol>";

void showHowToUse(QWidget* parent) {
    auto* dialog = new QDialog(parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle("How to Use Brindlecourt");
    auto* layout = new QVBoxLayout(dialog);
    auto* text = new QLabel(howToUse, dialog);
    text->setWordWrap(true);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, dialog);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    layout->addWidget(text);
    layout->addWidget(buttons);
    dialog->resize(520, 380);
    dialog->show();
}

void showAbout(QWidget* parent) {
    auto* dialog = new QDialog(parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setObjectName("about");
    dialog->setWindowTitle("About Brindlecourt");
    auto* layout = new QVBoxLayout(dialog);
    auto* version =
        new QLabel("<b>Brindlecourt</b> " + qs(custodySystemInfo::appVersion()) +
                       "<br>Records of your messages that a lawyer or a court can rely on.",
                   dialog);
    version->setObjectName("aboutVersion");
    version->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* notices = new QPlainTextEdit(qs(embedded::thirdPartyNotices), dialog);
    notices->setReadOnly(true);
    notices->setLineWrapMode(QPlainTextEdit::NoWrap);
    notices->setFont(QFont("monospace"));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, dialog);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    layout->addWidget(version);
    layout->addWidget(notices, 1);
    layout->addWidget(buttons);
    dialog->resize(760, 460);
    dialog->show();
}

}  // namespace

QMenu* makeHelpMenu(QWidget* parent) {
    auto* menu = new QMenu("Help", parent);
    menu->setObjectName("helpMenu");
    menu->addAction("How to Use Brindlecourt", parent, [parent] { showHowToUse(parent); });
    auto* about = menu->addAction("About Brindlecourt", parent, [parent] { showAbout(parent); });
    about->setMenuRole(QAction::AboutRole);
    return menu;
}

}  // namespace bc::app
