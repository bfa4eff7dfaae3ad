#include "app/shell/AppModel.h"

#include <algorithm>
#include <iostream>

#include <QSettings>

#include "app/custody/Snapshots.h"
#include "app/shell/Failures.h"
#include "app/shell/FreedOffMainThread.h"
#include "app/shell/QtText.h"
#include "app/sources/WhatsAppSources.h"
#include "custody/Preservation.h"
#include "demo/DemoData.h"
#include "evidence/EvidenceStore.h"
#include "evidence/MachineText.h"
#include "evidence/TimelineEventStore.h"
#include "evidence/UserEventRows.h"
#include "sources/CallHistory.h"
#include "sources/ContactResolver.h"
#include "sources/IPhoneBackupMessages.h"
#include "sources/MessageDatabase.h"
#include "sources/WhatsAppDatabase.h"
#include "sources/WhatsAppExportSource.h"
#include "support/Errors.h"
#include "support/Uuid.h"

namespace bc::app {

namespace {

constexpr const char* callsSetting = "calls/isEnabled";
constexpr const char* contactsSetting = "contacts/file";

bool isAccessDenied(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const DBError& failure) {
        return failure.kind() == DBError::Kind::accessDenied;
    } catch (...) {
        return false;
    }
}

QString accessInstructions(const std::string& path, const std::string& reason) {
#ifdef __APPLE__
    const QString grant =
        "Brindlecourt needs permission to read your Messages. Open System Settings, then Privacy "
        "& Security, then Full Disk Access; switch Brindlecourt on (add it with + if it isn't "
        "listed), then quit and reopen Brindlecourt.";
#else
    const QString grant = "No readable Messages database was found at " + qs(path) + ".";
#endif
    return grant +
           "\n\nYou can also open a copy of a Messages database with \"Open a Messages "
           "database file…\".\n\n(" +
           qs(reason) + ")";
}

// What is being opened, as the status and a failure name it.
// The conversation of a newly opened source that is the one open before (a snapshot of the
// same database holds the same people), found by its person or chat, not by row numbers.
std::optional<Conversation> sameConversationIn(const std::vector<Conversation>& list,
                                               const std::optional<Conversation>& before) {
    if (!before) return std::nullopt;
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&](const Conversation& c) { return c.key == before->key; });
    return found == list.end() ? std::nullopt : std::optional(*found);
}

QString sourceNoun(AppModel::SourceKind kind) {
    switch (kind) {
        case AppModel::SourceKind::whatsAppMac:
            return "WhatsApp for Mac's database";
        case AppModel::SourceKind::import:
            return "the import";
        default:
            return "the Messages database";
    }
}

// The contacts sealed with an iPhone backup import, when that is the source.
std::optional<std::filesystem::path> backupContacts(const MessageSource* source) {
    const auto* backup = dynamic_cast<const IPhoneBackupMessages*>(source);
    return backup ? backup->companions().contacts : std::nullopt;
}

// The shown rows and their calendar, from the messages and the conversation's events.
void arrangeRows(OpenTranscript& open, std::vector<Message> messages,
                 const std::vector<TimelineEvent>& events) {
    open.rows = events.empty() ? std::move(messages) : userEvents::merge(events, messages);
    open.timeline = Timeline(open.rows);
    open.rowByGUID.clear();
    open.rowByGUID.reserve(open.rows.size());
    for (size_t row = 0; row < open.rows.size(); ++row)
        open.rowByGUID.try_emplace(open.rows[row].guid, row);
}

