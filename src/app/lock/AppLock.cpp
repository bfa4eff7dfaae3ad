#include "app/lock/AppLock.h"

#include <utility>

namespace bc::app {

void AppLock::setRequireUnlock(bool required) {
    required_ = required;
    if (!required) unlocked();
}

void AppLock::wentToBackground() {
    backgroundSince_ = Clock::now();
}

bool AppLock::cameToForeground() {
    const auto since = std::exchange(backgroundSince_, std::nullopt);
    if (!required_ || !since || Clock::now() - *since < idleLimit) return false;
    lockNow();
    return true;
}

void AppLock::lockNow() {
    if (required_) locked_ = true;
}

void AppLock::unlocked() {
    locked_ = false;
    error_.reset();
}

void AppLock::unlockFailed(std::string error) {
    error_ = std::move(error);
}

}  // namespace bc::app
