#include <gtest/gtest.h>

#include <sstream>

#include "cli/CommandLine.h"
#include "custody/CustodySystemInfo.h"
#include "testing/Testing.h"

namespace bc {
namespace {

struct Outcome {
    std::optional<int> status;
    std::string out, err;
};

Outcome enter(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "brindlecourt");
    std::vector<char*> argv;
    for (auto& a : arguments) argv.push_back(a.data());
    std::ostringstream out, err;
    const auto status = cli::run(static_cast<int>(argv.size()), argv.data(), out, err);
    return {status, out.str(), err.str()};
}

TEST(Entry, OnlyAJobKeepsTheWindowClosed) {
    EXPECT_FALSE(enter({}).status.has_value());
    EXPECT_FALSE(enter({"--demo"}).status.has_value());
    const auto snapshotAlone = enter({"--snapshot"});
    EXPECT_FALSE(snapshotAlone.status.has_value());
    EXPECT_NE(snapshotAlone.err.find("only together with --export-html"), std::string::npos);
    EXPECT_EQ(enter({"--version"}).out, "Brindlecourt " + custodySystemInfo::appVersion() + "\n");
    EXPECT_EQ(enter({"--frobnicate"}).status, 2);
}

TEST(Entry, AFileGivenAloneOpensInTheWindowAndAnythingElseStaysAnError) {
    testing::TempDir folder;
    const auto database = folder / "chat.db";
    testing::writeText(database, "");
    EXPECT_FALSE(enter({database.string()}).status.has_value());
    EXPECT_FALSE(enter({"--demo", database.string()}).status.has_value());
    EXPECT_EQ(enter({(folder / "missing.db").string()}).status, 2);
    EXPECT_EQ(enter({folder.path().string()}).status, 2);
    EXPECT_EQ(enter({database.string(), database.string()}).status, 2);
    EXPECT_EQ(enter({"--snapshot", database.string()}).status, 2);
}

}  // namespace
}  // namespace bc
