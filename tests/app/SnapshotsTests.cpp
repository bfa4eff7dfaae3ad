#include <QAbstractButton>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include "AppFixture.h"
#include "app/custody/Snapshots.h"
#include "app/custody/SnapshotsWindow.h"
#include "app/sources/SourceSwitcher.h"
#include "custody/CustodyLog.h"
#include "custody/SnapshotLock.h"
#include "sources/MessageDatabase.h"

namespace bc::app::testing {
namespace {

namespace fs = std::filesystem;

// Snapshots root and custody log in the test's folder, the sample database as the live source.
class SnapshotsTest : public AppTest {
protected:
    SnapshotsTest() {
        Preservation::setOverrideRoot(root());
        CustodyLog::setOverrideURL(folder_ / "custody-log.jsonl");
    }

    // Sealed files are immutable for real when tests run as root.
    ~SnapshotsTest() override {
        for (const auto& top : {root(), trashHome()}) {
            std::error_code error;
            for (auto it = fs::recursive_directory_iterator(top, error);
                 it != fs::recursive_directory_iterator(); it.increment(error))
                if (it->is_directory() && fs::exists(it->path() / "manifest.json"))
                    snapshotLock::unlock(it->path());
        }
        Preservation::setOverrideRoot(std::nullopt);
        CustodyLog::setOverrideURL(std::nullopt);
    }

    fs::path root() const { return folder_ / "Snapshots"; }
    fs::path trashHome() const { return folder_ / "home"; }

    std::unique_ptr<AppModel> openLive() {
        auto model = std::make_unique<AppModel>();
        model->openSource(database(), AppModel::SourceKind::live);
        EXPECT_TRUE(waitFor([&] { return model->state() == AppModel::State::ready; }));
        return model;
    }

    // Runs `start` and gives the job's final line.
    static QString finalLine(AppModel& model, const std::function<bool()>& start) {
        QString line;
        const auto connection = QObject::connect(&model.jobs(), &Jobs::finished,
                                                 [&](const QString& ended) { line = ended; });
        EXPECT_TRUE(start());
        EXPECT_TRUE(waitFor([&] { return !line.isEmpty(); }));
        QObject::disconnect(connection);
        return line;
    }

    static QString take(AppModel& model) {
        return finalLine(model, [&] { return model.snapshots().take(); });
    }

    static void waitForList(AppModel& model, size_t count) {
        model.snapshots().refresh();
        ASSERT_TRUE(waitFor([&] { return model.snapshots().list().size() == count; }));
    }

    std::vector<std::string> rootEntries() const {
        std::vector<std::string> names;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(root(), error))
            names.push_back(entry.path().filename().string());
        return names;
    }

    bc::testing::FixedClock clock_{bc::testing::utc("2024-03-05T19:07:09Z")};
};

TEST_F(SnapshotsTest, TakingSealsLogsAndListsNewestFirst) {
    auto model = openLive();
    QStringList statuses;
    QObject::connect(model.get(), &AppModel::statusChanged,
                     [&] { statuses << model->statusText(); });
    EXPECT_EQ(take(*model),
              "Snapshot sealed: Snapshot 2024-03-05T140709: 3 attachments preserved and verified, "
              "1 not on " +
                  QString(thisMachine) + ". Logged in the custody log.");
    EXPECT_EQ(statuses.front(), Snapshots::preparingText);
    EXPECT_TRUE(statuses.contains("Sealing the snapshot…"));

    const auto records = CustodyLog::readAll();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].action, "snapshot");
    EXPECT_EQ(records[0].title, Snapshots::allConversations);
    EXPECT_FALSE(records[0].outputs.empty());
    for (const auto& output : records[0].outputs)
        EXPECT_TRUE(output.path.starts_with((root() / "Snapshot 2024-03-05T140709/").string()));

    clock_.set(bc::testing::utc("2024-03-06T09:00:00Z"));
    EXPECT_TRUE(take(*model).startsWith("Snapshot sealed: Snapshot 2024-03-06T040000: "));
    waitForList(*model, 2);
    EXPECT_EQ(model->snapshots().list()[0].id, "Snapshot 2024-03-06T040000");
    EXPECT_EQ(model->snapshots().list()[1].id, "Snapshot 2024-03-05T140709");

    const SnapshotInfo newest = model->snapshots().list()[0];  // the list may be read again
    EXPECT_EQ(finalLine(*model, [&] { return model->snapshots().verify(newest); }),
              QString("Snapshot 2024-03-06T040000 verified: all %1 files match their SHA-256, "
                      "and the manifest matches the custody log.")
                  .arg(newest.files.size()));
    EXPECT_EQ(model->snapshots().verdict(newest), model->statusText());

    // A failed verification is shown in full as a warning naming every file concerned.
    snapshotLock::unlock(Preservation::folder(newest));
    bc::testing::writeText(Preservation::folder(newest) / "planted.txt", "planted");
    const QString failed = finalLine(*model, [&] { return model->snapshots().verify(newest); });
    EXPECT_EQ(failed, "WARNING: Snapshot 2024-03-06T040000 failed verification: 1 added.");
    SnapshotsWindow window(*model);
    window.select(Preservation::folder(newest).string());
    EXPECT_EQ(window.verdictText(), failed + "\nadded: planted.txt");

    // A snapshot whose manifest is damaged leaves the list with a warning, never silently.
    const fs::path older = root() / "Snapshot 2024-03-05T140709";
    snapshotLock::unlock(older);
    bc::testing::writeText(older / "manifest.json", "{");
    waitForList(*model, 1);
    ASSERT_TRUE(waitFor([&] { return model->statusText().startsWith("WARNING: "); }));
    EXPECT_TRUE(model->statusText().contains("Snapshot 2024-03-05T140709"));
}

