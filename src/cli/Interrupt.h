#pragma once

#include <memory>

#include "support/CancelFlag.h"

namespace bc::cli {

// From now on, Ctrl-C or a termination request cancels the returned flag, so the running job
// removes what it wrote before the process ends; a second request ends the process at once.
std::shared_ptr<CancelFlag> cancelOnInterrupt();

}  // namespace bc::cli
