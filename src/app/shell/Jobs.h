#pragma once

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <type_traits>

#include <QObject>
#include <QString>

#include "app/shell/Background.h"
#include "support/CancelFlag.h"

namespace bc::app {

// Exports and snapshots: one at a time, each on a background thread with its own cancel flag,
// its progress phrases shown while it runs and one final line when it ends.
class Jobs : public QObject {
    Q_OBJECT
public:
    static constexpr const char* cancellingText = "Cancelling…";
    static constexpr const char* busyText =
        "Another export or snapshot is running; wait for it to finish or cancel it.";

    explicit Jobs(QObject* parent = nullptr);
    ~Jobs() override;

    // Safe from any thread: background rounds that must not compete with a job ask this.
    bool isRunning() const { return running_; }
    QString progressText() const { return progress_; }

    // Starts `work(cancel, progress)` unless a job is running (then returns false and starts
    // nothing). On the main thread afterwards, `done(result)` or `failed(error)` gives the
    // final line, announced by `finished`.
    template <class Work, class Done>
    bool start(const QString& preparing, Work work, Done done,
               std::function<QString(std::exception_ptr)> failed) {
        if (running_) return false;
        begin(preparing);
        auto cancel = cancel_;
        ProgressFn progress = progressReporter();
        background_.run(
            [work = std::move(work), cancel, progress]() mutable {
                return work(static_cast<const CancelFlag&>(*cancel), progress);
            },
            [this, done = std::move(done)](auto result) { end(done(std::move(result))); },
            [this, failed = std::move(failed)](std::exception_ptr error) { end(failed(error)); });
        return true;
    }

    // Asks the running job to stop; it ends with its own cancellation line.
    void cancel();
    // Waits for a running job's work (not its main-thread ending): for tests and shutdown.
    void waitForWork() { background_.waitForDone(); }

signals:
    // Progress text or running state changed.
    void changed();
    void finished(const QString& status);

private:
    void begin(const QString& preparing);
    void end(const QString& status);
    ProgressFn progressReporter();

    Background background_;
    std::atomic<bool> running_ = false;
    QString progress_;
    std::shared_ptr<CancelFlag> cancel_;
};

}  // namespace bc::app
