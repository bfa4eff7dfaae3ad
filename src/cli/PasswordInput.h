#pragma once

#include <istream>
#include <ostream>
#include <string>

namespace bc::cli {

// One line from `in` after the prompt on `err`, not echoed when `in` is a terminal.
std::string askHidden(std::istream& in, std::ostream& err, const char* prompt);

}  // namespace bc::cli
