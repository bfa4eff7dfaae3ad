#include "app/shell/Application.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include <QApplication>
#include <QDir>
#include <QSettings>
#include <QTimer>

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

// With BRINDLECOURT_SCREENSHOTS naming a folder, the window and the export sheet are saved there
// once the longest conversation is on screen, and the program ends: tools/screenshots.sh renders
// the README's pictures this way.
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
            QTimer::singleShot(1500, &window, [&model, &window, folder] {
                if (!saveGrab(window, folder, "main-window.png")) QCoreApplication::exit(1);
                model.exports().makeRequest(
                    RangeExportFormat::pdf, std::nullopt,
                    [&window, folder](const ExportRequest& request) {
                        ExportSheet sheet(request, &window);
                        sheet.adjustSize();
                        QCoreApplication::exit(saveGrab(sheet, folder, "export-sheet.png") ? 0 : 1);
                    });
            });
        });
    QTimer::singleShot(60000, &window, [] {
        std::cerr << "No conversation was shown within a minute; no screenshot was taken.\n";
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
