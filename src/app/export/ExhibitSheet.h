#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <QDialog>

#include "export/Exhibit.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QSpinBox;

namespace bc::app {

// Edits one exhibit request: label, Bates numbers, context, redaction, notes, certificate,
// format, paper and resolution, with a live count of what will be shown. Accepting it starts
// nothing: the caller hands `request()` to the exports.
class ExhibitSheet : public QDialog {
    Q_OBJECT
public:
    static constexpr const char* batesHint = "e.g. SMITH (leave empty for none)";
    static constexpr const char* termsHint = "One name or phrase per line.";
    static constexpr const char* redactionNote =
        "Matches are blacked out (█) on the exhibit only; the original record is never changed. "
        "Photos are not redacted.";

    // `nextBates` proposes the first number for a prefix: the one after the last used.
    using NextBates = std::function<int64_t(const std::string& prefix)>;

    ExhibitSheet(ExhibitRequest request, NextBates nextBates, QWidget* parent = nullptr);

    const ExhibitRequest& request() const { return request_; }

private:
    QSpinBox* counter(int value, int maximum, const char* name, std::function<void(int)> set);
    QComboBox* formatPicker();
    void prefixEdited(const QString& text);
    void refresh();

    ExhibitRequest request_;
    NextBates nextBates_;
    QSpinBox* batesStart_;
    QComboBox* dpi_;
    QLabel* summary_;
};

}  // namespace bc::app
