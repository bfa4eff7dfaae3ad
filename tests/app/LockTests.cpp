#include <QAction>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QShortcut>
#include <QStackedWidget>
#include <QTest>

#include "AppFixture.h"
#include "app/custody/CustodyLogWindow.h"
#include "app/custody/SnapshotsWindow.h"
#include "app/lock/AppLock.h"
#include "app/lock/Lock.h"
#include "app/lock/LockScreen.h"
#include "app/lock/Passphrase.h"
#include "app/shell/MainWindow.h"
#include "support/Files.h"

namespace bc::app::testing {
namespace {

namespace fs = std::filesystem;
using bc::testing::FixedClock;
using bc::testing::utc;

TEST(AppLockTest, OnlyARequiredLockLocksAndOnlyAfterFiveMinutesAway) {
    FixedClock clock(utc("2026-03-01T10:00:00Z"));
    AppLock off(false);
    off.wentToBackground();
    clock.set(utc("2026-03-01T12:00:00Z"));
    EXPECT_FALSE(off.cameToForeground());
    off.lockNow();
    EXPECT_FALSE(off.isLocked());

    AppLock on(true);
    EXPECT_TRUE(on.isLocked()) << "a required lock starts locked";
    on.unlocked();
    for (const double away : {0.0, 120.0, 299.0}) {
        on.wentToBackground();
        clock.set(utc("2026-03-01T12:00:00Z") + away);
        EXPECT_FALSE(on.cameToForeground()) << away;
        EXPECT_FALSE(on.isLocked()) << away;
        clock.set(utc("2026-03-01T12:00:00Z"));
    }
    on.wentToBackground();
    clock.set(utc("2026-03-01T12:05:00Z"));
    EXPECT_TRUE(on.cameToForeground());
    EXPECT_TRUE(on.isLocked());
    // Coming back twice counts the time away once.
    on.unlocked();
    EXPECT_FALSE(on.cameToForeground());
}

// A cheap hash cost for tests only; the passphrase file in a temporary folder.
class PassphraseTest : public ::testing::Test {
protected:
    PassphraseTest() : store_(PassphraseStore::location(), folder_ / "lock-passphrase.json") {
        ScryptCost::setCurrent(ScryptCost{.n = 1024, .r = 8, .p = 1});
    }
    ~PassphraseTest() override { ScryptCost::setCurrent(std::nullopt); }

