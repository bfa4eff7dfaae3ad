#include "app/shell/Application.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <vector>

#include <QApplication>
#include <QDir>
#include <QSettings>
#include <QTimer>

#include "app/custody/CustodyLogWindow.h"
#include "app/custody/SnapshotsWindow.h"
#include "app/export/ExhibitSheet.h"
#include "app/export/ExportSheet.h"
#include "app/lock/Passphrase.h"
#include "app/shell/AppModel.h"
#include "app/shell/MainWindow.h"
#include "app/sources/WhatsAppSources.h"
#include "counsel/CounselBundle.h"
#include "demo/DemoData.h"
#include "demo/DemoStores.h"

namespace bc::app {

namespace {

bool asksForDemo(int argc, char** argv) {
    for (int index = 1; index < argc; ++index)
        if (std::strcmp(argv[index], "--demo") == 0) return true;
    return false;
}

// The file a desktop asked to open with the program, if any ("brindlecourt FILE").
std::optional<std::filesystem::path> fileArgument(int argc, char** argv) {
    for (int index = 1; index < argc; ++index)
        if (argv[index][0] != '-') return std::filesystem::path(argv[index]);
    return std::nullopt;
}

// A chosen file is read as a Messages database, whose reader says plainly when it is not one;
// chat exports and WhatsApp's own database are sealed as imports, which open once sealed, so the
// live messages are shown meanwhile and stay if the import fails.
void openFirstSource(AppModel& model, const std::optional<std::filesystem::path>& file) {
    const auto imports = [](const std::filesystem::path& path) {
        const auto extension = path.extension().string();
        return extension == ".zip" || extension == ".txt" ||
               path.filename() == "ChatStorage.sqlite";
    };
    if (file && !imports(*file)) return model.openSource(*file, AppModel::SourceKind::file);
    model.openLive();
    if (file) model.whatsApp().importFile(*file);
}

bool saveGrab(QWidget& widget, const QDir& folder, const QString& name) {
    const QString file = folder.filePath(name);
    const bool saved = widget.grab().save(file);
    if (!saved) std::cerr << "Couldn't save the screenshot " << file.toStdString() << '\n';
    return saved;
}

// One picture of the README: `ready` prepares it, perhaps after reading something off the main
// thread, and hands over the widget to take.
struct Shot {
    const char* file;
    std::function<void(std::function<void(QWidget&)> take)> ready;
};

// Takes each shot in turn, once what it started reading has had time to arrive, then ends the
// program: 0 when every picture was saved.
void takeShots(const std::shared_ptr<std::vector<Shot>>& shots, size_t next, const QDir& folder,
               QWidget& window) {
    if (next == shots->size()) return QCoreApplication::exit(0);
    (*shots)[next].ready([shots, next, folder, &window](QWidget& widget) {
        QTimer::singleShot(1000, &window, [shots, next, folder, &window, &widget] {
            if (!saveGrab(widget, folder, (*shots)[next].file)) return QCoreApplication::exit(1);
            if (&widget != &window) widget.hide();
            takeShots(shots, next + 1, folder, window);
        });
    });
}

// Shows a window of its own beside the main one.
void showBeside(QWidget& widget, const std::function<void(QWidget&)>& take) {
    widget.show();
    widget.raise();
    take(widget);
}

// The main window on the longest conversation, the export sheet, the Evidence tab on the first
// flagged message with its note, the exhibit sheet, the snapshots and the custody log.
std::vector<Shot> readmeShots(AppModel& model, MainWindow& window) {
    return {
        {"main-window.png", [&window](auto take) { take(window); }},
        {"export-sheet.png",
         [&model, &window](auto take) {
             model.exports().makeRequest(
                 RangeExportFormat::pdf, std::nullopt,
                 [&model, &window, take](const ExportRequest& request) {
                     auto* sheet = new ExportSheet(
                         request, model.exports().saveFolder(),
                         [&model](const std::string& handle) { return model.nameFor(handle); },
                         &window);
                     sheet->adjustSize();
                     take(*sheet);
                 });
         }},
        {"evidence-tab.png",
         [&model, &window](auto take) {
             window.showEvidenceTab();
             const auto flagged = model.flaggedMessages();
             if (!flagged.empty()) window.showMessage(flagged.front().id);
             take(window);
         }},
        {"exhibit-sheet.png",
         [&model, &window](auto take) {
             auto* sheet = new ExhibitSheet(model.exports().exhibitRequest(),
                                            &Exports::nextBatesNumber, &window);
             sheet->adjustSize();
             take(*sheet);
         }},
        {"snapshots-window.png",
         [&window](auto take) { showBeside(window.snapshotsWindow(), take); }},
        {"custody-log-window.png",
         [&window](auto take) { showBeside(window.custodyLogWindow(), take); }},
    };
}

// With BRINDLECOURT_SCREENSHOTS naming a folder, the README's pictures are saved there once the
// longest conversation is on screen, and the program ends: tools/screenshots.sh renders them.
void saveScreenshotsOnceShown(AppModel& model, MainWindow& window, const QDir& folder) {
    // The longest conversation shows the most kinds of rows.
    QObject::connect(&model, &AppModel::conversationsChanged, &window, [&model] {
        const auto& list = model.conversations();
        const auto longest = std::max_element(
            list.begin(), list.end(),
            [](const auto& a, const auto& b) { return a.messageCount < b.messageCount; });
        if (longest != list.end()) model.selectConversation(longest - list.begin());
    });
    auto started = std::make_shared<bool>(false);
    QObject::connect(
        &model, &AppModel::transcriptChanged, &window, [&model, &window, folder, started] {
            if (*started || model.transcript().rows.size() < 2) return;
            *started = true;
            QTimer::singleShot(500, &window, [&model, &window, folder] {
                takeShots(std::make_shared<std::vector<Shot>>(readmeShots(model, window)), 0,
                          folder, window);
            });
        });
    QTimer::singleShot(60000, &window, [] {
        std::cerr << "The screenshots were not all taken within a minute.\n";
        QCoreApplication::exit(1);
    });
}

}  // namespace

int runApplication(int argc, char** argv) {
    std::optional<std::filesystem::path> demoDatabase;
    if (asksForDemo(argc, argv)) {
        try {
            demoDatabase = redirectStoresToDemo();
            PassphraseStore::location().setOverride(DemoData::folder() / "lock-passphrase.json");
        } catch (const std::exception& error) {
            // Without its own folder a demonstration would touch the user's data: stop.
            std::cerr << error.what() << '\n';
            return 1;
        }
    }
    // Copies of exports staged by a bundle that was interrupted must not outlive it.
    CounselBundle::removeLeftovers();
    QApplication application(argc, argv);
    QApplication::setApplicationName("Brindlecourt");
    QApplication::setOrganizationName("Kestrove");
    if (demoDatabase) {
        // A demonstration's preferences stay in its own folder, never among the user's.
        QSettings::setDefaultFormat(QSettings::IniFormat);
        QSettings::setPath(QSettings::IniFormat, QSettings::UserScope,
                           QString::fromStdString((DemoData::folder() / "Settings").string()));
    }
    AppModel model;
    if (demoDatabase) model.setLiveDatabase(*demoDatabase);
    MainWindow window(model);
    window.show();
    if (const auto folder = qEnvironmentVariable("BRINDLECOURT_SCREENSHOTS"); !folder.isEmpty())
        saveScreenshotsOnceShown(model, window, QDir(folder));
    openFirstSource(model, fileArgument(argc, argv));
    model.loadContacts();
    model.setPolling(true);
    model.lock().startLockObservers();
    return application.exec();
}

}  // namespace bc::app
