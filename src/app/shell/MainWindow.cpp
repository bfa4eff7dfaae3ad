#include "app/shell/MainWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFrame>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QSet>
#include <QSettings>
#include <QShortcut>
#include <QSplitter>
#include <QStackedWidget>
#include <QTabWidget>
#include <QTimer>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>
#include <QVBoxLayout>

#include "app/custody/CustodyLogWindow.h"
#include "app/custody/Snapshots.h"
#include "app/custody/SnapshotsWindow.h"
#include "app/evidence/EventDialog.h"
#include "app/evidence/MachineTextMenu.h"
#include "app/evidence/NoteEditor.h"
#include "app/evidence/SearchPanel.h"
#include "app/export/ExportMenu.h"
#include "app/lock/LockScreen.h"
#include "app/shell/Availability.h"
#include "app/shell/HelpMenu.h"
#include "app/shell/QtText.h"
#include "app/sources/IPhoneBackupMenu.h"
#include "app/sources/SourceSwitcher.h"
#include "app/sources/WhatsAppMenu.h"
#include "app/transcript/ThumbnailCache.h"
#include "app/transcript/TranscriptDelegate.h"
#include "app/transcript/TranscriptModel.h"
#include "support/DateFormat.h"

namespace bc::app {

namespace {

constexpr int messageIDRole = Qt::UserRole + 1;
constexpr int unitRole = Qt::UserRole + 2;
constexpr int startRole = Qt::UserRole + 3;
constexpr const char* unitSetting = "timeline/jumpUnit";
constexpr const char* selectMessageText = "Select a message in the conversation first.";
constexpr const char* eventNotMessageText =
    "An event you added is not a message: it cannot be flagged or given a note.";
constexpr const char* nothingFlaggedText =
    "Flag messages first: an exhibit is built from the flagged messages.";

// A menu whose disabled entries show why when pointed at.
QMenu* explainingMenu(QMenuBar* bar, const QString& title) {
    auto* menu = bar->addMenu(title);
    menu->setToolTipsVisible(true);
    return menu;
}

QString shortDate(const std::optional<Date>& date) {
    return date ? qs(dates::formatStyled(*date, dates::Style::short_, dates::Style::none))
                : QString("no messages");
}

QString excerpt(const Message& message) {
    const QString text = qs(message.text).simplified();
    return text.size() > 80 ? text.left(80) + "…" : text;
}

QPushButton* button(const QString& title, QWidget* parent, const QString& tip = {}) {
    auto* made = new QPushButton(title, parent);
    if (!tip.isEmpty()) made->setToolTip(tip);
    return made;
}

Timeline::Unit unitOf(Timeline::Node::Level level) {
    switch (level) {
        case Timeline::Node::Level::year:
            return Timeline::Unit::year;
        case Timeline::Node::Level::month:
            return Timeline::Unit::month;
        case Timeline::Node::Level::week:
            return Timeline::Unit::week;
        case Timeline::Node::Level::day:
            return Timeline::Unit::day;
    }
    return Timeline::Unit::day;
}

void addTreeNodes(QTreeWidgetItem* parent, QTreeWidget* tree,
                  const std::vector<Timeline::Node>& nodes) {
    for (const auto& node : nodes) {
        auto* item = parent ? new QTreeWidgetItem(parent) : new QTreeWidgetItem(tree);
        item->setText(0, qs(node.label));
        item->setText(1, number(node.count));
        item->setData(0, messageIDRole, QVariant::fromValue<qlonglong>(node.firstMessageID));
        item->setData(0, unitRole, qs(std::string(Timeline::unitName(unitOf(node.level)))));
        item->setData(0, startRole, node.start.seconds);
        if (node.children) addTreeNodes(item, tree, *node.children);
    }
}

// Flags added, removed or with another note.
std::vector<std::string> changedGUIDs(const EvidenceFlagMap& before, const EvidenceFlagMap& after) {
    std::vector<std::string> changed;
    for (const auto& [guid, flag] : before) {
        const auto found = after.find(guid);
        if (found == after.end() || found->second.note != flag.note) changed.push_back(guid);
    }
    for (const auto& [guid, flag] : after)
        if (!before.contains(guid)) changed.push_back(guid);
    return changed;
}

}  // namespace

MainWindow::MainWindow(AppModel& model, QWidget* parent)
    : QMainWindow(parent),
      model_(model),
      thumbnails_(new ThumbnailCache(this)),
      transcriptModel_(new TranscriptModel(this)) {
    setWindowTitle("Brindlecourt");
    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    if (model_.isDemo()) {
        auto* banner = new QLabel(AppModel::demoBanner, central);
        banner->setObjectName("demoBanner");
        banner->setWordWrap(true);
        banner->setStyleSheet("background:#ffe08a; color:#3a2e00; padding:6px; font-weight:bold;");
        layout->addWidget(banner);
    }
    layout->addWidget(makeSourceBar());
    layout->addWidget(makeEvictionWarning());
    pages_ = new QStackedWidget(central);
    pages_->addWidget(makeStatePage());
    auto* splitter = new QSplitter(pages_);
    splitter->addWidget(makeConversationList());
    splitter->addWidget(makeTranscriptPane());
    splitter->addWidget(makeSidebar());
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({240, 560, 280});
    pages_->addWidget(splitter);
    layout->addWidget(pages_, 1);
    layout->addWidget(makeStatusLine());
    new LockCurtain(model_.lock(), *this, central);
    addShortcuts();
    addFileMenu();
    addEditMenu();
    addExportMenu();
    addSnapshotMenu();
    menuBar()->addMenu(makeWhatsAppMenu(model_, this));
    menuBar()->addMenu(makeIPhoneMenu(model_, this));
    menuBar()->addMenu(makeMachineTextMenu(model_, this));
    menuBar()->addMenu(makeLockMenu(model_.lock(), this));
    menuBar()->addMenu(makeHelpMenu(this));
    resize(1180, 760);

    connect(&model_, &AppModel::stateChanged, this, &MainWindow::showState);
    connect(&model_, &AppModel::openFailed, this, &MainWindow::showOpenFailure);
    connect(&model_, &AppModel::conversationsChanged, this, &MainWindow::showConversations);
    connect(&model_, &AppModel::transcriptChanged, this, &MainWindow::showTranscript);
    connect(&model_, &AppModel::flagsChanged, this, &MainWindow::showEvidence);
    connect(&model_, &AppModel::statusChanged, this, &MainWindow::showStatus);
    connect(&model_, &AppModel::evictionReportChanged, this, &MainWindow::showEvictionReport);
    connect(&model_, &AppModel::storeProblemsFound, this, &MainWindow::showStoreProblems);
    connect(thumbnails_, &ThumbnailCache::loaded, transcriptView_->viewport(),
            qOverload<>(&QWidget::update));
    showState();
    showStatus();
    showConversations();
    showTranscript(false);
}

// ---- building

QWidget* MainWindow::makeSourceBar() {
    auto* bar = new QWidget(this);
    auto* row = new QHBoxLayout(bar);
    sourceLabel_ = new QLabel(bar);
    sourceLabel_->setObjectName("source");
    auto* switcher = new SourceSwitcher(model_, bar);
    connect(switcher, &SourceSwitcher::openFileRequested, this, &MainWindow::openDatabaseFile);
    connect(switcher, &SourceSwitcher::importRequested, this,
            [this] { chooseWhatsAppFile(model_, this); });
    row->addWidget(new QLabel("Source:", bar));
    row->addWidget(switcher);
    row->addWidget(sourceLabel_, 1);
    return bar;
}

QWidget* MainWindow::makeEvictionWarning() {
    eviction_ = new QFrame(this);
    eviction_->setStyleSheet("QFrame { background:#fde2e1; } QLabel { color:#5c1210; }");
    auto* row = new QHBoxLayout(eviction_);
    evictionText_ = new QLabel(eviction_);
    evictionText_->setObjectName("evictionText");
    evictionText_->setWordWrap(true);
    auto* again = button("Check Again", eviction_);
    connect(again, &QPushButton::clicked, &model_, &AppModel::checkAttachmentsStillHere);
    row->addWidget(evictionText_, 1);
    row->addWidget(again);
    eviction_->hide();
    return eviction_;
}

QWidget* MainWindow::makeReadingNotes() {
    readingNotes_ = new QFrame(this);
    readingNotes_->setStyleSheet("QFrame { background:#fff4d6; } QLabel { color:#4a3b00; }");
    auto* row = new QHBoxLayout(readingNotes_);
    readingNotesText_ = new QLabel(readingNotes_);
    readingNotesText_->setObjectName("readingNotes");
    readingNotesText_->setWordWrap(true);
    auto* settings = button("Import Settings…", readingNotes_);
    connect(settings, &QPushButton::clicked, this, [this] { editImportSettings(model_, this); });
    row->addWidget(readingNotesText_, 1);
    row->addWidget(settings);
    readingNotes_->hide();
    return readingNotes_;
}

QWidget* MainWindow::makeStatePage() {
    auto* page = new QWidget(this);
    auto* column = new QVBoxLayout(page);
    stateText_ = new QLabel(page);
    stateText_->setObjectName("stateText");
    stateText_->setWordWrap(true);
    stateText_->setAlignment(Qt::AlignCenter);
    stateText_->setMaximumWidth(640);
    auto* open = button("Open a Messages database file…", page);
    retryButton_ = button("Try Again", page);
    retryButton_->setObjectName("tryAgain");
    retryButton_->hide();
    connect(open, &QPushButton::clicked, this, &MainWindow::openDatabaseFile);
    connect(retryButton_, &QPushButton::clicked, &model_, &AppModel::openLive);
    column->addStretch();
    column->addWidget(stateText_, 0, Qt::AlignHCenter);
    column->addWidget(open, 0, Qt::AlignHCenter);
    column->addWidget(retryButton_, 0, Qt::AlignHCenter);
    column->addStretch();
    return page;
}

QWidget* MainWindow::makeConversationList() {
    auto* pane = new QWidget(this);
    auto* column = new QVBoxLayout(pane);
    column->setContentsMargins(0, 0, 0, 0);
    conversationFilter_ = new QLineEdit(pane);
    conversationFilter_->setObjectName("conversationFilter");
    conversationFilter_->setPlaceholderText("Find a conversation");
    conversationFilter_->setToolTip("Find a conversation by name, number or address");
    conversationFilter_->setClearButtonEnabled(true);
    connect(conversationFilter_, &QLineEdit::textChanged, this, &MainWindow::filterConversations);
    conversationList_ = new QListWidget(pane);
    conversationList_->setObjectName("conversations");
    conversationList_->setAlternatingRowColors(true);
    conversationList_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    conversationList_->setTextElideMode(Qt::ElideRight);
    connect(conversationList_, &QListWidget::currentRowChanged, this, [this](int row) {
        model_.selectConversation(row < 0 ? std::nullopt : std::optional<size_t>(row));
    });
    column->addWidget(conversationFilter_);
    column->addWidget(conversationList_, 1);
    return pane;
}

void MainWindow::filterConversations() {
    const PersonLookup people{
        .name = [this](const std::string& handle) -> std::optional<std::string> {
            return model_.nameFor(handle);
        }};
    const auto found = conversationsFound(model_.conversations(), model_.chats(), people,
                                          conversationFilter_->text().toStdString());
    for (size_t row = 0; row < found.size(); ++row)
        conversationList_->setRowHidden(static_cast<int>(row), !found[row]);
}

QWidget* MainWindow::makeTranscriptPane() {
    auto* pane = new QWidget(this);
    auto* column = new QVBoxLayout(pane);
    column->setContentsMargins(0, 0, 0, 0);
    auto* tools = new QHBoxLayout();
    unitChoice_ = new QComboBox(pane);
    for (auto unit : Timeline::units) {
        const auto name = qs(std::string(Timeline::unitName(unit)));
        unitChoice_->addItem(name.left(1).toUpper() + name.mid(1), name);
    }
    const auto remembered = QSettings().value(unitSetting, "day").toString();
    unitChoice_->setCurrentIndex(std::max(0, unitChoice_->findData(remembered)));
    connect(unitChoice_, &QComboBox::currentIndexChanged, this,
            [this] { QSettings().setValue(unitSetting, unitChoice_->currentData()); });
    auto* back = button("◀ Previous", pane, "Jump back by the chosen unit (Ctrl+[)");
    auto* forward = button("Next ▶", pane, "Jump forward by the chosen unit (Ctrl+])");
    auto* addEventButton = button("Add Event…", pane, AppModel::eventHelp);
    connect(back, &QPushButton::clicked, this, [this] { jump(-1); });
    connect(forward, &QPushButton::clicked, this, [this] { jump(1); });
    connect(addEventButton, &QPushButton::clicked, this, &MainWindow::addEvent);
    tools->addWidget(new QLabel("Jump by:", pane));
    tools->addWidget(unitChoice_);
    tools->addWidget(back);
    tools->addWidget(forward);
    tools->addStretch();
    tools->addWidget(addEventButton);
    column->addLayout(tools);

    transcriptView_ = new QListView(pane);
    transcriptView_->setObjectName("transcript");
    transcriptView_->setModel(transcriptModel_);
    delegate_ = new TranscriptDelegate(
        transcriptView_, *thumbnails_,
        {.isFlagged = [this](const Message& message) { return model_.isFlagged(message); },
         .note = [this](const Message& message) { return model_.noteFor(message); },
         .name = [this](const std::string& handle) { return model_.nameFor(handle); }});
    transcriptView_->setItemDelegate(delegate_);
    // Rows differ in height; the view lays them out in batches so a long conversation opens at
    // once and is measured while the user is already reading.
    transcriptView_->setUniformItemSizes(false);
    transcriptView_->setLayoutMode(QListView::Batched);
    transcriptView_->setBatchSize(400);
    transcriptView_->setResizeMode(QListView::Adjust);
    transcriptView_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    transcriptView_->setSelectionMode(QAbstractItemView::SingleSelection);
    transcriptView_->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(transcriptView_, &QWidget::customContextMenuRequested, this,
            &MainWindow::transcriptMenu);
    connect(transcriptView_->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &MainWindow::showSelectedMessage);
    column->addWidget(makeReadingNotes());
    column->addWidget(transcriptView_, 1);
    return pane;
}

QWidget* MainWindow::makeSidebar() {
    auto* tabs = new QTabWidget(this);
    timelineTree_ = new QTreeWidget(tabs);
    timelineTree_->setObjectName("timeline");
    timelineTree_->setHeaderLabels({"Timeline", "Messages"});
    timelineTree_->header()->setStretchLastSection(false);
    timelineTree_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    connect(timelineTree_, &QTreeWidget::itemClicked, this, [this](QTreeWidgetItem* item) {
        showMessage(item->data(0, messageIDRole).toLongLong());
    });
    timelineTree_->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(timelineTree_, &QWidget::customContextMenuRequested, this, &MainWindow::timelineMenu);
    tabs->addTab(timelineTree_, "Timeline");

    auto* evidence = new QWidget(tabs);
    auto* column = new QVBoxLayout(evidence);
    evidenceList_ = new QListWidget(evidence);
    evidenceList_->setObjectName("evidence");
    evidenceList_->setWordWrap(true);
    connect(evidenceList_, &QListWidget::itemClicked, this,
            [this](QListWidgetItem* item) { showMessage(item->data(messageIDRole).toLongLong()); });
    flagButton_ = button("Flag as Evidence", evidence,
                         "Flag as evidence: adds this message to the Evidence sidebar");
    noteEditor_ = new NoteEditor(model_, evidence);
    noteEditor_->setMaximumHeight(90);
    flagButton_->setObjectName("flagMessage");
    saveNoteButton_ = button("Save Note", evidence);
    saveNoteButton_->setObjectName("saveNote");
    connect(flagButton_, &QPushButton::clicked, this, [this] {
        if (const auto* message = selectedMessage()) model_.toggleFlag(*message);
    });
    connect(saveNoteButton_, &QPushButton::clicked, noteEditor_, &NoteEditor::save);
    column->addWidget(new QLabel("Flagged messages of this conversation:", evidence));
    column->addWidget(evidenceList_, 1);
    column->addWidget(new QLabel("Selected message:", evidence));
    column->addWidget(flagButton_);
    column->addWidget(noteEditor_);
    column->addWidget(saveNoteButton_);
    exhibitButton_ = button("No Flagged Messages", evidence);
    exhibitButton_->setObjectName("buildExhibit");
    connect(exhibitButton_, &QPushButton::clicked, this,
            [this] { model_.exports().showExhibitBuilder(); });
    column->addWidget(exhibitButton_);
    tabs->addTab(evidence, "Evidence");
    evidenceTab_ = evidence;
    sidebarTabs_ = tabs;

    searchPanel_ = new SearchPanel(model_, tabs);
    connect(searchPanel_, &SearchPanel::revealRequested, this, &MainWindow::reveal);
    tabs->addTab(searchPanel_, "Search");
    auto* find = new QShortcut(QKeySequence::Find, this);
    connect(find, &QShortcut::activated, this, [this, tabs] {
        tabs->setCurrentWidget(searchPanel_);
        searchPanel_->focusField();
    });
    return tabs;
}

void MainWindow::showEvidenceTab() {
    sidebarTabs_->setCurrentWidget(evidenceTab_);
}

void MainWindow::reveal(int64_t chatID, int64_t messageID) {
    const auto conversation = model_.conversationOfChat(chatID);
    if (!conversation) return;
    pendingReveal_ = messageID;
    if (model_.selectedIndex() == conversation) return showPendingReveal();
    model_.selectConversation(conversation);
}

// Once the conversation is shown whole: its rows are then the ones the model counts.
void MainWindow::showPendingReveal() {
    if (!pendingReveal_ || model_.shownTranscript() != model_.sharedTranscript()) return;
    if (!model_.rowOfMessage(*pendingReveal_)) return;
    showMessage(*std::exchange(pendingReveal_, std::nullopt));
}

QWidget* MainWindow::makeStatusLine() {
    auto* line = new QWidget(this);
    auto* row = new QHBoxLayout(line);
    row->setContentsMargins(8, 2, 8, 2);
    statusText_ = new QLabel(line);
    statusText_->setObjectName("status");
    progress_ = new QProgressBar(line);
    progress_->setRange(0, 0);
    progress_->setMaximumWidth(140);
    cancelButton_ = button("Cancel", line);
    connect(cancelButton_, &QPushButton::clicked, &model_, &AppModel::cancel);
    showInFolder_ = button("Show in Folder", line, "Opens the folder holding the export");
    showInFolder_->setObjectName("showInFolder");
    connect(showInFolder_, &QPushButton::clicked, &model_.exports(),
            &Exports::showFinishedInFolder);
    row->addWidget(statusText_, 1);
    row->addWidget(progress_);
    row->addWidget(cancelButton_);
    row->addWidget(showInFolder_);
    return line;
}

void MainWindow::addShortcuts() {
    const auto bind = [this](const QKeySequence& keys, int step) {
        auto* shortcut = new QShortcut(keys, this);
        connect(shortcut, &QShortcut::activated, this, [this, step] { jump(step); });
    };
    bind(QKeySequence("Ctrl+["), -1);
    bind(QKeySequence("Ctrl+]"), 1);
    bind(QKeySequence("Alt+Left"), -1);
    bind(QKeySequence("Alt+Right"), 1);
}

void MainWindow::addFileMenu() {
    auto* menu = explainingMenu(menuBar(), "File");
    menu->addAction("Open Messages Database…", QKeySequence::Open, this,
                    &MainWindow::openDatabaseFile);
    menu->addAction("Choose Contacts File…", this, &MainWindow::chooseContactsFile);
    auto* forget = menu->addAction("Forget Contacts File", &model_, &AppModel::forgetContactsFile);
    connect(menu, &QMenu::aboutToShow, this, [this, forget] {
        const auto file = model_.contactsFile();
        setAvailable(*forget,
                     firstReason({reasonIf(!file, "No contacts file is in use."),
                                  reasonIf(model_.isDemo(),
                                           "The demonstration keeps its own contacts file.")}));
        forget->setText(file ? "Forget Contacts File “" + qs(file->filename().string()) + "”"
                             : QString("Forget Contacts File"));
    });
    menu->addSeparator();
    menu->addAction("Close Window", QKeySequence::Close, this, &QWidget::close);
    auto* quit = menu->addAction("Quit", QKeySequence::Quit, qApp, &QApplication::closeAllWindows);
    quit->setMenuRole(QAction::QuitRole);
}

void MainWindow::addEditMenu() {
    auto* menu = explainingMenu(menuBar(), "Edit");
    auto* copy = menu->addAction("Copy", QKeySequence::Copy, this, [this] {
        if (const auto* message = selectedMessage())
            QGuiApplication::clipboard()->setText(qs(message->text));
    });
    connect(menu, &QMenu::aboutToShow, this,
            [this, copy] { setAvailable(*copy, reasonIf(!selectedMessage(), selectMessageText)); });
    menu->addAction("Find Conversation", QKeySequence("Ctrl+Shift+F"), this, [this] {
        conversationFilter_->setFocus();
        conversationFilter_->selectAll();
    });
}

void MainWindow::chooseContactsFile() {
    const auto file = QFileDialog::getOpenFileName(this, "Choose a contacts file", QDir::homePath(),
                                                   "Contacts (*.vcf)");
    if (!file.isEmpty()) model_.chooseContactsFile(file.toStdString());
}

void MainWindow::addExportMenu() {
    menuBar()->addMenu(makeExportMenu(model_, this));
    model_.exports().setDialogs(ExportDialogs::native(this));
    model_.counsel().setDialogs(ExportDialogs::native(this));
    answerExportOptions(model_, this);
}

void MainWindow::addSnapshotMenu() {
    auto* menu = explainingMenu(menuBar(), "Snapshots");
    menu->addAction("Preservation Snapshots…", this, [this] {
        snapshotsWindow().show();
        snapshotsWindow().raise();
    });
    auto* take = menu->addAction("Take Snapshot", &model_.snapshots(), &Snapshots::take);
    connect(menu, &QMenu::aboutToShow, this, [this, take] {
        setAvailable(*take, firstReason({model_.snapshots().whyNotTake(),
                                         reasonIf(model_.jobs().isRunning(), Jobs::busyText)}));
    });
    menu->addSeparator();
    menu->addAction("Custody Log…", this, [this] {
        custodyLogWindow().show();
        custodyLogWindow().raise();
    });
    menu->addSeparator();
    auto* calls = menu->addAction("Include Calls in Transcripts");
    calls->setObjectName("includeCalls");
    calls->setCheckable(true);
    calls->setChecked(model_.callsIncluded());
    connect(calls, &QAction::toggled, &model_, &AppModel::setCallsIncluded);
}

SnapshotsWindow& MainWindow::snapshotsWindow() {
    if (!snapshotsWindow_) snapshotsWindow_ = new SnapshotsWindow(model_, this);
    return *snapshotsWindow_;
}

CustodyLogWindow& MainWindow::custodyLogWindow() {
    if (!custodyLogWindow_) custodyLogWindow_ = new CustodyLogWindow(model_, this);
    return *custodyLogWindow_;
}

// ---- showing the model

void MainWindow::showState() {
    const auto state = model_.state();
    sourceLabel_->setText(model_.sourceText());
    pages_->setCurrentIndex(state == AppModel::State::ready ? 1 : 0);
    showReadingNotes();
    stateText_->setText(model_.stateMessage());
    const bool failed = state == AppModel::State::failed || state == AppModel::State::accessNeeded;
    retryButton_->setVisible(failed);
}

void MainWindow::showOpenFailure(const QString& message) {
    auto* box =
        new QMessageBox(QMessageBox::Warning, "Couldn't Open", message, QMessageBox::Ok, this);
    box->setObjectName("openFailure");
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

void MainWindow::showConversations() {
    {
        const QSignalBlocker quiet(conversationList_);
        conversationList_->clear();
        for (const auto& conversation : model_.conversations()) {
            QString text = qs(conversation.title) + "\n" + shortDate(conversation.lastDate) +
                           " · " + counted(conversation.messageCount, "message", "messages");
            if (conversation.onlyRecentlyDeleted) text += "\n🗑 Only in Recently Deleted";
            conversationList_->addItem(text);
        }
        if (const auto index = model_.selectedIndex())
            conversationList_->setCurrentRow(static_cast<int>(*index));
    }
    filterConversations();
    // The newest conversation opens by itself.
    if (!model_.selectedIndex() && !model_.conversations().empty())
        conversationList_->setCurrentRow(0);
}

void MainWindow::showTranscript(bool keepPosition) {
    // The row at the top and its offset are found again by guid after the rows are replaced.
    std::optional<std::string> anchorGUID, selectedGUID;
    int offset = 0;
    if (keepPosition) {
        if (const auto top = topRow()) {
            anchorGUID = transcriptModel_->message(*top).guid;
            offset = transcriptView_->visualRect(transcriptModel_->index(*top)).top();
        }
        if (const auto* selected = selectedMessage()) selectedGUID = selected->guid;
    }
    delegate_->forgetSizes();
    if (const auto index = model_.selectedIndex();
        index && conversationList_->currentRow() != int(*index)) {
        const QSignalBlocker quiet(conversationList_);
        conversationList_->setCurrentRow(static_cast<int>(*index));
    }
    const auto* conversation = model_.selectedConversation();
    transcriptModel_->setTranscript(model_.shownTranscript(),
                                    conversation && conversation->isGroup);
    const auto rowOf = [this](const std::optional<std::string>& guid) -> std::optional<int> {
        if (!guid) return std::nullopt;
        const auto& rows = transcriptModel_->transcript().rowByGUID;
        const auto found = rows.find(*guid);
        if (found == rows.end()) return std::nullopt;
        return static_cast<int>(found->second);
    };
    if (const auto row = rowOf(selectedGUID))
        transcriptView_->setCurrentIndex(transcriptModel_->index(*row));
    if (const auto row = rowOf(anchorGUID)) {
        transcriptView_->scrollTo(transcriptModel_->index(*row), QAbstractItemView::PositionAtTop);
        transcriptView_->verticalScrollBar()->setValue(
            transcriptView_->verticalScrollBar()->value() - offset);
    } else if (!keepPosition) {
        transcriptView_->scrollToBottom();
    }
    showTimelineTree(keepPosition);
    showEvidence();
    showPendingReveal();
}

void MainWindow::showTimelineTree(bool keepExpanded) {
    // The periods the user opened stay open while the same conversation is read again.
    const auto key = [](const QTreeWidgetItem* item) {
        return item->data(0, unitRole).toString() + "@" + item->data(0, startRole).toString();
    };
    QSet<QString> expanded;
    for (QTreeWidgetItemIterator it(timelineTree_); keepExpanded && *it; ++it)
        if ((*it)->isExpanded()) expanded.insert(key(*it));
    timelineTree_->clear();
    addTreeNodes(nullptr, timelineTree_, model_.transcript().timeline.roots);
    if (expanded.isEmpty()) return timelineTree_->expandToDepth(0);
    for (QTreeWidgetItemIterator it(timelineTree_); *it; ++it)
        (*it)->setExpanded(expanded.contains(key(*it)));
}

void MainWindow::selectInTimeline(int64_t firstMessageID) {
    // The deepest period that starts with the message: a day before its month and year.
    QTreeWidgetItem* deepest = nullptr;
    for (QTreeWidgetItemIterator it(timelineTree_); *it; ++it)
        if ((*it)->data(0, messageIDRole).toLongLong() == firstMessageID) deepest = *it;
    if (!deepest) return;
    timelineTree_->setCurrentItem(deepest);
    timelineTree_->scrollToItem(deepest);
}

void MainWindow::showEvidence() {
    evidenceList_->clear();
    for (const auto& message : model_.flaggedMessages()) {
        QString text = shortDate(message.date) + ": " + excerpt(message);
        if (const auto note = model_.noteFor(message); !note.empty()) text += "\nNote: " + qs(note);
        auto* item = new QListWidgetItem(text, evidenceList_);
        item->setData(messageIDRole, QVariant::fromValue<qlonglong>(message.id));
    }
    // Only the rows whose flag or note changed are measured again.
    const auto& rows = model_.transcript().rowByGUID;
    bool changed = false;
    for (const auto& guid : changedGUIDs(shownFlags_, model_.flags())) {
        if (const auto found = rows.find(guid); found != rows.end()) {
            delegate_->forgetRow(static_cast<int>(found->second));
            changed = true;
        }
    }
    shownFlags_ = model_.flags();
    const bool anyFlagged = evidenceList_->count() > 0;
    setAvailable(*exhibitButton_, reasonIf(!anyFlagged, nothingFlaggedText));
    exhibitButton_->setText(anyFlagged ? "Build Exhibit…" : "No Flagged Messages");
    if (changed) transcriptView_->doItemsLayout();
    showSelectedMessage();
}

void MainWindow::showStatus() {
    statusText_->setText(model_.statusText());
    progress_->setVisible(model_.isBusy());
    cancelButton_->setVisible(model_.isBusy());
    // Offered only while the line on show is the one the export ended with.
    const auto& finished = model_.exports().finished();
    showInFolder_->setVisible(!model_.isBusy() && finished &&
                              finished->line == model_.statusText());
}

void MainWindow::showEvictionReport() {
    const auto& report = model_.evictionReport();
    const bool show = report && !report->newlyMissing.empty();
    eviction_->setVisible(show);
    if (!show) return;
    evictionText_->setText("<b>" + QString(AppModel::evictionHeading) + "</b><br>" +
                           counted(static_cast<long long>(report->newlyMissing.size()),
                                   "attachment file disappeared", "attachment files disappeared") +
                           " since the last check (" + number(report->missingNow) + " of " +
                           number(report->total) + " missing now). " + AppModel::evictionAdvice);
}

void MainWindow::showReadingNotes() {
    const auto notes = model_.readingNotes();
    readingNotes_->setVisible(!notes.empty());
    QStringList lines;
    for (const auto& note : notes) lines << qs(note).toHtmlEscaped();
    readingNotesText_->setText("<b>How this chat export was read</b><br>" + lines.join("<br>"));
}

void MainWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    // Once the window is on screen, so that the dialog has something to sit on.
    QTimer::singleShot(0, this, &MainWindow::showStoreProblems);
}

void MainWindow::showStoreProblems() {
    if (!isVisible()) return;  // shown when the window appears
    const QStringList problems = model_.takeStoreProblems();
    if (problems.isEmpty()) return;
    auto* box = new QMessageBox(
        QMessageBox::Warning, "Saved data couldn't be read",
        "Some of your saved data couldn't be read. Each damaged file was set aside under a new "
        "name and is left untouched; Brindlecourt continues without its contents.",
        QMessageBox::Ok, this);
    box->setObjectName("storeProblems");
    box->setInformativeText(problems.join("\n\n"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

void MainWindow::showSelectedMessage() {
    const auto* message = selectedMessage();
    const bool usable = message && !message->isUserEvent();
    const auto whyNot = firstReason(
        {reasonIf(!message, selectMessageText), reasonIf(!usable, eventNotMessageText)});
    setAvailable(*flagButton_, whyNot);
    // A note typed on an unflagged message flags it.
    noteEditor_->edit(message);
    setAvailable(*saveNoteButton_, whyNot);
    flagButton_->setText(usable && model_.isFlagged(*message) ? "Remove Flag" : "Flag as Evidence");
}

// ---- actions

const Message* MainWindow::selectedMessage() const {
    const auto index = transcriptView_->currentIndex();
    if (!index.isValid() || index.row() >= transcriptModel_->rowCount()) return nullptr;
    return &transcriptModel_->message(index.row());
}

std::optional<int> MainWindow::topRow() const {
    const auto index = transcriptView_->indexAt(QPoint(4, 4));
    if (!index.isValid()) return std::nullopt;
    return index.row();
}

Timeline::Unit MainWindow::jumpUnit() const {
    return Timeline::unitNamed(unitChoice_->currentData().toString().toStdString())
        .value_or(Timeline::Unit::day);
}

void MainWindow::jump(int step) {
    const auto& transcript = model_.transcript();
    // From the selected message's day, or from the day at the top when none is selected.
    const auto current = transcriptView_->currentIndex();
    const auto from = current.isValid() ? std::optional(current.row()) : topRow();
    if (!from) return;
    const auto day = transcript.timeline.dayIndex(transcriptModel_->message(*from).id);
    if (!day) return;
    const auto target = transcript.timeline.jump(*day, jumpUnit(), step);
    if (!target) return;
    const auto first = transcript.timeline.days[*target].firstMessageID;
    showMessage(first);
    selectInTimeline(first);
}

void MainWindow::showMessage(int64_t messageID) {
    const auto row = model_.rowOfMessage(messageID);
    if (!row) return;
    const auto index = transcriptModel_->index(static_cast<int>(*row));
    transcriptView_->setCurrentIndex(index);
    transcriptView_->scrollTo(index, QAbstractItemView::PositionAtTop);
}

void MainWindow::openDatabaseFile() {
    const auto file = QFileDialog::getOpenFileName(this, "Open a Messages database file", QString(),
                                                   "Messages database (*.db);;All files (*)");
    if (!file.isEmpty()) model_.openSource(file.toStdString(), AppModel::SourceKind::file);
}

void MainWindow::addEvent() {
    const auto* message = selectedMessage();
    const auto event = model_.startAddingEvent(message ? message->date : Clock::now());
    if (!event) return;
    EventDialog dialog(*event, this);
    if (dialog.exec() == QDialog::Accepted) model_.saveEvent(dialog.edited());
}

void MainWindow::editEvent(const Message& row) {
    EventDialog dialog(*row.userEvent, this);
    if (dialog.exec() == QDialog::Accepted) model_.saveEvent(dialog.edited());
}

void MainWindow::closeEvent(QCloseEvent* event) {
    noteEditor_->save();
    QMainWindow::closeEvent(event);
}

void MainWindow::transcriptMenu(const QPoint& at) {
    const auto index = transcriptView_->indexAt(at);
    if (!index.isValid()) return;
    transcriptView_->setCurrentIndex(index);
    const Message row = transcriptModel_->message(index.row());
    QMenu menu(this);
    if (row.isUserEvent()) {
        menu.addAction("Edit Event…", this, [this, row] { editEvent(row); });
        menu.addAction("Delete Event", this,
                       [this, row] { model_.deleteEvent(row.userEvent->id); });
    } else {
        menu.addAction(model_.isFlagged(row) ? "Remove Flag" : "Flag as Evidence", this,
                       [this, row] { model_.toggleFlag(row); });
        menu.addAction("Add a Private Note", this, [this, index] {
            transcriptView_->setCurrentIndex(index);
            showEvidenceTab();
            noteEditor_->setFocus();
        });
        menu.addAction("Add Event Here…", this, &MainWindow::addEvent);
    }
    menu.exec(transcriptView_->viewport()->mapToGlobal(at));
}

void MainWindow::timelineMenu(const QPoint& at) {
    const auto* item = timelineTree_->itemAt(at);
    if (!item) return;
    const auto unitName = item->data(0, unitRole).toString();
    const auto unit = Timeline::unitNamed(unitName.toStdString());
    if (!unit) return;
    QMenu menu(this);
    addPeriodExports(menu, model_,
                     ExportPeriod::containing(Date{item->data(0, startRole).toDouble()}, *unit));
    menu.exec(timelineTree_->viewport()->mapToGlobal(at));
}

}  // namespace bc::app
