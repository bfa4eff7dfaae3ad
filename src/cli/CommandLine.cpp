#include "cli/CommandLine.h"

#include <string_view>
#include <vector>

#include "BuildInfo.h"

namespace bc::cli {

namespace {

constexpr std::string_view usage =
    "Usage: brindlecourt [--version | --help]\n"
    "\n"
    "  --version   print the program's version and build\n"
    "  --help      print this text\n";

}  // namespace

std::optional<int> run(int argc, char** argv, std::ostream& out, std::ostream& err) {
    const std::vector<std::string_view> arguments(argv + 1, argv + argc);
    if (arguments.empty()) return std::nullopt;
    for (const auto argument : arguments) {
        if (argument == "--version") {
            out << "Brindlecourt " << build::version << " (" << build::number << ")\n";
            return 0;
        }
        if (argument == "--help" || argument == "-h") {
            out << usage;
            return 0;
        }
    }
    err << "Unknown option " << arguments.front() << ".\n" << usage;
    return 2;
}

}  // namespace bc::cli