// What the window shows of a read: calls merged, the user's events among the rows. A read of only
// the newest rows keeps what lies from its first stored message on, as the whole would show it.
std::shared_ptr<const OpenTranscript> openTranscript(MessageSource& source,
                                                     const std::vector<int64_t>& chatIDs,
                                                     Transcript read,
                                                     std::vector<TimelineEvent> events,
                                                     const CancelFlag& cancel, bool recentOnly) {
    cancel.check();
    mergeCalls(read, source, chatIDs);
    cancel.check();
    auto open = std::make_unique<OpenTranscript>();
    open->reactionEvents = std::move(read.reactionEvents);
    open->callLogIssue = std::move(read.callLogIssue);
    auto& messages = read.messages;
    if (recentOnly) {
        const auto first = std::find_if(messages.begin(), messages.end(),
                                        [](const Message& row) { return row.isRecordedMessage(); });
        const std::optional<Date> from =
            first == messages.end() ? std::nullopt : std::optional(first->date);
        messages.erase(messages.begin(), first);
        std::erase_if(events,
                      [&](const TimelineEvent& event) { return !from || event.date < *from; });
    }
    arrangeRows(*open, std::move(messages), events);
    return freedOffMainThread(std::move(open));
}

}  // namespace

void mergeCalls(Transcript& transcript, MessageSource& source,
                const std::vector<int64_t>& chatIDs) {
    if (auto* database = dynamic_cast<MessageDatabase*>(&source))
        CallHistory::shared().mergeCalls(transcript, *database, chatIDs,
                                         database->handles(chatIDs));
}

std::vector<Message> OpenTranscript::messages() const {
    std::vector<Message> recorded;
    recorded.reserve(rows.size());
    std::copy_if(rows.begin(), rows.end(), std::back_inserter(recorded),
                 [](const Message& row) { return !row.isUserEvent(); });
    return recorded;
}

struct AppModel::Opened {
    std::shared_ptr<MessageSource> database;
    std::vector<Chat> chats;
    std::string signature;
    std::optional<int64_t> dataVersion;  // as the chats were read, for a Messages database
};

namespace {

std::optional<int64_t> dataVersionOf(MessageSource& source) {
    if (auto* database = dynamic_cast<MessageDatabase*>(&source)) return database->dataVersion();
    return std::nullopt;
}

}  // namespace

AppModel::AppModel(QObject* parent)
    : QObject(parent),
      background_(this),
      cancel_(std::make_shared<CancelFlag>()),
      transcript_(std::make_shared<OpenTranscript>()),
      flags_(EvidenceStore::load()),
      events_(TimelineEventStore::load()),
      lock_(isDemo()) {
    liveDatabase_ = MessageDatabase::defaultPath();
    connect(&lock_, &Lock::statusReported, this, &AppModel::reportStatus);
    pollTimer_.setInterval(pollingMilliseconds);
    connect(&pollTimer_, &QTimer::timeout, this, &AppModel::pollForChanges);
    connect(&jobs_, &Jobs::changed, this, &AppModel::statusChanged);
    connect(&jobs_, &Jobs::finished, this, &AppModel::reportStatus);
    CallHistory::setEnabled(QSettings().value(callsSetting, true).toBool());
    snapshots_ = std::make_unique<Snapshots>(*this);
    connect(snapshots_.get(), &Snapshots::statusReported, this, &AppModel::reportStatus);
    whatsApp_ = std::make_unique<WhatsAppSources>(*this);
    connect(whatsApp_.get(), &WhatsAppSources::statusReported, this, &AppModel::reportStatus);
    connect(&exports_, &Exports::statusReported, this, &AppModel::reportStatus);
    connect(&counsel_, &Counsel::statusReported, this, &AppModel::reportStatus);
    collectStoreProblems();
}

AppModel::~AppModel() {
    attachmentRounds_.reset();
    background_.waitForDone();
}

bool AppModel::isDemo() const {
    return DemoData::isEnabled();
}

std::optional<std::filesystem::path> AppModel::demoExportFolder() const {
    const char* folder = std::getenv("KESTROVE_DEMO_EXPORT_DIR");
    if (!isDemo() || !folder || !*folder) return std::nullopt;
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error)
        throw Error("Couldn't create the demo export folder " + std::string(folder) + ": " +
                    error.message());
    return std::filesystem::path(folder);
}

