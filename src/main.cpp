#include <iostream>

#include "cli/CommandLine.h"

#ifdef BRINDLECOURT_HAS_APP
#include "app/Application.h"
#endif

// The command line is looked at first; only when it asks for no job does the window open.
int main(int argc, char** argv) {
    if (const auto status = bc::cli::run(argc, argv, std::cout, std::cerr)) return *status;
#ifdef BRINDLECOURT_HAS_APP
    return bc::app::runApplication(argc, argv);
#else
    std::cerr << "This build has no windowed application; see --help for the command line.\n";
    return 2;
#endif
}
