#include <iostream>

#include "cli/CommandLine.h"
#include "support/DateFormat.h"

#ifdef BRINDLECOURT_HAS_APP
#include "app/shell/Application.h"
#endif

// The command line is looked at first; only when it asks for no job does the window open.
int main(int argc, char** argv) {
#ifdef __linux__
    // Linux sessions name the user's date formats in the environment, apart from the language.
    bc::dates::useTimeFormatsOfTheUser();
#endif
    if (const auto status = bc::cli::run(argc, argv, std::cout, std::cerr)) return *status;
#ifdef BRINDLECOURT_HAS_APP
    return bc::app::runApplication(argc, argv);
#else
    std::cerr << "This build has no windowed application; see --help for the command line.\n";
    return 2;
#endif
}
