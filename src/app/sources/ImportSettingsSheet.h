#pragma once

#include <string>
#include <vector>

#include <QDialog>

#include "custody/Imports.h"

class QComboBox;
class QLineEdit;

namespace bc::app {

// Edits how an imported chat export is shown: its name, which sender is the user, the time zone
// its times are read in and the day/month order of its dates. Accepting starts nothing: the
// caller saves `settings()`.
class ImportSettingsSheet : public QDialog {
    Q_OBJECT
public:
    static constexpr const char* nobodyText = "Nobody (every message shows as received)";
    static constexpr const char* systemZoneText = "This computer's time zone";
    static constexpr const char* fileOrderText = "As the file shows it";
    static constexpr const char* dayFirstText = "Day first (31/12)";
    static constexpr const char* monthFirstText = "Month first (12/31)";

    ImportSettingsSheet(ImportInfo::Settings settings, const std::vector<std::string>& senders,
                        QWidget* parent = nullptr);

    ImportInfo::Settings settings() const;

private:
    QComboBox* ownerPicker(const std::vector<std::string>& senders);
    QComboBox* zonePicker();
    QComboBox* orderPicker();

    ImportInfo::Settings settings_;
    QLineEdit* chatName_;
    QComboBox* owner_;
    QComboBox* zone_;
    QComboBox* order_;
};

}  // namespace bc::app
