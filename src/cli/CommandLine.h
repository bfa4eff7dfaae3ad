#pragma once

#include <ostream>

namespace bc::cli {

// Runs the command line and returns the process's exit status.
int run(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace bc::cli
