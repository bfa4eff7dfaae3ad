// Throughput of the streamed file hash that every export and snapshot runs over every file.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/Sha256.h"

namespace {

void hashFile(benchmark::State& state) {
    const auto bytes = static_cast<size_t>(state.range(0));
    const auto file = std::filesystem::temp_directory_path() / "bc-bench-sha256.bin";
    {
        std::ofstream out(file, std::ios::binary);
        const std::string block(1 << 20, '\x5a');
        for (size_t written = 0; written < bytes; written += block.size()) out << block;
    }
    for (auto _ : state) benchmark::DoNotOptimize(bc::Sha256::hexOfFile(file));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
    std::filesystem::remove(file);
}

}  // namespace

BENCHMARK(hashFile)->Arg(64 << 20)->Unit(benchmark::kMillisecond);
