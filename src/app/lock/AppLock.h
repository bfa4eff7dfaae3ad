#pragma once

#include <optional>
#include <string>

#include "support/Date.h"

namespace bc::app {

// When Brindlecourt hides its conversations behind the lock screen. It only decides; the owner
// check and the screen belong to the application. Time is Clock's, which tests set.
class AppLock {
public:
    // Seconds in the background after which coming back asks for the owner.
    static constexpr double idleLimit = 300;

    // With the lock required, the application starts locked.
    explicit AppLock(bool requireUnlock) : required_(requireUnlock), locked_(requireUnlock) {}

    bool requireUnlock() const { return required_; }
    void setRequireUnlock(bool required);
    bool isLocked() const { return locked_; }
    const std::optional<std::string>& lockError() const { return error_; }

    void wentToBackground();
    // True when it locked.
    bool cameToForeground();
    // The screen locked, the machine goes to sleep, or the user asked.
    void lockNow();
    void unlocked();
    void unlockFailed(std::string error);

private:
    bool required_;
    bool locked_;
    std::optional<std::string> error_;
    std::optional<Date> backgroundSince_;
};

}  // namespace bc::app
