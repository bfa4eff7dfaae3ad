#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include "app/counsel/Counsel.h"
#include "app/export/Exports.h"
#include "app/lock/Lock.h"
#include "app/shell/Background.h"
#include "app/shell/Jobs.h"
#include "app/transcript/Conversations.h"
#include "custody/AttachmentWatch.h"
#include "custody/Imports.h"
#include "evidence/EvidenceFlags.h"
#include "evidence/Search.h"
#include "evidence/Timeline.h"
#include "export/ExportJob.h"
#include "model/Message.h"
#include "model/TimelineEvent.h"
#include "support/CancelFlag.h"
#include "support/Machine.h"

namespace bc {
class MessageDatabase;
class MessageSource;
class ContactResolver;
}  // namespace bc

namespace bc::app {

class Snapshots;
class WhatsAppSources;

// Calls from this Mac's call history, merged in when the source is a Messages database.
void mergeCalls(Transcript& transcript, MessageSource& source, const std::vector<int64_t>& chatIDs);

// What the open conversation shows: the rows on screen (the messages as read, calls merged, with
// the user's events among them) and their calendar. One copy only: a long conversation is large.
struct OpenTranscript {
    std::vector<ReactionEvent> reactionEvents;
    std::optional<std::string> callLogIssue;
    std::vector<Message> rows;  // in time order
    Timeline timeline;
    std::unordered_map<std::string, size_t> rowByGUID;

    // The rows without the user's events: what an export of the conversation is given.
    std::vector<Message> messages() const;
};

// Owns everything the window shows and runs every slow step on background threads. Lives on the
// main thread; the window only reads it and calls its operations.
class AppModel : public QObject {
    Q_OBJECT
public:
    enum class State { accessNeeded, loading, ready, failed };
    enum class SourceKind { live, file, snapshot, whatsAppMac, import };

    static constexpr int pollingMilliseconds = 3000;
    static constexpr const char* demoBanner =
        "Demo mode: sample data only. Nothing here is real, and nothing is saved to your "
        "Brindlecourt data.";
    inline static const QString evictionHeading =
        QString("Attachments were removed from ") + thisMachine;
    static constexpr const char* evictionAdvice =
        "Let Messages download the files again. Click Check Again here, then seal a snapshot. "
        "Anything still missing is listed in the snapshot's missing-attachments.csv.";
    static constexpr const char* eventHelp =
        "Adds context to this conversation's timeline, such as a hearing or a move. It's shown "
        "in Brindlecourt, marked as yours, and is never included in exports of the messages.";

    explicit AppModel(QObject* parent = nullptr);
    ~AppModel() override;

    // Sources. The live one is this Mac's Messages database unless the start chose another (the
    // sample one in demo mode, written once at start, so switching back never rewrites it).
    void openLive();
    void setLiveDatabase(std::filesystem::path path) { liveDatabase_ = std::move(path); }
    void openSource(const std::filesystem::path& path, SourceKind kind);
    // A sealed snapshot, read-only: exports from it name it as their source.
    void openSnapshot(const SnapshotInfo& snapshot);
    // WhatsApp for Mac's own database, read-only.
    void openWhatsAppMac();
    // A sealed import, shown with its settings; its only conversation opens.
    void openImport(const ImportInfo& info, ImportPart part = ImportPart::own);
    // The import in use, when the source is one.
    const std::optional<ImportInfo>& openedImport() const { return import_; }
    ImportPart openedImportPart() const { return importPart_; }
    // What the open chat export's reader had to assume, and who wrote in it (empty otherwise).
    std::vector<std::string> readingNotes() const;
    std::vector<std::string> importSenders() const;
    // What the open source is; it changes only once a new source has opened.
    SourceKind sourceKind() const { return sourceKind_; }
    State state() const { return state_; }
    // The failure, or what to do when access is needed.
    QString stateMessage() const { return stateMessage_; }
    QString sourceText() const;
    bool isDemo() const;
    // Demo mode with KESTROVE_DEMO_EXPORT_DIR set: that folder, created when needed; else nothing.
    std::optional<std::filesystem::path> demoExportFolder() const;
    // The open source and what it is: exports read from these.
    std::shared_ptr<MessageSource> source() const { return source_; }
    // The open source when it is a Messages database (snapshots are taken only of one).
    std::shared_ptr<MessageDatabase> database() const;
    const SourceChoice& sourceChoice() const { return sourceChoice_; }

