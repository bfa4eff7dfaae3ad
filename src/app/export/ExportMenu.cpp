#include "app/export/ExportMenu.h"

#include <QMenu>

#include "app/counsel/BundleSheet.h"
#include "app/export/ExhibitSheet.h"
#include "app/export/ExportSheet.h"
#include "app/shell/AppModel.h"
#include "app/shell/Availability.h"
#include "app/shell/QtText.h"

namespace bc::app {

namespace {

QString shortName(RangeExportFormat format) {
    return QString::fromUtf8(rangeExportFormat::shortName(format).data());
}

}  // namespace

QMenu* makeExportMenu(AppModel& model, QWidget* parent) {
    auto* menu = new QMenu("Export", parent);
    menu->setObjectName("exportMenu");
    menu->setToolTipsVisible(true);
    auto& exports = model.exports();
    // Entries about the selected conversation, and the rest.
    QList<QAction*> ofConversation, others;
    for (const auto format : rangeExportFormat::allCases)
        ofConversation << menu->addAction(shortName(format) + "…", menu, [&exports, format] {
            exports.showExportOptions(format, std::nullopt);
        });
    menu->addSeparator();
    for (const auto format : allExportFormats)
        ofConversation << menu->addAction("Conversation as " + qs(displayName(format)) + "…", menu,
                                          [&exports, format] { exports.exportSelected(format); });
    menu->addSeparator();
    for (const auto format : allExportFormats)
        others << menu->addAction("Every Conversation as " + qs(displayName(format)), menu,
                                  [&exports, format] { exports.exportAll(format); });
    menu->addSeparator();
    auto& counsel = model.counsel();
    others << menu->addAction("Draft Statement for Counsel…", menu,
                              [&counsel] { counsel.draftStatement(); });
    others << menu->addAction("Encrypted Bundle for Counsel…", &counsel, &Counsel::showBundleSheet);
    menu->addSeparator();
    auto* cancel = menu->addAction("Cancel Export", menu, [&exports] { exports.cancelExport(); });
    const auto refresh = [ofConversation, others, cancel, &model] {
        const auto running = reasonIf(model.jobs().isRunning(), Jobs::busyText);
        const auto unchosen =
            reasonIf(!model.selectedConversation(), Exports::chooseConversationText);
        for (auto* action : ofConversation) setAvailable(*action, firstReason({running, unchosen}));
        for (auto* action : others) setAvailable(*action, running);
        setAvailable(*cancel, reasonIf(!model.exports().isExporting(), "No export is running."));
    };
    QObject::connect(&model.jobs(), &Jobs::changed, menu, refresh);
    QObject::connect(menu, &QMenu::aboutToShow, menu, refresh);
    refresh();
    return menu;
}

void addPeriodExports(QMenu& menu, AppModel& model, const ExportPeriod& period) {
    auto& exports = model.exports();
    menu.setToolTipsVisible(true);
    const auto running = reasonIf(model.jobs().isRunning(), Jobs::busyText);
    const QString named = "Export " + qs(period.label);
    for (const auto format : rangeExportFormat::allCases) {
        auto* quick =
            menu.addAction(named + " as " + shortName(format), &menu,
                           [&exports, period, format] { exports.quickExport(period, format); });
        setAvailable(*quick, running);
    }
    auto* options = menu.addAction(named + " with Options…", &menu, [&exports, period] {
        exports.showExportOptions(RangeExportFormat::pdf, period);
    });
    setAvailable(*options, running);
}

void answerExportOptions(AppModel& model, QWidget* parent) {
    QObject::connect(&model.exports(), &Exports::optionsRequested, parent,
                     [&model, parent](const ExportRequest& request) {
                         ExportSheet sheet(
                             request, model.exports().saveFolder(),
                             [&model](const std::string& handle) { return model.nameFor(handle); },
                             parent);
                         if (sheet.exec() == QDialog::Accepted)
                             model.exports().startExport(sheet.request());
                     });
    QObject::connect(&model.exports(), &Exports::exhibitRequested, parent,
                     [&model, parent](const ExhibitRequest& request) {
                         ExhibitSheet sheet(request, &Exports::nextBatesNumber, parent);
                         if (sheet.exec() == QDialog::Accepted)
                             model.exports().startExhibit(sheet.request());
                     });
    QObject::connect(&model.counsel(), &Counsel::bundleRequested, parent,
                     [&model, parent](const BundleProposal& proposal) {
                         BundleSheet sheet(proposal, parent);
                         if (sheet.exec() == QDialog::Accepted)
                             model.counsel().createBundle(sheet.items(), sheet.title(),
                                                          sheet.password());
                     });
}

}  // namespace bc::app
