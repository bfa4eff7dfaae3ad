// Sealing a WhatsApp chat export .zip with many media files (unpack, SHA-256 of every file,
// manifest, lock), against `unzip` followed by `sha256sum` over the same files, both timed in
// one run. BC_BENCH_IMPORT_FILES and BC_BENCH_IMPORT_KIB set the number and size of the media
// files (default 1,000 × 200 KiB).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>

#include "counsel/ZipWriter.h"
#include "custody/CustodyLog.h"
#include "custody/Imports.h"
#include "custody/Preservation.h"
#include "support/Files.h"
#include "support/Process.h"

namespace {

namespace fs = std::filesystem;

int setting(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value ? std::atoi(value) : fallback;
}

// "_chat.txt" naming `count` photos, each of its own random bytes, which no compression shrinks
// (nor does it much shrink a phone's JPEGs).
fs::path writeExport(const fs::path& folder, int count, size_t bytes) {
    const fs::path zip = folder / "WhatsApp Chat - Bench.zip";
    std::mt19937_64 random(42);
    bc::ZipWriter writer(zip, {});
    std::string chat;
    for (int number = 0; number < count; ++number) {
        const std::string name = "IMG-" + std::to_string(number) + ".jpg";
        chat += "[13/04/2021, 10:00:00] Ann: \u200e<attached: " + name + ">\n";
        std::string content(bytes, '\0');
        for (size_t i = 0; i + 8 <= content.size(); i += 8) {
            const uint64_t word = random();
            std::memcpy(content.data() + i, &word, 8);
        }
        writer.addBytes(name, std::move(content));
    }
    writer.addBytes("_chat.txt", chat);
    writer.close();
    return zip;
}

double seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

void importVersusUnzipAndHash(benchmark::State& state) {
    const fs::path folder = fs::temp_directory_path() / "bc-bench-import";
    bc::files::removeAll(folder);
    fs::create_directories(folder);
    const int count = setting("BC_BENCH_IMPORT_FILES", 1000);
    const auto bytes = static_cast<size_t>(setting("BC_BENCH_IMPORT_KIB", 200)) * 1024;
    const fs::path zip = writeExport(folder, count, bytes);
    bc::Imports::setOverrideRoot(folder / "Imports");
    bc::CustodyLog::setOverrideURL(folder / "custody-log.jsonl");

    // Nothing is removed until the end, as in the snapshot benchmark: deleting as many files
    // just before would weigh on whichever ran next.
    double importTotal = 0, baselineTotal = 0;
    int round = 0;
    for (auto _ : state) {
        bc::Clock::setFixed(bc::Date{1e9 + 3600.0 * ++round});
        auto start = std::chrono::steady_clock::now();
        const auto imported = bc::Imports::importFile(zip);
        const double sealing = seconds(start);
        if (imported.info.files.size() < static_cast<size_t>(count))
            state.SkipWithError("not every file was sealed");

        start = std::chrono::steady_clock::now();
        const auto baseline = bc::runProcess(
            {.executable = "sh",
             .arguments = {"-c",
                           "unzip -q \"$0\" -d \"$1\" && find \"$1\" -type f -exec sha256sum {} + "
                           "> /dev/null",
                           zip.string(), (folder / ("unzipped-" + std::to_string(round))).string()},
             .timeoutSeconds = 600});
        const double unzipAndHash = seconds(start);
        if (!baseline.succeeded()) state.SkipWithError(baseline.standardError.c_str());

        state.SetIterationTime(sealing);
        importTotal += sealing;
        baselineTotal += unzipAndHash;
    }
    bc::Clock::setFixed(std::nullopt);
    for (const auto& info : bc::Imports::list()) bc::Imports::unlock(info);
    state.counters["import_s"] = importTotal / static_cast<double>(state.iterations());
    state.counters["unzip_sha256sum_s"] = baselineTotal / static_cast<double>(state.iterations());
    state.counters["ratio"] = importTotal / baselineTotal;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * count *
                            static_cast<int64_t>(bytes));
    bc::Imports::setOverrideRoot(std::nullopt);
    bc::CustodyLog::setOverrideURL(std::nullopt);
    bc::files::removeAll(folder);
}

}  // namespace

BENCHMARK(importVersusUnzipAndHash)->UseManualTime()->Iterations(3)->Unit(benchmark::kSecond);
