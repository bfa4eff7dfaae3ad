#pragma once

#include <memory>

#include <QThreadPool>

namespace bc::app {

// Shares a large result whose destruction happens on a worker thread, wherever the last
// reference is dropped: freeing the rows of a 200,000-message conversation takes the main thread
// a quarter of a second, long enough to stall switching conversations.
template <class T>
std::shared_ptr<const T> freedOffMainThread(std::unique_ptr<T> value) {
    return std::shared_ptr<const T>(value.release(), [](const T* done) {
        QThreadPool::globalInstance()->start([done] { delete done; });
    });
}

}  // namespace bc::app
