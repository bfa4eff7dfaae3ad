// An encrypted bundle for counsel of a folder of exports, against `7zz a -tzip -mem=AES256 -mx=1`
// over the same folder, both timed in each round. BC_BENCH_BUNDLE_MIB sets the total size
// (default 2,048 MiB, in files of 2 MiB: three in four random like photos and PDFs, one in four
// repeated text like pages and manifests).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>

#include "counsel/CounselBundle.h"
#include "custody/CustodyLog.h"
#include "support/Files.h"
#include "support/Process.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t fileBytes = 2 << 20;
constexpr const char* password = "benchmark-password";

int setting(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value ? std::atoi(value) : fallback;
}

fs::path writeExports(const fs::path& folder, int files) {
    const fs::path exports = folder / "Exports";
    std::mt19937_64 random(42);
    std::string content(fileBytes, '\0');
    const std::string line = "2024-03-05 14:07:09  Alex Doe: see you at the flat at six\n";
    for (int number = 0; number < files; ++number) {
        if (number % 4 == 3) {
            for (size_t i = 0; i < content.size(); ++i) content[i] = line[i % line.size()];
        } else {
            for (size_t i = 0; i + 8 <= content.size(); i += 8) {
                const uint64_t word = random();
                std::memcpy(content.data() + i, &word, 8);
            }
        }
        const fs::path file = exports / ("Export " + std::to_string(number % 8)) /
                              ("file-" + std::to_string(number) + ".bin");
        fs::create_directories(file.parent_path());
        bc::files::writeFileAtomically(file, content);
    }
    return exports;
}

double seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

void bundleVersusSevenZip(benchmark::State& state) {
    const auto sevenZip = bc::findExecutable("7zz");
    if (!sevenZip) {
        state.SkipWithError("7zz (package 7zip) is not installed");
        return;
    }
    const fs::path folder = fs::temp_directory_path() / "bc-bench-bundle";
    bc::files::removeAll(folder);
    const int files = setting("BC_BENCH_BUNDLE_MIB", 2048) / 2;
    const fs::path exports = writeExports(folder, files);
    std::vector<fs::path> items;
    for (const auto& entry : fs::directory_iterator(exports)) items.push_back(entry.path());
    bc::CustodyLog::setOverrideURL(folder / "custody-log.jsonl");

    double bundleTotal = 0, sevenZipTotal = 0;
    int round = 0;
    for (auto _ : state) {
        const std::string name = "round-" + std::to_string(++round) + ".zip";
        auto start = std::chrono::steady_clock::now();
        bc::CounselBundle::create(items, "Benchmark", password, folder / ("bundle-" + name), {},
                                  {});
        const double bundle = seconds(start);

        start = std::chrono::steady_clock::now();
        const auto reference = bc::runProcess(
            {.executable = *sevenZip,
             .arguments = {"a", "-tzip", "-mem=AES256", "-mx=1", std::string("-p") + password,
                           (folder / ("7z-" + name)).string(), exports.string()},
             .timeoutSeconds = 3600});
        const double sevenZipSeconds = seconds(start);
        if (!reference.succeeded()) state.SkipWithError(reference.standardError.c_str());

        state.SetIterationTime(bundle);
        bundleTotal += bundle;
        sevenZipTotal += sevenZipSeconds;
        fs::remove(folder / ("bundle-" + name));
        fs::remove(folder / ("7z-" + name));
    }
    state.counters["bundle_s"] = bundleTotal / static_cast<double>(state.iterations());
    state.counters["7zz_s"] = sevenZipTotal / static_cast<double>(state.iterations());
    state.counters["ratio"] = bundleTotal / sevenZipTotal;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * files *
                            static_cast<int64_t>(fileBytes));
    bc::CustodyLog::setOverrideURL(std::nullopt);
    bc::files::removeAll(folder);
}

}  // namespace

BENCHMARK(bundleVersusSevenZip)->UseManualTime()->Iterations(2)->Unit(benchmark::kSecond);