QString AppModel::sourceText() const {
    if (!source_) return "No source open";
    if (isDemo() && sourceKind_ == SourceKind::live) return "Sample Messages database (demo)";
    if (sourceKind_ == SourceKind::snapshot && sourceChoice_.snapshot)
        return qs(sourceChoice_.snapshot->id) +
               " (sealed, read-only): " + qs(sourceChoice_.snapshot->scope);
    if (sourceKind_ == SourceKind::import && import_)
        return qs(Imports::partLabel(*import_, importPart_)) + " (" + qs(import_->id) + ")";
    if (sourceKind_ == SourceKind::whatsAppMac) return qs(source_->sourceDescription());
    const QString where = qs(source_->path());
    return sourceKind_ == SourceKind::live
               ? "Messages on " + QString(thisMachine) + " (live, read-only): " + where
               : "Messages database file (read-only): " + where;
}

// ---- sources

void AppModel::openLive() {
    openSource(liveDatabase_, SourceKind::live);
}

void AppModel::openSource(const std::filesystem::path& path, SourceKind kind) {
    const auto origin = kind == SourceKind::live && isDemo() ? MessageDatabase::Origin::demoSample
                                                             : MessageDatabase::originOf(path);
    openWith([path, origin] { return std::make_shared<MessageDatabase>(path, origin); }, path, kind,
             {});
}

void AppModel::openSnapshot(const SnapshotInfo& snapshot) {
    openWith([snapshot] { return std::shared_ptr<MessageDatabase>(Preservation::open(snapshot)); },
             Preservation::folder(snapshot), SourceKind::snapshot,
             SourceChoice{.kind = SourceChoice::Kind::snapshot, .snapshot = snapshot});
}

void AppModel::openWhatsAppMac() {
    openWith([] { return std::shared_ptr<MessageSource>(WhatsAppDatabase::openMac()); },
             WhatsAppDatabase::macDatabasePath(), SourceKind::whatsAppMac,
             SourceChoice{.kind = SourceChoice::Kind::whatsAppMac});
}

void AppModel::openImport(const ImportInfo& info, ImportPart part) {
    openWith([info, part] { return std::shared_ptr<MessageSource>(Imports::open(info, part)); },
             info.folder(), SourceKind::import,
             SourceChoice{.kind = SourceChoice::Kind::whatsAppImport}, info, part);
}

std::vector<std::string> AppModel::readingNotes() const {
    const auto* chat = dynamic_cast<const WhatsAppExportSource*>(source_.get());
    return chat ? chat->notes() : std::vector<std::string>{};
}

std::vector<std::string> AppModel::importSenders() const {
    const auto* chat = dynamic_cast<const WhatsAppExportSource*>(source_.get());
    return chat ? chat->participants() : std::vector<std::string>{};
}

std::shared_ptr<MessageDatabase> AppModel::database() const {
    return std::dynamic_pointer_cast<MessageDatabase>(source_);
}

void AppModel::openWith(std::function<std::shared_ptr<MessageSource>()> open,
                        const std::filesystem::path& path, SourceKind kind, SourceChoice choice,
                        std::optional<ImportInfo> import, ImportPart importPart) {
    const auto generation = ++sourceGeneration_;
    ++transcriptGeneration_;
    attachmentRounds_.reset();
    setState(State::loading, "Opening " + sourceNoun(kind) + "…");
    auto cancel = beginTask("Opening " + sourceNoun(kind) + "…");
    background_.run(
        [open = std::move(open), cancel] {
            Opened opened;
            opened.database = open();
            cancel->check();
            opened.dataVersion = dataVersionOf(*opened.database);
            opened.chats = opened.database->fetchChats();
            return opened;
        },
        [this, generation, kind, choice = std::move(choice), import = std::move(import),
         importPart](Opened opened) {
            if (generation != sourceGeneration_) return;
            sourceKind_ = kind;
            sourceChoice_ = choice;
            import_ = import;
            importPart_ = importPart;
            const auto listedVersion = opened.dataVersion;
            finishOpening(std::move(opened));
            readSignature(listedVersion);
            // An import holds one conversation, or a few: show the first at once.
            if (import_ && !conversations_.empty()) selectConversation(0);
        },
        [this, generation, kind, path](std::exception_ptr error) {
            if (generation != sourceGeneration_) return;
            failOpening(error, kind, path);
        });
}

