#include "app/export/ExportMenu.h"

#include <QMenu>

#include "app/counsel/BundleSheet.h"
#include "app/export/ExhibitSheet.h"
#include "app/export/ExportSheet.h"
#include "app/shell/AppModel.h"
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
    auto& exports = model.exports();
    for (const auto format : rangeExportFormat::allCases)
        menu->addAction(shortName(format) + "…", menu,
                        [&exports, format] { exports.showExportOptions(format, std::nullopt); });
    menu->addSeparator();
    for (const auto format : allExportFormats)
        menu->addAction("Conversation as " + qs(displayName(format)) + "…", menu,
                        [&exports, format] { exports.exportSelected(format); });
    menu->addSeparator();
    for (const auto format : allExportFormats)
        menu->addAction("Every Conversation as " + qs(displayName(format)), menu,
                        [&exports, format] { exports.exportAll(format); });
    menu->addSeparator();
    auto& counsel = model.counsel();
    menu->addAction("Draft Statement for Counsel…", menu, [&counsel] { counsel.draftStatement(); });
    menu->addAction("Encrypted Bundle for Counsel…", &counsel, &Counsel::showBundleSheet);
    menu->addSeparator();
    auto* cancel = menu->addAction("Cancel Export", menu, [&exports] { exports.cancelExport(); });
    QObject::connect(&model.jobs(), &Jobs::changed, menu, [menu, cancel, &model] {
        for (auto* action : menu->actions())
            if (!action->isSeparator()) action->setEnabled(!model.jobs().isRunning());
        cancel->setEnabled(model.exports().isExporting());
    });
    cancel->setEnabled(false);
    return menu;
}

void addPeriodExports(QMenu& menu, AppModel& model, const ExportPeriod& period) {
    auto& exports = model.exports();
    const bool idle = !model.jobs().isRunning();
    const QString named = "Export " + qs(period.label);
    for (const auto format : rangeExportFormat::allCases) {
        auto* quick =
            menu.addAction(named + " as " + shortName(format), &menu,
                           [&exports, period, format] { exports.quickExport(period, format); });
        quick->setEnabled(idle);
    }
    auto* options = menu.addAction(named + " with Options…", &menu, [&exports, period] {
        exports.showExportOptions(RangeExportFormat::pdf, period);
    });
    options->setEnabled(idle);
}

void answerExportOptions(AppModel& model, QWidget* parent) {
    QObject::connect(&model.exports(), &Exports::optionsRequested, parent,
                     [&model, parent](const ExportRequest& request) {
                         ExportSheet sheet(request, parent);
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
