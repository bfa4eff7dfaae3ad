#pragma once

#include <vector>

#include <QPointer>
#include <QWidget>

class QLabel;
class QLineEdit;
class QMainWindow;
class QMenu;
class QPushButton;
class QStackedWidget;

namespace bc::app {

class Lock;

// What the window shows while locked: the title, how to unlock, the last error and, where a
// passphrase stands in for the system's owner check, its field.
class LockScreen : public QWidget {
    Q_OBJECT
public:
    LockScreen(Lock& lock, QWidget* parent = nullptr);

    QLineEdit* passphraseField() const { return passphrase_; }
    QPushButton* unlockButton() const { return unlock_; }
    QLabel* errorLabel() const { return error_; }

private:
    void showLock();

    Lock& lock_;
    QLineEdit* passphrase_;
    QPushButton* unlock_;
    QLabel* error_;
};

// Covers the window with the lock screen while locked. Everything that could show a
// conversation goes out of reach: the window's content and menus, its shortcuts and every other
// window (those opened while locked appear only after unlocking; modal dialogs are cancelled).
class LockCurtain : public QObject {
    Q_OBJECT
public:
    // Makes `content` the window's central widget, behind the lock screen.
    LockCurtain(Lock& lock, QMainWindow& window, QWidget* content);

    QStackedWidget* pages() const { return pages_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void follow();
    void cover();
    void uncover();
    void putAway(QWidget* window);

    Lock& lock_;
    QMainWindow& window_;
    QStackedWidget* pages_;
    QWidget* content_;
    LockScreen* screen_;
    bool covered_ = false;
    std::vector<QPointer<QWidget>> putAway_;
};

// The menu with "Lock Brindlecourt" and the setting that requires the owner; turning the setting
// on or off asks for the passphrase where one stands in for the system's check.
QMenu* makeLockMenu(Lock& lock, QWidget* parent);

}  // namespace bc::app
