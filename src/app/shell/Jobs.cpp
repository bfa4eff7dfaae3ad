#include "app/shell/Jobs.h"

namespace bc::app {

Jobs::Jobs(QObject* parent)
    : QObject(parent), background_(this, 1), cancel_(std::make_shared<CancelFlag>()) {}

Jobs::~Jobs() {
    cancel_->cancel();
    background_.waitForDone();
}

void Jobs::begin(const QString& preparing) {
    cancel_ = std::make_shared<CancelFlag>();
    running_ = true;
    progress_ = preparing;
    emit changed();
}

void Jobs::end(const QString& status) {
    running_ = false;
    progress_.clear();
    emit changed();
    emit finished(status);
}

ProgressFn Jobs::progressReporter() {
    // The work ends before this object does; phrases still queued when the job has ended, or
    // once it is being cancelled, are dropped.
    return [this, flag = cancel_](const std::string& phrase) {
        QMetaObject::invokeMethod(
            this,
            [this, flag, text = QString::fromStdString(phrase)] {
                if (!running_ || cancel_ != flag || flag->isCancelled()) return;
                progress_ = text;
                emit changed();
            },
            Qt::QueuedConnection);
    };
}

void Jobs::cancel() {
    if (!running_ || cancel_->isCancelled()) return;
    cancel_->cancel();
    progress_ = cancellingText;
    emit changed();
}

}  // namespace bc::app