    bc::testing::TempDir folder_;
    bc::testing::ScopedOverride store_;
};

TEST_F(PassphraseTest, KeepsOnlyASaltedHashWithItsCost) {
    EXPECT_EQ(ScryptCost{}.n, uint64_t{1} << 17) << "the default cost stays high";
    EXPECT_FALSE(PassphraseStore::isSet());
    EXPECT_THROW(PassphraseStore::matches("anything"), Error);
    PassphraseStore::save("correct horse");
    const auto first = files::readFile(PassphraseStore::location().path());
    EXPECT_EQ(first.find("correct horse"), std::string::npos);
    const auto stored = json::decode(first);
    EXPECT_EQ(stored.at("scrypt").at("N"), 1024);
    EXPECT_TRUE(PassphraseStore::matches("correct horse"));
    EXPECT_FALSE(PassphraseStore::matches("correct horse "));
    EXPECT_FALSE(PassphraseStore::matches(""));

    // The cost recorded with a hash, not today's, checks it.
    ScryptCost::setCurrent(ScryptCost{.n = 2048, .r = 8, .p = 1});
    EXPECT_TRUE(PassphraseStore::matches("correct horse"));
    PassphraseStore::save("correct horse");
    const auto second = json::decode(files::readFile(PassphraseStore::location().path()));
    EXPECT_NE(second.at("salt"), stored.at("salt"));
    EXPECT_NE(second.at("hash"), stored.at("hash"));

    PassphraseStore::remove();
    EXPECT_FALSE(PassphraseStore::isSet());
}

TEST_F(PassphraseTest, AStoredHashThatWasTamperedWithIsAnErrorNotAMatch) {
    PassphraseStore::save("secret");
    auto stored = json::decode(files::readFile(PassphraseStore::location().path()));
    stored["hash"] = "c2hvcnQ=";
    files::writeFileAtomically(PassphraseStore::location().path(), json::encodePretty(stored));
    try {
        PassphraseStore::matches("secret");
        FAIL() << "a damaged hash matched";
    } catch (const Error& error) {
        EXPECT_STREQ(error.what(),
                     "Couldn't check the passphrase: the stored passphrase hash is damaged");
    }
}

TEST_F(PassphraseTest, FiveWrongAttemptsInARowMakeTheNextOnesWaitLongerEachTime) {
    FixedClock clock(utc("2026-03-01T10:00:00Z"));
    PassphraseStore::save("secret");
    PassphraseCheck check;
    for (int attempt = 1; attempt <= 4; ++attempt)
        EXPECT_EQ(check.check("guess"), "The passphrase is wrong.") << attempt;
    EXPECT_EQ(check.check("secret"), std::nullopt) << "a right one resets the count";
    for (int attempt = 1; attempt <= 5; ++attempt)
        EXPECT_EQ(check.check("guess"), "The passphrase is wrong.") << attempt;
    EXPECT_EQ(check.check("secret"), "Too many wrong passphrases. Try again in 30 seconds.");
    clock.set(utc("2026-03-01T10:00:29Z"));
    EXPECT_EQ(check.check("secret"), "Too many wrong passphrases. Try again in 1 seconds.");
    clock.set(utc("2026-03-01T10:00:30Z"));
    EXPECT_EQ(check.check("guess"), "The passphrase is wrong.");
    EXPECT_EQ(check.check("secret"), "Too many wrong passphrases. Try again in 60 seconds.");
    clock.set(utc("2026-03-01T10:01:30Z"));
    EXPECT_EQ(check.check("secret"), std::nullopt);
    EXPECT_EQ(check.check("guess"), "The passphrase is wrong.") << "counting starts again";
}

// The lock with its setting in the test preferences and its passphrase in a temporary folder.
class LockTest : public AppTest {
protected:
    LockTest() : store_(PassphraseStore::location(), folder_ / "lock-passphrase.json") {
        ScryptCost::setCurrent(ScryptCost{.n = 1024, .r = 8, .p = 1});
        QSettings().remove(Lock::settingKey);
    }
    ~LockTest() override {
        QSettings().remove(Lock::settingKey);
        ScryptCost::setCurrent(std::nullopt);
    }

    // Turns the lock on with `passphrase` and waits for the outcome.
    static void require(Lock& lock, const std::string& passphrase) {
        lock.setRequireUnlock(true, passphrase);
        ASSERT_TRUE(waitFor([&] { return !lock.isChecking(); }));
        ASSERT_TRUE(lock.requireUnlock());
    }

    static std::vector<QString> statuses(Lock& lock, const std::function<void()>& act) {
        std::vector<QString> lines;
        auto connection = QObject::connect(&lock, &Lock::statusReported,
                                           [&](const QString& line) { lines.push_back(line); });
        act();
        EXPECT_TRUE(waitFor([&] { return !lock.isChecking(); }));
        QObject::disconnect(connection);
        return lines;
    }

