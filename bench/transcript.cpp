// Reading speed of the Messages reader on a large generated database, side by side with the
// sqlite3 tool running the very statements the reader ran, and memory per message held.
//
// BC_BENCH_MESSAGES sets the size (default 1,000,000 messages in 2,000 conversations, one of
// them a fifth of all messages). The database is generated once into the temporary folder and
// reused by later runs.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/resource.h>

#ifdef __APPLE__
#include <mach-o/dyld.h>
#endif

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>

#include "StatementTrace.h"
#include "demo/DemoData.h"
#include "demo/LargeSample.h"
#include "sources/MessageDatabase.h"
#include "support/Files.h"
#include "support/Process.h"
#include "support/Sqlite.h"

namespace {

namespace fs = std::filesystem;
using bc::sqlite::Statement;

int64_t configuredMessages() {
    const char* value = std::getenv("BC_BENCH_MESSAGES");
    return value ? std::max<int64_t>(std::atoll(value), 1000) : 1'000'000;
}

const int64_t totalMessages = configuredMessages();
const bc::demo::LargeSample sample{totalMessages};
const int64_t chatCount = sample.chatCount();
const int64_t largestChat = bc::demo::LargeSample::largestChat;

const fs::path& databaseFile() {
    static const fs::path file = sample.cachedFile();
    return file;
}

using bench::statementsOf;

std::vector<int64_t> allChatIDs() {
    std::vector<int64_t> ids;
    for (int64_t id = 1; id <= chatCount; ++id) ids.push_back(id);
    return ids;
}

void readChats(bc::MessageDatabase& db) {
    benchmark::DoNotOptimize(db.fetchChats());
}
void readLargest(bc::MessageDatabase& db) {
    benchmark::DoNotOptimize(db.fetchTranscript({largestChat}));
}
void readEvery(bc::MessageDatabase& db) {
    for (const int64_t id : allChatIDs()) benchmark::DoNotOptimize(db.fetchTranscript({id}));
}

void reportRate(benchmark::State& state, int64_t messages) {
    state.counters["messages/s"] = benchmark::Counter(
        static_cast<double>(messages), benchmark::Counter::kIsIterationInvariantRate);
}

using Read = void (*)(bc::MessageDatabase&);

void reader(benchmark::State& state, Read read, int64_t messages) {
    bc::MessageDatabase db(databaseFile());
    read(db);  // warm the page cache and the schema probes
    for (auto _ : state) read(db);
    reportRate(state, messages);
}

// The sqlite3 tool running the statements the reader ran, output discarded.
void sqliteTool(benchmark::State& state, Read read, int64_t messages) {
    const auto tool = bc::findExecutable("sqlite3");
    if (!tool) {
        state.SkipWithError("sqlite3 is not installed");
        return;
    }
    bc::MessageDatabase db(databaseFile());
    read(db);
    std::string script = ".output /dev/null\n";
    for (const auto& sql : statementsOf([&] { read(db); })) script += sql + ";\n";
    for (auto _ : state) {
        const auto result = bc::runProcess({.executable = *tool,
                                            .arguments = {"-readonly", databaseFile().string()},
                                            .standardInput = script,
                                            .timeoutSeconds = 3600});
        if (!result.succeeded()) state.SkipWithError(result.standardError.c_str());
    }
    reportRate(state, messages);
}

// This process's own peak resident size. Linux's getrusage also counts the parent's size at the
// fork that started it, so there the memory map's high-water mark is read instead.
double peakResidentBytes() {
#ifdef __APPLE__
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss);
#else
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:")) return std::atof(line.c_str() + 6) * 1024.0;
    return 0;
#endif
}

constexpr const char* memoryChildVariable = "BC_BENCH_MEMORY_CHILD";

// In the child started below: read and hold the largest transcript, print the peak growth per
// message and exit before the benchmarks run. A fresh program, so no earlier peak hides it.
[[maybe_unused]] const bool memoryChild = [] {
    if (!std::getenv(memoryChildVariable)) return false;
    bc::MessageDatabase db(databaseFile());
    const double before = peakResidentBytes();
    const auto transcript = db.fetchTranscript({largestChat});
    std::cout << (peakResidentBytes() - before) / static_cast<double>(transcript.messages.size())
              << std::endl;
    std::exit(0);
}();

std::string thisProgram() {
#ifdef __APPLE__
    char path[4096];
    uint32_t size = sizeof path;
    return _NSGetExecutablePath(path, &size) == 0 ? path : "";
#else
    return fs::read_symlink("/proc/self/exe").string();
#endif
}

void memoryPerMessage(benchmark::State& state) {
    databaseFile();
    double bytesPerMessage = 0;
    for (auto _ : state) {
        ::setenv(memoryChildVariable, "1", 1);
        const auto result = bc::runProcess({.executable = thisProgram(), .timeoutSeconds = 600});
        ::unsetenv(memoryChildVariable);
        if (!result.succeeded()) state.SkipWithError(result.standardError.c_str());
        bytesPerMessage = std::atof(result.standardOutput.c_str());
    }
    state.counters["peak bytes/message"] = bytesPerMessage;
    state.counters["sizeof(Message)"] = sizeof(bc::Message);
}

}  // namespace

BENCHMARK_CAPTURE(reader, fetchChats, readChats, totalMessages)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(sqliteTool, fetchChats, readChats, totalMessages)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(reader, largestTranscript, readLargest, totalMessages / 5)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(sqliteTool, largestTranscript, readLargest, totalMessages / 5)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(reader, everyTranscript, readEvery, totalMessages)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(2);
BENCHMARK_CAPTURE(sqliteTool, everyTranscript, readEvery, totalMessages)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(2);
BENCHMARK(memoryPerMessage)->Unit(benchmark::kMillisecond)->Iterations(1);
