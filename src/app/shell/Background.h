#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <type_traits>

#include <QObject>
#include <QThreadPool>

namespace bc::app {

// Runs work off the main thread and hands its result (or its exception) back on the owner's
// thread. Destroying it waits for running work; results still queued for an owner that is gone
// are dropped with the owner's posted events.
class Background {
public:
    explicit Background(QObject* owner, int threads = 2) : owner_(owner) {
        pool_.setMaxThreadCount(threads);
    }
    ~Background() { pool_.waitForDone(); }
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    using Failed = std::function<void(std::exception_ptr)>;

    // `work` must not touch the owner: give it copies of what it needs.
    template <class Work, class Done>
    void run(Work work, Done done, Failed failed) {
        using Result = std::invoke_result_t<Work&>;
        QObject* owner = owner_;
        pool_.start([owner, work = std::move(work), done = std::move(done),
                     failed = std::move(failed)]() mutable {
            std::shared_ptr<Result> result;
            try {
                result = std::make_shared<Result>(work());
            } catch (...) {
                QMetaObject::invokeMethod(
                    owner, [failed, error = std::current_exception()] { failed(error); },
                    Qt::QueuedConnection);
                return;
            }
            QMetaObject::invokeMethod(
                owner, [done, result] { done(std::move(*result)); }, Qt::QueuedConnection);
        });
    }

    void waitForDone() { pool_.waitForDone(); }

private:
    QObject* owner_;
    QThreadPool pool_;
};

}  // namespace bc::app