void AppModel::finishOpening(Opened opened) {
    const bool sameSource = source_ == opened.database;
    const bool contactsChange =
        !sameSource && (backupContacts(source_.get()) || backupContacts(opened.database.get()));
    source_ = std::move(opened.database);
    signature_ = std::move(opened.signature);
    chats_ = std::move(opened.chats);
    if (!sameSource) {
        selected_ = sameConversationIn(groupConversations(chats_, people()), selected_);
        recentRows_.reset();
        transcript_ = std::make_shared<OpenTranscript>();
        emit transcriptChanged(false);
    }
    endTask();
    regroup(true);
    if (!sameSource && selected_) loadTranscript(false);
    if (contactsChange) loadContacts();
    setState(State::ready);
    if (!sameSource && source_->isLive() && database()) startAttachmentWatch();
}

// The list is shown first; the signature, a second pass over the messages, follows. When the
// database changed in between, the signature describes a state the list never saw: a signature
// that matches nothing then makes the next poll read everything again.
void AppModel::readSignature(std::optional<int64_t> listedVersion) {
    const auto generation = sourceGeneration_;
    pollInFlight_ = true;
    background_.run(
        [database = source_, listedVersion] {
            auto signature = database->changeSignature();
            return dataVersionOf(*database) == listedVersion ? signature : std::string("changed");
        },
        [this, generation](std::string signature) {
            pollInFlight_ = false;
            if (generation == sourceGeneration_) signature_ = std::move(signature);
        },
        [this](std::exception_ptr error) {
            pollInFlight_ = false;
            reportStatus("Couldn't check the Messages database for changes: " +
                         qs(messageOf(error)));
        });
}

void AppModel::failOpening(std::exception_ptr error, SourceKind kind,
                           const std::filesystem::path& path) {
    // A source that fails to open never takes the working one with it.
    if (source_) {
        endTask(isCancellation(error) ? "Cancelled." : "");
        setState(State::ready);
        if (!isCancellation(error))
            emit openFailed("Couldn't open " + sourceNoun(kind) + ": " + qs(messageOf(error)));
        return;
    }
    source_.reset();
    sourceChoice_ = {};
    import_.reset();
    chats_.clear();
    selected_.reset();
    regroup(false);
    loadTranscript(false);
    if (isCancellation(error)) {
        endTask("Cancelled.");
        setState(State::failed, "Opening " + sourceNoun(kind) + " was cancelled.");
    } else if (isAccessDenied(error) && kind == SourceKind::live) {
        endTask();
        setState(State::accessNeeded, accessInstructions(path.string(), messageOf(error)));
    } else {
        endTask();
        setState(State::failed, "Couldn't open " + sourceNoun(kind) + ": " + qs(messageOf(error)));
    }
}

void AppModel::loadContacts() {
    // Demo mode reads nothing of the user's: only the sample people have names.
    auto sources = isDemo() ? ContactResolver::Sources{} : ContactResolver::defaultSources();
    if (const auto file = contactsFile()) sources.vCardFiles.push_back(*file);
    // A phone's backup names its people first by the phone's own contacts.
    if (const auto backup = backupContacts(source_.get()))
        sources.databases.insert(sources.databases.begin(), *backup);
    background_.run(
        [sources, demo = isDemo()] {
            if (demo) DemoData::contactsPath();
            auto contacts = std::make_shared<ContactResolver>();
            return std::make_pair(contacts, contacts->load(sources));
        },
        [this](std::pair<std::shared_ptr<ContactResolver>, std::vector<std::string>> loaded) {
            contacts_ = std::move(loaded.first);
            if (regroup(true)) loadTranscript(true);
            // Only the file the user chose is worth a word; the Mac's own databases may be absent.
            const auto chosen = contactsFile();
            for (const auto& problem : loaded.second)
                if (chosen && problem.find(chosen->filename().string()) != std::string::npos)
                    reportStatus(qs(problem));
        },
        [this](std::exception_ptr error) {
            reportStatus("Couldn't read contacts: " + qs(messageOf(error)));
        });
}

