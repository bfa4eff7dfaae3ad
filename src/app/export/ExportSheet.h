#pragma once

#include <functional>
#include <string>

#include <QDialog>

#include "app/export/PagePickers.h"
#include "export/ExportJob.h"

class QComboBox;
class QDateEdit;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;

namespace bc::app {

// Edits one export request: format, which of the person's conversations, the period, title,
// paper and dpi, with the name the output will get and the folder it goes to. Accepting it starts
// nothing: the caller hands `request()` to the export.
class ExportSheet : public QDialog {
    Q_OBJECT
public:
    static constexpr const char* standardDPILabel = app::standardDPILabel;
    static constexpr const char* printDPILabel = app::printDPILabel;

    // The person's name for a handle, or the handle when Contacts has none.
    using NameFor = std::function<std::string(const std::string& handle)>;

    ExportSheet(ExportRequest request, const QString& folder, const NameFor& nameFor,
                QWidget* parent = nullptr);

    const ExportRequest& request() const { return request_; }

private:
    void addFormatPicker();
    void addSources(const NameFor& nameFor);
    void addPeriod();
    void addPageChoices();
    // Takes a changed period: the timeline's name for it no longer applies.
    void periodEdited();
    void refresh();

    ExportRequest request_;
    QComboBox* format_;
    QListWidget* sources_;
    QDateEdit* from_;
    QDateEdit* to_;
    QLineEdit* title_;
    QComboBox* paper_;
    QComboBox* dpi_;
    QLabel* baseName_;
    QPushButton* export_;
};

}  // namespace bc::app
