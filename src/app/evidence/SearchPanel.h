#pragma once

#include <cstdint>

#include <QWidget>

#include "evidence/Search.h"

class QCheckBox;
class QComboBox;
class QDateEdit;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;

namespace bc::app {

class AppModel;

// The search field with its filters, the hits and their export. Choosing a hit asks the window
// to reveal it in its conversation.
class SearchPanel : public QWidget {
    Q_OBJECT
public:
    static constexpr int messageIDRole = Qt::UserRole + 1;
    static constexpr int chatIDRole = Qt::UserRole + 2;

    explicit SearchPanel(AppModel& model, QWidget* parent = nullptr);

    // Puts the cursor in the search field, its text selected.
    void focusField();
    // The query the field and filters describe now.
    SearchQuery query() const;
    void search();

signals:
    void revealRequested(int64_t chatID, int64_t messageID);

private:
    QWidget* makeFilters();
    void showResults();

    AppModel& model_;
    QLineEdit* field_;
    QComboBox* scope_;
    QCheckBox* fromOn_;
    QDateEdit* from_;
    QCheckBox* toOn_;
    QDateEdit* to_;
    QComboBox* sender_;
    QCheckBox* attachmentsOnly_;
    QCheckBox* deletedOnly_;
    QCheckBox* machineText_;
    QLabel* count_;
    QListWidget* results_;
    QPushButton* export_;
};

}  // namespace bc::app
