#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "support/Errors.h"

namespace bc {

// Shared between the thread that asks for cancellation and the task that polls it.
class CancelFlag {
public:
    void cancel() {
        std::lock_guard guard(mutex_);
        cancelled_ = true;
    }
    bool isCancelled() const {
        std::lock_guard guard(mutex_);
        return cancelled_;
    }
    // Throws CancelledError once cancellation was asked for.
    void check() const {
        if (isCancelled()) throw CancelledError();
    }

private:
    mutable std::mutex mutex_;
    bool cancelled_ = false;
};

// Long work reports short phrases ending in "…" through this.
using ProgressFn = std::function<void(const std::string&)>;

}  // namespace bc