    // Contacts give names and same-person grouping once loaded; until then handles stand in.
    // They come from this Mac's Contacts databases and the contacts file, if one was chosen.
    void loadContacts();
    // The vCard file chosen for names, remembered between runs; demo mode's is the sample one.
    std::optional<std::filesystem::path> contactsFile() const;
    void chooseContactsFile(const std::filesystem::path& file);
    void forgetContactsFile();

    const std::vector<Chat>& chats() const { return chats_; }
    const std::vector<Conversation>& conversations() const { return conversations_; }
    std::optional<size_t> selectedIndex() const;
    const Conversation* selectedConversation() const;
    void selectConversation(std::optional<size_t> index);

    const OpenTranscript& transcript() const { return *transcript_; }
    std::shared_ptr<const OpenTranscript> sharedTranscript() const { return transcript_; }
    // What the transcript view shows: while a long conversation is read, its newest rows (which
    // transcript() never holds, so nothing acts on part of a conversation).
    std::shared_ptr<const OpenTranscript> shownTranscript() const {
        return recentRows_ ? recentRows_ : transcript_;
    }
    // Conversations longer than this show their last rows before the whole is read.
    static constexpr int64_t recentFirstAbove = 20'000;
    static constexpr size_t recentRows = 400;
    std::optional<size_t> rowOfMessage(int64_t messageID) const;
    std::optional<size_t> rowOfDay(size_t dayIndex) const;

    // Evidence flags and notes.
    const EvidenceFlagMap& flags() const { return flags_.flags(); }
    bool isFlagged(const Message& message) const { return flags_.isFlagged(message); }
    void toggleFlag(const Message& message);
    void setNote(const std::string& note, const Message& message);
    std::vector<Message> flaggedMessages() const;
    std::string noteFor(const Message& message) const;
    // The contact's name, or the handle itself.
    std::string nameFor(const std::string& handle) const;

    // The user's timeline events.
    std::optional<TimelineEvent> startAddingEvent(Date at) const;
    void saveEvent(const TimelineEvent& event);
    void deleteEvent(const std::string& eventID);
    std::vector<TimelineEvent> eventsForOpenConversation() const;

    // Attachments that vanished from disk since the last check of the live database.
    void startAttachmentWatch();
    void checkAttachmentsStillHere();
    const std::optional<AttachmentWatch::Report>& evictionReport() const { return evictionReport_; }

    // Every store that had to be set aside since last asked (its message and where it was kept),
    // each handed out once.
    QStringList takeStoreProblems();

    // Asks the source whether it changed and reloads when it did; a timer calls it every 3 s.
    void pollForChanges();
    void setPolling(bool on);
    bool isCheckingForChanges() const { return pollInFlight_; }

    // Search over the open source, off the main thread; a newer search always wins. A query with a
    // chat searches the conversation that holds it, the same person's other chats included.
    void runSearch(const SearchQuery& query);
    const Searches& searches() const { return searches_; }
    // The title of the conversation a chat belongs to, as the list shows it.
    std::string chatTitle(int64_t chatID) const;
    // The list position of the conversation holding the chat.
    std::optional<size_t> conversationOfChat(int64_t chatID) const;

