#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include <QObject>
#include <QString>

#include "app/shell/Background.h"
#include "export/Exhibit.h"
#include "export/ExportJob.h"
#include "export/ExportPeriod.h"
#include "export/Exporter.h"

class QUrl;
class QWidget;

namespace bc::app {

class AppModel;

// The panels that ask where an export goes; each gives nothing when the user cancels.
struct ExportDialogs {
    // A file to save: the proposed file name and the file-type filter ("PDF (*.pdf)").
    std::function<std::optional<std::filesystem::path>(const QString& proposedName,
                                                       const QString& filter)>
        saveFile;
    // A folder to write into, with the message saying what will be created there.
    std::function<std::optional<std::filesystem::path>(const QString& message)> chooseFolder;
    // Shows a folder in the desktop's file manager.
    std::function<void(const QUrl& folder)> showFolder;

    // Qt's file dialogs over `parent`.
    static ExportDialogs native(QWidget* parent);
};

// Exports of the open source: range exports through the one pipeline (custody record and
// certificate included) and the plain one-file formats. Every export runs on the model's job
// runner, so only one export or snapshot runs at a time and the status line shows it.
class Exports : public QObject {
    Q_OBJECT
public:
    static constexpr const char* settingsKey = "exportSettings";
    static constexpr const char* dateRangeProblem =
        "Couldn't read the date range of this conversation.";
    static constexpr const char* htmlFolderMessage =
        "A new folder with the page, a copy of every attachment and checksum manifests will be "
        "created here.";
    static constexpr const char* jpgFolderMessage =
        "A new folder of page images will be created here.";
    static constexpr const char* everyConversationMessage =
        "Choose a folder. Each conversation is saved as its own file.";
    static constexpr const char* cancelledText = "Export cancelled. Nothing was saved.";
    static constexpr const char* chooseConversationText = "Choose a conversation to export.";

    explicit Exports(AppModel& model);

    // Paper and dpi as last used, read at launch and saved whenever an export starts.
    const ExportSettings& settings() const { return settings_; }
    // Where a range export is saved: the demo's export folder, else the folder the save panel
    // starts in (Documents).
    QString saveFolder() const;
    static ExportSettings loadSettings();
    void setDialogs(ExportDialogs dialogs) { dialogs_ = std::move(dialogs); }

    // The selected conversation and the same person's other chats, all included, over the
    // period when given, else over all their messages: handed to `made` once their date range is
    // read. A problem goes to the status line instead.
    void makeRequest(RangeExportFormat format, const std::optional<ExportPeriod>& period,
                     std::function<void(ExportRequest)> made);
    // Asks the window for the export sheet through `optionsRequested`.
    void showExportOptions(RangeExportFormat format, const std::optional<ExportPeriod>& period);
    // The period straight to its destination, no sheet.
    void quickExport(const ExportPeriod& period, RangeExportFormat format);
    // Saves the settings, asks where to, then runs the export. False when nothing was started:
    // another export or snapshot is running, or the user cancelled the panel.
    bool startExport(const ExportRequest& request);
    void cancelExport();
    bool isExporting() const { return exporting_; }

    // The last export whose files are in place: its final status line and the folder holding
    // them. The next export clears it.
    struct Finished {
        QString line;
        std::filesystem::path folder;
    };
    const std::optional<Finished>& finished() const { return finished_; }
    // Opens the folder holding the last finished export.
    void showFinishedInFolder() const;

    // The last line of an export's work, and whether the files it wrote are in place.
    struct Ended {
        QString line;
        bool kept = true;
    };

    // A fresh exhibit request over the flagged messages of the selected conversation.
    ExhibitRequest exhibitRequest() const;
    // That request, handed to the window through `exhibitRequested`.
    void showExhibitBuilder();
    // Reads the selected conversation whole, then runs the exhibit of its flagged messages
    // through the same pipeline as every export.
    void startExhibit(const ExhibitRequest& request);
    // The search results on show as a document of their own, through the same pipeline. False
    // when nothing was started.
    bool exportSearchResults(RangeExportFormat format);
    // The number after the last Bates number used with `prefix` in the custody log.
    static int64_t nextBatesNumber(const std::string& prefix);

    // The demo export folder without asking, else the user's choice; nothing when cancelled.
    // Never an existing file or folder.
    std::optional<std::filesystem::path> chooseDestination(RangeExportFormat format,
                                                           const std::string& baseName);

    // The plain path: the selected conversation or every one, no custody record.
    bool exportSelected(ExportFormat format);
    bool exportAll(ExportFormat format);

signals:
    void optionsRequested(const ExportRequest& request);
    void exhibitRequested(const ExhibitRequest& request);
    // A line for the status, for problems outside a job.
    void statusReported(const QString& line);

private:
    // Asks where to and runs the request's export, shaped by `shape` (an exhibit, or as is).
    bool runExport(const ExportRequest& request, const std::string& baseName,
                   std::function<ExportJob(ExportJob)> shape);
    static ExportRequest dated(ExportRequest request, std::pair<Date, Date> range,
                               const std::optional<ExportPeriod>& period);
    // Runs `work` (giving the last line) on the job runner; a throw ends it with
    // `failurePrefix` + the error, or the cancelled line.
    // `resultFolder` holds what the work writes; it is offered once the work ends with its files
    // in place.
    bool runJob(const QString& preparing,
                std::function<Ended(const CancelFlag&, const ProgressFn&)> work,
                const QString& failurePrefix, std::filesystem::path resultFolder);
    // What `choose` gives; a failure (the demo folder cannot be made) is reported, giving nothing.
    std::optional<std::filesystem::path> askWhere(
        const std::function<std::optional<std::filesystem::path>()>& choose,
        const QString& failurePrefix);
    std::optional<std::filesystem::path> plainDestination(const std::string& fileName,
                                                          ExportFormat format);
    std::optional<std::filesystem::path> exportFolder(const QString& message);
    void saveSettings(const ExportSettings& settings);

    AppModel& model_;
    ExportSettings settings_;
    ExportDialogs dialogs_;
    bool exporting_ = false;
    std::optional<Finished> finished_;
    Background background_{this, 1};
};

}  // namespace bc::app
