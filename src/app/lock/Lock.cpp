#include "app/lock/Lock.h"

#include <QGuiApplication>
#include <QSettings>

#include "app/shell/QtText.h"

#ifndef __APPLE__
#include <QDBusConnection>
#endif

namespace bc::app {

namespace {

bool storedSetting(bool demo) {
    if (demo) return false;
    // Without a stored passphrase the lock could never open again: the setting counts only with
    // one (the lock is a screen, not encryption, so this gives nothing away).
    return QSettings().value(Lock::settingKey, false).toBool() &&
           (!lockText::usesPassphrase || PassphraseStore::isSet());
}

}  // namespace

Lock::Lock(bool demo, QObject* parent)
    : QObject(parent), demo_(demo), state_(storedSetting(demo)) {}

QString Lock::lockError() const {
    const auto& error = state_.lockError();
    return error ? qs(*error) : QString();
}

void Lock::startLockObservers() {
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this,
            &Lock::applicationStateChanged);
#ifdef __APPLE__
    watchWorkspace(this, [this] { lockNow(); });
#else
    watchScreenLocks(QDBusConnection::sessionBus(), QDBusConnection::systemBus());
#endif
}

#ifndef __APPLE__
void Lock::watchScreenLocks(const QDBusConnection& session, const QDBusConnection& system) {
    // Any sender and path: desktops name their screensaver differently, and logind sends a
    // session's Lock on that session's own path.
    QDBusConnection(session).connect({}, {}, "org.freedesktop.ScreenSaver", "ActiveChanged", this,
                                     SLOT(screenSaverChanged(bool)));
    QDBusConnection(session).connect({}, {}, "org.gnome.ScreenSaver", "ActiveChanged", this,
                                     SLOT(screenSaverChanged(bool)));
    QDBusConnection(system).connect({}, {}, "org.freedesktop.login1.Manager", "PrepareForSleep",
                                    this, SLOT(screenSaverChanged(bool)));
    QDBusConnection(system).connect({}, {}, "org.freedesktop.login1.Session", "Lock", this,
                                    SLOT(lockNow()));
}
#endif

void Lock::applicationStateChanged(Qt::ApplicationState state) {
    const bool active = state == Qt::ApplicationActive;
    if (active == active_) return;
    active_ = active;
    if (!active) {
        state_.wentToBackground();
        return;
    }
    if (state_.cameToForeground()) emit lockChanged();
}

void Lock::lockNow() {
    if (state_.isLocked() || !state_.requireUnlock()) return;
    state_.lockNow();
    emit lockChanged();
}

void Lock::screenSaverChanged(bool active) {
    if (active) lockNow();
}

void Lock::unlock(const std::string& passphrase) {
    if (!state_.isLocked() || checking_) return;
    checkOwner(
        lockText::unlockReason, [this, passphrase] { return passphrases_.check(passphrase); },
        [this](Outcome error) {
            if (error)
                state_.unlockFailed(*error);
            else
                state_.unlocked();
            emit lockChanged();
        });
}

void Lock::setRequireUnlock(bool required, const std::string& passphrase) {
    if (required == state_.requireUnlock() || checking_) return;
    std::function<Outcome()> step;
    if (required)
        step = [passphrase]() -> Outcome {
            if (passphrase.empty()) return "The passphrase is empty.";
            PassphraseStore::save(passphrase);
            return std::nullopt;
        };
    else
        step = [this, passphrase]() -> Outcome {
            auto wrong = passphrases_.check(passphrase);
            if (!wrong) PassphraseStore::remove();
            return wrong;
        };
    checkOwner(required ? lockText::turnOnReason : lockText::turnOffReason, std::move(step),
               [this, required](Outcome error) {
                   if (error) {
                       emit statusReported(lockText::notChanged + qs(*error));
                       return;
                   }
                   store(required);
                   emit statusReported(required ? lockText::turnedOn : lockText::turnedOff);
                   emit lockChanged();
               });
}

void Lock::checkOwner(const char* reason, std::function<Outcome()> passphraseStep,
                      std::function<void(Outcome)> done) {
    checking_ = true;
    // The screen and menu wait for the answer.
    emit lockChanged();
    auto finish = [this, done = std::move(done)](Outcome outcome) {
        checking_ = false;
        done(std::move(outcome));
    };
#ifdef __APPLE__
    (void)passphraseStep;
    authenticateOwner(reason, std::move(finish));
#else
    (void)reason;
    background_.run(std::move(passphraseStep), finish, [finish](std::exception_ptr error) {
        try {
            std::rethrow_exception(error);
        } catch (const std::exception& e) {
            finish(std::string(e.what()));
        }
    });
#endif
}

void Lock::store(bool required) {
    state_.setRequireUnlock(required);
    if (!demo_) QSettings().setValue(settingKey, required);
}

}  // namespace bc::app