TEST_F(SnapshotsTest, ASnapshotOpensAsTheSourceAndCannotBeSnapshotted) {
    auto model = openLive();
    take(*model);
    waitForList(*model, 1);
    const SnapshotInfo snapshot = model->snapshots().list()[0];
    select(*model, 1);
    const auto reading = model->selectedConversation()->key;

    SourceSwitcher switcher(*model);
    EXPECT_EQ(switcher.currentText(), SourceSwitcher::liveText);
    const int entry = switcher.findText(QString::fromStdString(snapshot.id), Qt::MatchStartsWith);
    ASSERT_GT(entry, 0);
    switcher.choose(entry);
    ASSERT_TRUE(waitFor([&] { return model->sourceKind() == AppModel::SourceKind::snapshot; }));
    ASSERT_TRUE(waitFor([&] { return model->state() == AppModel::State::ready; }));
    EXPECT_TRUE(model->sourceText().startsWith(QString::fromStdString(snapshot.id)));
    EXPECT_EQ(model->sourceChoice().kind, SourceChoice::Kind::snapshot);
    EXPECT_EQ(model->sourceChoice().snapshot->id, snapshot.id);
    EXPECT_EQ(model->database()->custodySource().snapshotID, snapshot.id);
    EXPECT_FALSE(model->conversations().empty());
    EXPECT_EQ(switcher.currentIndex(), entry);
    ASSERT_TRUE(model->selectedConversation());
    EXPECT_EQ(model->selectedConversation()->key, reading) << "the conversation being read stays";
    ASSERT_TRUE(waitFor([&] { return !model->transcript().rows.empty(); }));

    EXPECT_FALSE(model->snapshots().take());
    EXPECT_EQ(model->statusText(), Snapshots::needsLiveText);
    EXPECT_FALSE(model->jobs().isRunning());
    EXPECT_EQ(rootEntries().size(), 1u);

    // The open snapshot's Trash entry is disabled and says why, before any confirmation.
    SnapshotsWindow window(*model);
    window.select(Preservation::folder(snapshot).string());
    auto* trash = window.findChild<QPushButton*>("trashSnapshot");
    ASSERT_TRUE(trash);
    EXPECT_FALSE(trash->isEnabled());
    EXPECT_EQ(trash->toolTip(), Snapshots::openSnapshotText);
    EXPECT_EQ(trash->statusTip(), Snapshots::openSnapshotText);
    model->snapshots().moveToTrash(snapshot);
    EXPECT_EQ(model->statusText(), "Couldn't move " + QString::fromStdString(snapshot.id) +
                                       " to the Trash. " + Snapshots::openSnapshotText);
}

