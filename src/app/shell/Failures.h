#pragma once

#include <exception>
#include <string>

#include "support/Errors.h"

namespace bc::app {

// What a failure handed back from background work says, for the status line.
inline std::string messageOf(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& failure) {
        return failure.what();
    } catch (...) {
        return "an unknown error";
    }
}

inline bool isCancellation(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const CancelledError&) {
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace bc::app
