#pragma once

#include <cstdint>
#include <vector>

#include <QDialog>

#include "model/CustodyRecord.h"

class QCheckBox;
class QLabel;
class QPlainTextEdit;
class QTreeWidget;

namespace bc::app {

class AppModel;

// The custody records of the open conversation, or every record (snapshots of all conversations
// included), newest first, each in full, and the check of the whole log's hash chain.
class CustodyLogWindow : public QDialog {
    Q_OBJECT
public:
    explicit CustodyLogWindow(AppModel& model, QWidget* parent = nullptr);

    // The records whose chats include one of these, newest first. Throws when the log can't be
    // read.
    static std::vector<CustodyRecord> recordsFor(const std::vector<int64_t>& chatIDs);

    const std::vector<CustodyRecord>& records() const { return records_; }
    // Reads the log again for the open conversation, or all of it.
    void showRecords();
    void setShowingEveryRecord(bool every);
    // Walks the chain and shows the verdict.
    void verify();
    QString verdict() const;

private:
    void showDetails();

    AppModel& model_;
    std::vector<CustodyRecord> records_;
    QLabel* heading_;
    QCheckBox* every_;
    QTreeWidget* list_;
    QPlainTextEdit* details_;
    QLabel* verdict_;
};

// One record as a reader of the log sees it: what, from where, and every file with its hash.
QString describeRecord(const CustodyRecord& record);

}  // namespace bc::app