std::optional<std::filesystem::path> AppModel::contactsFile() const {
    if (isDemo()) return DemoData::folder() / "Sample contacts.vcf";
    const auto file = QSettings().value(contactsSetting).toString();
    if (file.isEmpty()) return std::nullopt;
    return std::filesystem::path(file.toStdString());
}

void AppModel::chooseContactsFile(const std::filesystem::path& file) {
    if (isDemo()) return;
    QSettings().setValue(contactsSetting, qs(file.string()));
    loadContacts();
}

void AppModel::forgetContactsFile() {
    if (isDemo()) return;
    QSettings().remove(contactsSetting);
    loadContacts();
}

void AppModel::setCallsIncluded(bool included) {
    QSettings().setValue(callsSetting, included);
    CallHistory::setEnabled(included);
    loadTranscript(true);
}

bool AppModel::callsIncluded() const {
    return CallHistory::isEnabled();
}

// ---- conversations

PersonLookup AppModel::people() const {
    return {
        .identity =
            [contacts = contacts_](const std::string& handle) {
                return contacts ? contacts->identity(handle)
                                : "handle:" + ContactResolver::key(handle);
            },
        .name = [contacts = contacts_](const std::string& handle) -> std::optional<std::string> {
            return contacts ? contacts->name(handle) : std::nullopt;
        }};
}

bool AppModel::regroup(bool keepSelection) {
    conversations_ = groupConversations(chats_, people());
    emit conversationsChanged();
    if (!keepSelection || !selected_) return false;
    const auto index = selectedIndex();
    if (!index) {
        selectConversation(std::nullopt);
        return false;
    }
    // The same chats may have a new title now that contacts name them.
    const bool sameChats = conversations_[*index].chatIDs == selected_->chatIDs;
    selected_ = conversations_[*index];
    return !sameChats;
}

std::optional<size_t> AppModel::selectedIndex() const {
    if (!selected_) return std::nullopt;
    // Found by a chat, not by key: contacts arriving may change the key of the same person.
    const int64_t anchor = selected_->chatIDs.front();
    for (size_t index = 0; index < conversations_.size(); ++index) {
        const auto& ids = conversations_[index].chatIDs;
        if (std::find(ids.begin(), ids.end(), anchor) != ids.end()) return index;
    }
    return std::nullopt;
}

const Conversation* AppModel::selectedConversation() const {
    return selected_ ? &*selected_ : nullptr;
}

// ---- search

void AppModel::runSearch(const SearchQuery& query) {
    if (query.isEmpty() || !source_) return;
    const auto ticket = searches_.begin(query);
    emit searchChanged();
    std::vector<int64_t> chats;
    if (query.chatID) {
        const auto conversation = conversationOfChat(*query.chatID);
        chats = conversation ? conversations_[*conversation].chatIDs
                             : std::vector<int64_t>{*query.chatID};
    }
    // Searches are not cancelled: the newest wins and the index an older one builds is kept.
    background_.run(
        [source = source_, searches = &searches_, query, chats] {
            const CancelFlag never;
            const auto index = searches->index(*source, never, {});
            return bc::runSearch(*source, *index, query, chats, storedMachineTextLookup(), never);
        },
        [this, ticket](SearchOutcome outcome) {
            if (searches_.finish(ticket, std::move(outcome))) emit searchChanged();
        },
        [this, ticket](std::exception_ptr error) {
            if (const auto line = searches_.fail(ticket, messageOf(error))) {
                reportStatus(qs(*line));
                emit searchChanged();
            }
        });
}

