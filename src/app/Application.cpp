#include "app/Application.h"

#include <algorithm>
#include <cstring>
#include <iostream>

#include <QApplication>
#include <QTimer>

#include "app/AppModel.h"
#include "app/MainWindow.h"
#include "cli/DemoStores.h"

namespace bc::app {

namespace {

bool asksForDemo(int argc, char** argv) {
    for (int index = 1; index < argc; ++index)
        if (std::strcmp(argv[index], "--demo") == 0) return true;
    return false;
}

// With BRINDLECOURT_SCREENSHOT set to a .png path, the window is saved there once the first
// conversation is on screen and the program ends: tools/screenshots.sh renders the README's
// pictures this way.
void saveScreenshotOnceShown(AppModel& model, MainWindow& window, const QString& file) {
    // The longest conversation shows the most kinds of rows.
    QObject::connect(&model, &AppModel::conversationsChanged, &window, [&model] {
        const auto& list = model.conversations();
        const auto longest = std::max_element(
            list.begin(), list.end(),
            [](const auto& a, const auto& b) { return a.messageCount < b.messageCount; });
        if (longest != list.end()) model.selectConversation(longest - list.begin());
    });
    QObject::connect(&model, &AppModel::transcriptChanged, &window, [&model, &window, file] {
        if (model.transcript().rows.size() < 2) return;
        QTimer::singleShot(1500, &window, [&window, file] {
            const bool saved = window.grab().save(file);
            if (!saved) std::cerr << "Couldn't save the screenshot " << file.toStdString() << '\n';
            QCoreApplication::exit(saved ? 0 : 1);
        });
    });
    QTimer::singleShot(60000, &window, [] {
        std::cerr << "No conversation was shown within a minute; no screenshot was taken.\n";
        QCoreApplication::exit(1);
    });
}

}  // namespace

int runApplication(int argc, char** argv) {
    if (asksForDemo(argc, argv)) {
        try {
            cli::redirectStoresToDemo();
        } catch (const std::exception& error) {
            // Without its own folder a demonstration would touch the user's data: stop.
            std::cerr << error.what() << '\n';
            return 1;
        }
    }
    QApplication application(argc, argv);
    QApplication::setApplicationName("Brindlecourt");
    QApplication::setOrganizationName("Kestrove");
    AppModel model;
    MainWindow window(model);
    window.show();
    if (const auto file = qEnvironmentVariable("BRINDLECOURT_SCREENSHOT"); !file.isEmpty())
        saveScreenshotOnceShown(model, window, file);
    model.openLive();
    model.loadContacts();
    model.setPolling(true);
    return application.exec();
}

}  // namespace bc::app