TEST_F(SnapshotsTest, WithNoMessagesDatabaseTheRefusalSaysWhereItLooked) {
    std::filesystem::remove(database());
    AppModel model;
    model.openLive();
    ASSERT_TRUE(waitFor([&] { return model.state() != AppModel::State::loading; }));
    EXPECT_FALSE(model.snapshots().take());
    const QString refusal = "Couldn't take a snapshot: no Messages database was found at " +
                            QString::fromStdString(database().string()) + ".";
    EXPECT_EQ(model.statusText(), refusal);
    EXPECT_FALSE(model.jobs().isRunning());

    // The window's buttons say the same before they are pressed.
    const SnapshotsWindow window(model);
    const auto tip = [&](const char* label) {
        for (const auto* button : window.findChildren<QPushButton*>())
            if (button->text() == label && !button->isEnabled()) return button->toolTip();
        return QString("(enabled)");
    };
    EXPECT_EQ(tip("Take Snapshot"), refusal);
    EXPECT_EQ(tip("Verify"), Snapshots::chooseSnapshotText);
    EXPECT_EQ(tip("Open as Source"), Snapshots::chooseSnapshotText);
}

TEST_F(SnapshotsTest, ACancelledSnapshotLeavesNothingAndAFailedLogKeepsTheSnapshot) {
    auto model = openLive();
    QString line;
    QObject::connect(&model->jobs(), &Jobs::finished, [&](const QString& ended) { line = ended; });
    // The reader's lock keeps the copy from starting until the cancel has landed.
    model->database()->snapshot([&] {
        ASSERT_TRUE(model->snapshots().take());
        model->cancel();
    });
    ASSERT_TRUE(waitFor([&] { return !line.isEmpty(); }));
    EXPECT_EQ(line, "Snapshot cancelled. Nothing was kept.");
    EXPECT_TRUE(rootEntries().empty());
    EXPECT_TRUE(CustodyLog::readAll().empty());

    bc::testing::writeText(folder_ / "not-a-folder", "a file where the log's folder should be");
    CustodyLog::setOverrideURL(folder_ / "not-a-folder" / "custody-log.jsonl");
    EXPECT_TRUE(
        take(*model).startsWith("WARNING: the snapshot WAS sealed (Snapshot "
                                "2024-03-05T140709), but it could NOT be recorded in "
                                "the custody log: "));
    waitForList(*model, 1);
    EXPECT_EQ(rootEntries(), std::vector<std::string>{"Snapshot 2024-03-05T140709"});
}

// Answers the trash question the way a user would, once it is up.
void answerTrashQuestion(bool move, QString* explanation) {
    QTimer::singleShot(0, [move, explanation] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(box, nullptr);
        EXPECT_EQ(box->text(), Snapshots::trashQuestion);
        *explanation = box->informativeText();
        for (auto* button : box->buttons()) {
            const bool isMove = button->text() == Snapshots::trashButton;
            if (isMove == move) {
                button->click();
                return;
            }
        }
        FAIL() << "no such button";
    });
}

TEST_F(SnapshotsTest, MoveToTrashAsksThenUnlocksAndMovesTheFolder) {
    auto model = openLive();
    take(*model);
    waitForList(*model, 1);
    SnapshotsWindow window(*model);
    window.select((root() / "Snapshot 2024-03-05T140709").string());
    ASSERT_NE(window.selected(), nullptr);

    QString explanation;
    answerTrashQuestion(false, &explanation);
    window.trashSelected();
    EXPECT_EQ(explanation,
              "Snapshot 2024-03-05T140709 will be unlocked and moved to the Trash. You can "
              "restore it from the Trash until you empty it.");
    EXPECT_FALSE(model->jobs().isRunning());
    EXPECT_EQ(rootEntries().size(), 1u) << "declined: nothing moves";

    // The Trash lives in the data folder under home (in Qt's test mode, home/.qttest/share):
    // here the test's own.
    const QByteArray home = qgetenv("HOME");
    qputenv("HOME", trashHome().c_str());
    QString line;
    QObject::connect(&model->jobs(), &Jobs::finished, [&](const QString& ended) { line = ended; });
    answerTrashQuestion(true, &explanation);
    window.trashSelected();
    EXPECT_TRUE(waitFor([&] { return !line.isEmpty(); }));
    qputenv("HOME", home);

    EXPECT_EQ(line, "Snapshot 2024-03-05T140709 moved to the Trash.");
    EXPECT_TRUE(rootEntries().empty());
    bool inTrash = false;
    for (const auto& entry : fs::recursive_directory_iterator(trashHome()))
        inTrash = inTrash || entry.path().filename().string().starts_with("Snapshot 2024");
    EXPECT_TRUE(inTrash);
    EXPECT_TRUE(waitFor([&] { return model->snapshots().list().empty(); }));
}

}  // namespace
}  // namespace bc::app::testing
