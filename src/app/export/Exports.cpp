#include "app/export/Exports.h"

#include <algorithm>
#include <memory>
#include <unordered_map>

#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QSettings>
#include <QStandardPaths>
#include <QUrl>

#include "app/shell/AppModel.h"
#include "app/shell/Failures.h"
#include "app/shell/QtText.h"
#include "custody/CustodyLog.h"
#include "evidence/MachineText.h"
#include "evidence/SearchExport.h"
#include "sources/CallHistory.h"
#include "sources/MessageDatabase.h"
#include "support/Calendar.h"
#include "support/Files.h"
#include "support/Uuid.h"

namespace bc::app {

namespace fs = std::filesystem;

namespace {

fs::path pathOf(const QString& text) {
    return fs::path(text.toStdString());
}

// Names are looked up on the main thread, where the contacts live, for every handle the
// background work may meet.
manifest::NameFor namesOf(const AppModel& model, const std::vector<Chat>& chats) {
    auto names = std::make_shared<std::unordered_map<std::string, std::string>>();
    for (const auto& chat : chats)
        for (const auto& handle : chat.participants)
            names->try_emplace(handle, model.nameFor(handle));
    return [names](bool isFromMe, const std::string& handle) -> std::string {
        if (isFromMe) return "Me";
        const auto found = names->find(handle);
        return found == names->end() ? handle : found->second;
    };
}

std::vector<std::string> participantNames(const std::vector<ExportRequest::Source>& sources,
                                          const manifest::NameFor& nameFor) {
    std::vector<std::string> names;
    for (const auto& source : sources) {
        if (!source.included) continue;
        for (const auto& handle : source.chat.participants) {
            auto name = nameFor(false, handle);
            if (std::find(names.begin(), names.end(), name) == names.end())
                names.push_back(std::move(name));
        }
    }
    return names;
}

Transcript readWithCalls(MessageSource& source, const std::vector<int64_t>& chatIDs,
                         const CancelFlag& cancel) {
    Transcript transcript = source.fetchTranscript(chatIDs);
    cancel.check();
    mergeCalls(transcript, source, chatIDs);
    cancel.check();
    return transcript;
}

Exporter::SenderName senderNames(manifest::NameFor nameFor) {
    return [nameFor = std::move(nameFor)](const Message& message) {
        return nameFor(message.isFromMe, message.sender);
    };
}

QString filterFor(const QString& name, const std::string& extension) {
    return name + " (*." + qs(extension) + ")";
}

// A chosen file gets the format's extension; an existing one is never replaced.
fs::path unusedFile(fs::path chosen, const std::string& extension) {
    if (chosen.extension() != "." + extension) chosen += "." + extension;
    chosen.replace_extension();
    return uniqueURL(chosen, extension);
}

// The last line of an export that threw: cancelled, or what failed.
QString failureLine(std::exception_ptr error, const QString& prefix) {
    return isCancellation(error) ? QString(Exports::cancelledText) : prefix + qs(messageOf(error));
}

Exports::Ended endedBy(const ExportOutcome& outcome) {
    return {qs(outcome.message), outcome.filesKept()};
}

// Save panels start in the user's Documents folder, never in the program's working folder.
QString documentsFolder() {
    return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
}

}  // namespace

ExportDialogs ExportDialogs::native(QWidget* parent) {
    return {.saveFile = [parent](const QString& proposedName,
                                 const QString& filter) -> std::optional<fs::path> {
                // An export never overwrites: a taken name gets " 2" instead, so the dialog
                // must not promise a replacement.
                const auto file = QFileDialog::getSaveFileName(
                    parent, "Export", QDir(documentsFolder()).filePath(proposedName), filter,
                    nullptr, QFileDialog::DontConfirmOverwrite);
                if (file.isEmpty()) return std::nullopt;
                return pathOf(file);
            },
            .chooseFolder = [parent](const QString& message) -> std::optional<fs::path> {
                QFileDialog dialog(parent, message);
                dialog.setFileMode(QFileDialog::Directory);
                dialog.setOption(QFileDialog::ShowDirsOnly);
                dialog.setDirectory(documentsFolder());
                dialog.setLabelText(QFileDialog::Accept, "Export Here");
                if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
                    return std::nullopt;
                return pathOf(dialog.selectedFiles().front());
            },
            .showFolder = [](const QUrl& folder) { QDesktopServices::openUrl(folder); }};
}

Exports::Exports(AppModel& model)
    : model_(model), settings_(loadSettings()), dialogs_(ExportDialogs::native(nullptr)) {}

QString Exports::saveFolder() const {
    try {
        if (const auto folder = model_.demoExportFolder()) return qs(folder->string());
    } catch (const std::exception&) {
        // The export itself reports the folder it cannot make.
    }
    return documentsFolder();
}

void Exports::showFinishedInFolder() const {
    if (finished_) dialogs_.showFolder(QUrl::fromLocalFile(qs(finished_->folder.string())));
}

// ---- settings

ExportSettings Exports::loadSettings() {
    return ExportSettings::decoded(QSettings().value(settingsKey).toString().toStdString());
}

void Exports::saveSettings(const ExportSettings& settings) {
    settings_ = settings;
    QSettings().setValue(settingsKey, qs(settings.encoded()));
}

// ---- range exports

void Exports::makeRequest(RangeExportFormat format, const std::optional<ExportPeriod>& period,
                          std::function<void(ExportRequest)> made) {
    const auto* conversation = model_.selectedConversation();
    const auto database = model_.source();
    if (!conversation || !database) {
        emit statusReported(chooseConversationText);
        return;
    }
    // The title as listed now, named by Contacts once they have been read.
    ExportRequest request{.id = newUUID(),
                          .format = format,
                          .settings = settings_,
                          .title = model_.chatTitle(conversation->chatIDs.front())};
    for (const auto id : conversation->chatIDs) {
        const auto& chats = model_.chats();
        const auto chat = std::find_if(chats.begin(), chats.end(),
                                       [id](const Chat& known) { return known.id == id; });
        if (chat != chats.end()) request.sources.push_back({*chat, true});
    }
    // Off the main thread: the reader may be busy with another conversation for seconds.
    background_.run([database, ids = request.chatIDs()] { return database->dateRange(ids); },
                    [this, request, period,
                     made = std::move(made)](std::optional<std::pair<Date, Date>> range) {
                        if (!range) {
                            emit statusReported(dateRangeProblem);
                            return;
                        }
                        made(dated(request, *range, period));
                    },
                    [this](std::exception_ptr) { emit statusReported(dateRangeProblem); });
}

ExportRequest Exports::dated(ExportRequest request, std::pair<Date, Date> range,
                             const std::optional<ExportPeriod>& period) {
    request.earliest = range.first;
    request.latest = range.second;
    Calendar calendar;
    request.from = period ? period->from : calendar.startOfDay(request.earliest);
    request.to = period ? period->to : calendar.startOfDay(request.latest);
    if (period) request.fileLabel = period->fileLabel;
    return request;
}

void Exports::showExportOptions(RangeExportFormat format,
                                const std::optional<ExportPeriod>& period) {
    makeRequest(format, period,
                [this](const ExportRequest& request) { emit optionsRequested(request); });
}

void Exports::quickExport(const ExportPeriod& period, RangeExportFormat format) {
    makeRequest(format, period, [this](const ExportRequest& request) { startExport(request); });
}

bool Exports::startExport(const ExportRequest& request) {
    return runExport(request, request.baseName(), [](ExportJob job) { return job; });
}

ExhibitRequest Exports::exhibitRequest() const {
    const auto flagged = static_cast<int64_t>(model_.flaggedMessages().size());
    return {.id = newUUID(), .settings = settings_, .flaggedCount = flagged};
}

void Exports::showExhibitBuilder() {
    emit exhibitRequested(exhibitRequest());
}

void Exports::startExhibit(const ExhibitRequest& request) {
    makeRequest(request.format, std::nullopt,
                [this, request, flags = model_.flags()](ExportRequest whole) {
                    whole.settings = request.settings;
                    runExport(whole, request.baseName(), [request, flags](ExportJob job) {
                        return exhibit::makeJob(request, std::move(job), flags);
                    });
                });
}

bool Exports::exportSearchResults(RangeExportFormat format) {
    const auto database = model_.source();
    const auto query = model_.searches().lastSearchQuery();
    auto hits = model_.searches().searchResults();
    if (model_.jobs().isRunning() || !database || !query || hits.empty()) return false;
    auto job = searchExport::makeJob(*query, std::move(hits), format, database->sourceDescription(),
                                     [this](int64_t chatID) { return model_.chatTitle(chatID); });
    job.settings = settings_;
    const auto destination =
        askWhere([&] { return chooseDestination(format, Exporter::fileStem(job.title)); },
                 "Export failed, nothing was saved: ");
    if (!destination) return false;
    const ExportPipeline::Context context{
        *database, model_.sourceChoice().sealedSnapshot(), namesOf(model_, model_.chats()), {}};
    return runJob(
        "Exporting search results…",
        [database, context, job = std::move(job), destination = *destination](
            const CancelFlag& cancel, const ProgressFn& progress) {
            return endedBy(ExportPipeline::run(
                job, destination, withStoredMachineText(context, job.messages), cancel, progress));
        },
        "Export failed, nothing was saved: ", destination->parent_path());
}

int64_t Exports::nextBatesNumber(const std::string& prefix) {
    return exhibit::nextBatesNumber(prefix, CustodyLog::readAll());
}

bool Exports::runExport(const ExportRequest& request, const std::string& baseName,
                        std::function<ExportJob(ExportJob)> shape) {
    const auto database = model_.source();
    if (model_.jobs().isRunning() || !database) return false;
    saveSettings(request.settings);
    const auto destination = askWhere([&] { return chooseDestination(request.format, baseName); },
                                      "Export failed, nothing was saved: ");
    if (!destination) return false;
    std::vector<Chat> chats;
    for (const auto& source : request.sources) chats.push_back(source.chat);
    const auto nameFor = namesOf(model_, chats);
    const ExportPipeline::Context context{
        *database, model_.sourceChoice().sealedSnapshot(), nameFor, {}};
    return runJob(
        "Reading messages…",
        [database, context, request, destination = *destination, shape = std::move(shape),
         participants = participantNames(request.sources, nameFor)](const CancelFlag& cancel,
                                                                    const ProgressFn& progress) {
            auto job =
                shape(ExportJob::make(request, readWithCalls(*database, request.chatIDs(), cancel),
                                      participants, database->sourceDescription()));
            return endedBy(ExportPipeline::run(
                job, destination, withStoredMachineText(context, job.messages), cancel, progress));
        },
        "Export failed, nothing was saved: ", destination->parent_path());
}

void Exports::cancelExport() {
    if (exporting_) model_.jobs().cancel();
}

std::optional<fs::path> Exports::chooseDestination(RangeExportFormat format,
                                                   const std::string& baseName) {
    if (const auto folder = model_.demoExportFolder())
        return destinationIn(*folder, format, baseName);
    const std::string extension(rangeExportFormat::fileExtension(format));
    if (!rangeExportFormat::makesFolder(format)) {
        const auto name = qs(std::string(rangeExportFormat::shortName(format)));
        const auto file =
            dialogs_.saveFile(qs(baseName + "." + extension), filterFor(name, extension));
        if (!file) return std::nullopt;
        return unusedFile(*file, extension);
    }
    const auto folder = dialogs_.chooseFolder(format == RangeExportFormat::html ? htmlFolderMessage
                                                                                : jpgFolderMessage);
    if (!folder) return std::nullopt;
    return destinationIn(*folder, format, baseName);
}

std::optional<fs::path> Exports::askWhere(const std::function<std::optional<fs::path>()>& choose,
                                          const QString& failurePrefix) {
    try {
        return choose();
    } catch (const std::exception& problem) {
        emit statusReported(failurePrefix + problem.what());
        return std::nullopt;
    }
}

// ---- the plain path

std::optional<fs::path> Exports::exportFolder(const QString& message) {
    if (auto folder = model_.demoExportFolder()) return folder;
    return dialogs_.chooseFolder(message);
}

std::optional<fs::path> Exports::plainDestination(const std::string& fileName,
                                                  ExportFormat format) {
    const std::string extension(rawValue(format));
    if (const auto folder = model_.demoExportFolder())
        return uniqueURL((*folder / fileName).replace_extension(), extension);
    const auto file =
        dialogs_.saveFile(qs(fileName), filterFor(qs(displayName(format)), extension));
    if (!file) return std::nullopt;
    return unusedFile(*file, extension);
}

bool Exports::exportSelected(ExportFormat format) {
    const auto* conversation = model_.selectedConversation();
    // While the conversation is still being read there is nothing whole to write.
    if (model_.isBusy() || !conversation) return false;
    const auto file = askWhere(
        [&] {
            return plainDestination(
                Exporter::fileName(conversation->title, conversation->chatIDs.front(), format),
                format);
        },
        "Export failed: ");
    if (!file) return false;
    return runJob(
        "Exporting…",
        [open = model_.sharedTranscript(), title = conversation->title, format, file = *file,
         senderName = senderNames(namesOf(model_, model_.chats()))](const CancelFlag& cancel,
                                                                    const ProgressFn&) {
            // The messages as read: the user's events are rows of the view, not messages.
            const auto messages = open->messages();
            const auto bytes = Exporter::render(title, messages, format, senderName);
            cancel.check();
            files::writeFileAtomically(file, bytes);
            return Ended{"Exported " + qs(Exporter::countText(messages)) + " to " +
                         qs(file.filename().string())};
        },
        "Export failed: ", file->parent_path());
}

bool Exports::exportAll(ExportFormat format) {
    const auto database = model_.source();
    if (model_.jobs().isRunning() || !database) return false;
    const auto folder =
        askWhere([&] { return exportFolder(everyConversationMessage); }, "Export failed: ");
    if (!folder) return false;
    return runJob(
        "Exporting…",
        [database, conversations = model_.conversations(), format, folder = *folder,
         senderName = senderNames(namesOf(model_, model_.chats()))](const CancelFlag& cancel,
                                                                    const ProgressFn& progress) {
            const auto total = conversations.size();
            size_t exported = 0;
            QStringList failures;
            for (size_t index = 0; index < total && !cancel.isCancelled(); ++index) {
                progress("Exporting " + std::to_string(index + 1) + " of " + std::to_string(total));
                const auto& conversation = conversations[index];
                try {
                    const auto name = Exporter::fileName(conversation.title,
                                                         conversation.chatIDs.front(), format);
                    const auto messages =
                        readWithCalls(*database, conversation.chatIDs, cancel).messages;
                    const auto file =
                        uniqueURL((folder / name).replace_extension(), rawValue(format));
                    files::writeFileAtomically(
                        file, Exporter::render(conversation.title, messages, format, senderName));
                    ++exported;
                } catch (const CancelledError&) {
                    break;
                } catch (const std::exception& problem) {
                    failures << qs(conversation.title) + ": " + problem.what();
                }
            }
            // Each file written is whole; those already there stay.
            if (cancel.isCancelled())
                return Ended{"Export cancelled after " + number(exported) + " of " +
                             counted(total, "conversation", "conversations") + "; those are in " +
                             qs(folder.string()) + "."};
            QString text = "Exported " + counted(exported, "conversation", "conversations") +
                           " to " + qs(folder.string());
            if (!failures.isEmpty())
                text += ". " + number(failures.size()) + " failed: " + failures.join("; ");
            return Ended{text};
        },
        "Export failed: ", *folder);
}

bool Exports::runJob(const QString& preparing,
                     std::function<Ended(const CancelFlag&, const ProgressFn&)> work,
                     const QString& failurePrefix, fs::path resultFolder) {
    // Set before the runner announces the start, so the window sees an export running.
    exporting_ = true;
    finished_.reset();
    exporting_ = model_.jobs().start(
        preparing, std::move(work),
        [this, resultFolder = std::move(resultFolder)](const Ended& ended) {
            exporting_ = false;
            if (ended.kept) finished_ = Finished{ended.line, resultFolder};
            return ended.line;
        },
        [this, failurePrefix](std::exception_ptr error) {
            exporting_ = false;
            return failureLine(error, failurePrefix);
        });
    return exporting_;
}

}  // namespace bc::app
