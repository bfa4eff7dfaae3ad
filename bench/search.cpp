// Search over the large generated database: the first search's index build against the reader
// reading every transcript itself, the index's memory against its folded text, and later searches
// of the same source (the matching alone, and with the hits read back as messages).
//
// BC_BENCH_MESSAGES sets the size, as for bench_transcript, whose cached database this shares.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>

#include "demo/LargeSample.h"
#include "evidence/Search.h"
#include "sources/MessageDatabase.h"

namespace {

int64_t configuredMessages() {
    const char* value = std::getenv("BC_BENCH_MESSAGES");
    return value ? std::max<int64_t>(std::atoll(value), 1000) : 1'000'000;
}

const bc::demo::LargeSample sample{configuredMessages()};
bc::CancelFlag cancel;

bc::MessageDatabase& database() {
    static bc::MessageDatabase db(sample.cachedFile());
    return db;
}

const bc::SearchIndex& index() {
    static const bc::SearchIndex built = bc::SearchIndex::build(database(), cancel, {});
    return built;
}

void readerEveryTranscript(benchmark::State& state) {
    for (auto _ : state) {
        size_t messages = 0;
        for (const auto& chat : database().fetchChats())
            messages += database().fetchMessages(chat.id).size();
        benchmark::DoNotOptimize(messages);
    }
}

void indexBuild(benchmark::State& state) {
    for (auto _ : state) {
        const auto built = bc::SearchIndex::build(database(), cancel, {});
        state.counters["messages"] = double(built.messageCount());
        state.counters["foldedMiB"] = double(built.foldedTextBytes()) / (1 << 20);
        state.counters["indexMiB"] = double(built.memoryBytes()) / (1 << 20);
        state.counters["memoryOverFolded"] =
            double(built.memoryBytes()) / double(built.foldedTextBytes());
    }
}

// The matching alone: what the result count and the list's first paint wait for.
void laterSearchMatching(benchmark::State& state, const char* text) {
    const bc::SearchQuery query{.text = text};
    const auto needle = bc::foldForSearch(query.trimmedText());
    index();
    for (auto _ : state) {
        const auto places = index().find(query, {}, needle);
        state.counters["hits"] = double(places.size());
    }
}

// Matching and the hits read back from the source as whole messages.
void laterSearchWithMessages(benchmark::State& state, const char* text) {
    const bc::SearchQuery query{.text = text};
    index();
    for (auto _ : state) {
        const auto outcome = bc::runSearch(database(), index(), query, {}, {}, cancel);
        state.counters["hits"] = double(outcome.messages.size());
    }
}

}  // namespace

BENCHMARK(readerEveryTranscript)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(indexBuild)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(laterSearchMatching, rareAttachmentName, "img_1234.")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(laterSearchMatching, commonPhrase, "deposit is due")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(laterSearchMatching, commonWord, "rent")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(laterSearchWithMessages, rareAttachmentName, "img_1234.")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK_CAPTURE(laterSearchWithMessages, commonPhrase, "deposit is due")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);