std::optional<size_t> AppModel::conversationOfChat(int64_t chatID) const {
    for (size_t i = 0; i < conversations_.size(); ++i) {
        const auto& ids = conversations_[i].chatIDs;
        if (std::find(ids.begin(), ids.end(), chatID) != ids.end()) return i;
    }
    return std::nullopt;
}

std::string AppModel::chatTitle(int64_t chatID) const {
    const auto conversation = conversationOfChat(chatID);
    return conversation ? conversations_[*conversation].title : "Chat " + std::to_string(chatID);
}

void AppModel::selectConversation(std::optional<size_t> index) {
    if (index && *index >= conversations_.size()) index.reset();
    if (index && selected_ && selectedIndex() == index) return;
    selected_ = index ? std::optional(conversations_[*index]) : std::nullopt;
    loadTranscript(false);
}

// ---- transcript

void AppModel::loadTranscript(bool keepPosition) {
    // A change noticed while a conversation is still being read first: nothing to keep yet.
    keepPosition = keepPosition && !transcript_->rows.empty() && !recentRows_;
    recentRows_.reset();
    const auto generation = ++transcriptGeneration_;
    if (!selected_ || !source_) {
        transcript_ = std::make_shared<OpenTranscript>();
        emit transcriptChanged(false);
        return;
    }
    if (!keepPosition) {
        // Another conversation: nothing of the previous one stays on screen while this one loads.
        transcript_ = std::make_shared<OpenTranscript>();
        emit transcriptChanged(false);
    }
    auto cancel = beginTask("Reading the conversation…");
    // A long conversation shows its end first, read before the whole; the view stays where it
    // is when the whole replaces it.
    const bool recentFirst =
        !keepPosition && selected_->messageCount > recentFirstAbove && database();
    const auto showRecent = [this, generation](std::shared_ptr<const OpenTranscript> recent) {
        if (generation != transcriptGeneration_) return;
        recentRows_ = std::move(recent);
        emit transcriptChanged(false);
    };
    background_.run(
        [this, source = source_, database = database(), chatIDs = selected_->chatIDs,
         events = eventsForOpenConversation(), cancel, recentFirst, showRecent] {
            if (recentFirst) {
                auto recent =
                    openTranscript(*source, chatIDs, database->fetchRecentRows(chatIDs, recentRows),
                                   events, *cancel, true);
                QMetaObject::invokeMethod(
                    this, [showRecent, recent = std::move(recent)] { showRecent(recent); },
                    Qt::QueuedConnection);
            }
            return openTranscript(*source, chatIDs, source->fetchTranscript(chatIDs), events,
                                  *cancel, false);
        },
        [this, generation, keepPosition, recentFirst](std::shared_ptr<const OpenTranscript> open) {
            if (generation != transcriptGeneration_) return;
            transcript_ = std::move(open);
            recentRows_.reset();
            endTask(transcript_->callLogIssue ? qs(*transcript_->callLogIssue) : QString());
            emit transcriptChanged(keepPosition || recentFirst);
            emit flagsChanged();
        },
        [this, generation](std::exception_ptr error) {
            if (generation != transcriptGeneration_) return;
            dropRecentRows();
            endTask(isCancellation(error)
                        ? QString("Cancelled.")
                        : "Couldn't read the conversation: " + qs(messageOf(error)));
        });
}

// Part of a conversation is never left on screen once its whole read failed or was cancelled.
void AppModel::dropRecentRows() {
    if (!recentRows_) return;
    recentRows_.reset();
    emit transcriptChanged(false);
}

std::optional<size_t> AppModel::rowOfMessage(int64_t messageID) const {
    const auto& rows = transcript_->rows;
    const auto found = std::find_if(rows.begin(), rows.end(),
                                    [&](const Message& row) { return row.id == messageID; });
    if (found == rows.end()) return std::nullopt;
    return static_cast<size_t>(found - rows.begin());
}

