// How soon the window is usable on a large database: from opening the source to the conversation
// list, from choosing the longest conversation to its first paint and to its whole transcript,
// and the main thread's cost of one page of scrolling. Reads the database bench_transcript
// generates (BC_BENCH_DATABASE names another), on the offscreen platform.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include <benchmark/benchmark.h>
#include <QApplication>
#include <QListView>
#include <QScrollBar>

#include "app/shell/AppModel.h"
#include "app/shell/MainWindow.h"

namespace {

namespace fs = std::filesystem;
using bc::app::AppModel;

fs::path databaseFile() {
    if (const char* named = std::getenv("BC_BENCH_DATABASE")) return named;
    return fs::temp_directory_path() / "bc-bench-messages-1000000.db";
}

QApplication& application() {
    static int argc = 1;
    static char name[] = "bench_app_open";
    static char* argv[] = {name, nullptr};
    static QApplication* made = [] {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        return new QApplication(argc, argv);
    }();
    return *made;
}

template <class Done>
void runUntil(Done done) {
    // Sleeps until the next event: a busy loop would take a core from the work measured.
    while (!done()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

size_t longestConversation(const AppModel& model) {
    const auto& list = model.conversations();
    return static_cast<size_t>(std::max_element(list.begin(), list.end(),
                                                [](const auto& a, const auto& b) {
                                                    return a.messageCount < b.messageCount;
                                                }) -
                               list.begin());
}

bool skipWithoutDatabase(benchmark::State& state) {
    if (fs::exists(databaseFile())) return false;
    state.SkipWithError("No generated database: run bench_transcript once first.");
    return true;
}

// Opens the generated database and waits for its conversation list.
void openGenerated(AppModel& model) {
    model.openSource(databaseFile(), AppModel::SourceKind::file);
    runUntil([&] { return model.state() != AppModel::State::loading; });
}

// What follows the list by itself (the newest conversation, the change signature) is done.
void waitUntilIdle(const AppModel& model) {
    runUntil([&] { return !model.isBusy() && !model.isCheckingForChanges(); });
}

// The generated database open in a shown window, with what follows by itself done.
struct OpenWindow {
    AppModel model;
    bc::app::MainWindow window{model};

    OpenWindow() {
        openGenerated(model);
        window.show();
        waitUntilIdle(model);
    }
};

void conversationList(benchmark::State& state) {
    if (skipWithoutDatabase(state)) return;
    application();
    for (auto _ : state) {
        auto model = std::make_unique<AppModel>();
        openGenerated(*model);
        state.counters["conversations"] = static_cast<double>(model->conversations().size());
        // Closing waits for the change signature, read after the list is shown: not part of it.
        state.PauseTiming();
        model.reset();
        state.ResumeTiming();
    }
}

// Choosing the longest conversation until the view paints its first rows (the newest ones,
// while the whole is still being read) or, with `whole`, until the whole conversation is shown.
void longestConversationShown(benchmark::State& state, bool whole) {
    if (skipWithoutDatabase(state)) return;
    application();
    OpenWindow open;
    auto& [model, window] = open;
    const auto longest = longestConversation(model);
    for (auto _ : state) {
        model.selectConversation(std::nullopt);
        model.selectConversation(longest);
        runUntil([&] { return whole ? !model.isBusy() : !model.shownTranscript()->rows.empty(); });
        window.transcriptView()->viewport()->repaint();
        state.counters["rows"] = static_cast<double>(model.shownTranscript()->rows.size());
        state.PauseTiming();
        waitUntilIdle(model);
        state.ResumeTiming();
    }
}

// Main-thread time of one page down, painting included, while the view may still be measuring
// rows in its batches.
void scrollOnePage(benchmark::State& state) {
    if (skipWithoutDatabase(state)) return;
    application();
    OpenWindow open;
    auto& [model, window] = open;
    model.selectConversation(longestConversation(model));
    runUntil([&] { return !model.isBusy(); });
    auto* bar = window.transcriptView()->verticalScrollBar();
    bar->setValue(0);
    for (auto _ : state) {
        bar->setValue(bar->value() + bar->pageStep());
        window.transcriptView()->viewport()->repaint();
        QCoreApplication::processEvents();
        if (bar->value() >= bar->maximum()) bar->setValue(0);
    }
}

}  // namespace

BENCHMARK(conversationList)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK_CAPTURE(longestConversationShown, firstPaint, false)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->UseRealTime();
BENCHMARK_CAPTURE(longestConversationShown, whole, true)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->UseRealTime();
BENCHMARK(scrollOnePage)->Unit(benchmark::kMillisecond)->Iterations(300)->UseRealTime();
