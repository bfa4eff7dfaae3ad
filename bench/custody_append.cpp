// Cost of one custody-log append against the size of the log it lands on: finding the previous
// record reads backwards from the end, so a long log must cost no more than a short one.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "custody/CustodyLog.h"
#include "support/Files.h"
#include "support/Uuid.h"

namespace {

namespace fs = std::filesystem;

bc::CustodyRecord exportRecord(int64_t n) {
    bc::CustodyRecord record;
    record.id = bc::newUUID();
    record.createdAt = bc::Date::fromUnix(1709647629.0 + static_cast<double>(n));
    record.action = "export";
    record.format = "PDF";
    record.title = "Conversation " + std::to_string(n);
    record.participants = {"Alex Doe", "Sam Roe"};
    record.chatIDs = {n};
    record.rangeDescription = "Entire conversation";
    record.messageCount = 1200;
    record.attachmentCount = 40;
    record.pageCount = 96;
    record.options = {{"Calls included", "Yes"}};
    record.source = {.kind = "live",
                     .path = "/Users/alex/Library/Messages/chat.db",
                     .databaseSHA256 = std::string(64, 'a')};
    record.outputs = {{.path = "/Users/alex/Documents/Export.pdf",
                       .bytes = 4'500'000,
                       .sha256 = std::string(64, 'c')}};
    record.system = {
        .appVersion = "dev (0)", .macOS = "Linux", .model = "bench", .host = "h", .user = "u"};
    return record;
}

// A valid chain of `count` records, written directly: appending them one by one would spend
// the whole run on flushes.
fs::path logOf(int64_t count) {
    const fs::path file =
        fs::temp_directory_path() /
        ("bc-bench-custody-" + std::to_string(::getpid()) + "-" + std::to_string(count) + ".jsonl");
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    std::string previous;
    for (int64_t n = 0; n < count; ++n) {
        bc::CustodyRecord record = exportRecord(n);
        record.previousRecordSHA256 = previous;
        record.recordSHA256 = bc::CustodyLog::hash(record);
        out << bc::json::encodeCompact(bc::Json(record)) << '\n';
        previous = record.recordSHA256;
    }
    return file;
}

void appendRecord(benchmark::State& state) {
    const fs::path file = logOf(state.range(0));
    bc::CustodyLog::setOverrideURL(file);
    int64_t n = state.range(0);
    for (auto _ : state) benchmark::DoNotOptimize(bc::CustodyLog::append(exportRecord(n++)));
    state.counters["log MiB"] = static_cast<double>(fs::file_size(file)) / (1 << 20);
    bc::CustodyLog::setOverrideURL(std::nullopt);
    fs::remove(file);
}

}  // namespace

BENCHMARK(appendRecord)
    ->Arg(10)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();