    // Exports and snapshots run here, one at a time; their progress is the status line's.
    Jobs& jobs() { return jobs_; }
    Exports& exports() { return exports_; }
    Counsel& counsel() { return counsel_; }
    Snapshots& snapshots() { return *snapshots_; }
    WhatsAppSources& whatsApp() { return *whatsApp_; }
    // The app lock: while it is locked the window shows nothing of the conversations, and running
    // exports go on.
    Lock& lock() { return lock_; }

    // Whether calls are merged into transcripts: kept in the preferences, applied at once.
    bool callsIncluded() const;
    void setCallsIncluded(bool included);

    QString statusText() const;
    bool isBusy() const { return busy_ || jobs_.isRunning(); }
    // Cancels the running export or snapshot, else the reading under way.
    void cancel();

signals:
    void stateChanged();
    void conversationsChanged();
    // `keepPosition`: the same conversation was read again after a change.
    void transcriptChanged(bool keepPosition);
    void flagsChanged();
    void statusChanged();
    void evictionReportChanged();
    void storeProblemsFound();
    void searchChanged();
    // Another source could not be opened; the one in use stays open.
    void openFailed(const QString& message);

private:
    struct Opened;

    // `open` runs off the main thread and opens the source; `path` names it meanwhile.
    void openWith(std::function<std::shared_ptr<MessageSource>()> open,
                  const std::filesystem::path& path, SourceKind kind, SourceChoice choice,
                  std::optional<ImportInfo> import = std::nullopt,
                  ImportPart importPart = ImportPart::own);
    void finishOpening(Opened opened);
    void failOpening(std::exception_ptr error, SourceKind kind, const std::filesystem::path& path);
    void readSignature(std::optional<int64_t> listedVersion);
    void loadTranscript(bool keepPosition);
    void dropRecentRows();
    void persistEvents();
    void applyEvents();
    // Names and identities from the contacts as last loaded.
    PersonLookup people() const;
    // True when the selected conversation now holds other chats and must be read again.
    bool regroup(bool keepSelection);
    void setState(State state, QString message = {});
    std::shared_ptr<CancelFlag> beginTask(const QString& progress);
    void endTask(const QString& status = {});
    void reportStatus(const QString& text);
    void collectStoreProblems();

    // Before the background work that searches, so that it ends first.
    Searches searches_;
    Background background_;
    // Before the job runner, so that a running job's work ends before the snapshots and exports
    // go.
    std::unique_ptr<Snapshots> snapshots_;
    std::unique_ptr<WhatsAppSources> whatsApp_;
    Exports exports_{*this};
    Counsel counsel_{*this};
    Jobs jobs_;
    QTimer pollTimer_;
    State state_ = State::loading;
    QString stateMessage_;
    // The reading under way or how it ended, else the last line reported.
    QString taskText_;
    QString reportedText_;
    bool busy_ = false;
    std::shared_ptr<CancelFlag> cancel_;
    // A result of an older request than these is dropped.
    uint64_t sourceGeneration_ = 0;
    uint64_t transcriptGeneration_ = 0;
    bool pollInFlight_ = false;

    std::filesystem::path liveDatabase_;
    std::shared_ptr<MessageSource> source_;
    SourceKind sourceKind_ = SourceKind::live;
    SourceChoice sourceChoice_;
    std::optional<ImportInfo> import_;
    ImportPart importPart_ = ImportPart::own;
    std::string signature_;
    std::vector<Chat> chats_;
    std::shared_ptr<ContactResolver> contacts_;
    std::vector<Conversation> conversations_;
    std::optional<Conversation> selected_;
    std::shared_ptr<const OpenTranscript> transcript_;
    std::shared_ptr<const OpenTranscript> recentRows_;

    EvidenceFlags flags_;
    std::vector<TimelineEvent> events_;
    std::optional<AttachmentWatch::Report> evictionReport_;
    std::unique_ptr<RepeatingRounds> attachmentRounds_;
    QStringList storeProblems_;
    Lock lock_;
};

}  // namespace bc::app
