#include <gtest/gtest.h>

#include <sstream>

#include "cli/CommandLine.h"

namespace bc {
namespace {

int runWith(std::vector<std::string> arguments, std::string& out, std::string& err) {
    arguments.insert(arguments.begin(), "brindlecourt");
    std::vector<char*> argv;
    for (auto& a : arguments) argv.push_back(a.data());
    std::ostringstream o, e;
    const auto status = cli::run(static_cast<int>(argv.size()), argv.data(), o, e);
    out = o.str();
    err = e.str();
    return status.value_or(-1);
}

TEST(CommandLine, VersionUsageAndUnknownOptions) {
    std::string out, err;
    EXPECT_EQ(runWith({"--version"}, out, err), 0);
    EXPECT_EQ(out, "Brindlecourt dev (0)\n");
    EXPECT_EQ(runWith({}, out, err), -1);  // no job: the window opens
    EXPECT_EQ(runWith({"--help"}, out, err), 0);
    EXPECT_TRUE(out.starts_with("Usage: brindlecourt"));
    EXPECT_EQ(runWith({"--frobnicate"}, out, err), 2);
    EXPECT_TRUE(err.starts_with("Unknown option --frobnicate."));
}

}  // namespace
}  // namespace bc
