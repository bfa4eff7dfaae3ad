#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <gtest/gtest.h>
#include <QApplication>
#include <QStandardPaths>

#include "app/shell/AppModel.h"
#include "custody/AttachmentWatch.h"
#include "demo/DemoData.h"
#include "evidence/EvidenceStore.h"
#include "evidence/TimelineEventStore.h"
#include "sources/MessageDatabase.h"
#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc::app::testing {

// One offscreen application for the whole test program: no display is needed.
inline QApplication& application() {
    static int argc = 1;
    static char name[] = "test_app";
    static char* argv[] = {name, nullptr};
    static QApplication* made = [] {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        // Settings such as the jump unit go to a test location, not the user's.
        QStandardPaths::setTestModeEnabled(true);
        return new QApplication(argc, argv);
    }();
    return *made;
}

// Runs the event loop until `done` holds; false when it still doesn't after the time-out.
inline bool waitFor(const std::function<bool()>& done,
                    std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    const auto until = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > until) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

// Every store in a temporary folder and a fresh sample Messages database there, at the live
// database's place (the home folder is the temporary one), so the model follows its changes.
class AppTest : public ::testing::Test {
protected:
    AppTest()
        : home_("HOME", folder_.path().string()),
          evidence_(EvidenceStore::location(), folder_ / "evidence.json"),
          events_(TimelineEventStore::location(), folder_ / "events.json"),
          presence_(AttachmentWatch::location(), folder_ / "attachment-presence.json") {
        application();
        std::filesystem::create_directories(database().parent_path());
        DemoData::writeMessagesDatabase(database(), Clock::now());
    }

    std::filesystem::path database() const { return MessageDatabase::defaultPath(); }

    std::unique_ptr<AppModel> openModel() {
        auto model = std::make_unique<AppModel>();
        model->openSource(database(), AppModel::SourceKind::file);
        EXPECT_TRUE(waitFor([&] { return model->state() == AppModel::State::ready; }))
            << model->stateMessage().toStdString();
        return model;
    }

    // Selects the conversation with that chat and waits for its rows.
    static void select(AppModel& model, int64_t chatID) {
        const auto& list = model.conversations();
        for (size_t index = 0; index < list.size(); ++index) {
            const auto& ids = list[index].chatIDs;
            if (std::find(ids.begin(), ids.end(), chatID) == ids.end()) continue;
            model.selectConversation(index);
            ASSERT_TRUE(waitFor([&] { return !model.isBusy(); }));
            ASSERT_FALSE(model.transcript().rows.empty());
            return;
        }
        FAIL() << "no conversation holds chat " << chatID;
    }

    bc::testing::TempDir folder_;
    bc::testing::ScopedEnvironment home_;
    bc::testing::ScopedOverride evidence_, events_, presence_;
};

}  // namespace bc::app::testing
