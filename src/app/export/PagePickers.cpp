#include "app/export/PagePickers.h"

#include <QComboBox>

#include "app/shell/QtText.h"

namespace bc::app {

QComboBox* paperPicker(ExportSettings& settings, QWidget* parent) {
    auto* paper = new QComboBox(parent);
    paper->setObjectName("paper");
    for (const auto choice : {PageExporter::Paper::letter, PageExporter::Paper::a4})
        paper->addItem(qs(PageExporter::displayName(choice)), qs(PageExporter::rawValue(choice)));
    paper->setCurrentIndex(paper->findData(qs(PageExporter::rawValue(settings.paper))));
    QObject::connect(paper, &QComboBox::currentIndexChanged, paper, [paper, &settings] {
        settings.paper = PageExporter::paperNamed(paper->currentData().toString().toStdString())
                             .value_or(settings.paper);
    });
    return paper;
}

QComboBox* dpiPicker(ExportSettings& settings, QWidget* parent) {
    auto* dpi = new QComboBox(parent);
    dpi->setObjectName("dpi");
    dpi->addItem(standardDPILabel, ExportSettings::standardDPI);
    dpi->addItem(printDPILabel, ExportSettings::printDPI);
    dpi->setCurrentIndex(dpi->findData(settings.dpi));
    QObject::connect(dpi, &QComboBox::currentIndexChanged, dpi, [dpi, &settings](int index) {
        if (index >= 0) settings.dpi = dpi->itemData(index).toDouble();
    });
    return dpi;
}

}  // namespace bc::app
