#pragma once

#include <optional>
#include <ostream>

namespace bc::cli {

// Runs a command-line job when the arguments ask for one and returns its exit status; returns
// nothing when the windowed application should start instead.
std::optional<int> run(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace bc::cli
