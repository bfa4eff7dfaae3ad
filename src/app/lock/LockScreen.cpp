#include "app/lock/LockScreen.h"

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QEvent>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

#include "app/lock/Lock.h"

namespace bc::app {

namespace {

bool inside(const QObject* object, const QWidget* ancestor) {
    for (; object; object = object->parent())
        if (object == ancestor) return true;
    return false;
}

// The passphrase typed into a prompt over `parent`; nothing when the prompt was cancelled.
std::optional<std::string> askPassphrase(QWidget* parent, const char* prompt) {
    bool ok = false;
    const QString text =
        QInputDialog::getText(parent, lockText::toggle, prompt, QLineEdit::Password, {}, &ok);
    if (!ok) return std::nullopt;
    return text.toStdString();
}

void toggleRequirement(Lock& lock, QWidget* parent) {
    const bool required = !lock.requireUnlock();
    if (!lockText::usesPassphrase) return lock.setRequireUnlock(required, {});
    const auto passphrase =
        askPassphrase(parent, required ? lockText::turnOnReason : lockText::turnOffReason);
    if (!passphrase) return;
    if (required) {
        const auto again = askPassphrase(parent, lockText::confirmPrompt);
        if (!again) return;
        if (*again != *passphrase)
            return emit lock.statusReported(QString(lockText::notChanged) + lockText::mismatch);
    }
    lock.setRequireUnlock(required, *passphrase);
}

}  // namespace

LockScreen::LockScreen(Lock& lock, QWidget* parent)
    : QWidget(parent),
      lock_(lock),
      passphrase_(new QLineEdit(this)),
      unlock_(new QPushButton("Unlock", this)),
      error_(new QLabel(this)) {
    auto* layout = new QVBoxLayout(this);
    layout->addStretch(1);
    auto* title = new QLabel(lockText::title, this);
    title->setStyleSheet("font-size:20px; font-weight:bold;");
    auto* hint = new QLabel(lockText::hint, this);
    for (auto* label : {title, hint, error_}) {
        label->setAlignment(Qt::AlignCenter);
        layout->addWidget(label);
    }
    error_->setObjectName("lockError");
    error_->setWordWrap(true);
    passphrase_->setEchoMode(QLineEdit::Password);
    passphrase_->setVisible(lockText::usesPassphrase);
    passphrase_->setMaximumWidth(320);
    layout->addWidget(passphrase_, 0, Qt::AlignHCenter);
    layout->addWidget(unlock_, 0, Qt::AlignHCenter);
    layout->addStretch(2);
    const auto unlock = [this] { lock_.unlock(passphrase_->text().toStdString()); };
    connect(unlock_, &QPushButton::clicked, this, unlock);
    connect(passphrase_, &QLineEdit::returnPressed, this, unlock);
    connect(&lock_, &Lock::lockChanged, this, &LockScreen::showLock);
    showLock();
}

void LockScreen::showLock() {
    error_->setText(lock_.lockError());
    unlock_->setEnabled(!lock_.isChecking());
    // A typed passphrase never outlives its attempt.
    if (!lock_.isChecking()) passphrase_->clear();
}

LockCurtain::LockCurtain(Lock& lock, QMainWindow& window, QWidget* content)
    : QObject(&window),
      lock_(lock),
      window_(window),
      pages_(new QStackedWidget(&window)),
      content_(content),
      screen_(new LockScreen(lock, pages_)) {
    pages_->addWidget(content_);
    pages_->addWidget(screen_);
    window_.setCentralWidget(pages_);
    qApp->installEventFilter(this);
    connect(&lock_, &Lock::lockChanged, this, &LockCurtain::follow);
    follow();
}

void LockCurtain::follow() {
    if (lock_.isLocked() && !covered_) cover();
    if (!lock_.isLocked() && covered_) uncover();
}

void LockCurtain::cover() {
    covered_ = true;
    pages_->setCurrentWidget(screen_);
    for (QAction* menu : window_.menuBar()->actions()) menu->setVisible(false);
    for (QWidget* other : QApplication::topLevelWidgets())
        if (other != &window_ && other->isVisible() && !inside(other, screen_)) putAway(other);
    screen_->passphraseField()->setFocus();
}

void LockCurtain::uncover() {
    covered_ = false;
    pages_->setCurrentWidget(content_);
    for (QAction* menu : window_.menuBar()->actions()) menu->setVisible(true);
    for (const auto& other : std::exchange(putAway_, {}))
        if (other) other->show();
}

void LockCurtain::putAway(QWidget* other) {
    // A modal dialog waits for an answer that the locked user can't give: it ends as cancelled.
    if (auto* dialog = qobject_cast<QDialog*>(other); dialog && dialog->isModal())
        return dialog->reject();
    other->hide();
    putAway_.emplace_back(other);
}

bool LockCurtain::eventFilter(QObject* watched, QEvent* event) {
    if (!covered_) return false;
    // Shortcuts of the hidden window and of other windows would reach conversations.
    if (event->type() == QEvent::Shortcut) return true;
    if (event->type() == QEvent::Show) {
        auto* widget = qobject_cast<QWidget*>(watched);
        if (widget && widget->isWindow() && widget != &window_ &&
            widget->windowType() != Qt::ToolTip && !inside(widget, screen_))
            // Hidden once its showing is done: hiding from inside it would be undone.
            QTimer::singleShot(0, this, [this, window = QPointer<QWidget>(widget)] {
                if (window && covered_) putAway(window);
            });
    }
    return false;
}

QMenu* makeLockMenu(Lock& lock, QWidget* parent) {
    auto* menu = new QMenu("Lock", parent);
    auto* lockNow = menu->addAction(lockText::command, &lock, &Lock::lockNow);
    lockNow->setObjectName("lockNow");
    auto* require = menu->addAction(lockText::toggle);
    require->setObjectName("requireUnlock");
    require->setCheckable(true);
    const auto show = [&lock, lockNow, require] {
        lockNow->setEnabled(lock.requireUnlock());
        require->setChecked(lock.requireUnlock());
        require->setEnabled(!lock.isChecking());
    };
    // The check mark follows the stored setting, not the click, until the owner has answered.
    QObject::connect(require, &QAction::triggered, parent, [&lock, parent, show] {
        show();
        toggleRequirement(lock, parent);
        show();
    });
    QObject::connect(&lock, &Lock::lockChanged, menu, show);
    QObject::connect(&lock, &Lock::statusReported, menu, show);
    show();
    return menu;
}

}  // namespace bc::app