    bc::testing::ScopedOverride store_;
};

TEST_F(LockTest, WithTheSettingOffNothingLocks) {
    FixedClock clock(utc("2026-03-01T10:00:00Z"));
    Lock lock(false);
    EXPECT_FALSE(lock.isLocked());
    lock.applicationStateChanged(Qt::ApplicationInactive);
    clock.set(utc("2026-03-02T10:00:00Z"));
    lock.applicationStateChanged(Qt::ApplicationActive);
    lock.lockNow();
    EXPECT_FALSE(lock.isLocked());
}

TEST_F(LockTest, TheSettingIsKeptWithItsPassphraseAndTheNextStartIsLocked) {
    Lock lock(false);
    EXPECT_EQ(statuses(lock, [&] { lock.setRequireUnlock(true, ""); }),
              std::vector<QString>{"The setting wasn't changed: The passphrase is empty."});
    EXPECT_FALSE(lock.requireUnlock());
    EXPECT_EQ(statuses(lock, [&] { lock.setRequireUnlock(true, "secret"); }),
              std::vector<QString>{lockText::turnedOn});
    EXPECT_TRUE(QSettings().value(Lock::settingKey).toBool());
    EXPECT_FALSE(lock.isLocked()) << "turning it on doesn't lock";
    EXPECT_TRUE(Lock(false).isLocked());
    EXPECT_FALSE(Lock(true).isLocked()) << "demo mode keeps no lock of the user's";

    // A lost passphrase file must not shut the user out for good.
    PassphraseStore::remove();
    EXPECT_FALSE(Lock(false).isLocked());
}

TEST_F(LockTest, AWrongPassphraseKeepsTheLockAndSaysWhy) {
    Lock setup(false);
    require(setup, "secret");
    Lock lock(false);
    LockScreen screen(lock);
    ASSERT_TRUE(lock.isLocked());
    screen.passphraseField()->setText("guess");
    QTest::mouseClick(screen.unlockButton(), Qt::LeftButton);
    EXPECT_FALSE(screen.unlockButton()->isEnabled()) << "one check at a time";
    ASSERT_TRUE(waitFor([&] { return !lock.isChecking(); }));
    EXPECT_TRUE(lock.isLocked());
    EXPECT_EQ(screen.errorLabel()->text(), "The passphrase is wrong.");
    EXPECT_TRUE(screen.passphraseField()->text().isEmpty());
    EXPECT_TRUE(screen.unlockButton()->isEnabled());

    screen.passphraseField()->setText("secret");
    QTest::keyClick(screen.passphraseField(), Qt::Key_Return);
    ASSERT_TRUE(waitFor([&] { return !lock.isLocked(); }));
    EXPECT_TRUE(screen.errorLabel()->text().isEmpty());
}

TEST_F(LockTest, TurningTheSettingOffTakesThePassphrase) {
    Lock lock(false);
    require(lock, "secret");
    EXPECT_EQ(statuses(lock, [&] { lock.setRequireUnlock(false, "guess"); }),
              std::vector<QString>{"The setting wasn't changed: The passphrase is wrong."});
    EXPECT_TRUE(lock.requireUnlock());
    EXPECT_TRUE(QSettings().value(Lock::settingKey).toBool());
    EXPECT_TRUE(PassphraseStore::isSet());

    EXPECT_EQ(statuses(lock, [&] { lock.setRequireUnlock(false, "secret"); }),
              std::vector<QString>{lockText::turnedOff});
    EXPECT_FALSE(QSettings().value(Lock::settingKey).toBool());
    EXPECT_FALSE(PassphraseStore::isSet());
}

TEST_F(LockTest, FiveMinutesInTheBackgroundLockButNotOneSecondLess) {
    FixedClock clock(utc("2026-03-01T10:00:00Z"));
    Lock lock(false);
    require(lock, "secret");
    lock.applicationStateChanged(Qt::ApplicationInactive);
    clock.set(utc("2026-03-01T10:04:59Z"));
    lock.applicationStateChanged(Qt::ApplicationActive);
    EXPECT_FALSE(lock.isLocked());
    lock.applicationStateChanged(Qt::ApplicationHidden);
    clock.set(utc("2026-03-01T10:09:59Z"));
    lock.applicationStateChanged(Qt::ApplicationActive);
    EXPECT_TRUE(lock.isLocked());
}

// A private session bus, so that the test neither needs nor disturbs the desktop's.
class PrivateBus {
public:
    PrivateBus() {
        daemon_.start("dbus-daemon", {"--session", "--nofork", "--print-address"});
        if (!daemon_.waitForStarted() || !daemon_.waitForReadyRead(10000)) return;
        address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
    }
    ~PrivateBus() {
        for (const auto& name : {"lock-listener", "lock-sender"})
            QDBusConnection::disconnectFromBus(name);
        daemon_.terminate();
        daemon_.waitForFinished();
    }

