// Page exports: a 10,000-message text conversation as one PDF, and page images at 144 dpi.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>
#include <vector>

#include "export/PageExporter.h"
#include "support/DateFormat.h"

namespace {

namespace fs = std::filesystem;

// Deterministic chat-like text: 3 to 60 words, now and then two paragraphs.
std::vector<bc::Message> textConversation(int count) {
    static const char* words[] = {"meet",  "tomorrow", "at",      "the",  "office", "I",
                                  "think", "we",       "should",  "call", "them",   "about",
                                  "the",   "contract", "payment", "was",  "late",   "again",
                                  "okay",  "thanks",   "see",     "you",  "later",  "please"};
    std::vector<bc::Message> messages;
    unsigned seed = 12345;
    const auto next = [&] { return seed = seed * 1103515245u + 12345u, (seed >> 16) & 0x7FFF; };
    for (int i = 0; i < count; ++i) {
        bc::Message message;
        message.id = 100000 + i;
        message.guid = "bench-" + std::to_string(i);
        message.date = bc::Date::fromUnix(1700000000.0 + i * 97.0);
        message.isFromMe = next() % 2 == 0;
        message.sender = message.isFromMe ? "" : "+15551234567";
        const unsigned length = 3 + next() % 58;
        for (unsigned w = 0; w < length; ++w) {
            if (w > 0) message.text += next() % 40 == 0 ? "\n" : " ";
            message.text += words[next() % std::size(words)];
        }
        messages.push_back(std::move(message));
    }
    return messages;
}

std::unique_ptr<bc::PageExporter> exporter(int count, const bc::CancelFlag& cancel) {
    return std::make_unique<bc::PageExporter>(
        textConversation(count), std::unordered_map<std::string, bc::Message>{},
        bc::PageExporter::Header{"Benchmark", {"Dana"}, "Entire conversation"},
        bc::PageExporter::Paper::letter,
        [](const std::string& handle, bool isFromMe) { return isFromMe ? "Me" : handle; }, cancel,
        bc::PageExporter::Options{}, bc::Date::fromUnix(1700000000), "the benchmark");
}

void pdfOfTenThousandMessages(benchmark::State& state) {
    bc::dates::setCurrentTimeZone("America/New_York");
    bc::CancelFlag cancel;
    const auto pages = exporter(10'000, cancel);
    const auto file = fs::temp_directory_path() / "bc-bench-pages.pdf";
    int64_t drawn = 0;
    for (auto _ : state) drawn += pages->writePDF(file).pages;
    state.counters["pages"] = static_cast<double>(drawn) / static_cast<double>(state.iterations());
    state.counters["pages_per_second"] =
        benchmark::Counter(static_cast<double>(drawn), benchmark::Counter::kIsRate);
    fs::remove(file);
}

void jpegPagesAt144Dpi(benchmark::State& state) {
    bc::dates::setCurrentTimeZone("America/New_York");
    bc::CancelFlag cancel;
    const auto pages = exporter(400, cancel);
    const auto folder = fs::temp_directory_path() / "bc-bench-pages";
    fs::remove_all(folder);
    int64_t drawn = 0;
    for (auto _ : state) {
        drawn += pages->writeJPEGs(folder, 144).pages;
        state.PauseTiming();
        fs::remove_all(folder);
        state.ResumeTiming();
    }
    state.counters["pages_per_second"] =
        benchmark::Counter(static_cast<double>(drawn), benchmark::Counter::kIsRate);
    fs::remove_all(folder);
}

}  // namespace

BENCHMARK(pdfOfTenThousandMessages)->Unit(benchmark::kSecond)->Iterations(2)->UseRealTime();
BENCHMARK(jpegPagesAt144Dpi)->Unit(benchmark::kSecond)->Iterations(2)->UseRealTime();
