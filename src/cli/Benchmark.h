#pragma once

#include <ostream>

#include "cli/Arguments.h"

namespace bc::cli {

// Times each reading phase on one database: the live one, "--database PATH", the demo sample, or
// with "--generate N" a generated database of N messages (cached in the temporary folder).
class Benchmark {
public:
    Benchmark(Arguments arguments, std::ostream& out, std::ostream& err)
        : arguments_(std::move(arguments)), out_(out), err_(err) {}

    int run();

private:
    Arguments arguments_;
    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace bc::cli
