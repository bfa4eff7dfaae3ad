#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "support/CancelFlag.h"
#include "support/Process.h"

namespace bc {
namespace {

TEST(RunProcess, PassesArgumentsUnsplitAndInputThroughAPipe) {
    const auto echo =
        runProcess({.executable = "sh",
                    .arguments = {"-c", "printf '%s|' \"$@\"; cat", "sh", "a b", "c;d"},
                    .standardInput = "from stdin"});
    EXPECT_EQ(echo.exitStatus, 0);
    EXPECT_EQ(echo.standardOutput, "a b|c;d|from stdin");
}

TEST(RunProcess, LargeInputAndOutputDoNotDeadlock) {
    const std::string big(4 << 20, 'x');
    const auto result = runProcess({.executable = "cat", .standardInput = big});
    EXPECT_EQ(result.standardOutput.size(), big.size());
}

TEST(RunProcess, ReportsExitStatusAndStandardError) {
    const auto result =
        runProcess({.executable = "sh", .arguments = {"-c", "echo oops >&2; exit 3"}});
    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_FALSE(result.succeeded());
    EXPECT_EQ(result.standardError, "oops\n");
}

TEST(RunProcess, ChildIgnoringItsInputDoesNotKillUs) {
    const auto result =
        runProcess({.executable = "true", .standardInput = std::string(1 << 20, 'x')});
    EXPECT_EQ(result.exitStatus, 0);
}

TEST(RunProcess, TimeOutKillsTheChildEvenAfterItClosesItsPipes) {
    const auto start = std::chrono::steady_clock::now();
    const auto result = runProcess({.executable = "sh",
                                    .arguments = {"-c", "exec >/dev/null 2>&1; sleep 30"},
                                    .timeoutSeconds = 0.3});
    EXPECT_TRUE(result.timedOut);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(RunProcess, CancellationAndMissingProgramsAreErrors) {
    CancelFlag cancel;
    std::thread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        cancel.cancel();
    });
    EXPECT_THROW(runProcess({.executable = "sleep", .arguments = {"30"}, .cancel = &cancel}),
                 CancelledError);
    canceller.join();
    EXPECT_THROW(runProcess({.executable = "no-such-program-here"}), Error);
    EXPECT_FALSE(findExecutable("no-such-program-here").has_value());
}

}  // namespace
}  // namespace bc
