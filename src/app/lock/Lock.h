#pragma once

#include <functional>
#include <optional>
#include <string>

#include <QObject>
#include <QString>

#include "app/lock/AppLock.h"
#include "app/lock/Passphrase.h"
#include "app/shell/Background.h"

class QDBusConnection;

namespace bc::app {

// What the lock says to the user. Where no system check of the owner exists, they name the
// passphrase that stands in for it.
namespace lockText {
inline constexpr const char* title = "Brindlecourt is locked";
inline constexpr const char* command = "Lock Brindlecourt";
inline constexpr const char* unlockReason = "unlock Brindlecourt";
inline constexpr const char* notChanged = "The setting wasn't changed: ";
#ifdef __APPLE__
inline constexpr bool usesPassphrase = false;
inline constexpr const char* hint = "Unlock with Touch ID or your Mac's password.";
inline constexpr const char* toggle = "Require Touch ID or Password";
inline constexpr const char* turnOnReason =
    "require Touch ID or your password to open Brindlecourt";
inline constexpr const char* turnOffReason =
    "stop requiring Touch ID or your password for Brindlecourt";
inline constexpr const char* turnedOn =
    "Brindlecourt now asks for Touch ID or your password when it opens, after 5 minutes in the "
    "background, and when the screen sleeps.";
inline constexpr const char* turnedOff =
    "Brindlecourt no longer asks for Touch ID or your password.";
#else
inline constexpr bool usesPassphrase = true;
inline constexpr const char* hint = "Unlock with your Brindlecourt passphrase.";
inline constexpr const char* toggle = "Require a Passphrase";
// Where the user types the passphrase, the reasons are the prompts.
inline constexpr const char* turnOnReason = "Choose the passphrase that will open Brindlecourt:";
inline constexpr const char* confirmPrompt = "Type the same passphrase again:";
inline constexpr const char* mismatch = "The two passphrases are different.";
inline constexpr const char* turnOffReason =
    "Type your passphrase to stop requiring it for Brindlecourt:";
inline constexpr const char* turnedOn =
    "Brindlecourt now asks for its passphrase when it opens, after 5 minutes in the background, "
    "and when the screen locks or the computer sleeps.";
inline constexpr const char* turnedOff = "Brindlecourt no longer asks for its passphrase.";
#endif
}  // namespace lockText

#ifdef __APPLE__
// LocalAuthentication's device-owner check (biometrics, else the account password); `done` runs
// on the main thread with nothing on success, else the error's description.
void authenticateOwner(const std::string& reason,
                       std::function<void(std::optional<std::string>)> done);
// The workspace's screen-sleep and session-switch notifications call `lock`.
void watchWorkspace(QObject* owner, std::function<void()> lock);
#endif

// The app lock as the window sees it: the setting, the locked state and the owner check. The
// setting lives in the preferences (in demo mode only for the session).
class Lock : public QObject {
    Q_OBJECT
public:
    static constexpr const char* settingKey = "requireUnlock";

    explicit Lock(bool demo, QObject* parent = nullptr);

    bool requireUnlock() const { return state_.requireUnlock(); }
    bool isLocked() const { return state_.isLocked(); }
    QString lockError() const;
    bool isChecking() const { return checking_; }

    // Follows the application going to the background and back, and the screen locking.
    void startLockObservers();
#ifndef __APPLE__
    // The screensaver's signals on `session` and logind's on `system` lock at once.
    void watchScreenLocks(const QDBusConnection& session, const QDBusConnection& system);
#endif
    void applicationStateChanged(Qt::ApplicationState state);

    // `passphrase` is ignored where the system checks the owner.
    void unlock(const std::string& passphrase);
    // Turning on takes the new passphrase, turning off the current one.
    void setRequireUnlock(bool required, const std::string& passphrase);

public slots:
    void lockNow();

signals:
    // The locked state, its error or whether an owner check is under way changed.
    void lockChanged();
    void statusReported(const QString& line);

private slots:
    void screenSaverChanged(bool active);

private:
    using Outcome = std::optional<std::string>;
    // Runs the owner check off the main thread; `done` gets nothing on success, else why not.
    void checkOwner(const char* reason, std::function<Outcome()> passphraseStep,
                    std::function<void(Outcome)> done);
    void store(bool required);

    bool demo_;
    AppLock state_;
    PassphraseCheck passphrases_;
    bool checking_ = false;
    bool active_ = true;
    Background background_{this, 1};
};

}  // namespace bc::app