    QDBusConnection connect(const QString& name) const {
        return QDBusConnection::connectToBus(address_, name);
    }
    bool isRunning() const { return !address_.isEmpty(); }

private:
    QProcess daemon_;
    QString address_;
};

TEST_F(LockTest, ScreenLockAndSleepSignalsLockAtOnce) {
    PrivateBus bus;
    ASSERT_TRUE(bus.isRunning()) << "dbus-daemon couldn't start";
    Lock lock(false);
    require(lock, "secret");
    const auto listener = bus.connect("lock-listener");
    ASSERT_TRUE(listener.isConnected());
    lock.watchScreenLocks(listener, listener);
    auto sender = bus.connect("lock-sender");
    const auto send = [&](const char* path, const char* interface, const char* name,
                          QVariantList arguments) {
        auto signal = QDBusMessage::createSignal(path, interface, name);
        signal.setArguments(arguments);
        ASSERT_TRUE(sender.send(signal));
    };
    const auto unlock = [&] {
        lock.unlock("secret");
        ASSERT_TRUE(waitFor([&] { return !lock.isLocked(); }));
    };

    send("/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged", {false});
    EXPECT_FALSE(waitFor([&] { return lock.isLocked(); }, std::chrono::milliseconds(500)))
        << "the screensaver ending doesn't lock";
    send("/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged", {true});
    EXPECT_TRUE(waitFor([&] { return lock.isLocked(); }));
    unlock();
    send("/org/freedesktop/login1", "org.freedesktop.login1.Manager", "PrepareForSleep", {true});
    EXPECT_TRUE(waitFor([&] { return lock.isLocked(); }));
    unlock();
    send("/org/freedesktop/login1/session/_32", "org.freedesktop.login1.Session", "Lock", {});
    EXPECT_TRUE(waitFor([&] { return lock.isLocked(); }));
}

// Every text a person could read in the application's visible windows and menus.
QStringList visibleTexts() {
    QStringList texts;
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (!window->isVisible()) continue;
        texts << window->windowTitle();
        for (auto* label : window->findChildren<QLabel*>())
            if (label->isVisible()) texts << label->text();
        for (auto* list : window->findChildren<QListWidget*>())
            if (list->isVisible())
                for (int row = 0; row < list->count(); ++row) texts << list->item(row)->text();
        if (auto* main = qobject_cast<QMainWindow*>(window))
            for (auto* menu : main->menuBar()->actions())
                if (menu->isVisible()) texts << menu->text();
    }
    return texts;
}

TEST_F(LockTest, WhileLockedNoWindowShowsAConversation) {
    {
        Lock setup(false);
        require(setup, "secret");
    }
    auto model = openModel();
    select(*model, 1);
    MainWindow window(*model);
    window.show();
    window.custodyLogWindow().show();
    const QString name = QString::fromStdString(model->conversations().front().title);
    Lock& lock = model->lock();
    ASSERT_TRUE(lock.isLocked()) << "it starts locked";
    EXPECT_FALSE(visibleTexts().join('\n').contains(name));
    lock.unlock("secret");
    ASSERT_TRUE(waitFor([&] { return !lock.isLocked(); }));
    ASSERT_TRUE(visibleTexts().join('\n').contains(name)) << "the check would see a name";
    ASSERT_TRUE(window.custodyLogWindow().isVisible());

    lock.lockNow();
    EXPECT_FALSE(visibleTexts().join('\n').contains(name))
        << visibleTexts().join('\n').toStdString();
    EXPECT_TRUE(visibleTexts().contains(lockText::title));
    EXPECT_FALSE(window.custodyLogWindow().isVisible());
    // Neither a shortcut of the window nor a window opened now reaches anything.
    int shortcutsTaken = 0;
    auto* shortcut = new QShortcut(QKeySequence("Ctrl+Shift+K"), &window);
    QObject::connect(shortcut, &QShortcut::activated, [&] { ++shortcutsTaken; });
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    QTest::keySequence(window.windowHandle(), shortcut->key());
    EXPECT_EQ(shortcutsTaken, 0);
    window.snapshotsWindow().show();
    QTest::qWait(50);
    EXPECT_FALSE(window.snapshotsWindow().isVisible());
    EXPECT_FALSE(visibleTexts().join('\n').contains(name));

    lock.unlock("secret");
    ASSERT_TRUE(waitFor([&] { return !lock.isLocked(); }));
    EXPECT_TRUE(visibleTexts().join('\n').contains(name));
    EXPECT_TRUE(window.custodyLogWindow().isVisible());
    EXPECT_TRUE(window.snapshotsWindow().isVisible());
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    QTest::keySequence(window.windowHandle(), shortcut->key());
    EXPECT_EQ(shortcutsTaken, 1);
}

}  // namespace
}  // namespace bc::app::testing