std::optional<size_t> AppModel::rowOfDay(size_t dayIndex) const {
    const auto& days = transcript_->timeline.days;
    if (dayIndex >= days.size()) return std::nullopt;
    return rowOfMessage(days[dayIndex].firstMessageID);
}

// ---- evidence

void AppModel::toggleFlag(const Message& message) {
    if (message.isUserEvent()) return;
    if (auto problem = flags_.toggleFlag(message)) reportStatus(qs(*problem));
    emit flagsChanged();
}

void AppModel::setNote(const std::string& note, const Message& message) {
    if (message.isUserEvent()) return;
    if (auto problem = flags_.setNote(note, message)) reportStatus(qs(*problem));
    emit flagsChanged();
}

std::vector<Message> AppModel::flaggedMessages() const {
    // The user's events are never flagged: the rows serve without a copy.
    return flags_.flaggedMessages(transcript_->rows);
}

std::string AppModel::noteFor(const Message& message) const {
    const auto found = flags().find(message.guid);
    return found == flags().end() ? std::string() : found->second.note;
}

std::string AppModel::nameFor(const std::string& handle) const {
    if (!contacts_) return handle;
    return contacts_->name(handle).value_or(handle);
}

// ---- events

std::optional<TimelineEvent> AppModel::startAddingEvent(Date at) const {
    if (!selected_) return std::nullopt;
    const Date now = Clock::now();
    return TimelineEvent{.id = newUUID(),
                         .conversation = selected_->eventKey(),
                         .date = at,
                         .createdAt = now,
                         .updatedAt = now};
}

void AppModel::saveEvent(const TimelineEvent& event) {
    auto existing = std::find_if(events_.begin(), events_.end(),
                                 [&](const TimelineEvent& kept) { return kept.id == event.id; });
    if (existing != events_.end()) {
        *existing = event;
        existing->updatedAt = Clock::now();
    } else {
        events_.push_back(event);
    }
    persistEvents();
}

void AppModel::deleteEvent(const std::string& eventID) {
    std::erase_if(events_, [&](const TimelineEvent& event) { return event.id == eventID; });
    persistEvents();
}

void AppModel::persistEvents() {
    try {
        TimelineEventStore::save(events_);
    } catch (const std::exception& error) {
        reportStatus(QString("The event couldn't be saved: ") + error.what());
    }
    applyEvents();
}

std::vector<TimelineEvent> AppModel::eventsForOpenConversation() const {
    std::vector<TimelineEvent> shown;
    if (!selected_) return shown;
    const auto& keys = selected_->identifiers;
    std::copy_if(events_.begin(), events_.end(), std::back_inserter(shown),
                 [&](const TimelineEvent& event) {
                     return std::find(keys.begin(), keys.end(), event.conversation) != keys.end();
                 });
    return shown;
}

void AppModel::applyEvents() {
    auto open = std::make_unique<OpenTranscript>();
    open->reactionEvents = transcript_->reactionEvents;
    open->callLogIssue = transcript_->callLogIssue;
    arrangeRows(*open, transcript_->messages(), eventsForOpenConversation());
    transcript_ = freedOffMainThread(std::move(open));
    emit transcriptChanged(true);
}

// ---- attachment watch

void AppModel::startAttachmentWatch() {
    attachmentRounds_.reset();
    const auto watched = database();
    if (!watched) return;
    attachmentRounds_ = std::make_unique<RepeatingRounds>(
        AttachmentWatch::checkInterval,
        // A round waits while an export or snapshot reads the same files.
        [this] { return jobs_.isRunning(); },
        [this, database = watched] {
            try {
                auto report = AttachmentWatch::check(database->attachmentPaths());
                QMetaObject::invokeMethod(
                    this,
                    [this, report] {
                        collectStoreProblems();
                        evictionReport_ = report;
                        emit evictionReportChanged();
                    },
                    Qt::QueuedConnection);
            } catch (const std::exception& error) {
                QMetaObject::invokeMethod(
                    this,
                    [this, text = std::string(error.what())] {
                        collectStoreProblems();
                        reportStatus("Couldn't check the attachments: " + qs(text));
                    },
                    Qt::QueuedConnection);
            }
        });
}

