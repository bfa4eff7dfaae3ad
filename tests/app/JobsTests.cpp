#include <atomic>
#include <thread>

#include "AppFixture.h"

namespace bc::app::testing {
namespace {

// Work that reports one phrase, then waits to be let go or cancelled.
struct HeldWork {
    std::shared_ptr<std::atomic<bool>> release = std::make_shared<std::atomic<bool>>(false);

    auto operator()() const {
        return [release = release](const CancelFlag& cancel, const ProgressFn& progress) {
            progress("Halfway…");
            while (!*release) {
                cancel.check();
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
            return 7;
        };
    }
};

QString endedWith(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const CancelledError&) {
        return "Stopped. Nothing was kept.";
    } catch (const std::exception& failure) {
        return QString("Failed: ") + failure.what();
    }
}

TEST(Jobs, RunOneAtATimeAndShowProgressThenTheFinalLineInTheStatus) {
    application();
    AppModel model;
    HeldWork held;
    ASSERT_TRUE(model.jobs().start(
        "Preparing…", held(), [](int result) { return QString("Done: %1.").arg(result); },
        endedWith));
    EXPECT_TRUE(model.isBusy());
    EXPECT_EQ(model.statusText(), "Preparing…");
    EXPECT_FALSE(model.jobs().start(
        "Another…", [](const CancelFlag&, const ProgressFn&) { return 1; },
        [](int) { return QString("second"); }, endedWith));
    ASSERT_TRUE(waitFor([&] { return model.statusText() == "Halfway…"; }));

    *held.release = true;
    ASSERT_TRUE(waitFor([&] { return !model.jobs().isRunning(); }));
    EXPECT_FALSE(model.isBusy());
    EXPECT_EQ(model.statusText(), "Done: 7.");
}

TEST(Jobs, CancelShowsCancellingThenTheJobsOwnLineAndAFailureEndsTheJob) {
    application();
    AppModel model;
    HeldWork held;
    QStringList finished;
    QObject::connect(&model.jobs(), &Jobs::finished,
                     [&](const QString& line) { finished << line; });
    ASSERT_TRUE(model.jobs().start(
        "Preparing…", held(), [](int) { return QString("done"); }, endedWith));
    ASSERT_TRUE(waitFor([&] { return model.statusText() == "Halfway…"; }));
    model.cancel();
    EXPECT_EQ(model.statusText(), Jobs::cancellingText);
    ASSERT_TRUE(waitFor([&] { return !model.jobs().isRunning(); }));
    EXPECT_EQ(model.statusText(), "Stopped. Nothing was kept.");

    ASSERT_TRUE(model.jobs().start(
        "Preparing…",
        [](const CancelFlag&, const ProgressFn&) -> int { throw Error("the disk is full"); },
        [](int) { return QString("done"); }, endedWith));
    ASSERT_TRUE(waitFor([&] { return !model.jobs().isRunning(); }));
    EXPECT_EQ(finished, (QStringList{"Stopped. Nothing was kept.", "Failed: the disk is full"}));
}

}  // namespace
}  // namespace bc::app::testing
