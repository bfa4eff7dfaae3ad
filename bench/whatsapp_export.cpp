// Parsing a 1,000,000-line WhatsApp export that mixes the platforms' and regions' forms.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "sources/WhatsAppExportParser.h"

namespace {

// Day-first forms (the 13th and later settle the order), iPhone and Android lines, 12- and
// 24-hour clocks, marks, attachments, continuations and system notices.
std::string generatedExport(int lines) {
    static const char* const forms[] = {
        "[%02d/%02d/2021, %d:%02d:%02d PM] Ann: Are we still on for dinner tonight?\r\n",
        "%02d/%02d/2021, %d:%02d - Bob: Yes, see you at eight\n",
        "\u200e[%02d/%02d/21, %d:%02d:%02d\u202fa.m.] Ann: \u200e<attached: 00000001-PHOTO.jpg>\n",
        "%02d.%02d.21, %d:%02d - Carla added Bob\n",
        "[%02d/%02d/2021, %d:%02d:%02d] Bob: first line\nand a second line\n",
    };
    std::string text;
    text.reserve(static_cast<size_t>(lines) * 60);
    char line[256];
    for (int i = 0, written = 0; written < lines; ++i) {
        const char* form = forms[i % 5];
        const int day = 13 + i % 15, month = 1 + i % 12, hour = 1 + i % 11, minute = i % 60;
        std::snprintf(line, sizeof line, form, day, month, hour, minute, i % 60);
        text += line;
        written += i % 5 == 4 ? 2 : 1;
    }
    return text;
}

void parseMillionLines(benchmark::State& state) {
    const std::string text = generatedExport(1'000'000);
    size_t messages = 0;
    for (auto _ : state) {
        const auto result = bc::WhatsAppExportParser::parse(
            text,
            {.mediaFolder = "/tmp/media", .guidPrefix = "wa-export:bench:", .timeZone = "UTC"});
        messages = result.messages.size();
        benchmark::DoNotOptimize(result);
    }
    state.counters["messages"] = static_cast<double>(messages);
    state.counters["lines/s"] = benchmark::Counter(
        1'000'000.0 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(parseMillionLines)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