void AppModel::checkAttachmentsStillHere() {
    if (attachmentRounds_) attachmentRounds_->runNow();
}

// ---- damaged stores

// Each problem is logged at once, and kept until the window can show it: a status line would be
// overwritten by the first task before anyone saw it.
void AppModel::collectStoreProblems() {
    const std::pair<StoreLoadError*, std::filesystem::path> stores[] = {
        {&EvidenceStore::loadError(), EvidenceStore::location().path()},
        {&TimelineEventStore::loadError(), TimelineEventStore::location().path()},
        {&AttachmentWatch::loadError(), AttachmentWatch::location().path()}};
    const auto before = storeProblems_.size();
    for (const auto& [store, file] : stores) {
        const auto problem = store->get();
        if (!problem) continue;
        store->set(std::nullopt);
        const std::string text = *problem + "\nKept in " + file.parent_path().string();
        std::cerr << text << '\n';
        storeProblems_.push_back(qs(text));
    }
    if (storeProblems_.size() > before) emit storeProblemsFound();
}

QStringList AppModel::takeStoreProblems() {
    return std::exchange(storeProblems_, {});
}

// ---- change polling

void AppModel::setPolling(bool on) {
    if (on)
        pollTimer_.start();
    else
        pollTimer_.stop();
}

void AppModel::pollForChanges() {
    // Until the signature of what is shown is known there is nothing to compare with.
    if (!source_ || pollInFlight_ || state_ != State::ready || signature_.empty()) return;
    pollInFlight_ = true;
    const auto generation = sourceGeneration_;
    background_.run(
        [database = source_, known = signature_]() -> std::optional<Opened> {
            auto signature = database->changeSignature();
            if (signature == known) return std::nullopt;
            return Opened{database, database->fetchChats(), std::move(signature)};
        },
        [this, generation](std::optional<Opened> changed) {
            pollInFlight_ = false;
            if (!changed || generation != sourceGeneration_) return;
            finishOpening(std::move(*changed));
            loadTranscript(true);
        },
        [this](std::exception_ptr error) {
            pollInFlight_ = false;
            reportStatus("Couldn't check the Messages database for changes: " +
                         qs(messageOf(error)));
        });
}

// ---- state and status

void AppModel::setState(State state, QString message) {
    state_ = state;
    stateMessage_ = std::move(message);
    emit stateChanged();
}

std::shared_ptr<CancelFlag> AppModel::beginTask(const QString& progress) {
    cancel_->cancel();
    cancel_ = std::make_shared<CancelFlag>();
    busy_ = true;
    taskText_ = progress;
    emit statusChanged();
    return cancel_;
}

void AppModel::endTask(const QString& status) {
    busy_ = false;
    taskText_ = status;
    emit statusChanged();
}

// A reported line outlives the reading that follows it: a source opened after an import, or a
// conversation read after a job ended, must not wipe what the user was just told.
void AppModel::reportStatus(const QString& text) {
    reportedText_ = text;
    taskText_.clear();
    emit statusChanged();
}

QString AppModel::statusText() const {
    if (jobs_.isRunning()) return jobs_.progressText();
    return taskText_.isEmpty() ? reportedText_ : taskText_;
}

void AppModel::cancel() {
    if (jobs_.isRunning()) {
        jobs_.cancel();
        return;
    }
    if (!busy_) return;
    cancel_->cancel();
    ++transcriptGeneration_;
    dropRecentRows();
    if (state_ == State::loading) {
        ++sourceGeneration_;
        setState(State::failed, "Opening the Messages database was cancelled.");
    }
    endTask("Cancelled.");
}

}  // namespace bc::app
