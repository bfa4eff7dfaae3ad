#pragma once

#include <filesystem>

namespace bc {

// Demo mode: every store moved into the demo folder, the sample call log written there and the
// sample Messages database made the one calls belong to. Returns the sample database's path.
std::filesystem::path redirectStoresToDemo();

}  // namespace bc
