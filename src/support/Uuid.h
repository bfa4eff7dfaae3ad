#pragma once

#include <string>

namespace bc {

// A fresh random (version 4) UUID in upper-case hyphenated form.
std::string newUUID();

}  // namespace bc
