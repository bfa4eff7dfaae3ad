// Building the timeline of one large conversation, which happens whenever its messages change.
#include <benchmark/benchmark.h>

#include <vector>

#include "evidence/Timeline.h"
#include "support/DateFormat.h"

namespace {

// About three years of a busy conversation: a message every 7.5 minutes on average, in bursts.
std::vector<bc::Message> conversation(size_t count) {
    std::vector<bc::Message> messages(count);
    double seconds = 700'000'000;  // March 2023
    for (size_t i = 0; i < count; ++i) {
        seconds += (i % 10 == 0) ? 3600 : 100;
        messages[i].id = static_cast<int64_t>(i) + 1;
        messages[i].guid = "bench-" + std::to_string(i);
        messages[i].date = bc::Date{seconds};
    }
    return messages;
}

void buildTimeline(benchmark::State& state) {
    bc::dates::setCurrentLocale("en_US");
    bc::dates::setCurrentTimeZone("America/New_York");
    const auto messages = conversation(static_cast<size_t>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(bc::Timeline(messages));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

}  // namespace

BENCHMARK(buildTimeline)->Arg(200'000)->Unit(benchmark::kMillisecond);
