#pragma once

#include <optional>
#include <string>

#include <QMainWindow>

#include "app/shell/AppModel.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QListView;
class QListWidget;
class QTabWidget;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTreeWidget;
class QFrame;

namespace bc::app {

class CustodyLogWindow;
class NoteEditor;
class SearchPanel;
class SnapshotsWindow;
class ThumbnailCache;
class TranscriptDelegate;
class TranscriptModel;

// The one window: source, conversations, the open transcript with its timeline, the Evidence
// sidebar and the status line. Everything shown comes from the AppModel.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(AppModel& model, QWidget* parent = nullptr);

    // Steps through the open conversation by the chosen unit (negative: back).
    void jump(int step);
    // Brings a row to the top of the transcript and selects it.
    void showMessage(int64_t messageID);
    // Opens the chat's conversation and shows the message there, highlighted as selected.
    void reveal(int64_t chatID, int64_t messageID);
    QListView* transcriptView() const { return transcriptView_; }
    // The row at the top of the transcript.
    std::optional<int> topRow() const;

    // The Evidence tab of the sidebar, with the flagged messages and the selected one's note.
    void showEvidenceTab();
    // The snapshots and custody log windows, made when first asked for.
    SnapshotsWindow& snapshotsWindow();
    CustodyLogWindow& custodyLogWindow();

protected:
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* makeSourceBar();
    QWidget* makeEvictionWarning();
    QWidget* makeStatePage();
    QWidget* makeConversationList();
    QWidget* makeTranscriptPane();
    QWidget* makeSidebar();
    QWidget* makeStatusLine();
    // What the reader of an imported chat export had to assume, with its settings at hand.
    QWidget* makeReadingNotes();
    void addShortcuts();
    // Opening a database, the contacts file, closing and quitting.
    void addFileMenu();
    // Copying the selected message and finding a conversation.
    void addEditMenu();
    void addExportMenu();
    // Snapshots, the custody log and whether calls are merged into transcripts.
    void addSnapshotMenu();

    void showState();
    void showOpenFailure(const QString& message);
    void showConversations();
    // Hides the conversations the filter field does not find.
    void filterConversations();
    void showTranscript(bool keepPosition);
    // `keepExpanded`: the same conversation again, its opened periods stay open.
    void showTimelineTree(bool keepExpanded);
    // Marks the period that Previous or Next moved to.
    void selectInTimeline(int64_t firstMessageID);
    void showEvidence();
    void showStatus();
    void showEvictionReport();
    void showReadingNotes();
    // The stores set aside as damaged, each listed once with where it was kept.
    void showStoreProblems();
    void showSelectedMessage();
    void showPendingReveal();

    const Message* selectedMessage() const;
    void openDatabaseFile();
    void chooseContactsFile();
    void addEvent();
    void editEvent(const Message& row);
    void transcriptMenu(const QPoint& at);
    void timelineMenu(const QPoint& at);
    Timeline::Unit jumpUnit() const;

    AppModel& model_;
    ThumbnailCache* thumbnails_;
    TranscriptModel* transcriptModel_;
    TranscriptDelegate* delegate_;

    QLabel* sourceLabel_;
    QFrame* eviction_;
    QFrame* readingNotes_;
    QLabel* readingNotesText_;
    QLabel* evictionText_;
    QStackedWidget* pages_;
    QLabel* stateText_;
    QPushButton* retryButton_;
    QLineEdit* conversationFilter_;
    QListWidget* conversationList_;
    QListView* transcriptView_;
    QComboBox* unitChoice_;
    QTreeWidget* timelineTree_;
    QListWidget* evidenceList_;
    SearchPanel* searchPanel_;
    QTabWidget* sidebarTabs_;
    QWidget* evidenceTab_;
    std::optional<int64_t> pendingReveal_;
    QPushButton* flagButton_;
    NoteEditor* noteEditor_;
    QPushButton* saveNoteButton_;
    QPushButton* exhibitButton_;
    QLabel* statusText_;
    QProgressBar* progress_;
    QPushButton* cancelButton_;
    QPushButton* showInFolder_;
    SnapshotsWindow* snapshotsWindow_ = nullptr;
    CustodyLogWindow* custodyLogWindow_ = nullptr;
    EvidenceFlagMap shownFlags_;  // as the transcript rows were last measured
};

}  // namespace bc::app
